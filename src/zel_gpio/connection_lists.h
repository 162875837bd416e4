// The lists that are the connections of the grid, each held by its receiving end: replacing a list, adding and removing one
// connection, and the locks that keep the inverts of mirrored connections equal.
//
// List texts are in the exchange form: decimal ids, and inverts, each joined by ","; "null" for either, or a null pointer, is an
// empty list. Unknown ids are skipped with their inverts.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

enum owner_class : int32_t { owner_gpio = 0, owner_relay = 1, owner_handler = 2 };

// Replaces a list. `handler_id` is none for ports and relays. 0, or -1 if memory is short: the entries made so far stay, counted.
int32_t build_new_trigger_list(const char *ids, const char *inverts, const trigger_view &list, int32_t handler_id);

// Each replaces the list of one owner, saves it, brings the owner to its new level and publishes. `from_ember` goes to the
// publishing. 0, or what failed.
int32_t set_gpio_trigger_list(int32_t index, const char *ids, const char *inverts, uint8_t from_ember);
int32_t set_relay_trigger_list(int32_t index, const char *ids, const char *inverts, uint8_t from_ember);
int32_t set_handler_trigger_list(int32_t id, const char *ids, const char *inverts, uint8_t from_ember);
int32_t set_gpio_handler_list(int32_t index, const char *ids, const char *inverts, uint8_t from_ember);

// Adds (1), updates, or removes (0) one connection of a trigger. Entries whose trigger is not registered vanish with it: a rebuilt
// list keeps live connections only. The setter's result, or -1 for an unknown owner or a trigger that is not listed.
int32_t set_trigger_connection(int32_t owner, int32_t add, int32_t index, int32_t trigger_id, uint8_t invert);
// The same for a handler in the list of an input port.
int32_t set_gpio_handler_connection(int32_t index, int32_t handler_id, uint8_t invert);
int32_t remove_gpio_handler_connection(int32_t index, int32_t handler_id);

// A connection from a trigger to a handler has a mirror when a handler of the trigger's name lists a trigger of the handler's
// name. `add` 1: takes over the mirror's invert into *invert, locks the mirror and returns 0, the new entry's own allow-invert
// flag. `add` 0: unlocks the mirror. 1 in every other case.
uint8_t check_paired_connection(int32_t add, int32_t trigger_id, int32_t handler_id, uint8_t *invert);

}  // namespace zel
