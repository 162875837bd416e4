// Doors out to the Ember+ tree: publishing values. Without a provider each of these does nothing.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// One value of a parameter, if the parameter exists. The integers differ in width on the wire of the provider's own call only.
// 0, or what the provider returned.
int32_t publish_text(zel_ember_element_t *param, const char *text);
int32_t publish_int64(zel_ember_element_t *param, int64_t value);
int32_t publish_int32(zel_ember_element_t *param, int32_t value);
int32_t publish_byte(zel_ember_element_t *param, uint8_t value);

// Recompute and publish all values of one port or relay. `from_ember` 1: the request came through the tree, so the list that a
// controller wrote is not written back. 0, or -1 if a checked write failed; later values are written all the same.
int32_t set_gpio_ember_status(gpio_port_t *port, uint8_t from_ember);
int32_t set_relay_ember_status(relay_t *relay, uint8_t from_ember);

}  // namespace zel
