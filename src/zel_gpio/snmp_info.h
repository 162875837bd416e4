// Doors out to the SNMP agent: telling it of ports, relays, triggers, handlers and remote virtual outputs. Without a client
// each of these does nothing.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

inline constexpr int32_t all_of_them = -1;

void snmp_send_gpio_info(int32_t index);
void snmp_send_relay_info(int32_t index);
void snmp_send_trigger_info(int32_t id);
void snmp_send_handler_info(int32_t id);
void snmp_send_vgpo_info(int32_t id);
// The notices that a handler or a remote virtual output is gone: its id with an empty name.
void snmp_send_handler_removed(int32_t id);
void snmp_send_vgpo_removed(uint32_t id);
// The counts, then everything there is.
void snmp_send_all_info();

}  // namespace zel
