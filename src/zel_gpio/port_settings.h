// Changing one setting of a port or relay that has its type already: input mode, source, output level, whole lists by name.
// `from_ember` 1: the request came through the parameter that would be written, which is then left alone.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// The pin's edges stay as they are until the port is next made an input. 0, or -1.
int32_t set_gpio_in_mode(gpio_port_t *port, uint32_t mode, uint8_t from_ember);
// An empty name: no source. 0, or -1 for an unknown name or a port that is no input.
int32_t set_gpio_vgpo_src(gpio_port_t *port, const char *source_name, uint8_t from_ember);
// Neither saved nor reported; an output that UDP commands drive is left alone. 0, or -1 for a port that is no output.
int32_t set_gpio_status(gpio_port_t *port, uint8_t state, uint8_t from_ember);

// Lists of names joined by ","; one unknown name refuses the whole list. A leading "!" inverts, in the trigger lists of ports
// only; relays and handler lists keep the inverts that they have.
int32_t check_and_set_new_gpio_trig_list(gpio_port_t *port, const char *new_list, uint8_t from_ember);
int32_t check_and_set_new_relay_trig_list(relay_t *relay, const char *new_list, uint8_t from_ember);
// Checks the names, then empties the port's list of triggers; the handlers stay as they were. This is what controllers rely on.
int32_t check_and_set_new_gpio_handler_list(gpio_port_t *port, const char *new_list, uint8_t from_ember);

// The invert of an entry, 0 if there is none.
uint8_t get_gpio_handler_invert(int32_t port_index, int32_t handler_id);
uint8_t get_relay_trigger_invert(int32_t relay_index, int32_t trigger_id);

}  // namespace zel
