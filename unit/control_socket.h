// The unit's control socket, "/run/zel/unit" below its root: one JSON object per line, both ways, for processes of the same user.
//
// Requests are served one per turn of the host's loop, so that what one did has gone through the library before the next is
// looked at: a press and a release sent in one breath stay two events.
#pragma once

#include "common/unique_fd.h"
#include "reactor.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

struct control_client {
    unique_fd fd;
    std::string in, out;
    bool watches = false, watches_calls = false;
    bool ended = false;          // sends nothing more
    bool dead = false;           // to be closed
    uint32_t interest = EPOLLIN; // what is waited for
};

class control_socket {
public:
    // The answer to one request line, without its line feed. May make the client a watcher.
    using service = std::function<std::string(std::string_view line, control_client &client)>;

    static constexpr size_t most_clients = 32;
    static constexpr size_t longest_request = 4096;
    static constexpr size_t longest_watch_queue = size_t{256} << 10;

    ~control_socket();
    // Replaces a socket file that is there: the caller holds the unit's claim. False with errno.
    bool open(reactor &loop, const std::string &path, service answer);
    // Sends what can be sent, closes all clients, removes the file.
    void close();

    bool anybody_watches() const;
    // A line (without its line feed) for all watchers, or for those who asked for every call.
    void broadcast(const std::string &line, bool is_call);
    bool request_waits() const;
    // Serves one request, whichever client's turn it is.
    void serve_one();
    // Sends what can be sent and lets go of clients that ended, failed or fell too far behind.
    void flush();

private:
    using client_ref = std::shared_ptr<control_client>;
    void accept_clients();
    void turn_away(int fd, const char *why) const;
    void ready(const client_ref &client, uint32_t events);
    void receive(control_client &client);
    void send(control_client &client);
    void wait_for(const client_ref &client);
    void refuse_overlong(control_client &client);

    reactor *loop_ = nullptr;
    unique_fd listener_, spare_;
    std::string path_;
    service answer_;
    std::vector<client_ref> clients_;
    size_t next_ = 0;  // whose turn it is
};

}  // namespace zel
