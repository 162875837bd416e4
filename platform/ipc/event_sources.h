// One descriptor for everything that a client or server waits for: an epoll instance over its sockets and its timer.
#pragma once

#include "common/unique_fd.h"

#include <sys/epoll.h>
#include <sys/select.h>

#include <cstdint>
#include <span>

namespace zel::ipc {

class event_sources {
public:
    // Makes the epoll instance and the timer, whose events carry `timer_tag`. False on failure (errno says why).
    bool open(uint64_t timer_tag);
    void close();

    bool add(int fd, uint32_t events, uint64_t tag) { return control(EPOLL_CTL_ADD, fd, events, tag); }
    bool change(int fd, uint32_t events, uint64_t tag) { return control(EPOLL_CTL_MOD, fd, events, tag); }
    // Takes a descriptor out and closes it. Closing alone would not do where a child of this process still holds a copy.
    void remove_and_close(unique_fd &fd) const;
    // What is due now, without waiting: the filled part of `room`.
    std::span<epoll_event> due(std::span<epoll_event> room) const;

    // One expiry after `ms` milliseconds, in place of an earlier one; 0: at once.
    void arm_timer(uint32_t ms) const;
    // To be called when the timer was due, which it stays otherwise.
    void stop_timer() const;

    int fd() const { return epoll_.get(); }
    // The host's select(): adds the descriptor to its set. One that does not fit an fd_set is left out, with one log line.
    void offer(fd_set *readfds, int *maxfd);
    // False if `readfds` says that nothing is due; true also where it cannot say.
    bool is_due(const fd_set *readfds) const;

private:
    bool control(int operation, int fd, uint32_t events, uint64_t tag) const;

    unique_fd epoll_, timer_;
    bool told_ = false;
};

int64_t now_ms();   // a clock that only runs forward

}  // namespace zel::ipc
