#include "message_decoder.h"

#include "wire_records.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace zel::snmpd {
namespace {

using bytes = std::span<const std::byte>;
using decoded = std::optional<unit_message>;

template <typename record>
record copy_of(bytes payload)
{
    record copy;
    std::memcpy(&copy, payload.data(), sizeof copy);
    return copy;
}

std::string text_of(const char *field)
{
    return {field, strnlen(field, wire_text_size)};
}

// Ids may be -1 for an entry that is bound to nothing. Packed fields have no address, hence the copy.
std::vector<int32_t> ids_of(const int32_t (&slots)[wire_slots], int32_t count)
{
    const auto used = std::min<size_t>(static_cast<size_t>(std::max(count, 0)), wire_slots);
    return {std::begin(slots), std::begin(slots) + used};
}

template <typename record>
std::vector<int32_t> ids_in(const record &from, size_t offset, int32_t count)
{
    int32_t slots[wire_slots];
    std::memcpy(slots, reinterpret_cast<const std::byte *>(&from) + offset, sizeof slots);
    return ids_of(slots, count);
}

decoded refuse(std::string &problem, const char *why, int64_t value)
{
    problem = std::string(why) + " " + std::to_string(value);
    return std::nullopt;
}

bool is_one_of(int32_t value, int32_t highest) { return value >= 0 && value <= highest; }

decoded decode_count(table_id table, bytes payload, std::string &problem)
{
    const auto count = copy_of<uint32_t>(payload);
    if (count > most_rows) return refuse(problem, "a count of", count);
    return count_message{table, count};
}

decoded decode_port(table_id table, bytes payload, std::string &problem)
{
    const auto port = copy_of<wire_port>(payload);
    if (port.index < 0) return refuse(problem, "an index of", port.index);
    if (!is_one_of(port.type, type_output)) return refuse(problem, "a port type of", port.type);
    if (!is_one_of(port.mode, mode_momentary)) return refuse(problem, "an input mode of", port.mode);
    if (port.handler_count < 0 || port.trigger_count < 0 || port.active_count < 0) {
        return refuse(problem, "a negative count in port", port.index);
    }
    row_message message{table == table_id::gpi && port.cough != 0 ? table_id::cough : table,
                        static_cast<uint32_t>(port.index), {}};
    message.row.type = port.type;
    message.row.mode = port.mode;
    message.row.state = port.state != 0;
    message.row.handlers = ids_in(port, offsetof(wire_port, handler_ids), port.handler_count);
    message.row.triggers = ids_in(port, offsetof(wire_port, trigger_ids), port.trigger_count);
    message.row.active = ids_in(port, offsetof(wire_port, active_ids), port.active_count);
    message.row.handler_count = static_cast<uint32_t>(port.handler_count);
    message.row.trigger_count = static_cast<uint32_t>(port.trigger_count);
    message.row.active_count = static_cast<uint32_t>(port.active_count);
    message.row.source = text_of(port.source);
    return message;
}

decoded decode_relay(table_id table, bytes payload, std::string &problem)
{
    const auto relay = copy_of<wire_relay>(payload);
    if (relay.index < 0) return refuse(problem, "an index of", relay.index);
    if (relay.trigger_count < 0 || relay.active_count < 0) return refuse(problem, "a negative count in relay", relay.index);
    row_message message{table, static_cast<uint32_t>(relay.index), {}};
    message.row.type = type_output;
    message.row.state = relay.state != 0;
    message.row.triggers = ids_in(relay, offsetof(wire_relay, trigger_ids), relay.trigger_count);
    message.row.active = ids_in(relay, offsetof(wire_relay, active_ids), relay.active_count);
    message.row.trigger_count = static_cast<uint32_t>(relay.trigger_count);
    message.row.active_count = static_cast<uint32_t>(relay.active_count);
    return message;
}

decoded decode_name(table_id table, bytes payload, std::string &problem)
{
    const auto record = copy_of<wire_name>(payload);
    if (record.id < 0) return refuse(problem, "an id of", record.id);
    return name_message{table, static_cast<uint32_t>(record.id), text_of(record.name)};
}

decoded decode_reply(table_id, bytes payload, std::string &)
{
    const auto reply = copy_of<wire_reply>(payload);
    return reply_message{reply.type, reply.result, reply.tag};
}

struct message_kind {
    uint8_t type;
    table_id table;
    size_t size;
    decoded (*decode)(table_id table, bytes payload, std::string &problem);
};
constexpr message_kind kinds[] = {
    {wire_gpi_count, table_id::gpi, sizeof(uint32_t), decode_count},
    {wire_cough_count, table_id::cough, sizeof(uint32_t), decode_count},
    {wire_relay_count, table_id::relay, sizeof(uint32_t), decode_count},
    {wire_virtual_count, table_id::network, sizeof(uint32_t), decode_count},
    {wire_button_count, table_id::button, sizeof(uint32_t), decode_count},
    {wire_physical, table_id::gpi, sizeof(wire_port), decode_port},
    {wire_virtual, table_id::network, sizeof(wire_port), decode_port},
    {wire_button, table_id::button, sizeof(wire_port), decode_port},
    {wire_led, table_id::led, sizeof(wire_port), decode_port},
    {wire_relay_info, table_id::relay, sizeof(wire_relay), decode_relay},
    {wire_trigger, table_id::trigger, sizeof(wire_name), decode_name},
    {wire_handler, table_id::handler, sizeof(wire_name), decode_name},
    {wire_source, table_id::source, sizeof(wire_name), decode_name},
    {wire_reply_type, table_id::gpi, sizeof(wire_reply), decode_reply},
};

struct applier {
    unit_model &model;

    // Each user button has one LED beside it.
    bool operator()(const count_message &message) const
    {
        const bool pair = message.table == table_id::button;
        return model.set_count(message.table, message.count) && (!pair || model.set_count(table_id::led, message.count));
    }
    bool operator()(row_message &message) const { return model.set_row(message.table, message.index, std::move(message.row)); }
    bool operator()(name_message &message) const { return model.set_name(message.table, message.id, std::move(message.name)); }
    bool operator()(const reply_message &) const { return true; }
};

}  // namespace

std::optional<unit_message> decode_message(uint8_t type, std::span<const std::byte> payload, std::string &problem)
{
    const auto kind = std::ranges::find(kinds, type, &message_kind::type);
    if (kind == std::end(kinds)) return refuse(problem, "an unknown type with a length of", static_cast<int64_t>(payload.size()));
    if (payload.size() != kind->size) {
        problem = std::to_string(payload.size()) + " bytes instead of " + std::to_string(kind->size);
        return std::nullopt;
    }
    return kind->decode(kind->table, payload, problem);
}

bool apply_message(unit_model &model, unit_message message)
{
    return std::visit(applier{model}, message);
}

}  // namespace zel::snmpd
