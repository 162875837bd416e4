#include "endpoint.h"

#include "common/unit_root.h"
#include "wire.h"

#include <zel_debug.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace zel::ipc {

namespace {

constexpr int listen_backlog = 128;
constexpr int send_buffer_bytes = 2 * ZEL_IPC_MAX_PAYLOAD;   // the kernel doubles it for its own cost

bool is_same_file(int open_file, int folder, const char *name)
{
    struct stat held, named;
    return fstat(open_file, &held) == 0 && fstatat(folder, name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           held.st_ino == named.st_ino && held.st_dev == named.st_dev;
}

// The file that was locked may have been removed by its last owner in between; then the lock means nothing.
unique_fd open_and_lock(int folder, const char *name)
{
    for (int attempt = 0; attempt < 10; ++attempt) {
        unique_fd file(openat(folder, name, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
        if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0) return unique_fd();
        if (is_same_file(file.get(), folder, name)) return file;
    }
    errno = EWOULDBLOCK;
    return unique_fd();
}

}  // namespace

endpoint::endpoint(std::string_view server)
    : server_(server),
      folder_(below_unit_root(socket_folder)),
      path_(folder_ + "/" + server_),
      lock_name_("." + server_ + ".lock")
{
}

bool endpoint::make_folder() const
{
    return make_folder_of(path_);
}

unique_fd endpoint::open_folder() const
{
    return unique_fd(open(folder(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

bool endpoint::address(local_socket_address &out) const noexcept
{
    try {
        return make_local_socket_address(path_, out);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
}

unique_fd endpoint::connect() const
{
    local_socket_address where;
    if (!address(where)) return unique_fd();
    unique_fd socket = make_socket();
    if (!socket || ::connect(socket.get(), where.get(), where.length) != 0) return unique_fd();
    ucred peer;
    if (!is_trusted_peer(socket.get(), peer)) {
        errno = EPERM;
        return unique_fd();
    }
    return socket;
}

bool listening_place::take(const endpoint &place)
{
    folder_ = place.open_folder();
    if (!folder_) {
        log_message(0, "%s: Failed to open folder %s: %s\n", __func__, place.folder(), std::strerror(errno));
        return false;
    }
    if (!lock(place)) return false;
    if (remove_stale_socket(place) && listen_at(place)) return true;
    release(place);
    return false;
}

bool listening_place::lock(const endpoint &place)
{
    lock_ = open_and_lock(folder_.get(), place.lock_name());
    if (lock_) return true;
    if (errno == EWOULDBLOCK) {
        log_message(0, "%s: A server named %s is running already (%s)\n", __func__, place.server(), place.path());
    } else {
        log_message(0, "%s: Failed to lock %s/%s: %s\n", __func__, place.folder(), place.lock_name(), std::strerror(errno));
    }
    return false;
}

bool listening_place::remove_stale_socket(const endpoint &place) const
{
    struct stat found;
    if (fstatat(folder_.get(), place.server(), &found, AT_SYMLINK_NOFOLLOW) != 0) return true;
    if (!S_ISSOCK(found.st_mode)) {
        log_message(0, "%s: %s is in the way and is no socket\n", __func__, place.path());
        return false;
    }
    if (unlinkat(folder_.get(), place.server(), 0) == 0) return true;
    log_message(0, "%s: Failed to remove %s: %s\n", __func__, place.path(), std::strerror(errno));
    return false;
}

bool listening_place::listen_at(const endpoint &place)
{
    local_socket_address where;
    unique_fd made = make_socket();
    if (made && place.address(where) && bind(made.get(), where.get(), where.length) == 0) {
        socket_ = std::move(made);
        // The mode is set before anybody can connect, which needs the listen.
        if (fchmodat(folder_.get(), place.server(), 0600, 0) == 0 && listen(socket_.get(), listen_backlog) == 0) return true;
    }
    log_message(0, "%s: Failed to listen at %s: %s\n", __func__, place.path(), std::strerror(errno));
    return false;
}

void listening_place::release(const endpoint &place)
{
    if (socket_) (void)unlinkat(folder_.get(), place.server(), 0);
    if (lock_) (void)unlinkat(folder_.get(), place.lock_name(), 0);
    socket_.reset();
    lock_.reset();
    folder_.reset();
}

unique_fd make_socket()
{
    unique_fd made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (made) widen_send_buffer(made.get());
    return made;
}

void widen_send_buffer(int socket)
{
    (void)setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &send_buffer_bytes, sizeof send_buffer_bytes);
}

bool is_trusted_peer(int socket, ucred &peer)
{
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
    return peer.uid == geteuid() || peer.uid == 0;
}

}  // namespace zel::ipc
