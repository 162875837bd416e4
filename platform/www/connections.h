// The server's connections, and how long each may take.
//
// libmicrohttpd ends connections that are silent, but one that sends a byte every few seconds is never silent; what is unfinished
// when its time is up is shut down here.
#pragma once

#include <microhttpd.h>

#include <sys/socket.h>

#include <chrono>
#include <list>
#include <string>

namespace zel::web {

using clock = std::chrono::steady_clock;

enum class phase { receiving, replying, listening };   // a listener to events may stay

struct connection {
    int fd = -1;
    sockaddr_storage local{};
    std::string peer;              // numeric address of the client
    phase now = phase::receiving;
    clock::time_point since{};
    bool ended = false;            // shut down; libmicrohttpd closes it
    std::list<connection>::iterator place;
};

class connection_list {
public:
    struct limits {
        std::chrono::milliseconds request, reply;
    };
    explicit connection_list(limits times) : times_(times) {}

    // Null if there is no memory for it.
    connection *started(MHD_Connection *mhd) noexcept;
    void ended(connection *each) noexcept;
    // Another phase begins.
    static void enter(connection &each, phase next);
    // Ends what took too long.
    void end_overdue();
    static void end(connection &each);
    // Ends it when nothing of what was sent has arrived for so long: the other end of a cut cable never says good-bye.
    static void end_when_cut_off(const connection &each, std::chrono::milliseconds after);
    size_t size() const { return all_.size(); }

private:
    limits times_;
    std::list<connection> all_;
};

}  // namespace zel::web
