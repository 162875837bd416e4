#include "tables.h"

#include <algorithm>
#include <iterator>

namespace zel::snmpd {
namespace {

using kind = column_kind;

constexpr column gpi_columns[] = {
    {2, kind::name, 0},           {3, kind::type, 15},        {4, kind::mode, 19},   {5, kind::handlers, 16},
    {6, kind::handler_count, 0},  {7, kind::triggers, 17},    {8, kind::trigger_count, 0}, {9, kind::active, 0},
    {10, kind::active_count, 0},  {11, kind::state, 20},      {12, kind::stale, 0},
};
constexpr column cough_columns[] = {
    {2, kind::name, 0},          {3, kind::type, 21},  {4, kind::mode, 0},  {5, kind::handlers, 22},
    {6, kind::handler_count, 0}, {7, kind::state, 0},  {8, kind::stale, 0},
};
constexpr column network_columns[] = {
    {2, kind::name, 0},          {3, kind::type, 23},      {4, kind::mode, 0},           {5, kind::handlers, 24},
    {6, kind::handler_count, 0}, {7, kind::triggers, 25},  {8, kind::trigger_count, 0},  {9, kind::active, 0},
    {10, kind::active_count, 0}, {11, kind::source, 27},   {12, kind::source_valid, 0},  {13, kind::state, 28},
    {14, kind::stale, 0},
};
constexpr column button_columns[] = {
    {2, kind::name, 0},          {3, kind::type, 29},  {4, kind::mode, 0},  {5, kind::handlers, 30},
    {6, kind::handler_count, 0}, {7, kind::state, 0},  {8, kind::stale, 0},
};
constexpr column led_columns[] = {
    {2, kind::name, 0},   {3, kind::type, 31},          {4, kind::triggers, 32}, {5, kind::trigger_count, 0},
    {6, kind::active, 0}, {7, kind::active_count, 0},   {8, kind::state, 34},    {9, kind::stale, 0},
};
constexpr column relay_columns[] = {
    {2, kind::name, 0},         {3, kind::triggers, 35}, {4, kind::trigger_count, 0}, {5, kind::active, 0},
    {6, kind::active_count, 0}, {7, kind::state, 0},     {8, kind::stale, 0},
};
constexpr column trigger_columns[] = {
    {2, kind::name, 0}, {3, kind::id, 0}, {4, kind::listed_by, 0}, {5, kind::active_in, 0}, {6, kind::stale, 0},
};
constexpr column handler_columns[] = {{2, kind::name, 0}, {3, kind::id, 0}, {4, kind::driven_by, 0}, {5, kind::stale, 0}};
constexpr column source_columns[] = {{2, kind::name, 0}, {3, kind::id, 0}, {4, kind::followers, 0}, {5, kind::stale, 0}};

constexpr table tables[] = {
    {table_id::gpi, 2, "zelGpiTable", gpi_columns, numbering::from_0, {"Physical Port", "GPI", "GPO"}},
    {table_id::cough, 3, "zelCoughTable", cough_columns, numbering::from_0, {"Cough Port", "COUGH", "COUGH"}},
    {table_id::network, 4, "zelVirtualTable", network_columns, numbering::from_0, {"Virtual Port", "vGPI", "vGPO"}},
    {table_id::button, 5, "zelButtonTable", button_columns, numbering::from_1, {"User Button", "User Button", "User Button"}},
    {table_id::led, 6, "zelLedTable", led_columns, numbering::from_1, {"User LED", "User LED", "User LED"}},
    {table_id::relay, 7, "zelRelayTable", relay_columns, numbering::from_0, {"Relay", "Relay", "Relay"}},
    {table_id::trigger, 8, "zelTriggerTable", trigger_columns, numbering::from_0, {}},
    {table_id::handler, 9, "zelHandlerTable", handler_columns, numbering::from_0, {}},
    {table_id::source, 10, "zelSourceTable", source_columns, numbering::from_0, {}},
};
static_assert(std::size(tables) == table_count);

constexpr bool columns_follow_each_other(const table &of)
{
    unsigned expected = 2;
    for (const column &each : of.columns) {
        if (each.number != expected++) return false;
    }
    return true;
}
static_assert(std::ranges::all_of(tables, columns_follow_each_other));

constexpr bool every_table_stands_at_its_id()
{
    for (size_t i = 0; i < table_count; ++i) {
        if (at(tables[i].id) != i) return false;
    }
    return true;
}
static_assert(every_table_stands_at_its_id());

int32_t truth(bool value) { return value ? 1 : 2; }

std::string shown_name(const table &of, uint32_t index, int32_t type)
{
    return std::string(of.words[type]) + " " + std::to_string(index + 1);
}

cell read_row(const unit_model &model, const table &of, uint32_t index, const port_row &row, column_kind column)
{
    switch (column) {
    case kind::name: return shown_name(of, index, row.type);
    case kind::type: return row.type;
    case kind::mode: return row.mode;
    case kind::handlers: return joined_names(model, table_id::handler, row.handlers);
    case kind::handler_count: return unsigned_value{row.handler_count};
    case kind::triggers: return joined_names(model, table_id::trigger, row.triggers);
    case kind::trigger_count: return unsigned_value{row.trigger_count};
    case kind::active: return joined_names(model, table_id::trigger, row.active);
    case kind::active_count: return unsigned_value{row.active_count};
    case kind::source: return row.source;
    case kind::source_valid: return truth(!row.source.empty() && model.id_of(table_id::source, row.source) >= 0);
    case kind::state: return row.state;
    case kind::stale: return truth(!row.fresh);
    default: return int32_t{0};
    }
}

cell read_name(const unit_model &model, uint32_t id, const name_row &row, column_kind column)
{
    switch (column) {
    case kind::name: return row.name;
    case kind::id: return static_cast<int32_t>(id);
    case kind::listed_by: return unsigned_value{model.listed_by(static_cast<int32_t>(id))};
    case kind::active_in: return unsigned_value{model.active_in(static_cast<int32_t>(id))};
    case kind::driven_by: return unsigned_value{model.driven_by(static_cast<int32_t>(id))};
    case kind::followers: return unsigned_value{model.followers_of(row.name)};
    case kind::stale: return truth(!row.fresh);
    default: return int32_t{0};
    }
}

}  // namespace

std::span<const table> mib_tables()
{
    return tables;
}

const table &mib_table(table_id id)
{
    return tables[at(id)];
}

const column *find_column(const table &of, unsigned number)
{
    const auto found = std::ranges::find(of.columns, number, [](const column &each) { return unsigned{each.number}; });
    return found == of.columns.end() ? nullptr : &*found;
}

uint8_t column_number(const table &of, column_kind wanted)
{
    const auto found = std::ranges::find(of.columns, wanted, &column::kind);
    return found == of.columns.end() ? 0 : found->number;
}

cell read_cell(const unit_model &model, const table &of, uint32_t index, column_kind wanted)
{
    if (const port_row *const row = model.row(of.id, index)) return read_row(model, of, index, *row, wanted);
    if (const name_row *const name = model.name(of.id, index)) return read_name(model, index, *name, wanted);
    return int32_t{0};
}

std::string joined_names(const unit_model &model, table_id names, const std::vector<int32_t> &ids)
{
    std::string text;
    for (const int32_t id : ids) {
        const name_row *const row = id >= 0 ? model.name(names, static_cast<uint32_t>(id)) : nullptr;
        if (row == nullptr) continue;
        if (!text.empty()) text += ',';
        text += row->name;
    }
    return text;
}

}  // namespace zel::snmpd
