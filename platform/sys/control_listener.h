// The socket file of the pins' control socket: one per unit, for the same user only.
#pragma once

#include "common/unique_fd.h"

#include <string>

namespace zel {

class control_listener {
public:
    ~control_listener() { close(); }

    // False where it fails, logged: the socket of a running process is left alone, that of a dead one is replaced.
    bool open();
    void close();
    int fd() const { return socket_.get(); }
    // The next client that waits; none where there is none, or where it belongs to another user. `more`: ask again.
    unique_fd accept(bool &more);

private:
    bool lock();
    bool take_place_of_dead_one() const;
    bool listen_at_path();
    unique_fd accept_without_room();

    std::string path_;
    unique_fd lock_, socket_;
    unique_fd spare_;  // given up for a moment when no descriptor is left, so that a client can be sent away
};

}  // namespace zel
