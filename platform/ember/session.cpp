#include "session.h"

#include <zel_debug.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <exception>

namespace zel::ember {

int64_t monotonic_ms()
{
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t{t.tv_sec} * 1000 + t.tv_nsec / 1000000;
}

bool poller::open(bell wanted)
{
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    alarm_.timer.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    bool good = epoll_ && alarm_.timer && add(alarm_.timer.get(), EPOLLIN, alarm_);
    if (good && wanted == bell::with) {
        bell_.counter.reset(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
        good = bell_.counter && add(bell_.counter.get(), 0, bell_);
    }
    if (!good)
        log_message(0, "%s: No descriptors to wait with: %s\n", __func__, strerror(errno));
    return good;
}

bool poller::add(int fd, uint32_t events, ready_target &target)
{
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.ptr = &target;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) == 0;
}

void poller::change(int fd, uint32_t events, ready_target &target)
{
    epoll_event wanted{};
    wanted.events = events;
    wanted.data.ptr = &target;
    (void)epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, fd, &wanted);   // cannot fail for a descriptor that was added
}

void poller::remove(int fd)
{
    (void)epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

void poller::alarm_clock::on_ready(uint32_t)
{
    uint64_t times;
    (void)!read(timer.get(), &times, sizeof(times));
    at = never;
}

void poller::alarm_clock::set(int64_t delay_ms)
{
    itimerspec when{};
    when.it_value = {static_cast<time_t>(delay_ms / 1000), static_cast<long>(delay_ms % 1000) * 1000000};
    if (delay_ms == 0)
        when.it_value.tv_nsec = 1;   // zero would disarm it
    (void)timerfd_settime(timer.get(), 0, &when, nullptr);
}

// The timer is left alone whenever possible: setting one and being interrupted by it costs more than all else that a
// change costs.
void poller::wake_at(int64_t time, int64_t now)
{
    if (time <= now && bell_.counter) {
        change(bell_.counter.get(), EPOLLIN | EPOLLONESHOT, bell_);
    } else if (time < alarm_.at) {
        alarm_.at = time;
        alarm_.set(time > now ? time - now : 0);
    }
}

void poller::serve()
{
    std::array<epoll_event, 64> ready{};
    const int count = epoll_wait(epoll_.get(), ready.data(), static_cast<int>(ready.size()), 0);
    for (int i = 0; i < count; ++i) {
        const auto &event = ready[static_cast<size_t>(i)];
        static_cast<ready_target *>(event.data.ptr)->on_ready(event.events);
    }
}

}  // namespace zel::ember

void zel_ember_session::due_at(int64_t time)
{
    if (time >= due_)
        return;
    due_ = time;
    if (!in_round_)
        poller_.wake_at(due_, now());
}

void zel_ember_session::process()
{
    if (in_round_)
        return;   // called from a callback of this very session: the round under way does the rest
    in_round_ = true;
    round_time_ = now();
    try {
        poller_.serve();
        if (round_time_ >= due_)
            due_ = zel::ember::never;
        if (!ending_)
            run_due();
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory, trying again\n", __func__);
        due_ = std::min(due_, now() + 100);
    }
    in_round_ = false;
    if (ending_) {
        last_words();
        delete this;
    } else {
        poller_.wake_at(due_, now());
    }
}

void zel_ember_session::end(zel_ember_session *session)
{
    if (session == nullptr || session->ending_)
        return;
    session->ending_ = true;
    if (session->in_round_)
        return;
    session->last_words();
    delete session;
}
