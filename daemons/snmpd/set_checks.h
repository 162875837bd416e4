// Whether a SET can be carried out, before anything is asked of the unit; what is refused here changes nothing.
#pragma once

#include "tables.h"

namespace zel::snmpd {

enum class set_verdict { good, wrong_type, wrong_length, wrong_value, inconsistent, unavailable };

struct set_context {
    bool stands_alone = true;     // nothing else is in the SET
    bool udp_drives_gpis = false; // datagrams drive the GPI ports, so that their state cannot be set
};

// `value` holds what the manager sent, with a text for OCTET STRING and a number for INTEGER. The row exists, the column is
// writable.
set_verdict check_set(const unit_model &model, const table &of, uint32_t index, column_kind kind, const cell &value,
                      const set_context &context);

// Types and lists cannot be put back as they were (a list's inverts are not told), so they come alone.
bool must_stand_alone(column_kind kind);

}  // namespace zel::snmpd
