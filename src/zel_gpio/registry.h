// The tables of handlers and triggers: taking, renaming and freeing slots, and binding new names to the connections that were
// saved for them.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Empties both tables and fills in the built-in triggers. Once, before any port is set up.
void init_handler_trigger_tables();

// `name` and `func` must not be null. The id, or -1 (duplicate, full table, no memory).
int32_t register_handler(const char *name, zel_gpio_handler_func_t func, void *arg, uint8_t led_handler);
// `port_trigger` 1 for a trigger that a port of the library raises. The id, also of a duplicate, or -1.
int32_t register_trigger(const char *name, uint8_t port_trigger);

// Bind every entry that names the handler, or the trigger, and bring its owner to the level that follows.
void attach_handler_to_ports(int32_t id);
void attach_trigger_to_ports(int32_t id);

// At shut-down. The names of the built-in triggers are constants and stay.
void free_handler_and_trigger_names();

}  // namespace zel
