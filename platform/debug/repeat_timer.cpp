#include "repeat_timer.h"

#include <limits.h>
#include <signal.h>

#include <cerrno>

namespace zel::log {
namespace {

timespec from_now(int milliseconds)
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    time.tv_sec += milliseconds / 1000;
    time.tv_nsec += milliseconds % 1000 * 1000000L;
    if (time.tv_nsec >= 1000000000L) {
        time.tv_nsec -= 1000000000L;
        ++time.tv_sec;
    }
    return time;
}

}  // namespace

bool repeat_timer::arm(int milliseconds) noexcept
{
    if (ended_ || (!running_ && !start_thread())) return false;
    deadline_ = from_now(milliseconds);
    armed_ = true;
    pthread_cond_signal(&changed_);
    return true;
}

// The host's signals are for its own threads: this one takes none.
bool repeat_timer::start_thread() noexcept
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setstacksize(&attributes, PTHREAD_STACK_MIN + 64 * 1024);
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    running_ = pthread_create(&thread_, &attributes, run, this) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    return running_;
}

void *repeat_timer::run(void *self) noexcept
{
    auto &timer = *static_cast<repeat_timer *>(self);
    pthread_mutex_lock(&timer.mutex_);
    while (!timer.ended_) timer.wait();
    pthread_mutex_unlock(&timer.mutex_);
    return nullptr;
}

void repeat_timer::wait() noexcept
{
    if (!armed_) {
        pthread_cond_wait(&changed_, &mutex_);
        return;
    }
    const timespec deadline = deadline_;  // a copy: arming anew while this waits ends the wait, and the new time is taken up
    if (pthread_cond_clockwait(&changed_, &mutex_, CLOCK_MONOTONIC, &deadline) != ETIMEDOUT || !armed_) return;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec < deadline_.tv_sec || (now.tv_sec == deadline_.tv_sec && now.tv_nsec < deadline_.tv_nsec)) return;
    armed_ = false;
    due_();
}

void repeat_timer::forget_thread() noexcept
{
    running_ = armed_ = false;
    changed_ = PTHREAD_COND_INITIALIZER;
}

void repeat_timer::join() noexcept
{
    pthread_mutex_lock(&mutex_);
    const bool running = running_;
    ended_ = true;
    running_ = false;
    pthread_cond_signal(&changed_);
    pthread_mutex_unlock(&mutex_);
    if (running) pthread_join(thread_, nullptr);
}

}  // namespace zel::log
