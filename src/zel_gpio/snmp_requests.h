// Requests of the SNMP agent.
#pragma once

#include <cstdint>

namespace zel {

// Makes the link to the agent and sends it everything. 0, or -1.
int32_t snmp_init();

}  // namespace zel
