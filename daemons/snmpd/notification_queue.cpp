#include "notification_queue.h"

#include <algorithm>

namespace zel::snmpd {

void notification_queue::set_known(notification_key key, notification_state state)
{
    known_[key] = std::move(state);
}

void notification_queue::forget(notification_key key)
{
    known_.erase(key);
}

void notification_queue::touch(notification_key key)
{
    if (in_line_.insert(key).second) waiting_.push_back(key);
    else ++merged_;
}

notification_key notification_queue::take_first()
{
    const notification_key key = waiting_.front();
    waiting_.pop_front();
    in_line_.erase(key);
    return key;
}

// What is gone has no name any more; it is told by the one that it had.
bool notification_queue::becomes_known(notification_key key, notification_state &state)
{
    const auto [place, is_new] = known_.try_emplace(key, state);
    const bool changed = is_new ? state.value != 0 : place->second.value != state.value;
    if (state.name.empty()) state.name = place->second.name;
    place->second = state;
    return changed;
}

bool notification_queue::may_send(int64_t now_ms)
{
    const int64_t gained = (now_ms - refilled_ms_) / interval_ms;
    if (gained > 0) {
        tokens_ = std::min(burst, tokens_ + gained);
        refilled_ms_ = tokens_ == burst ? now_ms : refilled_ms_ + gained * interval_ms;
    }
    return tokens_ > 0;
}

std::optional<int64_t> notification_queue::next_due(int64_t now_ms) const
{
    if (waiting_.empty()) return std::nullopt;
    return tokens_ > 0 ? now_ms : refilled_ms_ + interval_ms;
}

}  // namespace zel::snmpd
