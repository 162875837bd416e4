#include "event_loop.h"

#include "zel_debug.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <new>

namespace zel::sdiscd {
namespace {

event_loop *loop_of(const AvahiPoll *api)
{
    return static_cast<event_loop *>(api->userdata);
}

int64_t ms_of(const timeval &time)
{
    return int64_t{time.tv_sec} * 1000 + (time.tv_usec + 999) / 1000;   // up: waking before the time would be in vain
}

std::optional<timeval> copy_of(const timeval *time)
{
    return time != nullptr ? std::optional(*time) : std::nullopt;
}

// Avahi takes a null for a failed allocation.
template <class kind>
kind *keep(std::vector<std::unique_ptr<kind>> &all, std::unique_ptr<kind> made)
{
    all.push_back(std::move(made));
    return all.back().get();
}

}  // namespace

int64_t now_ms()
{
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
}

event_loop::event_loop()
{
    api_.userdata = this;
    api_.watch_new = [](const AvahiPoll *api, int fd, AvahiWatchEvent event, AvahiWatchCallback callback,
                        void *user_data) -> AvahiWatch * {
        try {
            auto made = std::make_unique<AvahiWatch>(AvahiWatch{fd, static_cast<short>(event), 0, callback, user_data, false});
            return keep(loop_of(api)->watches_, std::move(made));
        } catch (const std::bad_alloc &) {
            return nullptr;
        }
    };
    api_.watch_update = [](AvahiWatch *watch, AvahiWatchEvent event) { watch->wanted = static_cast<short>(event); };
    api_.watch_get_events = [](AvahiWatch *watch) { return static_cast<AvahiWatchEvent>(watch->happened); };
    api_.watch_free = [](AvahiWatch *watch) { watch->dead = true; };
    api_.timeout_new = [](const AvahiPoll *api, const timeval *due, AvahiTimeoutCallback callback,
                          void *user_data) -> AvahiTimeout * {
        try {
            return keep(loop_of(api)->timeouts_, std::make_unique<AvahiTimeout>(AvahiTimeout{copy_of(due), callback, user_data, false}));
        } catch (const std::bad_alloc &) {
            return nullptr;
        }
    };
    api_.timeout_update = [](AvahiTimeout *timeout, const timeval *due) { timeout->due = copy_of(due); };
    api_.timeout_free = [](AvahiTimeout *timeout) { timeout->dead = true; };
}

void event_loop::watch(int fd, std::function<void()> ready)
{
    own_.push_back(std::make_unique<std::function<void()>>(std::move(ready)));
    const auto call = [](AvahiWatch *, int, AvahiWatchEvent, void *user_data) {
        (*static_cast<std::function<void()> *>(user_data))();
    };
    watches_.push_back(std::make_unique<AvahiWatch>(AvahiWatch{fd, POLLIN, 0, call, own_.back().get(), false}));
}

void event_loop::sweep()
{
    std::erase_if(watches_, [](const auto &each) { return each->dead; });
    std::erase_if(timeouts_, [](const auto &each) { return each->dead; });
}

int event_loop::wait_ms(std::optional<int64_t> deadline_ms) const
{
    int64_t first = deadline_ms.value_or(INT64_MAX);
    for (const auto &each : timeouts_) {
        if (each->due) first = std::min(first, ms_of(*each->due));
    }
    if (first == INT64_MAX) return -1;
    return static_cast<int>(std::clamp<int64_t>(first - now_ms(), 0, INT_MAX));
}

bool event_loop::turn(std::optional<int64_t> deadline_ms)
{
    sweep();
    std::vector<pollfd> asked;
    for (const auto &each : watches_) asked.push_back({each->fd, each->wanted, 0});
    const int count = poll(asked.data(), asked.size(), wait_ms(deadline_ms));
    if (count < 0 && errno != EINTR) {
        log_message(0, "%s: poll: %s\n", __func__, std::strerror(errno));
        return false;
    }
    for (size_t i = 0; i < asked.size(); ++i) watches_[i]->happened = count > 0 ? asked[i].revents : short{0};
    serve_timeouts();
    serve_watches();
    return true;
}

// By index, because callbacks add watches; those that are added were not asked for and wait for the next turn.
void event_loop::serve_watches()
{
    for (size_t i = 0; i < watches_.size(); ++i) {
        AvahiWatch &watch = *watches_[i];
        if (watch.dead || watch.happened == 0) continue;
        watch.callback(&watch, watch.fd, static_cast<AvahiWatchEvent>(watch.happened), watch.user_data);
        watch.happened = 0;
    }
}

void event_loop::serve_timeouts()
{
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    for (size_t i = 0, count = timeouts_.size(); i < count; ++i) {
        AvahiTimeout &timeout = *timeouts_[i];
        if (timeout.dead || !timeout.due || timercmp(&*timeout.due, &now, >)) continue;
        timeout.due.reset();
        timeout.callback(&timeout, timeout.user_data);
    }
}

}  // namespace zel::sdiscd
