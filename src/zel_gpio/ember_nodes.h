// The fixed nodes of the Ember+ tree, and the leaves that name handlers, triggers and remote virtual outputs under them.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

struct ember_nodes {
    zel_ember_element_t *gpio, *physical, *virtual_ports, *user_buttons, *handlers, *triggers, *vgpo_sources;
};
extern ember_nodes nodes;  // null where there is no such node, all of them without a tree

enum ember_access : int { access_read = 1, access_write = 3 };

// A read-only text under `parent`, named by `format` with the id. Null if there is no parent or the provider fails.
zel_ember_element_t *add_name_leaf(zel_ember_element_t *parent, const char *format, int32_t id, const char *name);
// Removes an element, if there is one, and makes the handle null.
void remove_element(zel_ember_element_t *&element);

}  // namespace zel
