// Whether the unit's network interface has a carrier, as the kernel reports it.
#pragma once

#include "common/unique_fd.h"
#include "reactor.h"

#include <functional>
#include <string>

struct nlmsghdr;

namespace zel {

class link_watch {
public:
    using report = std::function<void(bool up)>;

    // Follows the interface of that name from now on; one that does not exist is down. The first report comes when the kernel
    // has answered, the next ones at each change. False, with the cause in the log, if the kernel cannot be asked.
    bool open(reactor &loop, const std::string &interface, report changed);
    void close();
    bool up() const { return known_ && up_; }

private:
    bool ask_for_all();
    void receive();
    void take(const nlmsghdr &message);
    void take_link(const nlmsghdr &message);
    void set(bool up);
    void start_over(const char *cause);

    reactor *loop_ = nullptr;
    unique_fd socket_;
    std::string interface_;
    report changed_;
    int index_ = 0;           // of the interface while it exists, else 0
    bool seen_in_dump_ = false;
    bool known_ = false, up_ = false;
};

}  // namespace zel
