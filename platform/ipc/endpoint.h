// Where a server is found: a socket of its name in the unit's socket folder, guarded by a lock file beside it.
#pragma once

#include "common/local_socket.h"
#include "common/unique_fd.h"

#include <sys/socket.h>

#include <string>
#include <string_view>

namespace zel::ipc {

class endpoint {
public:
    // `server` is a valid name. The unit's root is taken as it is now. May throw std::bad_alloc.
    explicit endpoint(std::string_view server);

    // Makes the socket folder, for the owner only. False if that fails (errno says why). May throw std::bad_alloc.
    bool make_folder() const;
    // A descriptor that only names the folder; none if there is no folder (errno says why).
    unique_fd open_folder() const;
    // A socket connected to the server; none if nobody listens there or it is not to be trusted (errno says why).
    unique_fd connect() const;

    const char *server() const { return server_.c_str(); }
    const char *folder() const { return folder_.c_str(); }
    const char *path() const { return path_.c_str(); }
    const char *lock_name() const { return lock_name_.c_str(); }
    // The socket's address, however deep the folder lies. False if that fails (errno says why).
    bool address(local_socket_address &out) const noexcept;

private:
    std::string server_, folder_, path_, lock_name_;
};

// The listening socket of one server. A server that died leaves its socket behind, which is replaced; the lock tells it from
// one that lives, because the kernel releases it with the process.
class listening_place {
public:
    // Takes the place. False if it is taken or cannot be made: logged.
    bool take(const endpoint &place);
    // Gives it up again and removes its files.
    void release(const endpoint &place);

    int socket() const { return socket_.get(); }

private:
    bool lock(const endpoint &place);
    bool remove_stale_socket(const endpoint &place) const;
    bool listen_at(const endpoint &place);

    unique_fd folder_, lock_, socket_;
};

// A socket of the kind that is used here; none on failure (errno says why).
unique_fd make_socket();
// Room for several of the longest messages, whatever the system's default is.
void widen_send_buffer(int socket);
// Who is at the other end; false unless it is this process's own user or root.
bool is_trusted_peer(int socket, ucred &peer);

}  // namespace zel::ipc
