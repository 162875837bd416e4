// Calls a function when a time has passed, on a thread that is started at first use.
#pragma once

#include <pthread.h>

#include <ctime>

namespace zel::log {

// All members are called with `mutex` held, except join(); so is `due`.
class repeat_timer {
public:
    constexpr repeat_timer(pthread_mutex_t &mutex, void (*due)()) : mutex_(mutex), due_(due) {}

    // False when no thread can be had.
    bool arm(int milliseconds) noexcept;
    void disarm() noexcept { armed_ = false; }
    bool armed() const noexcept { return armed_; }
    // The thread does not exist in the child of a fork.
    void forget_thread() noexcept;
    // Ends the thread; arm() fails from then on. Called without the mutex.
    void join() noexcept;

private:
    static void *run(void *self) noexcept;
    bool start_thread() noexcept;
    void wait() noexcept;

    pthread_mutex_t &mutex_;
    void (*const due_)();
    pthread_cond_t changed_ = PTHREAD_COND_INITIALIZER;
    pthread_t thread_{};
    timespec deadline_{};
    bool running_ = false;
    bool armed_ = false;
    bool ended_ = false;
};

}  // namespace zel::log
