// The daemon's loop: an AvahiPoll of our own, which also serves the daemon's other descriptors.
//
// A watch or timeout that is freed is only marked as dead and swept before the next wait, because avahi frees them from inside
// callbacks, their own among them.
#pragma once

#include <avahi-common/watch.h>

#include <sys/time.h>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

// The types that avahi-common leaves to the loop.
struct AvahiWatch {
    int fd = -1;
    short wanted = 0, happened = 0;
    AvahiWatchCallback callback = nullptr;
    void *user_data = nullptr;
    bool dead = false;
};

struct AvahiTimeout {
    std::optional<timeval> due;
    AvahiTimeoutCallback callback = nullptr;
    void *user_data = nullptr;
    bool dead = false;
};

namespace zel::sdiscd {

class event_loop {
public:
    event_loop();
    event_loop(const event_loop &) = delete;
    event_loop &operator=(const event_loop &) = delete;

    const AvahiPoll *api() const { return &api_; }

    // Calls `ready` whenever the descriptor is readable. Lives as long as the loop. May throw std::bad_alloc.
    void watch(int fd, std::function<void()> ready);

    // Waits until something is due, at most until `deadline_ms` (of now_ms(); nothing: for ever), and serves it. False if
    // waiting failed. An exception of a callback of watch() passes through.
    bool turn(std::optional<int64_t> deadline_ms);

    size_t watch_count() const { return watches_.size(); }
    size_t timeout_count() const { return timeouts_.size(); }

private:
    void sweep();
    int wait_ms(std::optional<int64_t> deadline_ms) const;
    void serve_watches();
    void serve_timeouts();

    AvahiPoll api_{};
    std::vector<std::unique_ptr<AvahiWatch>> watches_;
    std::vector<std::unique_ptr<AvahiTimeout>> timeouts_;
    std::vector<std::unique_ptr<std::function<void()>>> own_;
};

int64_t now_ms();   // of the clock that avahi reads, gettimeofday(), which only runs forward in the daemon

}  // namespace zel::sdiscd
