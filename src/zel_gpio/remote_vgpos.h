// Virtual outputs of other units as the rest of the library sees them.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Takes a record out of the list: its leaf in the tree, a notice to the SNMP agent, then the record.
void drop_remote_vgpo(vGPO_t &vgpo);

// True if the port has a source, and it is this one.
bool follows(const gpio_port_t &port, const char *source);
// One past the last virtual port that was set up.
int32_t virtual_end();
// Calls `visit(port)` for each virtual port in index order.
template <typename visitor>
void for_each_virtual_port(const visitor &visit)
{
    for (int32_t index = phys_gpio_count; index < virtual_end(); ++index) visit(gpios[index]);
}

}  // namespace zel
