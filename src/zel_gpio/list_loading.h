// Reading saved lists at start-up and at registration.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Each reads one owner's list from its configuration object, binds the names that are registered and marks those as shown on
// the grid. Where the list of inverts is missing, the owner is saved so that its entry is complete. 0, or -1 if memory is short
// (the entries read so far stand).
int32_t get_gpio_triggers(zel_json_obj_t *object, gpio_port_t *port);
int32_t get_relay_triggers(zel_json_file_t *file, zel_json_obj_t *object, relay_t *relay);
int32_t get_gpio_handlers(zel_json_obj_t *object, gpio_port_t *port);
// Only for a handler on the grid. 0, also without an object.
int32_t get_triggers_for_handler(handler_t *handler);

}  // namespace zel
