#include "reactor.h"

#include <algorithm>
#include <cerrno>

namespace zel {

bool reactor::open()
{
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    if (epoll_.get() < FD_SETSIZE) return static_cast<bool>(epoll_);
    epoll_.reset();
    errno = EMFILE;
    return false;
}

bool reactor::add(int fd, uint32_t events, callback run)
{
    auto kept = std::make_shared<callback>(std::move(run));
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.fd = fd;
    const auto place = callbacks_.insert_or_assign(fd, std::move(kept)).first;
    if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) == 0) return true;
    const int error = errno;
    callbacks_.erase(place);
    errno = error;
    return false;
}

bool reactor::change(int fd, uint32_t events)
{
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.fd = fd;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &wanted) == 0;
}

void reactor::remove(int fd)
{
    if (callbacks_.erase(fd) != 0) (void)epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

void reactor::set_fds(fd_set *readfds, int *maxfd) const
{
    FD_SET(epoll_.get(), readfds);
    *maxfd = std::max(*maxfd, epoll_.get());
}

void reactor::process()
{
    epoll_event ready[64];
    const int count = epoll_wait(epoll_.get(), ready, std::size(ready), 0);
    for (int i = 0; i < count; ++i) {
        const auto found = callbacks_.find(ready[i].data.fd);
        if (found == callbacks_.end()) continue;  // removed by a callback before it
        const auto kept = found->second;          // which may remove itself
        (*kept)(ready[i].events);
    }
}

}  // namespace zel
