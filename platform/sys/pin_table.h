// What is known of each pin by its number, whichever back end it has, and who is told of changes.
#pragma once

#include "zel_sys.h"

#include <cstddef>
#include <cstdint>
#include <map>

namespace zel {

struct pin_state {
    zel_sys_gpio *open = nullptr;  // borrowed; null while the pin is closed
    int32_t direction = 0;         // as last opened; input for a pin never opened
    int level = 0;                 // logical, as last told
    bool contact = false;          // simulated inputs: the contact's position, kept while the pin is closed
};

// States never move and are never removed: pins refer to theirs.
std::map<int32_t, pin_state> &pin_states();

// The state of a pin, null when it was never opened or pressed.
pin_state *find_pin_state(int32_t number);

// Set a pin's level and tell those who watch, unless it was so already.
void tell_pin_level(int32_t number, pin_state &state, int level) noexcept;

// Told in this order: a host that drives pins from its observer must not turn the order around for the control socket.
enum class pin_listener { control_socket, host, count };
void set_pin_listener(pin_listener which, zel_sys_pin_observer_t function, void *user_data) noexcept;

}  // namespace zel
