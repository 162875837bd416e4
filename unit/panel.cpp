#include "panel.h"

#include "zel_gpio.h"
#include "zel_sys.h"
#include "zel_www.h"

#include <algorithm>
#include <climits>
#include <string_view>

namespace zel {
namespace {

enum form_key { key_pin, key_level, key_button, key_pressed, key_count };
constexpr const char *form_keys[] = {"pin", "level", "button", "pressed", nullptr};

struct form_pairs {
    zel_web_kvp_t pairs[key_count];

    bool has(form_key key) const { return zel_web_key_val(key, pairs, key_count) != nullptr; }
    std::string_view text(form_key key) const
    {
        const char *const value = zel_web_key_val(key, pairs, key_count);
        return value != nullptr ? value : "";
    }
    std::optional<int32_t> number(form_key key) const
    {
        long value = 0;
        if (zel_web_key_valtol(key, pairs, key_count, &value) != 0 || value < 0 || value > INT32_MAX) return std::nullopt;
        return static_cast<int32_t>(value);
    }
};

panel_answer refused(int status, std::string why)
{
    return {status, std::move(why), ""};
}

port_type type_of_port(const unit_parts &unit, port_ref port)
{
    const auto index = unit.ports.index_of(port);
    return unit.wiring.port_views()[static_cast<size_t>(*index)].type;
}

panel_answer press_pin(unit_parts &unit, contact_moves &contacts, const form_pairs &form)
{
    const auto pin = form.number(key_pin);
    const std::string shown(form.text(key_pin).substr(0, 20));
    const auto port = pin ? unit.ports.owner_of_input(*pin) : std::nullopt;
    if (!port) return refused(404, "pin " + shown + " is the input of no port");
    const std::string_view level = form.text(key_level);
    if (level != "active" && level != "inactive") return refused(400, "\"level\" must be active or inactive");
    if (!contacts.add(*pin, level == "active")) {
        return refused(409, "pin " + shown + " is a line of the machine; it cannot be pressed from here");
    }
    if (type_of_port(unit, *port) != port_type::input) return {200, "", "the port is not set to be an input"};
    const bool by_udp = unit.settings.udp_enabled && port->kind == port_kind::physical;
    return {200, "", by_udp ? "the port is driven by UDP commands; its pin is ignored" : ""};
}

// A button tells of its presses only: each flips its level.
panel_answer press_button(unit_parts &unit, const form_pairs &form)
{
    const auto number = form.number(key_button), pressed = form.number(key_pressed);
    const bool exists = number && unit.ports.exists({port_kind::user_button, *number});
    if (!exists) return refused(404, "there is no user button " + std::string(form.text(key_button).substr(0, 20)));
    if (!pressed || *pressed > 1) return refused(400, "\"pressed\" must be 0 or 1");
    if (type_of_port(unit, {port_kind::user_button, *number}) != port_type::input) {
        return refused(409, "user button " + std::to_string(*number) + " is disabled");
    }
    if (*pressed == 0) return {};
    unit.feed.button_pressed(*number);
    zel_gpio_notify_user_button_event(*number - 1);
    unit.feed.settle();
    return {};
}

json_t *pin_entry(const unit_parts &unit, const panel_pin &each, const port_view &view)
{
    const bool same_pin = !each.output && unit.settings.pins[static_cast<size_t>(each.port)].out_pin == each.pin;
    const bool output = each.output || (same_pin && view.type == port_type::output);
    const port_ref port = unit.ports.port_at(each.port);
    const bool in_use = view.type == (output ? port_type::output : port_type::input);
    return json_pack("{s:i, s:s, s:i, s:b, s:b, s:i, s:s, s:b}", "pin", each.pin, "direction", output ? "out" : "in", "level",
                     pin_level(each, view.state), "active_low", each.active_low, "in_use", in_use, "port", each.port, "name",
                     port_name(port, port_type::disabled).c_str(), "cough", port.kind == port_kind::cough);
}

json_t *pair_entry(const unit_parts &unit, port_kind kind, int number, const char *level_name, bool level, bool enabled)
{
    const port_ref port{kind, number};
    return json_pack("{s:i, s:i, s:s, s:b, s:b}", "number", number, "port", *unit.ports.index_of(port), "name",
                     port_name(port, port_type::input).c_str(), "enabled", enabled, level_name, level);
}

}  // namespace

std::vector<panel_pin> panel_pins(const unit_parts &unit)
{
    std::vector<panel_pin> pins;
    int32_t port = 0;
    for (const pin_settings &each : unit.settings.pins) {
        pins.push_back({each.in_pin, false, each.in_active_low, port});
        if (!each.cough && each.out_pin != each.in_pin) pins.push_back({each.out_pin, true, each.out_active_low, port});
        ++port;
    }
    return pins;
}

int pin_level(const panel_pin &each, bool port_level)
{
    const int simulated = zel_sys_sim_level(each.pin);
    return simulated >= 0 ? simulated : port_level ? 1 : 0;
}

json_t *report_panel(const unit_parts &unit)
{
    json_t *const pins = json_array(), *const buttons = json_array(), *const leds = json_array(), *const relays = json_array();
    const auto views = unit.wiring.port_views();
    for (const panel_pin &each : panel_pins(unit)) {
        (void)json_array_append_new(pins, pin_entry(unit, each, views[static_cast<size_t>(each.port)]));
    }
    for (int number = 1; number <= unit.settings.user_buttons; ++number) {
        const port_view &button = views[static_cast<size_t>(*unit.ports.index_of({port_kind::user_button, number}))];
        (void)json_array_append_new(buttons, pair_entry(unit, port_kind::user_button, number, "pressed", button.state,
                                                        button.type == port_type::input));
        (void)json_array_append_new(leds, pair_entry(unit, port_kind::user_led, number, "lit",
                                                     zel_gpio_get_user_button_state(number - 1) != 0,
                                                     zel_gpio_get_user_button_led_enabled(number - 1) != 0));
    }
    const auto relay_views = unit.wiring.relay_views(static_cast<size_t>(unit.settings.relay_count));
    for (int32_t i = 0; i < unit.settings.relay_count; ++i) {
        (void)json_array_append_new(relays, json_pack("{s:i, s:s, s:i, s:b}", "index", i, "name",
                                                      port_name({port_kind::relay, i + 1}, port_type::output).c_str(), "pin",
                                                      unit.settings.relay_base_pin + i, "on",
                                                      relay_views[static_cast<size_t>(i)].state));
    }
    return json_pack("{s:o, s:o, s:o, s:o, s:b}", "pins", pins, "buttons", buttons, "leds", leds, "relays", relays, "simulated",
                     unit.settings.pin_backend == "sim");
}

bool contact_moves::moved(int32_t pin) const
{
    const bool waits = std::ranges::find(later_, pin, &move::pin) != later_.end();
    return waits || std::ranges::find(moved_, pin) != moved_.end();
}

bool contact_moves::add(int32_t pin, bool pressed)
{
    if (zel_sys_sim_level(pin) < 0) return false;
    if (moved(pin)) {
        if (later_.size() < most_waiting) later_.push_back({pin, pressed});
        return true;
    }
    moved_.push_back(pin);
    return zel_sys_sim_press(pin, pressed ? 1 : 0) == 0;
}

void contact_moves::next_turn()
{
    moved_.clear();
    std::deque<move> waiting;
    waiting.swap(later_);
    for (const move &each : waiting) (void)add(each.pin, each.pressed);
}

panel_answer press_on_panel(unit_parts &unit, contact_moves &contacts, std::string form)
{
    form_pairs given{};
    (void)zel_web_get_kvp(form.data(), form_keys, given.pairs, key_count);
    if (given.has(key_pin)) return press_pin(unit, contacts, given);
    if (given.has(key_button)) return press_button(unit, given);
    return refused(400, "the form needs a \"pin\" or a \"button\"");
}

}  // namespace zel
