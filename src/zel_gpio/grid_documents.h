// The JSON documents of the grid. Each writer appends at `pos` and returns the new position, -1 once something does not fit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel {

// Everything on the grid: sources, inputs, outputs, connections.
int get_gpio_grid_info(char *buf, size_t size, int pos);
// What can be put on the grid. `kind` 0: triggers and disabled ports; 1: handlers, disabled ports, relays; else disabled ports.
int get_gpio_free_info(long kind, char *buf, size_t size, int pos);

// Between a port and the trigger that it raises, the built-in triggers coming first and LEDs raising none. The web pages count
// so; a port's own record is not asked.
int32_t trigger_of_port(int32_t index);
int32_t port_of_trigger(int32_t trigger_id);

}  // namespace zel
