#include "printing.h"

#include "table.h"

#include <functional>
#include <string_view>

namespace zel {
namespace {

std::string text_in(const json_t *object, const char *key)
{
    const json_t *const value = json_object_get(object, key);
    if (json_is_integer(value)) return std::to_string(json_integer_value(value));
    return json_is_string(value) ? printable(json_string_value(value)) : "";
}

bool flag_in(const json_t *object, const char *key)
{
    const json_t *const value = json_object_get(object, key);
    return json_is_true(value) || json_integer_value(value) != 0;
}

std::string on_off(const json_t *object, const char *key)
{
    return flag_in(object, key) ? "on" : "off";
}

std::string yes(const json_t *object, const char *key)
{
    return flag_in(object, key) ? "yes" : "";
}

// One column: its head, and what stands there for a row.
struct column {
    const char *head;
    std::function<std::string(const json_t *row)> cell;
};

column plain(const char *head, const char *key)
{
    return {head, [key](const json_t *row) { return text_in(row, key); }};
}

column state(const char *head, const char *key)
{
    return {head, [key](const json_t *row) { return on_off(row, key); }};
}

column mark(const char *head, const char *key)
{
    return {head, [key](const json_t *row) { return yes(row, key); }};
}

std::string print_list(const json_t *list, const std::vector<column> &columns)
{
    std::vector<std::string> heads;
    for (const column &each : columns) heads.emplace_back(each.head);
    text_table table(std::move(heads));
    for (size_t i = 0; i < json_array_size(list); ++i) {
        std::vector<std::string> cells;
        for (const column &each : columns) cells.push_back(each.cell(json_array_get(list, i)));
        table.add(std::move(cells));
    }
    return table.empty() ? "none\n" : table.text();
}

std::string joined_ports(const json_t *handler)
{
    const json_t *const list = json_object_get(handler, "ports");
    std::string text;
    for (size_t i = 0; i < json_array_size(list); ++i) {
        const char *const name = json_string_value(json_array_get(list, i));
        text += (text.empty() ? "" : ", ") + printable(name != nullptr ? name : "");
    }
    return text;
}

std::string joined_triggers(const json_t *handler)
{
    const json_t *const list = json_object_get(handler, "triggers");
    std::string text;
    for (size_t i = 0; i < json_array_size(list); ++i) {
        const json_t *const each = json_array_get(list, i);
        text += (text.empty() ? "" : ", ") + std::string(flag_in(each, "invert") ? "!" : "") + text_in(each, "name");
    }
    return text;
}

std::string source_of(const json_t *port)
{
    const std::string source = text_in(port, "source");
    if (source.empty() || source == "-") return source;
    return source + (flag_in(port, "source_valid") ? "" : " (not reachable)");
}

}  // namespace

std::string print_unit(const json_t *answer)
{
    const json_t *const unit = json_object_get(answer, "unit");
    const json_t *const ember = json_object_get(unit, "ember");
    text_table table({"unit", text_in(unit, "friendly_name") + " (" + text_in(unit, "product_id") + ")"});
    table.add({"version", text_in(unit, "version")});
    table.add({"process", text_in(unit, "pid") + ", up for " + text_in(unit, "uptime_s") + " s"});
    table.add({"root", text_in(unit, "root")});
    table.add({"interface", text_in(unit, "interface") + (flag_in(unit, "link_up") ? " (up)" : " (down)")});
    const char *const by_udp = flag_in(unit, "udp_commands") ? ", GPI ports driven by UDP commands" : "";
    table.add({"pins", text_in(unit, "pin_backend") + by_udp});
    table.add({"ember+", flag_in(ember, "open") ? text_in(ember, "address") + " port " + text_in(ember, "port") : "not open"});
    const json_t *const web = json_object_get(unit, "web");
    table.add({"pages", flag_in(web, "open") ? text_in(web, "address") + " port " + text_in(web, "port") : "not open"});
    return table.text();
}

std::string print_pins(const json_t *answer)
{
    return print_list(json_object_get(answer, "pins"),
                      {plain("PIN", "pin"), plain("NAME", "name"), plain("DIRECTION", "direction"), mark("IN USE", "in_use"),
                       mark("ACTIVE LOW", "active_low"), state("LEVEL", "level")});
}

std::string print_ports(const json_t *answer)
{
    return print_list(json_object_get(answer, "ports"),
                      {plain("INDEX", "index"), plain("NAME", "name"), plain("CLASS", "class"), plain("TYPE", "type"),
                       plain("MODE", "mode"), state("STATE", "state"), {"SOURCE", source_of}});
}

std::string print_relays(const json_t *answer)
{
    return print_list(json_object_get(answer, "relays"),
                      {plain("NAME", "name"), plain("PIN", "pin"), mark("ON GRID", "on_grid"), state("STATE", "state")});
}

std::string print_handlers(const json_t *answer)
{
    return print_list(json_object_get(answer, "handlers"),
                      {plain("ID", "id"), plain("NAME", "name"), state("STATE", "state"), mark("ON GRID", "on_grid"),
                       {"HELD BY", joined_ports}, {"TRIGGERS", joined_triggers}});
}

std::string print_triggers(const json_t *answer)
{
    return print_list(json_object_get(answer, "triggers"), {plain("ID", "id"), plain("NAME", "name"), plain("KIND", "kind"),
                                                            state("STATE", "state"), mark("ON GRID", "on_grid")});
}

std::string print_states(const json_t *answer)
{
    return print_list(json_object_get(answer, "states"), {plain("KIND", "kind"), plain("NAME", "name"), state("STATE", "state")});
}

std::string print_status(const json_t *answer)
{
    return print_unit(answer) + "\nPorts\n" + print_ports(answer) + "\nRelays\n" + print_relays(answer) + "\nHandlers\n" +
           print_handlers(answer) + "\nTriggers\n" + print_triggers(answer);
}

std::string print_grid(const json_t *answer)
{
    return print_list(json_object_get(json_object_get(answer, "grid"), "connections"),
                      {plain("INPUT", "input_name"), plain("OUTPUT", "output_name"), mark("INVERT", "invert"),
                       state("STATE", "state")});
}

std::string print_change(const json_t *change)
{
    const std::string kind = text_in(change, "change"), name = text_in(change, "name");
    if (kind == "pin") {
        const bool input = text_in(change, "direction") == "input", on = flag_in(change, "level");
        const std::string what = input ? (on ? "pressed" : "released") : (on ? "on" : "off");
        return "pin " + text_in(change, "pin") + " " + what + (name.empty() ? "" : " (" + name + ")");
    }
    if (kind == "button") return "button " + text_in(change, "number") + " pressed";
    if (kind == "udp") return "udp GPI " + text_in(change, "number") + " " + on_off(change, "level");
    const std::string by = text_in(change, "by");
    return kind + " " + name + " " + on_off(change, "state") + (by.empty() ? "" : " (by " + by + ")");
}

}  // namespace zel
