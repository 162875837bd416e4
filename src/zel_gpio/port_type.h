// Changing what a port is: input, output or disabled. Each change takes down what the old type had, sets up what the new one
// needs, saves the port, publishes it and sends it to the SNMP agent. A failure part-way is not rolled back.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// `handler_id` none or a handler to connect with `invert`; `vgpo_src` null or the name of a remote virtual output (virtual ports).
// A port that is an input already takes the mode, source and handler. 0, or -1.
int32_t set_gpio_to_input(int32_t index, uint32_t mode, int32_t handler_id, const char *vgpo_src, uint8_t invert);
// `trigger_id` none or a trigger to connect with `invert`. 0, or -1.
int32_t set_gpio_to_output(int32_t index, int32_t trigger_id, uint8_t invert);
// Also takes an input's own trigger out of every output and relay. The result of saving.
int32_t disable_gpio(int32_t index);
// `from_ember` 1: the request came through the port's own parameter, which is then not written. 0, or -1.
int32_t set_gpio_type(gpio_port_t *port, uint32_t type, uint8_t from_ember);

}  // namespace zel
