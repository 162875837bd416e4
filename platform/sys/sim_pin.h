// Simulated pins: inputs are contacts that somebody presses, outputs are levels that somebody watches.
#pragma once

#include "pin.h"

#include <memory>

namespace zel {

// Null on failure, logged. `state` outlives the pin. May throw std::bad_alloc.
std::unique_ptr<zel_sys_gpio> open_sim_pin(int32_t number, int32_t direction, pin_state &state);

// Close (true) or open the contact of an input. An open pin sees the edge. -1 where no further contact can be kept.
int move_sim_contact(int32_t number, bool pressed);

}  // namespace zel
