#include "event_sources.h"

#include <zel_debug.h>

#include <sys/timerfd.h>

#include <algorithm>
#include <ctime>

namespace zel::ipc {

bool event_sources::open(uint64_t timer_tag)
{
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    return epoll_ && timer_ && add(timer_.get(), EPOLLIN, timer_tag);
}

void event_sources::close()
{
    timer_.reset();
    epoll_.reset();
}

bool event_sources::control(int operation, int fd, uint32_t events, uint64_t tag) const
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = tag;
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

void event_sources::remove_and_close(unique_fd &fd) const
{
    if (fd) (void)epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd.get(), nullptr);
    fd.reset();
}

std::span<epoll_event> event_sources::due(std::span<epoll_event> room) const
{
    const int count = epoll_wait(epoll_.get(), room.data(), static_cast<int>(room.size()), 0);
    return room.first(static_cast<size_t>(std::max(count, 0)));
}

void event_sources::arm_timer(uint32_t ms) const
{
    itimerspec when{};
    when.it_value.tv_sec = ms / 1000;
    when.it_value.tv_nsec = ms == 0 ? 1 : static_cast<long>(ms % 1000) * 1000000;   // all zero would stop the timer
    (void)timerfd_settime(timer_.get(), 0, &when, nullptr);
}

void event_sources::stop_timer() const
{
    const itimerspec never{};
    (void)timerfd_settime(timer_.get(), 0, &never, nullptr);   // forgets an expiry that was not read, too
}

void event_sources::offer(fd_set *readfds, int *maxfd)
{
    if (readfds == nullptr || fd() < 0) return;
    if (fd() < FD_SETSIZE) {
        FD_SET(fd(), readfds);
        if (maxfd != nullptr) *maxfd = std::max(*maxfd, fd());
    } else if (!told_) {
        told_ = true;
        log_message(0, "%s: Descriptor %d does not fit a descriptor set (%d)\n", __func__, fd(), FD_SETSIZE);
    }
}

bool event_sources::is_due(const fd_set *readfds) const
{
    if (fd() < 0) return false;
    return readfds == nullptr || fd() >= FD_SETSIZE || FD_ISSET(fd(), readfds);
}

int64_t now_ms()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace zel::ipc
