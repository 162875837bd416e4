#include "unit_requests.h"

#include "common/json_reading.h"
#include "common/json_text.h"
#include "common/whole_number.h"
#include "control_reports.h"
#include "zel_debug.h"
#include "zel_gpio.h"
#include "zel_sys.h"

#include <iterator>
#include <new>
#include <stdexcept>

namespace zel {
namespace {

struct refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct call {
    unit_parts &unit;
    const json_t *request;
    control_client &client;
};

bool is_given(const call &each, const char *key)
{
    return json_object_get(each.request, key) != nullptr;
}

std::string text_argument(const call &each, const char *key)
{
    const json_t *const value = json_object_get(each.request, key);
    if (json_is_integer(value)) return std::to_string(json_integer_value(value));
    if (!json_is_string(value)) throw refused(std::string("\"") + key + "\" is missing");
    return json_string_value(value);
}

int number_argument(const call &each, const char *key, int min, int max)
{
    const json_t *const value = json_object_get(each.request, key);
    const json_int_t number = json_integer_value(value);
    if (json_is_integer(value) && number >= min && number <= max) return static_cast<int>(number);
    throw refused("\"" + std::string(key) + "\" must be a whole number from " + std::to_string(min) + " to " +
                  std::to_string(max));
}

int optional_number(const call &each, const char *key, int fallback, int min, int max)
{
    return is_given(each, key) ? number_argument(each, key, min, max) : fallback;
}

bool flag_argument(const call &each, const char *key)
{
    return json_is_true(json_object_get(each.request, key));
}

// Id of the handler or trigger of that name, else the one whose id it is.
template <typename table> int32_t find_id(const table &list, const std::string &wanted, const char *what)
{
    for (const auto &each : list) {
        if (each.name != nullptr && wanted == each.name) return each.id;
    }
    const int64_t number = whole_number(wanted).value_or(-1);
    const bool taken = number >= 0 && number < std::ssize(list) && list[number].name != nullptr;
    if (!taken) throw refused("there is no " + std::string(what) + " \"" + wanted + "\"");
    return static_cast<int32_t>(number);
}

// A pin's number, or the name of the port that it is the input of.
int32_t input_pin(const call &each)
{
    const std::string wanted = text_argument(each, "pin");
    if (const auto number = whole_number(wanted)) {
        const bool fits = *number >= 0 && *number <= INT32_MAX;
        if (fits && each.unit.ports.owner_of_input(static_cast<int32_t>(*number))) return static_cast<int32_t>(*number);
        throw refused("pin " + wanted + " is the input of no port");
    }
    const auto port = parse_port_name(wanted);
    const auto pin = port ? each.unit.ports.input_pin(*port) : std::nullopt;
    if (!pin) throw refused("\"" + wanted + "\" is neither a pin nor a port with an input pin");
    return *pin;
}

// A press that the library cannot take up is no failure, but whoever pressed should know.
json_t *press_answer(const call &each, int32_t pin)
{
    const auto port = each.unit.ports.owner_of_input(pin);
    const auto index = each.unit.ports.index_of(*port);
    const port_view view = each.unit.wiring.port_views()[static_cast<size_t>(*index)];
    const bool by_udp = each.unit.settings.udp_enabled && port->kind == port_kind::physical;
    json_t *const answer = json_pack("{s:i, s:s}", "pin", pin, "name", each.unit.ports.pin_name(pin, false).c_str());
    const char *note = nullptr;
    if (view.type != port_type::input) note = "the port is not set to be an input";
    else if (by_udp) note = "the port is driven by UDP commands; its pin is ignored";
    if (note != nullptr) (void)json_object_set_new(answer, "note", json_string(note));
    return answer;
}

json_t *set_contact(const call &each, int pressed)
{
    const int32_t pin = input_pin(each);
    if (zel_sys_sim_press(pin, pressed) != 0) throw refused("pin " + std::to_string(pin) + " is not a simulated pin");
    return press_answer(each, pin);
}

json_t *do_press(const call &each) { return set_contact(each, 1); }
json_t *do_release(const call &each) { return set_contact(each, 0); }

json_t *do_pulse(const call &each)
{
    const int32_t pin = input_pin(each);
    const std::chrono::milliseconds length(optional_number(each, "length_ms", 0, 0, 60000));
    if (!each.unit.presses.begin(pin, length)) throw refused("pin " + std::to_string(pin) + " is not a simulated pin");
    return press_answer(each, pin);
}

json_t *do_button(const call &each)
{
    if (each.unit.settings.user_buttons == 0) throw refused("this unit has no user buttons");
    const int number = number_argument(each, "number", 1, each.unit.settings.user_buttons);
    const auto index = each.unit.ports.index_of({port_kind::user_button, number});
    if (each.unit.wiring.port_views()[static_cast<size_t>(*index)].type != port_type::input) {
        throw refused("user button " + std::to_string(number) + " is disabled");
    }
    each.unit.feed.button_pressed(number);
    zel_gpio_notify_user_button_event(number - 1);
    return json_pack("{s:i}", "number", number);
}

json_t *do_event(const call &each)
{
    const int32_t id = find_id(trigger_list, text_argument(each, "trigger"), "trigger");
    zel_gpio_notify_trigger_event(id, static_cast<uint8_t>(number_argument(each, "state", 0, 1)));
    return json_pack("{s:i, s:s, s:b}", "id", id, "name", trigger_list[id].name, "state", trigger_list[id].state != 0);
}

json_t *do_toggle(const call &each)
{
    const int32_t id = find_id(handler_list, text_argument(each, "handler"), "handler");
    const bool held = handler_list[id].port_mask != 0;
    if (zel_gpio_set_handler_state(id) != 0) throw refused("the library refused it; the unit's log says why");
    json_t *const answer = json_pack("{s:i, s:s, s:b}", "id", id, "name", handler_list[id].name, "state",
                                     handler_list[id].state != 0);
    if (held) (void)json_object_set_new(answer, "note", json_string("an input holds the handler on"));
    return answer;
}

json_t *outcome_answer(const grid_outcome &outcome)
{
    if (!outcome.ok) throw refused(outcome.text);
    json_t *const answer = json_object();
    if (!outcome.text.empty()) (void)json_object_set_new(answer, "note", json_string(outcome.text.c_str()));
    return answer;
}

json_t *do_connect(const call &each)
{
    return outcome_answer(each.unit.wiring.connect(text_argument(each, "input"), text_argument(each, "output"),
                                                   flag_argument(each, "invert")));
}

json_t *do_disconnect(const call &each)
{
    return outcome_answer(each.unit.wiring.disconnect(text_argument(each, "input"), text_argument(each, "output")));
}

int word_argument(const call &each, const char *key, std::initializer_list<const char *> words)
{
    const std::string wanted = text_argument(each, key);
    std::string known;
    int number = 0;
    for (const char *word : words) {
        if (wanted == word) return number;
        known += (known.empty() ? "" : ", ") + std::string(word);
        ++number;
    }
    throw refused(std::string("\"") + key + "\" must be one of " + known);
}

json_t *do_set_port(const call &each)
{
    const std::string name = text_argument(each, "port");
    const auto port = parse_port_name(name);
    const bool exists = port && port->kind != port_kind::relay && each.unit.ports.exists(*port);
    if (!exists) throw refused("there is no port \"" + name + "\"");
    port_change change;
    change.type = static_cast<port_type>(word_argument(each, "type", {"disabled", "input", "output"}));
    if (is_given(each, "mode")) change.input_mode = word_argument(each, "mode", {"latching", "momentary"});
    if (is_given(each, "source")) change.source = text_argument(each, "source");
    return outcome_answer(each.unit.wiring.set_port(*port, change));
}

json_t *do_grid(const call &each)
{
    json_handle document = each.unit.wiring.document();
    if (!document) throw refused("the library gives no grid; the unit's log says why");
    each.unit.wiring.name_connections(document.get());
    return json_pack("{s:o}", "grid", document.release());
}

json_t *do_watch(const call &each)
{
    each.client.watches = true;
    each.client.watches_calls = flag_argument(each, "calls");
    return json_object();
}

json_t *do_status(const call &each)
{
    return json_pack("{s:o, s:o, s:o, s:o, s:o}", "unit", report_unit(each.unit), "ports", report_ports(each.unit), "relays",
                     report_relays(each.unit), "handlers", report_handlers(each.unit), "triggers", report_triggers(each.unit));
}

// Requests that answer with one table, under the request's own name.
struct report_row {
    std::string_view name;
    json_t *(*report)(const unit_parts &unit);
};
constexpr report_row reports[] = {
    {"unit", report_unit},         {"pins", report_pins},         {"ports", report_ports},   {"relays", report_relays},
    {"handlers", report_handlers}, {"triggers", report_triggers}, {"states", report_states},
};

struct request_row {
    std::string_view name;
    json_t *(*run)(const call &each);
};
constexpr request_row requests[] = {
    {"status", do_status},   {"press", do_press},     {"release", do_release},       {"pulse", do_pulse},
    {"button", do_button},   {"event", do_event},     {"toggle", do_toggle},         {"connect", do_connect},
    {"disconnect", do_disconnect}, {"set-port", do_set_port}, {"grid", do_grid}, {"watch", do_watch},
};

json_t *run(const call &each)
{
    const char *const given = json_string_value(json_object_get(each.request, "request"));
    const std::string name = given != nullptr ? given : "";
    for (const request_row &row : requests) {
        if (row.name == name) return row.run(each);
    }
    for (const report_row &row : reports) {
        if (row.name == name) return json_pack("{s:o}", name.c_str(), row.report(each.unit));
    }
    if (name.empty()) throw refused("a request is a JSON object with the member \"request\"");
    throw refused("there is no request \"" + name + "\"");
}

std::string failure(const char *text)
{
    const json_handle answer(json_pack("{s:b, s:s}", "ok", 0, "error", text));
    return json_text(answer.get(), JSON_COMPACT).value_or(R"({"ok":false,"error":"out of memory"})");
}

}  // namespace

std::string unit_requests::answer(std::string_view line, control_client &client)
{
    try {
        const json_handle request(json_loadb(line.data(), line.size(), 0, nullptr));
        if (!request) throw refused("a request is a JSON object on one line");
        json_handle result(run({unit_, request.get(), client}));
        unit_.feed.settle();
        if (!result || json_object_set_new(result.get(), "ok", json_true()) != 0) throw std::bad_alloc();
        const auto text = json_text(result.get(), JSON_COMPACT);
        if (!text) throw std::bad_alloc();
        return *text;
    } catch (const refused &why) {
        log_message(4, "%s: Refused: %s\n", __func__, why.what());
        return failure(why.what());
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: Out of memory for an answer\n", __func__);
        return failure("the unit is out of memory");
    }
}

}  // namespace zel
