// Setting up the ports and relays at start-up from the pin table and the configuration file.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Each returns 0, or the result of what failed. A failure ends the work where it is -1 at the end of a record's turn; with a tree
// that result is the tree's, so that there a port that failed does not stop start-up.
int32_t init_phys_gpio(const gpio_phys_cfg_t *phys_cfg, int32_t count);
int32_t init_relays(int32_t base_pin, int32_t count);
int32_t init_vgpio(int32_t count);
int32_t init_user_buttons(int32_t count);

}  // namespace zel
