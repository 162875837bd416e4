#include "control_reports.h"

#include "zel_gpio.h"
#include "zel_sys.h"

#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace zel {
namespace {

const char *word_of(port_type type)
{
    constexpr const char *words[] = {"disabled", "input", "output"};
    return words[static_cast<size_t>(type)];
}

json_t *mode_word(int mode)
{
    return mode < 0 ? json_null() : json_string(mode == 0 ? "latching" : "momentary");
}

// Lines of the machine are not asked: reading an input takes its edge away from the library.
json_t *pin_row(const unit_parts &unit, int32_t pin, bool output, bool active_low, const port_view &view)
{
    const port_type needed = output ? port_type::output : port_type::input;
    const bool in_use = view.type == needed;
    const int simulated = zel_sys_sim_level(pin);
    const int level = simulated >= 0 ? simulated : in_use && view.state ? 1 : 0;
    return json_pack("{s:i, s:s, s:s, s:b, s:b, s:i}", "pin", pin, "name", unit.ports.pin_name(pin, output).c_str(), "direction",
                     word_of(needed), "in_use", in_use, "active_low", active_low, "level", level);
}

json_t *trigger_entries(const handler_t &handler)
{
    json_t *const list = json_array();
    for (int32_t i = 0; i < handler.num_trigs && i < ZEL_GPIO_LIST_SIZE; ++i) {
        const char *const name = handler.trigger_names[i] != nullptr ? handler.trigger_names[i] : "";
        (void)json_array_append_new(list, json_pack("{s:s, s:b, s:b}", "name", name, "invert", handler.trig_inv[i] != 0,
                                                    "registered", handler.trig_ids[i] >= 0));
    }
    return list;
}

json_t *asserting_ports(const unit_parts &unit, const handler_t &handler)
{
    json_t *const list = json_array();
    for (int32_t index = 0; index < 64 && index < unit.ports.port_count(); ++index) {
        if ((handler.port_mask >> index & 1) == 0) continue;
        (void)json_array_append_new(list, json_string(port_name(unit.ports.port_at(index), port_type::input).c_str()));
    }
    return list;
}

const char *kind_of(const trigger_t &trigger)
{
    constexpr int32_t built_in = 5;
    return trigger.id < built_in ? "built-in" : trigger.port_trigger != 0 ? "port" : "unit";
}

void append_state(json_t *list, const char *kind, const std::string &name, bool state)
{
    (void)json_array_append_new(list, json_pack("{s:s, s:s, s:b}", "kind", kind, "name", name.c_str(), "state", state));
}

}  // namespace

json_t *report_unit(const unit_parts &unit)
{
    const auto up = std::chrono::steady_clock::now() - unit.started;
    const char *const root = std::getenv("ZEL_ROOT");
    const unit_settings &settings = unit.settings;
    return json_pack("{s:s, s:s, s:s, s:i, s:I, s:s, s:s, s:b, s:s, s:b, s:{s:b, s:s, s:i}, s:{s:b, s:s, s:i}, "
                     "s:{s:i, s:i, s:i, s:i}}",
                     "product_id", settings.product_id.c_str(), "friendly_name", settings.friendly_name.c_str(),
                     "version", ZEL_VERSION, "pid", static_cast<int>(getpid()),
                     "uptime_s", static_cast<json_int_t>(std::chrono::duration_cast<std::chrono::seconds>(up).count()),
                     "root", root != nullptr ? root : "/", "interface", settings.interface.c_str(), "link_up", unit.link.up(),
                     "pin_backend", settings.pin_backend.c_str(), "udp_commands", settings.udp_enabled,
                     "ember", "open", unit.ember_open, "address", settings.ember.address.c_str(), "port", settings.ember.port,
                     "web", "open", unit.web_open, "address", settings.web.address.c_str(), "port", settings.web.port,
                     "counts", "physical", static_cast<int>(settings.pins.size()), "virtual", settings.virtual_count,
                     "relays", settings.relay_count, "user_buttons", settings.user_buttons);
}

json_t *report_pins(const unit_parts &unit)
{
    json_t *const list = json_array();
    const auto views = unit.wiring.port_views();
    for (size_t i = 0; i < unit.settings.pins.size(); ++i) {
        const pin_settings &pin = unit.settings.pins[i];
        (void)json_array_append_new(list, pin_row(unit, pin.in_pin, false, pin.in_active_low, views[i]));
        if (pin.cough) continue;
        (void)json_array_append_new(list, pin_row(unit, pin.out_pin, true, pin.out_active_low, views[i]));
    }
    const auto relays = unit.wiring.relay_views(static_cast<size_t>(unit.settings.relay_count));
    for (int32_t i = 0; i < unit.settings.relay_count; ++i) {
        const port_view view{port_type::output, relays[static_cast<size_t>(i)].state, -1, "", false};
        (void)json_array_append_new(list, pin_row(unit, unit.settings.relay_base_pin + i, true, false, view));
    }
    return list;
}

json_t *report_ports(const unit_parts &unit)
{
    json_t *const list = json_array();
    const auto views = unit.wiring.port_views();
    for (int32_t index = 0; index < unit.ports.port_count(); ++index) {
        const port_view &view = views[static_cast<size_t>(index)];
        const port_ref port = unit.ports.port_at(index);
        const bool follows = port.kind == port_kind::network && view.type == port_type::input;
        json_t *const row = json_pack("{s:i, s:s, s:s, s:s, s:b, s:o}", "index", index, "name",
                                      port_name(port, view.type).c_str(), "class", port_map::class_word(port.kind), "type",
                                      word_of(view.type), "state", view.state, "mode", mode_word(view.input_mode));
        if (row != nullptr && follows) {
            (void)json_object_set_new(row, "source", json_string(view.source.c_str()));
            (void)json_object_set_new(row, "source_valid", json_boolean(view.source_valid));
        }
        (void)json_array_append_new(list, row);
    }
    return list;
}

json_t *report_relays(const unit_parts &unit)
{
    json_t *const list = json_array();
    const auto relays = unit.wiring.relay_views(static_cast<size_t>(unit.settings.relay_count));
    for (int32_t i = 0; i < unit.settings.relay_count; ++i) {
        const relay_view &view = relays[static_cast<size_t>(i)];
        (void)json_array_append_new(list, json_pack("{s:i, s:s, s:i, s:b, s:b}", "number", i + 1, "name",
                                                    port_name({port_kind::relay, i + 1}, port_type::output).c_str(), "pin",
                                                    unit.settings.relay_base_pin + i, "state", view.state, "on_grid",
                                                    view.on_grid));
    }
    return list;
}

json_t *report_handlers(const unit_parts &unit)
{
    json_t *const list = json_array();
    for (const handler_t &handler : handler_list) {
        if (handler.name == nullptr) continue;
        (void)json_array_append_new(list, json_pack("{s:i, s:s, s:b, s:b, s:b, s:o, s:o}", "id", handler.id, "name", handler.name,
                                                    "state", handler.state != 0, "on_grid", handler.on_grid != 0, "led",
                                                    handler.led_handler != 0, "ports", asserting_ports(unit, handler),
                                                    "triggers", trigger_entries(handler)));
    }
    return list;
}

json_t *report_triggers(const unit_parts &)
{
    json_t *const list = json_array();
    for (const trigger_t &trigger : trigger_list) {
        if (trigger.name == nullptr) continue;
        (void)json_array_append_new(list, json_pack("{s:i, s:s, s:b, s:s, s:b}", "id", trigger.id, "name", trigger.name, "state",
                                                    trigger.state != 0, "kind", kind_of(trigger), "on_grid",
                                                    trigger.on_grid != 0));
    }
    return list;
}

json_t *report_states(const unit_parts &unit)
{
    json_t *const list = json_array();
    const auto views = unit.wiring.port_views();
    for (int32_t index = 0; index < unit.ports.port_count(); ++index) {
        const port_view &view = views[static_cast<size_t>(index)];
        if (view.type == port_type::disabled) continue;
        append_state(list, word_of(view.type), port_name(unit.ports.port_at(index), view.type), view.state);
    }
    const auto relays = unit.wiring.relay_views(static_cast<size_t>(unit.settings.relay_count));
    for (size_t i = 0; i < relays.size(); ++i) {
        const port_ref relay{port_kind::relay, static_cast<int32_t>(i) + 1};
        append_state(list, "relay", port_name(relay, port_type::output), relays[i].state);
    }
    for (const handler_t &handler : handler_list) {
        if (handler.name != nullptr && handler.led_handler == 0) append_state(list, "handler", handler.name, handler.state != 0);
    }
    for (const trigger_t &trigger : trigger_list) {
        if (trigger.name != nullptr) append_state(list, "trigger", trigger.name, trigger.state != 0);
    }
    return list;
}

}  // namespace zel
