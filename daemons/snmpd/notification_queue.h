// Which changes are still to be told, at a limited rate. A row that changes faster than may be told is told once, as it then is;
// so its last state is always told, and no flood takes more memory than there are rows.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace zel::snmpd {

// What a notification speaks of.
enum class subject : uint8_t {
    unit, gpi, cough, network, button, led, relay, trigger_activity, trigger_validity, source_validity,
};

struct notification_key {
    subject about;
    uint32_t index;
    auto operator<=>(const notification_key &) const = default;
};

struct notification_state {
    int32_t value = 0;
    std::string name;   // as the receiver is told; alone it is no change
};

class notification_queue {
public:
    static constexpr int64_t burst = 40;
    static constexpr int64_t interval_ms = 50;   // between two, when the burst is used up

    // This is how it is; nothing is told.
    void set_known(notification_key key, notification_state state);
    bool knows(notification_key key) const { return known_.contains(key); }
    void forget(notification_key key);

    // It may have changed.
    void touch(notification_key key);

    struct due_notification {
        notification_key key;
        notification_state state;
    };
    // The next one to be told at this time. `current(key)` gives what the row is now, or nothing if there is no such row any
    // more, which is then told no more.
    template <typename looker>
    std::optional<due_notification> next(int64_t now_ms, const looker &current)
    {
        while (!waiting_.empty() && may_send(now_ms)) {
            const notification_key key = take_first();
            std::optional<notification_state> state = current(key);
            if (!state || !becomes_known(key, *state)) continue;
            use_one();
            return due_notification{key, std::move(*state)};
        }
        return std::nullopt;
    }
    // When next() may have something: a time, or nothing while nothing waits.
    std::optional<int64_t> next_due(int64_t now_ms) const;

    uint32_t merged() const { return merged_; }    // changes that were told by a later one, or undone before they were told
    size_t waiting() const { return waiting_.size(); }

private:
    bool may_send(int64_t now_ms);
    void use_one() { --tokens_; }
    notification_key take_first();
    bool becomes_known(notification_key key, notification_state &state);

    std::map<notification_key, notification_state> known_;
    std::deque<notification_key> waiting_;
    std::set<notification_key> in_line_;
    int64_t tokens_ = burst;
    int64_t refilled_ms_ = 0;
    uint32_t merged_ = 0;
};

}  // namespace zel::snmpd
