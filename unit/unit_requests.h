// The requests of the control socket: one JSON object with a member "request" and its arguments, answered by one JSON object
// with a member "ok", and "error" where that is false.
#pragma once

#include "control_socket.h"
#include "unit_parts.h"

#include <string>
#include <string_view>

namespace zel {

class unit_requests {
public:
    explicit unit_requests(unit_parts &unit) : unit_(unit) {}

    std::string answer(std::string_view line, control_client &client);

private:
    unit_parts &unit_;
};

}  // namespace zel
