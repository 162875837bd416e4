#include "set_checks.h"

#include "wire_records.h"

#include <cctype>

namespace zel::snmpd {
namespace {

struct set_request {
    const unit_model &model;
    const table &of;
    const port_row &row;
    const set_context &context;
};

set_verdict check_type(const set_request &request, const cell &value)
{
    const int32_t type = std::get<int32_t>(value);
    if (type < type_disabled || type > type_output) return set_verdict::wrong_value;
    const table_id id = request.of.id;
    if (id == table_id::cough && type == type_output) return set_verdict::wrong_value;
    // The request for a button reaches the LED beside it, which is never an input.
    if ((id == table_id::led || id == table_id::button) && type == type_input) return set_verdict::wrong_value;
    return set_verdict::good;
}

set_verdict check_mode(const set_request &request, const cell &value)
{
    const int32_t mode = std::get<int32_t>(value);
    if (mode != mode_latching && mode != mode_momentary) return set_verdict::wrong_value;
    return request.row.type == type_input ? set_verdict::good : set_verdict::inconsistent;
}

set_verdict check_state(const set_request &request, const cell &value)
{
    const int32_t state = std::get<int32_t>(value);
    if (state != 0 && state != 1) return set_verdict::wrong_value;
    if (request.of.id == table_id::led) return set_verdict::good;
    if (request.of.id == table_id::gpi && request.context.udp_drives_gpis) return set_verdict::inconsistent;
    return request.row.type == type_output ? set_verdict::good : set_verdict::inconsistent;
}

// As the unit reads a list: blanks in front of a name do not count, those behind it do.
std::string_view next_name(std::string_view &rest, bool marks)
{
    const size_t comma = rest.find(',');
    std::string_view name = rest.substr(0, comma);
    rest = comma == std::string_view::npos ? std::string_view{} : rest.substr(comma + 1);
    while (!name.empty() && std::isspace(static_cast<unsigned char>(name.front()))) name.remove_prefix(1);
    if (marks && name.starts_with('!')) name.remove_prefix(1);
    return name;
}

set_verdict check_names(const set_request &request, std::string_view list, table_id names, bool marks)
{
    if (list.empty()) return set_verdict::good;
    const bool ends_with_comma = list.back() == ',';
    while (!list.empty()) {
        if (request.model.id_of(names, std::string(next_name(list, marks))) < 0) return set_verdict::inconsistent;
    }
    return ends_with_comma ? set_verdict::inconsistent : set_verdict::good;
}

set_verdict check_handlers(const set_request &request, const cell &value)
{
    if (request.row.type != type_input) return set_verdict::inconsistent;
    return check_names(request, std::get<std::string>(value), table_id::handler, false);
}

set_verdict check_triggers(const set_request &request, const cell &value)
{
    const bool relay = request.of.id == table_id::relay;
    // An input's one trigger is its own.
    if (!relay && request.row.type != type_output) return set_verdict::inconsistent;
    return check_names(request, std::get<std::string>(value), table_id::trigger, !relay);
}

set_verdict check_source(const set_request &request, const cell &value)
{
    const auto &source = std::get<std::string>(value);
    if (request.row.type != type_input) return set_verdict::inconsistent;
    const bool known = source.empty() || request.model.id_of(table_id::source, source) >= 0;
    return known ? set_verdict::good : set_verdict::inconsistent;
}

struct check_row {
    column_kind kind;
    bool is_text, alone;
    set_verdict (*check)(const set_request &request, const cell &value);
};
constexpr check_row checks[] = {
    {column_kind::type, false, true, check_type},         {column_kind::mode, false, false, check_mode},
    {column_kind::state, false, false, check_state},      {column_kind::handlers, true, true, check_handlers},
    {column_kind::triggers, true, true, check_triggers},  {column_kind::source, true, false, check_source},
};

const check_row *find_check(column_kind kind)
{
    for (const check_row &each : checks) {
        if (each.kind == kind) return &each;
    }
    return nullptr;
}

// A zero byte would end the text in the request.
bool has_zero(const std::string &text) { return text.find('\0') != std::string::npos; }

}  // namespace

bool must_stand_alone(column_kind kind)
{
    const check_row *const check = find_check(kind);
    return check != nullptr && check->alone;
}

set_verdict check_set(const unit_model &model, const table &of, uint32_t index, column_kind kind, const cell &value,
                      const set_context &context)
{
    const check_row *const check = find_check(kind);
    const port_row *const row = model.row(of.id, index);
    if (check == nullptr || row == nullptr) return set_verdict::inconsistent;
    const auto *const text = std::get_if<std::string>(&value);
    if ((text != nullptr) != check->is_text) return set_verdict::wrong_type;
    if (text != nullptr && text->size() >= wire_text_size) return set_verdict::wrong_length;
    if (text != nullptr && has_zero(*text)) return set_verdict::wrong_value;
    const set_verdict verdict = check->check({model, of, *row, context}, value);
    if (verdict != set_verdict::good) return verdict;
    if (check->alone && !context.stands_alone) return set_verdict::inconsistent;
    return model.link() == link_state::present ? set_verdict::good : set_verdict::unavailable;
}

}  // namespace zel::snmpd
