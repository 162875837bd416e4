#include "pin_table.h"

#include <array>

namespace zel {
namespace {

struct listener {
    zel_sys_pin_observer_t function = nullptr;
    void *user_data = nullptr;
};

std::array<listener, static_cast<size_t>(pin_listener::count)> listeners;

}  // namespace

std::map<int32_t, pin_state> &pin_states()
{
    // Never destroyed: a host may close its pins as late as in its own exit handlers.
    static auto &states = *new std::map<int32_t, pin_state>;
    return states;
}

pin_state *find_pin_state(int32_t number)
{
    const auto found = pin_states().find(number);
    return found != pin_states().end() ? &found->second : nullptr;
}

void tell_pin_level(int32_t number, pin_state &state, int level) noexcept
{
    if (state.level == level) return;
    state.level = level;
    const int32_t direction = state.direction;
    for (size_t i = 0; i < listeners.size(); ++i) {
        const listener told = listeners[i];  // it may replace itself
        if (told.function != nullptr) told.function(told.user_data, number, direction, level);
    }
}

void set_pin_listener(pin_listener which, zel_sys_pin_observer_t function, void *user_data) noexcept
{
    listeners[static_cast<size_t>(which)] = {function, user_data};
}

}  // namespace zel
