// GPI ports driven by datagrams: "pin 3 1", "pin 3?", "direction 3 2", "direction 3?", one command per line.
#pragma once

#include "change_feed.h"
#include "common/unique_fd.h"
#include "reactor.h"
#include "settings.h"

#include <string>
#include <string_view>

namespace zel {

class udp_commands {
public:
    explicit udp_commands(change_feed &feed) : feed_(feed) {}

    // False, with the cause in the log, if datagrams cannot be received there.
    bool open(reactor &loop, const endpoint_settings &where);
    void close();

private:
    void receive();
    std::string answer_to(std::string_view datagram);
    std::string answer_line(std::string_view line);

    change_feed &feed_;
    reactor *loop_ = nullptr;
    unique_fd socket_;
};

}  // namespace zel
