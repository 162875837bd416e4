#include "log_output.h"

#include "common/unit_root.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <string>

namespace zel::log {
namespace {

// A reader that went away must not end this process by SIGPIPE, and the host's own handling of that signal is not ours to change.
class sigpipe_held {
public:
    sigpipe_held()
    {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        was_pending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    void swallow() const
    {
        const timespec now{};
        if (!was_pending_) (void)sigtimedwait(&pipe_, nullptr, &now);
    }
    ~sigpipe_held() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    sigpipe_held(const sigpipe_held &) = delete;
    sigpipe_held &operator=(const sigpipe_held &) = delete;

private:
    sigset_t pipe_, before_;
    bool was_pending_;
};

// Not blocking, because opening a pipe that nobody reads would wait for its reader.
int open_for_appending(const char *path)
{
    return open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
}

}  // namespace

void output::take(int fd) noexcept
{
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
}

bool output::open_file(const char *path) noexcept
{
    if (path == nullptr) {
        take(-1);
        path_[0] = '\0';
        return true;
    }
    try {
        const std::string full = path[0] == '/' ? below_unit_root(path) : path;
        errno = ENAMETOOLONG;
        if (full.size() >= sizeof path_) return false;
        if (path[0] == '/' && !make_folder_of(full)) return false;
        const int fd = open_for_appending(full.c_str());
        if (fd < 0) return false;
        take(fd);
        std::memcpy(path_, full.c_str(), full.size() + 1);
        return true;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return false;
    }
}

bool output::reopen() noexcept
{
    if (fd_ < 0) return true;
    const int fd = open_for_appending(path_);
    if (fd >= 0) take(fd);
    return fd >= 0;
}

bool output::write(const line &text, int patience_ms) const noexcept
{
    const int fd = fd_ < 0 ? STDERR_FILENO : fd_;
    // A socket says only by taking a line that it has room; a pipe that is ready has room for a whole one; files always have.
    if (send(fd, text.text, text.length, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return true;
    const bool is_socket = errno != ENOTSOCK;
    if (is_socket && errno != EAGAIN) return true;
    pollfd room{fd, POLLOUT, 0};
    if (poll(&room, 1, patience_ms) == 0) return false;
    if (is_socket) return send(fd, text.text, text.length, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 || errno != EAGAIN;
    const sigpipe_held held;
    ssize_t written;
    do {
        written = ::write(fd, text.text, text.length);
    } while (written < 0 && errno == EINTR);
    if (written < 0 && errno == EPIPE) held.swallow();
    return true;
}

}  // namespace zel::log
