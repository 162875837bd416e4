#include "notifications.h"

#include "object_ids.h"
#include "tables.h"

#include <zel_debug.h>

#include <iterator>
#include <memory>

namespace zel::snmpd {
namespace {

// By subject: the notification's number, and the table that the row is in.
struct notification_row {
    oid number;
    table_id table;
    column_kind value;
};
constexpr notification_row rows[] = {
    {1, table_id::gpi, column_kind::state},           // the unit itself, which is in no table
    {2, table_id::gpi, column_kind::state},
    {3, table_id::cough, column_kind::state},
    {4, table_id::network, column_kind::state},
    {5, table_id::button, column_kind::state},
    {6, table_id::led, column_kind::state},
    {7, table_id::relay, column_kind::state},
    {8, table_id::trigger, column_kind::active_in},
    {9, table_id::trigger, column_kind::stale},       // validity, which has an object of its own
    {10, table_id::source, column_kind::stale},
};
static_assert(std::size(rows) == static_cast<size_t>(subject::source_validity) + 1);

constexpr oid validity_number = 1;   // in the group of what is in notifications only

const notification_row &row_of(subject about) { return rows[static_cast<size_t>(about)]; }

bool is_validity(subject about) { return about == subject::trigger_validity || about == subject::source_validity; }
bool is_of_port(subject about) { return about >= subject::gpi && about <= subject::relay; }

subject state_subject(table_id table)
{
    return static_cast<subject>(static_cast<size_t>(subject::gpi) + at(table));
}
static_assert(static_cast<size_t>(subject::gpi) + at(table_id::relay) == static_cast<size_t>(subject::relay));

// A list of variables that is released with the object.
class variables {
public:
    ~variables() { snmp_free_varbind(first_); }
    variables() = default;
    variables(const variables &) = delete;
    variables &operator=(const variables &) = delete;

    void add(const object_id &id, u_char type, const void *value, size_t size)
    {
        (void)snmp_varlist_add_variable(&first_, id.data(), id.size(), type, value, size);
    }
    void add_number(const object_id &id, u_char type, int64_t number)
    {
        const long value = static_cast<long>(number);
        add(id, type, &value, sizeof value);
    }
    void add_text(const object_id &id, const std::string &text) { add(id, ASN_OCTET_STR, text.data(), text.size()); }
    netsnmp_variable_list *get() const { return first_; }

private:
    netsnmp_variable_list *first_ = nullptr;
};

void add_type(variables &list, const unit_model &model, const table &of, notification_key key)
{
    const port_row *const row = model.row(of.id, key.index);
    if (row == nullptr || column_number(of, column_kind::type) == 0) return;
    list.add_number(column_id(of.number, column_number(of, column_kind::type), key.index + oid{1}), ASN_INTEGER, row->type);
}

void add_row_variables(variables &list, const unit_model &model, const notification_queue::due_notification &due)
{
    const notification_row &row = row_of(due.key.about);
    const table &of = mib_table(row.table);
    const oid index = due.key.index + oid{1};
    list.add_text(column_id(of.number, column_number(of, column_kind::name), index), due.state.name);
    if (is_of_port(due.key.about)) add_type(list, model, of, due.key);
    if (is_validity(due.key.about)) {
        list.add_number(below_module({1, notified_group, validity_number, 0}), ASN_INTEGER, due.state.value != 0 ? 1 : 2);
    } else {
        const u_char type = row.value == column_kind::active_in ? ASN_GAUGE : ASN_INTEGER;
        const int64_t value = row.value == column_kind::active_in
                                  ? model.active_in(static_cast<int32_t>(due.key.index)) : due.state.value;
        list.add_number(column_id(of.number, column_number(of, row.value), index), type, value);
    }
}

}  // namespace

void notifications::row_touched(table_id table, uint32_t index)
{
    if (is_counted(table)) queue_.touch({state_subject(table), index});
    if (table == table_id::trigger) {
        queue_.touch({subject::trigger_validity, index});
        queue_.touch({subject::trigger_activity, index});
    }
    if (table == table_id::source) queue_.touch({subject::source_validity, index});
}

void notifications::link_changed(link_state state)
{
    if (state == link_state::present && !known_once_) take_as_known();
    queue_.touch({subject::unit, 0});
}

void notifications::take_as_known()
{
    known_once_ = true;
    const auto know = [this](subject about, uint32_t index) {
        if (auto state = look({about, index})) queue_.set_known({about, index}, std::move(*state));
    };
    for (size_t table = 0; table < counted_tables; ++table) {
        const auto id = static_cast<table_id>(table);
        model_.for_each(id, [&](uint32_t index) { know(state_subject(id), index); });
    }
    model_.for_each(table_id::trigger, [&](uint32_t id) {
        know(subject::trigger_validity, id);
        know(subject::trigger_activity, id);
    });
    model_.for_each(table_id::source, [&](uint32_t id) { know(subject::source_validity, id); });
}

// While the unit tells everything, nothing is certain; while it is away, only that.
bool notifications::held_back() const
{
    return model_.link() == link_state::synchronising;
}

std::optional<notification_state> notifications::look(notification_key key) const
{
    if (key.about == subject::unit) return notification_state{model_.link() == link_state::present, ""};
    const table &of = mib_table(row_of(key.about).table);
    if (const port_row *const row = model_.row(of.id, key.index)) {
        return notification_state{row->state, std::get<std::string>(read_cell(model_, of, key.index, column_kind::name))};
    }
    const name_row *const name = model_.name(of.id, key.index);
    if (key.about == subject::trigger_activity) {
        if (name == nullptr) return std::nullopt;
        return notification_state{model_.active_in(static_cast<int32_t>(key.index)) > 0, name->name};
    }
    if (!is_validity(key.about)) return std::nullopt;
    return notification_state{name != nullptr, name != nullptr ? name->name : ""};
}

void notifications::send_due(int64_t now_ms)
{
    while (!held_back()) {
        const auto due = queue_.next(now_ms, [this](notification_key key) { return look(key); });
        if (!due) return;
        send(*due);
    }
}

std::optional<int64_t> notifications::next_due(int64_t now_ms) const
{
    return held_back() ? std::nullopt : queue_.next_due(now_ms);
}

void notifications::send(const notification_queue::due_notification &due)
{
    static const object_id trap_oid{1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const object_id number = notification_id(row_of(due.key.about).number);
    variables list;
    list.add(trap_oid, ASN_OBJECT_ID, number.data(), number.size() * sizeof number[0]);
    if (due.key.about == subject::unit) list.add_number(below_module({1, unit_group, 1, 0}), ASN_INTEGER, int64_t(model_.link()));
    else add_row_variables(list, model_, due);
    send_v2trap(list.get());
    ++sent_;
}

}  // namespace zel::snmpd
