// A descriptor with one owner, who closes it.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace zel {

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        if (this != &other) reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~unique_fd() { reset(); }

    // -1 when there is none.
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    // Gives the descriptor away; whoever takes it closes it.
    int release() { return std::exchange(fd_, -1); }
    // Closes what is held and takes over `fd`. Leaves errno as it was, so that a failure can be reported after it.
    void reset(int fd = -1)
    {
        const int kept_errno = errno;
        if (fd_ >= 0) close(fd_);
        fd_ = fd;
        errno = kept_errno;
    }

private:
    int fd_ = -1;
};

}  // namespace zel
