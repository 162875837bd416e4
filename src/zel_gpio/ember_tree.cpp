#include "zel_gpio/ember_tree.h"

#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/ember_callbacks.h"
#include "zel_gpio/ember_nodes.h"
#include "zel_gpio/list_text.h"
#include "zel_gpio/port_names.h"

namespace zel {

namespace {

zel_ember_element_t *add_node(const char *name, zel_ember_element_t *parent)
{
    return zel_ember_add_node(ember_provider, name, nullptr, 0, parent);
}

struct fixed_node {
    zel_ember_element_t *ember_nodes::*node;
    const char *name, *failure;
};

constexpr fixed_node name_nodes[] = {
    {&ember_nodes::handlers, "handlers", "%s: Failed to create handlers node\n"},
    {&ember_nodes::triggers, "triggers", "%s: Failed to create triggers node\n"},
    {&ember_nodes::vgpo_sources, "vgpio sources", "%s: Failed to create vGPIO Sources node\n"},
};

constexpr fixed_node gpio_node{&ember_nodes::gpio, "gpio", "%s: Failed to create gpio node\n"};
constexpr fixed_node physical_node{&ember_nodes::physical, "physical", "%s: Failed to create gpio node\n"};
constexpr fixed_node virtual_ports_node{&ember_nodes::virtual_ports, "virtual", "%s: Failed to create vgpio node\n"};
constexpr fixed_node buttons_node{&ember_nodes::user_buttons, "user buttons", "%s: Failed to create user button node\n"};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
bool add_fixed(const fixed_node &wanted, zel_ember_element_t *parent)
{
    nodes.*wanted.node = add_node(wanted.name, parent);
    if (nodes.*wanted.node == nullptr) log_message(0, wanted.failure, "init_gpio_ember_tree");
    return nodes.*wanted.node != nullptr;
}
#pragma GCC diagnostic pop

// The list's names with ", " before all but the first and the last: controllers were written against this.
void write_run_on_names(list_text &text, const char *const *names, int32_t count)
{
    for (int32_t k = 0; k < count; ++k) text.add(k > 0 && k < count - 1 ? ", " : "", names[k] != nullptr ? names[k] : "");
}

void write_names(list_text &text, const trigger_view &list, bool active_only)
{
    for (int32_t k = 0; k < *list.count; ++k) {
        const bool active = list.ids[k] != none && trigger_list[list.ids[k]].state != 0;
        if (active || !active_only) text.add_joined(", ", list.names[k] != nullptr ? list.names[k] : "");
    }
}

int pin_level(zel_sys_gpio_t *pin)
{
    return pin != nullptr && zel_sys_gpio_read(pin) != 0;
}

struct port_place {
    const char *name_format;
    int32_t number;
    zel_ember_element_t *parent;
};

port_place place_of(const gpio_port_t &port)
{
    switch (port.gpio_class) {
        case class_physical:
            zel_assert_as(nodes.physical != nullptr, "phys_node != NULL");
            if (is_cough(port)) return {"cough %d", port.index - gpi_count + 1, nodes.physical};
            return {"gpio %d", port.index + 1, nodes.physical};
        case class_virtual: return {"vgpio %d", port.index + 1 - phys_gpio_count, nodes.virtual_ports};
        case class_user_button: return {"button %d", pair_number(port.index), nodes.user_buttons};
        default: return {"led %d", pair_number(port.index), nodes.user_buttons};
    }
}

// Which ports have a parameter.
bool any_port(const gpio_port_t &) { return true; }
bool drives_handlers(const gpio_port_t &p) { return p.gpio_class != class_user_led; }
bool is_driven(const gpio_port_t &p) { return p.gpio_class != class_user_button && !is_cough(p); }
bool has_mode(const gpio_port_t &p) { return p.gpio_class == class_physical || p.gpio_class == class_user_button; }
bool has_source(const gpio_port_t &p) { return p.gpio_class == class_virtual; }

using adder = zel_ember_element_t *(*)(gpio_port_t &);

zel_ember_element_t *add_type(gpio_port_t &p)
{
    return zel_ember_add_enum_param(ember_provider, "type", nullptr, 0, access_write, p.type,
                                    is_cough(p) ? "disabled\ninput" : "disabled\ninput\noutput", &p, gpio_type_cb, p.ember_node);
}

zel_ember_element_t *add_text(gpio_port_t &p, const char *name, int access, const char *value, zel_ember_set_cb_t callback)
{
    return zel_ember_add_string_param(ember_provider, name, nullptr, 0, access, value, callback != nullptr ? &p : nullptr, callback,
                                      p.ember_node);
}

zel_ember_element_t *add_handlers(gpio_port_t &p)
{
    list_text text;
    write_run_on_names(text, p.handler_names, p.num_handlers);
    return add_text(p, "input functions", access_write, text.text(), gpio_handler_cb);
}

zel_ember_element_t *add_triggers(gpio_port_t &p)
{
    list_text text;
    write_names(text, triggers_of(p), false);
    return add_text(p, "output triggers", access_write, text.text(), gpio_trigger_cb);
}

zel_ember_element_t *add_active_triggers(gpio_port_t &p)
{
    list_text text;
    write_names(text, triggers_of(p), true);
    return add_text(p, "active triggers", access_read, text.text(), nullptr);
}

zel_ember_element_t *add_mode(gpio_port_t &p)
{
    const bool fixed = is_cough(p);
    return zel_ember_add_enum_param(ember_provider, "input mode", nullptr, 0, fixed ? access_read : access_write, p.input_mode,
                                    "latching\nmomentary", fixed ? nullptr : &p, fixed ? nullptr : gpio_in_mode_cb, p.ember_node);
}

zel_ember_element_t *add_source(gpio_port_t &p)
{
    return add_text(p, "vgpio source", access_write, p.vgpo_src != nullptr ? p.vgpo_src : "", vgpo_src_cb);
}

zel_ember_element_t *add_status(gpio_port_t &p)
{
    const bool has_pin = p.gpio_class == class_physical || p.gpio_class == class_user_button;
    return zel_ember_add_boolean_param(ember_provider, "status", nullptr, 0, access_write, has_pin ? pin_level(p.pin) : p.state, &p,
                                       gpio_status_cb, p.ember_node);
}

struct port_parameter {
    zel_ember_element_t *gpio_port_t::*handle;
    bool (*exists)(const gpio_port_t &);
    adder add;
};

// In the order in which they are added.
constexpr port_parameter port_parameters[] = {
    {&gpio_port_t::ember_type, any_port, add_type},
    {&gpio_port_t::ember_handlers, drives_handlers, add_handlers},
    {&gpio_port_t::ember_triggers, is_driven, add_triggers},
    {&gpio_port_t::ember_active_triggers, is_driven, add_active_triggers},
    {&gpio_port_t::ember_in_mode, has_mode, add_mode},
    {&gpio_port_t::ember_vgpo_src, has_source, add_source},
    {&gpio_port_t::ember_state, any_port, add_status},
};

void add_relay_parameters(relay_t &relay)
{
    list_text triggers, active;
    write_run_on_names(triggers, relay.trigger_names, relay.num_trigs);
    write_names(active, triggers_of(relay), true);
    relay.ember_triggers = zel_ember_add_string_param(ember_provider, "output triggers", nullptr, 0, access_write, triggers.text(),
                                                      &relay, relay_trigger_cb, relay.ember_node);
    relay.ember_active_triggers = zel_ember_add_string_param(ember_provider, "active triggers", nullptr, 0, access_read,
                                                             active.text(), nullptr, nullptr, relay.ember_node);
    relay.ember_state = zel_ember_add_boolean_param(ember_provider, "status", nullptr, 0, access_read, pin_level(relay.pin),
                                                    nullptr, nullptr, relay.ember_node);
}

}  // namespace

int32_t init_gpio_ember_tree(zel_ember_session_t *provider, zel_ember_element_t *parent, int32_t phys_count, int32_t relays_wanted,
                             int32_t virt_count, int32_t button_count)
{
    if (provider == nullptr || parent == nullptr) return 0;
    ember_provider = provider;
    bool good = add_fixed(gpio_node, parent);
    if (phys_count > 0 || relays_wanted > 0) good = add_fixed(physical_node, nodes.gpio) && good;
    if (good && virt_count > 0) good = add_fixed(virtual_ports_node, nodes.gpio);
    if (good && button_count > 0) good = add_fixed(buttons_node, nodes.gpio);
    for (const fixed_node &wanted : name_nodes) good = good && add_fixed(wanted, nodes.gpio);
    return good ? 0 : -1;
}

int32_t add_gpio_to_ember_tree(int32_t index)
{
    zel_assert_as(nodes.virtual_ports != nullptr, "virtual_node != NULL");
    zel_assert(gpios != NULL);
    gpio_port_t &port = gpios[index];
    const port_place place = place_of(port);
    const port_name name = numbered(place.name_format, place.number);
    port.ember_node = add_node(name.text, place.parent);
    if (port.ember_node == nullptr) {
        log_message(0, "%s: Failed to add new ember node: '%s'\n", __func__, name.text);
        return -1;
    }
    for (const port_parameter &parameter : port_parameters) {
        if (parameter.exists(port)) port.*parameter.handle = parameter.add(port);
    }
    return 0;
}

int32_t add_relay_to_ember_tree(int32_t index)
{
    zel_assert_as(nodes.physical != nullptr, "phys_node != NULL");
    zel_assert(relays != NULL);
    relay_t &relay = relays[index];
    const port_name name = numbered("relay %d", index + 1);
    relay.ember_node = add_node(name.text, nodes.physical);
    if (relay.ember_node == nullptr) {
        log_message(0, "%s: Failed to add new ember node: '%s'\n", __func__, name.text);
        return -1;
    }
    add_relay_parameters(relay);
    return 0;
}

void remove_ember_tree()
{
    remove_element(nodes.gpio);
    nodes = ember_nodes{};
}

}  // namespace zel
