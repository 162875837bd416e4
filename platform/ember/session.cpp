#include "session.h"

#include <zel_debug.h>

#include <sys/epoll.h>
#include <sys/timerfd.h>

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

bool poller::open()
{
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.ptr = nullptr;
    if (!epoll_ || !timer_ || epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, timer_.get(), &wanted) != 0) {
        log_message(0, "%s: No descriptors to wait with: %s\n", __func__, strerror(errno));
        return false;
    }
    return true;
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

void poller::wake_after(int64_t delay_ms)
{
    itimerspec when{};
    if (delay_ms == 0)
        when.it_value.tv_nsec = 1;   // zero would disarm it
    else if (delay_ms > 0)
        when.it_value = {static_cast<time_t>(delay_ms / 1000), static_cast<long>(delay_ms % 1000) * 1000000};
    (void)timerfd_settime(timer_.get(), 0, &when, nullptr);
}

bool poller::serve()
{
    std::array<epoll_event, 64> ready{};
    const int count = epoll_wait(epoll_.get(), ready.data(), static_cast<int>(ready.size()), 0);
    bool timer_expired = false;
    for (int i = 0; i < count; ++i) {
        const auto &event = ready[static_cast<size_t>(i)];
        if (event.data.ptr != nullptr)
            static_cast<ready_target *>(event.data.ptr)->on_ready(event.events);
        else
            timer_expired = true;
    }
    return timer_expired;
}

}  // namespace zel::ember

void zel_ember_session::due_at(int64_t time)
{
    if (time >= due_)
        return;
    due_ = time;
    if (!in_round_)
        poller_.wake_after(due_ > now() ? due_ - now() : 0);
}

void zel_ember_session::process()
{
    if (in_round_)
        return;   // called from a callback of this very session: the round under way does the rest
    in_round_ = true;
    round_time_ = now();
    const int64_t armed = due_;
    bool arm = false;
    try {
        arm = poller_.serve();
        if (round_time_ >= due_) {
            due_ = zel::ember::never;
            arm = true;
        }
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
    } else if (arm || due_ != armed) {
        poller_.wake_after(due_ == zel::ember::never ? -1 : due_ > now() ? due_ - now() : 0);
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
