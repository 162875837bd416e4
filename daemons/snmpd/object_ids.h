// Where the MIB's objects are. The number of the enterprise is a build option, the only place where it is said.
#pragma once

#include "net_snmp.h"

#include <initializer_list>
#include <vector>

namespace zel::snmpd {

using object_id = std::vector<oid>;

// The module's identity is below the enterprise.
inline object_id below_module(std::initializer_list<oid> numbers)
{
    object_id id{1, 3, 6, 1, 4, 1, ZEL_SNMP_ENTERPRISE, 1};
    id.insert(id.end(), numbers);
    return id;
}

inline object_id notification_id(oid number) { return below_module({0, number}); }
inline object_id objects_id(oid number) { return below_module({1, number}); }
inline object_id column_id(oid table, oid column, oid index) { return below_module({1, table, 1, column, index}); }

inline constexpr oid unit_group = 1;          // scalars
inline constexpr oid notified_group = 11;     // what is in notifications only

}  // namespace zel::snmpd
