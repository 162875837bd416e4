// The tables of the MIB as constants: which columns each has, what a column shows, and which request a SET of it becomes.
#pragma once

#include "unit_model.h"

#include <cstdint>
#include <span>
#include <string>
#include <variant>

namespace zel::snmpd {

enum class column_kind : uint8_t {
    name, type, mode, handlers, handler_count, triggers, trigger_count, active, active_count, source, source_valid, state,
    stale, id, listed_by, active_in, driven_by, followers,
};

struct column {
    uint8_t number;       // in the entry; 1 is the index
    column_kind kind;
    uint8_t request;      // type of the request that a SET becomes; 0: read-only
};

// How the unit counts the rows of a table in its requests.
enum class numbering : uint8_t { from_0, from_1 };

struct table {
    table_id id;
    uint8_t number;               // among the MIB's objects
    const char *name;
    std::span<const column> columns;
    numbering requests_count;
    const char *words[3];         // of a port's name while disabled, input, output
};

std::span<const table> mib_tables();
const table &mib_table(table_id id);
const column *find_column(const table &of, unsigned number);
// Number of the column that shows this; 0 if the table has none.
uint8_t column_number(const table &of, column_kind kind);

struct unsigned_value {
    uint32_t value;
};
// INTEGER, Gauge32 or OCTET STRING.
using cell = std::variant<int32_t, unsigned_value, std::string>;

// What the column shows of a row that exists.
cell read_cell(const unit_model &model, const table &of, uint32_t index, column_kind kind);

// Names of ids, joined by ','. Entries without a known name are left out.
std::string joined_names(const unit_model &model, table_id names, const std::vector<int32_t> &ids);

}  // namespace zel::snmpd
