#include "zel_gpio/grid_documents.h"

#include <cstring>

#include "zel_gpio/assertion.h"
#include "zel_gpio/grid_connections.h"
#include "zel_gpio/json_writer.h"
#include "zel_gpio/port_names.h"
#include "zel_gpio/records.h"
#include "zel_gpio/vgpo_discovery.h"

namespace zel {

namespace {

constexpr int32_t ac_power_trigger = 2;
constexpr const char *product_without_ac_power = "KRT-DX4";

const char *input_word(const gpio_port_t &port)
{
    return is_cough(port) ? "cough" : class_words[port.gpio_class];
}

bool shown_state(const gpio_port_t &port)
{
    if (port.gpio_class != class_user_button) return port.state != 0;
    return valid_trigger_id(port.trig_ids[0]) && trigger_list[port.trig_ids[0]].state != 0;
}

void put_input_settings(json_writer &json, const gpio_port_t &port)
{
    if (port.gpio_class == class_virtual) {
        const bool has_source = port.vgpo_src != nullptr && port.vgpo_src[0] != '\0';
        json.put("vgpo_src", has_source ? port.vgpo_src : "-");
        json.put("vgpo_src_valid", port.vgpo_src_valid != 0);
    } else if (port.gpio_class != class_user_led) {
        json.put("input_mode", static_cast<int32_t>(port.input_mode));
    }
}

void put_port(json_writer &json, int32_t index)
{
    if (!port_exists(index)) return;
    const gpio_port_t &port = gpios[index];
    char name[port_name_size] = "";
    get_gpio_port_name(display_number(index), port.gpio_class, name);
    json.begin_object();
    json.put("index", index);
    json.put("class", input_word(port));
    json.put("name", name);
    json.put("state", shown_state(port));
    if (port.type == type_input) put_input_settings(json, port);
    json.end_object();
}

void put_relay(json_writer &json, int32_t index)
{
    json.begin_object();
    json.put("index", index);
    json.put("class", "relay");
    json.put("name", numbered("Relay %d", index + 1).text);
    json.put("state", relays[index].active_trigs > 0);
    json.end_object();
}

// Triggers and handlers look alike on the grid.
void put_event(json_writer &json, int32_t id, const char *name, uint8_t state)
{
    json.begin_object();
    json.put("index", id);
    json.put("class", "event");
    json.put("name", name);
    json.put("state", state != 0);
    json.end_object();
}

bool trigger_is_hidden(const trigger_t &trigger)
{
    if (trigger.name == nullptr || trigger.port_trigger != 0) return true;
    return trigger.id == ac_power_trigger && std::strcmp(zel_sys_get_prodid(), product_without_ac_power) == 0;
}

void put_triggers(json_writer &json, bool on_grid)
{
    for (const trigger_t &trigger : trigger_list) {
        if (trigger_is_hidden(trigger) || (trigger.on_grid != 0) != on_grid) continue;
        put_event(json, trigger.id, trigger.name, trigger.state);
    }
}

void put_handlers(json_writer &json, bool on_grid)
{
    for (const handler_t &handler : handler_list) {
        if (handler.name == nullptr || handler.func == nullptr || handler.led_handler != 0) continue;
        if ((handler.on_grid != 0) == on_grid) put_event(json, handler.id, handler.name, handler.state);
    }
}

void put_ports(json_writer &json, uint32_t type)
{
    for (int32_t index = 0; index < port_end; ++index) {
        if (gpios[index].type == type) put_port(json, index);
    }
}

void put_relays(json_writer &json, bool on_grid)
{
    for (int32_t index = 0; index < relay_count; ++index) {
        if ((relays[index].on_grid != 0) == on_grid) put_relay(json, index);
    }
}

constexpr uint8_t always_allowed = 1;

// A trigger that a port raises is shown as the port.
void set_input(connection &c, int32_t trigger_id)
{
    const int32_t index = port_of_trigger(trigger_id);
    const bool is_port = trigger_list[trigger_id].port_trigger != 0 && port_exists(index);
    c.input_class = is_port ? input_word(gpios[index]) : "event";
    c.input_id = is_port ? index : trigger_id;
    c.input_state = trigger_list[trigger_id].state != 0;
}

void put_driven(connection_writer &out, const trigger_view &list, const char *output_class, int32_t output_id)
{
    for (int32_t k = 0; k < *list.count; ++k) {
        if (list.ids[k] == none) continue;
        connection c{};
        set_input(c, list.ids[k]);
        c.output_class = output_class;
        c.output_id = output_id;
        c.inverted = list.inverts[k] != 0;
        c.allow_invert = &always_allowed;
        out.put(c);
    }
}

void put_handled(connection_writer &out, const gpio_port_t &port)
{
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        if (port.handlers[k] == nullptr) continue;
        out.put({input_word(port), port.index, "event", port.handlers[k]->id, port.handler_inv[k] != 0, nullptr,
                 port.state != 0});
    }
}

void put_handler_connections(connection_writer &out, handler_t &handler)
{
    for (int32_t k = 0; k < handler.num_trigs; ++k) {
        const int32_t id = handler.trig_ids[k];
        if (id == none) continue;
        out.put({"event", id, "event", handler.id, handler.trig_inv[k] != 0, &handler.allow_invert[k],
                 trigger_list[id].state != 0});
    }
}

void put_connections(json_writer &json)
{
    connection_writer out(json);
    for (int32_t index = 0; index < port_end; ++index) {
        gpio_port_t &port = gpios[index];
        if (port.type == type_output) put_driven(out, triggers_of(port), class_words[port.gpio_class], index);
        if (port.type == type_input) put_handled(out, port);
    }
    for (int32_t index = 0; index < relay_count; ++index) {
        if (relays[index].on_grid != 0) put_driven(out, triggers_of(relays[index]), "relay", index);
    }
    for (handler_t &handler : handler_list) {
        if (handler.on_grid != 0) put_handler_connections(out, handler);
    }
}

void put_sources(json_writer &json, char *buf, size_t size)
{
    json = json_writer(buf, size, get_vgpo_src_list(buf, size, json.position()));
}

}  // namespace

int32_t trigger_of_port(int32_t index)
{
    if (user_button_count > 0 && index >= first_user_button)
        return (index - first_user_button) / 2 + first_user_button + built_in_triggers;
    return index + built_in_triggers;
}

int32_t port_of_trigger(int32_t trigger_id)
{
    const int32_t place = trigger_id - built_in_triggers;
    if (first_user_button >= 1 && place > first_user_button) return (place - first_user_button) * 2 + first_user_button;
    return place;
}

int get_gpio_grid_info(char *buf, size_t size, int pos)
{
    zel_assert(buf != NULL);
    json_writer json(buf, size, pos);
    json.begin_object();
    json.put("prodid", zel_sys_get_prodid());
    put_sources(json, buf, size);
    json.begin_array("inputs");
    put_triggers(json, true);
    put_ports(json, type_input);
    json.end_array();
    json.begin_array("outputs");
    put_handlers(json, true);
    put_ports(json, type_output);
    put_relays(json, true);
    json.end_array();
    json.begin_array("connections");
    put_connections(json);
    json.end_array();
    json.end_object();
    return json.position();
}

int get_gpio_free_info(long kind, char *buf, size_t size, int pos)
{
    zel_assert(buf != NULL);
    json_writer json(buf, size, pos);
    json.begin_object();
    if (kind == 0 || kind == 1) {
        json.begin_array(kind == 0 ? "triggers" : "handlers");
        kind == 0 ? put_triggers(json, false) : put_handlers(json, false);
        json.end_array();
    }
    json.begin_array("gpio");
    put_ports(json, type_disabled);
    if (kind == 1) put_relays(json, false);
    json.end_array();
    if (kind == 0) put_sources(json, buf, size);
    json.end_object();
    return json.position();
}

}  // namespace zel
