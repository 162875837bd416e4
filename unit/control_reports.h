// The unit's tables as JSON, for the control socket. Each returns a new reference, or null for want of memory.
#pragma once

#include "unit_parts.h"

#include <jansson.h>

namespace zel {

json_t *report_unit(const unit_parts &unit);
json_t *report_pins(const unit_parts &unit);
json_t *report_ports(const unit_parts &unit);
json_t *report_relays(const unit_parts &unit);
json_t *report_handlers(const unit_parts &unit);
json_t *report_triggers(const unit_parts &unit);
// Everything that is on or off, as rows of kind, name and state.
json_t *report_states(const unit_parts &unit);

}  // namespace zel
