#include "control_listener.h"

#include "common/local_socket.h"
#include "common/unit_root.h"
#include "zel_debug.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace zel {
namespace {

constexpr mode_t owner_only = 0600;

bool cannot(const char *what, const std::string &path)
{
    log_message(0, "%s: %s %s: %s\n", __func__, what, path.c_str(), std::strerror(errno));
    return false;
}

bool belongs_to_this_user(int client)
{
    ucred peer = {};
    socklen_t length = sizeof(peer);
    if (getsockopt(client, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return false;
    if (peer.uid == geteuid()) return true;
    log_message(1, "%s: Process %d of user %u is sent away\n", __func__, static_cast<int>(peer.pid), peer.uid);
    return false;
}

unique_fd open_spare()
{
    return unique_fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

bool control_listener::open()
{
    path_ = below_unit_root(socket_folder) + "/pins";
    if (!make_folder_of(path_)) return cannot("No folder for", path_);
    if (!lock() || !take_place_of_dead_one() || !listen_at_path()) {
        lock_.reset();
        return false;
    }
    spare_ = open_spare();
    return true;
}

void control_listener::close()
{
    if (!socket_) return;
    (void)unlink(path_.c_str());
    socket_.reset();
    spare_.reset();
    lock_.reset();  // last: only now may another process take the place
}

// The lock ends with the process, however it ends; two processes that start at once do not both find the place free.
bool control_listener::lock()
{
    const std::string path = path_ + ".lock";
    lock_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, owner_only));
    if (!lock_) return cannot("Cannot open", path);
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK) return cannot("Cannot lock", path);
    log_message(0, "%s: %s belongs to a running process\n", __func__, path_.c_str());
    return false;
}

bool control_listener::take_place_of_dead_one() const
{
    struct stat there;
    if (lstat(path_.c_str(), &there) != 0) return errno == ENOENT || cannot("Cannot look at", path_);
    if (!S_ISSOCK(there.st_mode)) {
        errno = EEXIST;
        return cannot("Something that is no socket lies at", path_);
    }
    local_socket_address address;
    const unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe || !make_local_socket_address(path_, address)) return cannot("Cannot reach", path_);
    if (connect(probe.get(), address.get(), address.length) == 0 || errno != ECONNREFUSED) {
        log_message(0, "%s: %s belongs to a running process\n", __func__, path_.c_str());
        return false;
    }
    return unlink(path_.c_str()) == 0 || cannot("Cannot remove", path_);
}

bool control_listener::listen_at_path()
{
    local_socket_address address;
    unique_fd made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made || !make_local_socket_address(path_, address)) return cannot("Cannot listen at", path_);
    // Before bind(), which gives the file the socket's mode: the file is never there with more rights.
    if (fchmod(made.get(), owner_only) != 0 || bind(made.get(), address.get(), address.length) != 0) {
        return cannot("Cannot listen at", path_);
    }
    if (listen(made.get(), SOMAXCONN) != 0) {
        const bool failed = cannot("Cannot listen at", path_);
        (void)unlink(path_.c_str());
        return failed;
    }
    socket_ = std::move(made);
    return true;
}

unique_fd control_listener::accept(bool &more)
{
    unique_fd client(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!client && (errno == EMFILE || errno == ENFILE)) client = accept_without_room();
    more = static_cast<bool>(client) || errno == EINTR || errno == ECONNABORTED;
    if (client && !belongs_to_this_user(client.get())) client.reset();
    return client;
}

// A client that waits and is never accepted would keep the host's loop awake.
unique_fd control_listener::accept_without_room()
{
    spare_.reset();
    unique_fd client(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (client) log_message(1, "%s: No descriptor is left, a client is sent away\n", __func__);
    const int error = errno;
    client.reset();
    spare_ = open_spare();
    errno = error;
    return client;
}

}  // namespace zel
