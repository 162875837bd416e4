// The clients of the pins' control socket: what they sent and what they have not read yet, within bounds.
#pragma once

#include "common/unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zel {

class control_clients {
public:
    static constexpr size_t most_clients = 16;
    static constexpr size_t most_unread = size_t{64} << 10;

    // `epoll` is borrowed; clients are registered with it under their id, which is never 0.
    explicit control_clients(int epoll) : epoll_(epoll) {}

    // Takes the client over, or sends it away where there are too many. May throw std::bad_alloc.
    void add(unique_fd socket);
    // Something happened on the descriptor of a client, which may have been dropped since. Serves one request at most; true if
    // that moved a contact.
    bool serve(uint64_t id, uint32_t events) noexcept;
    // Tell everyone who watches. A client that cannot be told is dropped by the next drop_lost().
    void tell_change(int32_t pin, int32_t direction, int level) noexcept;
    void drop_lost();

private:
    struct client {
        unique_fd socket;
        std::string request;  // begun, its line feed is still to come
        std::string unread;
        bool watching = false;
        bool lost = false;
    };

    bool receive(client &from);
    bool take(client &from, std::string_view bytes);
    void put(client &to, const std::string &text);
    void flush(client &to);
    void lose(client &gone, const char *why) noexcept;
    void wait_for(uint64_t id, const client &waiting);

    int epoll_;
    uint64_t last_id_ = 0;
    std::map<uint64_t, client> clients_;
};

}  // namespace zel
