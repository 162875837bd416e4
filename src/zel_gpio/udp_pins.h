// Levels of the GPI ports that come by UDP commands. The calls are public, see zel_gpio.h.
#pragma once

#include "zel_gpio/records.h"

namespace zel {

// A number of a GPI port, that is of a physical port that is not a cough port.
bool is_gpi_index(int32_t index);

}  // namespace zel
