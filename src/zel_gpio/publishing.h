// The end of every change: what was changed is published in the tree and sent to the SNMP agent, in this order.
#pragma once

#include "zel_gpio/ember_status.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

// 0, or -1 if a value could not be published.
inline int32_t publish_and_send(gpio_port_t &port, uint8_t from_ember)
{
    const int32_t result = set_gpio_ember_status(&port, from_ember);
    snmp_send_gpio_info(port.index);
    return result;
}

inline int32_t publish_and_send(relay_t &relay, uint8_t from_ember)
{
    const int32_t result = set_relay_ember_status(&relay, from_ember);
    snmp_send_relay_info(relay.index);
    return result;
}

}  // namespace zel
