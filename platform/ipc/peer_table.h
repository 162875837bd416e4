// The clients of a server, by id. An id is a place in the table and a running number, so that it is found at once and a
// client that is gone is not taken for the next one in its place.
#pragma once

#include "message_queue.h"

#include "common/unique_fd.h"

#include <zel_ipc.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace zel::ipc {

struct peer {
    peer(unique_fd connection, queue_limits limits) : socket(std::move(connection)), waiting(limits) {}

    enum class stage {
        greeting,    // connected, has not said who it is
        up,          // announced to the application
        leaving      // to be disconnected as soon as no callback is at work on it
    };

    unique_fd socket;
    message_queue waiting;
    uint32_t id = 0;
    int32_t pid = 0;
    uint32_t uid = 0;
    char name[ZEL_IPC_MAX_NAME + 1] = {};
    stage at = stage::greeting;
    bool announced = false;
    bool deaf = false;           // takes no more messages; what it still sent is read to its end
    uint32_t interest = 0;       // the events that are waited for
    int64_t deadline_ms = 0;     // of its greeting

    zel_ipc_peer_t seen() const { return {id, pid, uid, name}; }
};

class peer_table {
public:
    static constexpr uint32_t most_places = 1024;

    // At most `most_places`; ids go on from a running number. May throw std::bad_alloc.
    explicit peer_table(uint32_t places, uint32_t running_number = 0) : places_(places), running_number_(running_number) {}

    // Takes the peer and gives it an id. Null if there is no room (the peer is gone then).
    peer *add(std::unique_ptr<peer> added);
    peer *find(uint32_t id) const;
    std::unique_ptr<peer> take(const peer &gone) { return std::move(places_[place_of(gone.id)]); }

    // By place, for walks that stay valid while peers come and go; null where there is none.
    uint32_t places() const { return static_cast<uint32_t>(places_.size()); }
    peer *at(uint32_t place) const { return places_[place].get(); }

private:
    static constexpr uint32_t place_bits = 10;
    static constexpr uint32_t place_of(uint32_t id) { return id & (most_places - 1); }
    static_assert(most_places == 1u << place_bits);

    std::vector<std::unique_ptr<peer>> places_;
    uint32_t running_number_;
};

}  // namespace zel::ipc
