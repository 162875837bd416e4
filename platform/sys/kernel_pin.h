// Pins on GPIO lines of the machine.
#pragma once

#include "pin.h"

#include <memory>

namespace zel {

// Null on failure, logged. `state` outlives the pin. May throw std::bad_alloc.
std::unique_ptr<zel_sys_gpio> open_kernel_pin(int32_t number, int32_t direction, pin_state &state);

}  // namespace zel
