// Building the Ember+ tree: the fixed nodes once at start-up, then the node of each port and relay.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Null `provider` or `parent`: no tree, 0. Else 0, or -1 if a node could not be added.
int32_t init_gpio_ember_tree(zel_ember_session_t *provider, zel_ember_element_t *parent, int32_t phys_count, int32_t relays_wanted,
                             int32_t virt_count, int32_t button_count);
// Each adds the node of one record with its parameters. Asks for a tree with a "virtual" node. 0, or -1 if there is no node; a
// missing parameter is not reported.
int32_t add_gpio_to_ember_tree(int32_t index);
int32_t add_relay_to_ember_tree(int32_t index);
// At shut-down.
void remove_ember_tree();

}  // namespace zel
