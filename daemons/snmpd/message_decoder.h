// Messages of the unit as values: sizes, ranges and texts are checked here and nowhere else.
#pragma once

#include "unit_model.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>

namespace zel::snmpd {

struct count_message {
    table_id table;
    uint32_t count;
};
struct row_message {
    table_id table;
    uint32_t index;
    port_row row;
};
struct name_message {
    table_id table;
    uint32_t id;
    std::string name;   // empty: gone
};
struct reply_message {
    int32_t type;
    int32_t result;
    int32_t tag;
};
using unit_message = std::variant<count_message, row_message, name_message, reply_message>;

// Nothing for a message that cannot be meant: `problem` then says why, in a few words.
std::optional<unit_message> decode_message(uint8_t type, std::span<const std::byte> payload, std::string &problem);

// False for what the model refuses. A reply changes no model.
bool apply_message(unit_model &model, unit_message message);

}  // namespace zel::snmpd
