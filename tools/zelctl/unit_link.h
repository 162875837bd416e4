// The link to a unit's control socket: one JSON object per line, both ways.
#pragma once

#include "common/json_reading.h"
#include "common/unique_fd.h"
#include "exit_status.h"

#include <chrono>
#include <optional>
#include <string>

namespace zel {

// What went wrong, for the user, and the exit status that tells it.
struct link_problem {
    exit_status status;
    std::string text;
};

class unit_link {
public:
    // To the unit of the root that ZEL_ROOT names. Throws link_problem.
    unit_link();

    // Sends a request and waits for its answer. Throws link_problem.
    json_handle ask(const json_t *request);
    // The next line as it came, nothing after `deadline` or once a signal was taken from `signal_fd` (-1: none).
    // Throws link_problem.
    std::optional<std::string> next_line(std::optional<std::chrono::steady_clock::time_point> deadline, int signal_fd);

private:
    std::optional<std::string> buffered_line();
    void receive();

    unique_fd socket_;
    std::string in_;
};

}  // namespace zel
