#include "mib_objects.h"

#include "object_ids.h"
#include "set_checks.h"

#include <zel_debug.h>

#include <new>
#include <utility>

namespace zel::snmpd {
namespace {

struct scalar {
    uint8_t type;
    uint32_t (*read)(const unit_model &model, const unit_link &link, const set_requests &sets, const agent_figures &figures);
};

#define FROM(expression)                                                                                                    \
    [](const unit_model &model, const unit_link &link, const set_requests &sets, const agent_figures &figures) {            \
        (void)model, (void)link, (void)sets, (void)figures;                                                                 \
        return static_cast<uint32_t>(expression);                                                                           \
    }

// In the order of their numbers in the MIB, from 1.
constexpr scalar scalars[] = {
    {ASN_INTEGER, FROM(model.link())},
    {ASN_TIMETICKS, FROM(figures.link_since)},
    {ASN_COUNTER, FROM(link.counted().links)},
    {ASN_COUNTER, FROM(link.counted().messages)},
    {ASN_COUNTER, FROM(link.counted().refused)},
    {ASN_COUNTER, FROM(sets.counted().sent)},
    {ASN_COUNTER, FROM(sets.counted().failed)},
    {ASN_GAUGE, FROM(model.size(table_id::gpi))},
    {ASN_GAUGE, FROM(model.size(table_id::cough))},
    {ASN_GAUGE, FROM(model.size(table_id::network))},
    {ASN_GAUGE, FROM(model.size(table_id::button))},
    {ASN_GAUGE, FROM(model.size(table_id::led))},
    {ASN_GAUGE, FROM(model.size(table_id::relay))},
    {ASN_GAUGE, FROM(model.size(table_id::trigger))},
    {ASN_GAUGE, FROM(model.size(table_id::handler))},
    {ASN_GAUGE, FROM(model.size(table_id::source))},
    {ASN_COUNTER, FROM(figures.notifications)},
    {ASN_COUNTER, FROM(figures.merged)},
};
#undef FROM

void set_number(netsnmp_request_info *request, uint8_t type, int64_t number)
{
    const long value = static_cast<long>(number);
    if (type == ASN_INTEGER) (void)snmp_set_var_typed_integer(request->requestvb, type, value);
    else (void)snmp_set_var_typed_value(request->requestvb, type, &value, sizeof value);
}

struct cell_writer {
    netsnmp_request_info *request;

    void operator()(int32_t number) const { set_number(request, ASN_INTEGER, number); }
    void operator()(unsigned_value number) const { set_number(request, ASN_GAUGE, number.value); }
    void operator()(const std::string &text) const
    {
        (void)snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, text.data(), text.size());
    }
};

// False for a type that no writable object has.
bool read_value(const netsnmp_variable_list &variable, cell &value)
{
    if (variable.type == ASN_INTEGER) {
        value = static_cast<int32_t>(*variable.val.integer);
        return true;
    }
    if (variable.type != ASN_OCTET_STR) return false;
    value = std::string(reinterpret_cast<const char *>(variable.val.string), variable.val_len);
    return true;
}

int error_of(set_verdict verdict)
{
    switch (verdict) {
    case set_verdict::good: return SNMP_ERR_NOERROR;
    case set_verdict::wrong_type: return SNMP_ERR_WRONGTYPE;
    case set_verdict::wrong_length: return SNMP_ERR_WRONGLENGTH;
    case set_verdict::wrong_value: return SNMP_ERR_WRONGVALUE;
    case set_verdict::inconsistent: return SNMP_ERR_INCONSISTENTVALUE;
    case set_verdict::unavailable: return SNMP_ERR_RESOURCEUNAVAILABLE;
    }
    return SNMP_ERR_GENERR;
}

void fail(const set_requests::call &call, int error)
{
    netsnmp_set_request_error(call.info, call.request, error);
}

// What the handlers of the agent library are told of themselves.
struct table_context {
    mib_objects *objects;
    const table *of;
};

template <typename server>
int for_each_request(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration, netsnmp_agent_request_info *info,
                     netsnmp_request_info *requests, const server &serve)
{
    for (netsnmp_request_info *request = requests; request != nullptr; request = request->next) {
        if (request->processed != 0) continue;
        const set_requests::call call{handler, registration, info, request};
        try {
            serve(call);
        } catch (const std::bad_alloc &) {
            fail(call, SNMP_ERR_RESOURCEUNAVAILABLE);
        }
    }
    return SNMP_ERR_NOERROR;
}

int table_handler(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration, netsnmp_agent_request_info *info,
                  netsnmp_request_info *requests)
{
    const auto &context = *static_cast<const table_context *>(handler->myvoid);
    return for_each_request(handler, registration, info, requests,
                            [&](const set_requests::call &call) { context.objects->serve_cell(call, *context.of); });
}

int scalar_handler(netsnmp_mib_handler *handler, netsnmp_handler_registration *registration, netsnmp_agent_request_info *info,
                   netsnmp_request_info *requests)
{
    const auto &objects = *static_cast<const mib_objects *>(handler->myvoid);
    return for_each_request(handler, registration, info, requests,
                            [&](const set_requests::call &call) { objects.serve_scalar(call); });
}

void release_context(void *context)
{
    delete static_cast<table_context *>(context);
}

void *copy_context(void *context)
{
    return new (std::nothrow) table_context(*static_cast<const table_context *>(context));
}

}  // namespace

mib_objects::mib_objects(const unit_model &model, const unit_link &link, set_requests &sets, const agent_figures &figures,
                         bool udp_drives_gpis)
    : model_(model), link_(link), sets_(sets), figures_(figures), udp_drives_gpis_(udp_drives_gpis)
{
}

// The agent library is shut down by now; the rows and tables are ours.
mib_objects::~mib_objects()
{
    for (size_t table = 0; table < table_count; ++table) {
        while (!rows_[table].empty()) remove_row(static_cast<table_id>(table), rows_[table].begin()->first);
        if (tables_[table] != nullptr) {
            snmp_free_varbind(std::exchange(tables_[table]->indexes_template, nullptr));   // which the library forgets
            netsnmp_tdata_delete_table(tables_[table]);
        }
        if (descriptions_[table] != nullptr) netsnmp_table_registration_info_free(descriptions_[table]);
    }
}

bool mib_objects::register_all()
{
    for (const table &each : mib_tables()) {
        if (register_table(each)) continue;
        log_message(0, "%s: The agent library refuses %s\n", __func__, each.name);
        return false;
    }
    return register_scalars();
}

bool mib_objects::register_table(const table &of)
{
    netsnmp_tdata *const rows = netsnmp_tdata_create_table(of.name, 0);
    if (rows == nullptr) return false;
    tables_[at(of.id)] = rows;
    netsnmp_tdata_add_index(rows, ASN_UNSIGNED);
    const object_id id = objects_id(of.number);
    netsnmp_handler_registration *const registration =
        netsnmp_create_handler_registration(of.name, table_handler, id.data(), id.size(), HANDLER_CAN_RWRITE);
    if (registration == nullptr) return false;
    registration->handler->myvoid = new table_context{this, &of};
    registration->handler->data_free = release_context;
    registration->handler->data_clone = copy_context;
    netsnmp_table_registration_info *const info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    if (info == nullptr) {
        netsnmp_handler_registration_free(registration);
        return false;
    }
    descriptions_[at(of.id)] = info;
    netsnmp_table_helper_add_index(info, ASN_UNSIGNED);
    info->min_column = of.columns.front().number;
    info->max_column = of.columns.back().number;
    return netsnmp_tdata_register(registration, rows, info) == MIB_REGISTERED_OK;
}

bool mib_objects::register_scalars()
{
    const object_id id = objects_id(unit_group);
    netsnmp_handler_registration *const registration =
        netsnmp_create_handler_registration("zelUnit", scalar_handler, id.data(), id.size(), HANDLER_CAN_RONLY);
    if (registration == nullptr) return false;
    registration->handler->myvoid = this;
    return netsnmp_register_scalar_group(registration, 1, std::size(scalars)) == MIB_REGISTERED_OK;
}

void mib_objects::add_row(table_id table, uint32_t index)
{
    const auto [place, is_new] = rows_[at(table)].try_emplace(index, row_entry{index, nullptr});
    if (!is_new) return;
    netsnmp_tdata_row *const row = netsnmp_tdata_create_row();
    const unsigned long shown_index = static_cast<unsigned long>(index) + 1;
    const bool made = row != nullptr &&
                      netsnmp_tdata_row_add_index(row, ASN_UNSIGNED, &shown_index, sizeof shown_index) != nullptr;
    if (made) row->data = &place->second;
    if (made && netsnmp_tdata_add_row(tables_[at(table)], row) == SNMPERR_SUCCESS) {
        place->second.row = row;
        return;
    }
    log_message(0, "%s: No memory for row %u of %s\n", __func__, index + 1, mib_table(table).name);
    if (row != nullptr) (void)netsnmp_tdata_delete_row(row);
    rows_[at(table)].erase(place);
}

void mib_objects::remove_row(table_id table, uint32_t index)
{
    const auto place = rows_[at(table)].find(index);
    if (place == rows_[at(table)].end()) return;
    (void)netsnmp_tdata_remove_and_delete_row(tables_[at(table)], place->second.row);
    rows_[at(table)].erase(place);
}

bool mib_objects::find_target(const set_requests::call &call, const table &of, set_target &target) const
{
    const auto *const entry = static_cast<const row_entry *>(netsnmp_tdata_extract_entry(call.request));
    const netsnmp_table_request_info *const info = netsnmp_extract_table_info(call.request);
    const bool reading = MODE_IS_GET(call.info->mode);
    if (entry == nullptr || info == nullptr) {
        fail(call, reading ? SNMP_NOSUCHINSTANCE : SNMP_ERR_NOCREATION);
        return false;
    }
    target = {&of, find_column(of, info->colnum), entry->index};
    if (target.where == nullptr) fail(call, reading ? SNMP_NOSUCHOBJECT : SNMP_ERR_NOTWRITABLE);
    return target.where != nullptr;
}

void mib_objects::serve_cell(const set_requests::call &call, const table &of)
{
    set_target target{};
    switch (call.info->mode) {
    case MODE_GET:
        if (find_target(call, of, target)) get_cell(call, target);
        break;
    case MODE_SET_RESERVE1:
        if (find_target(call, of, target)) check_cell(call, target);
        break;
    case MODE_SET_ACTION: {
        cell value;
        if (find_target(call, of, target) && read_value(*call.request->requestvb, value)) sets_.start(call, target, value);
        break;
    }
    case MODE_SET_UNDO:
        if (find_target(call, of, target)) sets_.undo(call, target);
        break;
    default: break;
    }
}

void mib_objects::get_cell(const set_requests::call &call, const set_target &target) const
{
    std::visit(cell_writer{call.request}, read_cell(model_, *target.of, target.index, target.where->kind));
}

void mib_objects::check_cell(const set_requests::call &call, const set_target &target) const
{
    cell value;
    if (target.where->request == 0) return fail(call, SNMP_ERR_NOTWRITABLE);
    if (!read_value(*call.request->requestvb, value)) return fail(call, SNMP_ERR_WRONGTYPE);
    const netsnmp_variable_list *const first = call.info->asp->pdu->variables;
    const set_context context{first == nullptr || first->next_variable == nullptr, udp_drives_gpis_};
    const set_verdict verdict = check_set(model_, *target.of, target.index, target.where->kind, value, context);
    if (verdict != set_verdict::good) fail(call, error_of(verdict));
}

void mib_objects::serve_scalar(const set_requests::call &call) const
{
    const object_id group = objects_id(unit_group);
    const netsnmp_variable_list &variable = *call.request->requestvb;
    const size_t number = variable.name_length > group.size() ? variable.name[group.size()] : 0;
    if (call.info->mode != MODE_GET || number < 1 || number > std::size(scalars)) return fail(call, SNMP_NOSUCHOBJECT);
    const scalar &row = scalars[number - 1];
    set_number(call.request, row.type, row.read(model_, link_, sets_, figures_));
}

}  // namespace zel::snmpd
