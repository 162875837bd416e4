// How state moves through the grid: from triggers to outputs, relays and handlers, and from input ports to handlers.
//
// Handler callbacks may change any table while a walk is under way, so walks read every record and count anew after each call.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// An output's list or a trigger of it changed: recount its active triggers, drive it and publish. An output with an empty list
// keeps its level.
void gpio_trigger_event(gpio_port_t *port);

// Bring an output to the level of its active count, unless UDP commands drive it: its pin, or for a user LED its handler.
void drive_output(gpio_port_t &port);

// An entry of the relay's list became active (1) or inactive (0), which leaves `count` active entries. Writes the pin at the first
// active and after the last inactive entry, and publishes.
void relay_trigger_event(relay_t *relay, uint8_t active, int32_t count);

// As above for a handler: recomputes its state and calls it back, changed or not.
void handler_trigger_event(handler_t *handler, int32_t count);

// An input's level, or its list of handlers, changed: set or clear its bit in each handler, and call each back.
void set_port_handler_state(int32_t index);
// A port stops being an input: clear its bit in each handler that has a callback, and call it back.
void clear_port_handler_state(int32_t index);

// Call a handler back with its present state, if it has a callback.
void call_handler(const handler_t &handler, int32_t source, uintptr_t context);

}  // namespace zel
