// The unit's answers as text for people.
#pragma once

#include <jansson.h>

#include <string>

namespace zel {

std::string print_unit(const json_t *answer);
std::string print_pins(const json_t *answer);
std::string print_ports(const json_t *answer);
std::string print_relays(const json_t *answer);
std::string print_handlers(const json_t *answer);
std::string print_triggers(const json_t *answer);
std::string print_states(const json_t *answer);
std::string print_status(const json_t *answer);
std::string print_grid(const json_t *answer);
// One line without its line feed for an object of the watch stream.
std::string print_change(const json_t *change);

}  // namespace zel
