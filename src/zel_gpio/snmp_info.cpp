#include "zel_gpio/snmp_info.h"

#include <algorithm>
#include <cstring>

#include "zel_gpio/snmp_records.h"

namespace zel {

namespace {

void send(uint8_t type, const void *record, uint32_t size)
{
    (void)zel_ipc_client_send(snmp_client, type, record, size);
}

void send_count(uint8_t type, int32_t count)
{
    const uint32_t value = static_cast<uint32_t>(count);
    send(type, &value, sizeof value);
}

// Copies as the agent expects it: zero-padded, and without a terminator when the text fills the field.
void copy_text(char (&field)[snmp_text_size], const char *text)
{
    std::memcpy(field, text, strnlen(text, sizeof field));
}

void send_name(uint8_t type, int32_t id, const char *name)
{
    snmp_name_record record{};
    record.id = id;
    copy_text(record.name, name);
    send(type, &record, sizeof record);
}

bool is_virtual_index(int32_t index)
{
    return index >= phys_gpio_count && (user_button_count == 0 || index < first_user_button);
}

snmp_type port_message_type(const gpio_port_t &port)
{
    if (port.index < gpi_count + cough_count) return snmp_physical_info;
    if (is_virtual_index(port.index)) return snmp_virtual_info;
    return port.gpio_class == class_user_button ? snmp_button_info : snmp_led_info;
}

int32_t index_within_kind(const gpio_port_t &port)
{
    switch (port_message_type(port)) {
        case snmp_physical_info: return is_cough(port) ? port.index - gpi_count : port.index;
        case snmp_virtual_info: return port.index - phys_gpio_count;
        default: return (port.index - first_user_button) / 2;
    }
}

int32_t shown_state(const gpio_port_t &port)
{
    if (port.gpio_class == class_user_button)
        return valid_trigger_id(port.trig_ids[0]) ? trigger_list[port.trig_ids[0]].state : 0;
    if (port.gpio_class == class_user_led) return port.handlers[0] != nullptr ? port.handlers[0]->state : 0;
    return port.state;
}

// Longer lists send their first entries; the counts stay truthful.
void copy_triggers(const trigger_view &list, int32_t *ids, int32_t *active_ids)
{
    int32_t active = 0;
    for (int32_t k = 0; k < *list.count; ++k) {
        if (k < snmp_slots) ids[k] = list.ids[k];
        if (entry_is_active(list, k) && active < snmp_slots) active_ids[active++] = list.ids[k];
    }
}

void copy_handlers(const gpio_port_t &port, snmp_port_record &record)
{
    int32_t ids[snmp_slots] = {};
    for (int32_t k = 0; k < std::min(port.num_handlers, snmp_slots); ++k)
        ids[k] = port.handlers[k] != nullptr ? port.handlers[k]->id : none;
    std::memcpy(record.handler_ids, ids, sizeof ids);
    record.handlers = port.num_handlers;
}

void copy_port_triggers(gpio_port_t &port, snmp_port_record &record)
{
    int32_t ids[snmp_slots] = {}, active_ids[snmp_slots] = {};
    copy_triggers(triggers_of(port), ids, active_ids);
    std::memcpy(record.trigger_ids, ids, sizeof ids);
    std::memcpy(record.active_ids, active_ids, sizeof active_ids);
    record.triggers = port.num_trigs;
    record.active = port.active_trigs;
}

void send_port(gpio_port_t &port)
{
    snmp_port_record record{};
    record.index = index_within_kind(port);
    record.type = static_cast<int32_t>(port.type);
    record.cough = is_cough(port);
    if (port.type == type_input) copy_handlers(port, record);
    if (port.type == type_output) copy_port_triggers(port, record);
    if (port.gpio_class == class_virtual && port.vgpo_src != nullptr) {
        copy_text(record.vgpo_source, port.vgpo_src);
        record.vgpo_source[snmp_text_size - 1] = '\0';  // this one is always terminated
    }
    record.input_mode = static_cast<int32_t>(port.input_mode);
    record.state = shown_state(port);
    send(port_message_type(port), &record, sizeof record);
}

void send_relay(relay_t &relay)
{
    int32_t ids[snmp_slots] = {}, active_ids[snmp_slots] = {};
    const trigger_view list = triggers_of(relay);
    copy_triggers(list, ids, active_ids);
    snmp_relay_record record{};
    record.index = relay.index;
    std::memcpy(record.trigger_ids, ids, sizeof ids);
    std::memcpy(record.active_ids, active_ids, sizeof active_ids);
    record.triggers = relay.num_trigs;
    record.active = relay.active_trigs;
    record.state = count_active(list) > 0;
    send(snmp_relay_info, &record, sizeof record);
}

// Calls `visit` for one index, or for all from 0 to `end` - 1.
template <typename visitor>
void for_each_index(int32_t wanted, int32_t end, const visitor &visit)
{
    if (snmp_client == nullptr) return;
    const int32_t first = wanted == all_of_them ? 0 : wanted;
    const int32_t last = wanted == all_of_them ? end : wanted + 1;
    for (int32_t i = std::max(first, 0); i < std::min(last, end); ++i) visit(i);
}

}  // namespace

void snmp_send_gpio_info(int32_t index)
{
    for_each_index(index, gpios != nullptr ? port_end : 0, [](int32_t i) { send_port(gpios[i]); });
}

void snmp_send_relay_info(int32_t index)
{
    for_each_index(index, relays != nullptr ? relay_count : 0, [](int32_t i) { send_relay(relays[i]); });
}

void snmp_send_trigger_info(int32_t id)
{
    for_each_index(id, trigger_count, [](int32_t i) {
        if (trigger_list[i].name != nullptr) send_name(snmp_trigger_info, i, trigger_list[i].name);
    });
}

void snmp_send_handler_info(int32_t id)
{
    for_each_index(id, handler_count, [](int32_t i) {
        if (handler_list[i].name != nullptr) send_name(snmp_handler_info, i, handler_list[i].name);
    });
}

void snmp_send_vgpo_info(int32_t id)
{
    if (snmp_client == nullptr) return;
    for (const vgpo_node_t *node = remote_vgpos.head; node != nullptr; node = node->next) {
        const vGPO_t &vgpo = *node->vgpo;
        if (vgpo.name == nullptr || (id != all_of_them && static_cast<int32_t>(vgpo.id) != id)) continue;
        send_name(snmp_vgpo_info, static_cast<int32_t>(vgpo.id), vgpo.name);
    }
}

void snmp_send_handler_removed(int32_t id)
{
    if (snmp_client != nullptr) send_name(snmp_handler_info, id, "");
}

void snmp_send_vgpo_removed(uint32_t id)
{
    if (snmp_client != nullptr) send_name(snmp_vgpo_info, static_cast<int32_t>(id), "");
}

void snmp_send_all_info()
{
    if (snmp_client == nullptr) return;
    send_count(snmp_gpi_count, gpi_count);
    send_count(snmp_cough_count, cough_count);
    send_count(snmp_relay_count, relay_count);
    send_count(snmp_virtual_count, virtual_gpio_count);
    send_count(snmp_button_count, user_button_count);
    snmp_send_gpio_info(all_of_them);
    snmp_send_relay_info(all_of_them);
    snmp_send_trigger_info(all_of_them);
    snmp_send_handler_info(all_of_them);
    snmp_send_vgpo_info(all_of_them);
}

}  // namespace zel
