#include "settings.h"

#include <algorithm>

namespace zel {
namespace {

using kind = setting_kind;

constexpr int64_t highest_pin = 65535;
constexpr int64_t longest_name = 63;
constexpr int64_t longest_text = 255;

std::string text_of(const json_t *value) { return {json_string_value(value), json_string_length(value)}; }
int32_t number_of(const json_t *value) { return static_cast<int32_t>(json_integer_value(value)); }
bool flag_of(const json_t *value) { return json_is_true(value); }

#define STORE(target, of) [](unit_settings &s, const json_t *value) { s.target = of(value); }
#define ENTER(target) [](unit_settings &s, std::string_view) { s.target.emplace_back(); }

// A row's members follow it, so that the printed list reads from the outside in.
constexpr setting table[] = {
    {"", kind::object, 0, 0, "", "", false, nullptr, nullptr, "the unit's configuration"},
    {"product_id", kind::text, 1, longest_name, "", "\"ZEL-SOFT\"", false, STORE(product_id, text_of), nullptr,
     "product id shown to the web pages and in the Ember+ tree"},
    {"friendly_name", kind::text, 0, longest_name, "", "\"\"", false, STORE(friendly_name, text_of), nullptr,
     "name of the unit; other units see its virtual outputs under it"},
    {"interface", kind::text, 1, 15, "", "\"lo\"", false, STORE(interface, text_of), nullptr,
     "network interface of the unit; \"Eth Link Down\" follows its carrier"},
    {"log_level", kind::choice, 0, 0, "error|warning|information|detail", "\"information\"", false,
     STORE(log_level, text_of), nullptr, "the least important messages that are still logged"},
    {"pin_backend", kind::choice, 0, 0, "sim|kernel", "\"sim\"", false, STORE(pin_backend, text_of), nullptr,
     "simulated pins, or the GPIO lines of this machine"},
    {"kernel_lines", kind::map, 0, 0, "", "", false, nullptr, nullptr,
     "where a pin is found among the machine's lines; a pin not listed is the kernel's own global line number"},
    {"kernel_lines.*", kind::object, 0, 0, "", "", false, nullptr,
     [](unit_settings &s, std::string_view name) { s.kernel_lines.push_back({std::string(name), "", 0}); },
     "the member's name is the pin's number"},
    {"kernel_lines.*.chip", kind::text, 1, longest_name, "", "", true, STORE(kernel_lines.back().chip, text_of), nullptr,
     "label of the GPIO chip"},
    {"kernel_lines.*.offset", kind::number, 0, highest_pin, "", "", true, STORE(kernel_lines.back().offset, number_of),
     nullptr, "line of that chip"},
    {"pins", kind::array, 0, 20, "", "", false, nullptr, nullptr, "the physical ports, cough ports last"},
    {"pins[]", kind::object, 0, 0, "", "", false, nullptr, ENTER(pins), "one physical port"},
    {"pins[].in_pin", kind::number, 0, highest_pin, "", "", true, STORE(pins.back().in_pin, number_of), nullptr,
     "pin used while the port is an input"},
    {"pins[].in_active_low", kind::boolean, 0, 0, "", "false", false, STORE(pins.back().in_active_low, flag_of), nullptr,
     "the input is on while its line is low"},
    {"pins[].out_pin", kind::number, 0, highest_pin, "", "", false, STORE(pins.back().out_pin, number_of), nullptr,
     "pin used while the port is an output; required unless it is a cough port"},
    {"pins[].out_active_low", kind::boolean, 0, 0, "", "false", false, STORE(pins.back().out_active_low, flag_of), nullptr,
     "the output's line is low while it is on"},
    {"pins[].cough", kind::boolean, 0, 0, "", "false", false, STORE(pins.back().cough, flag_of), nullptr,
     "a cough port: an input only, always momentary"},
    {"relays", kind::object, 0, 0, "", "", false, nullptr, nullptr, "the relays, on pins that follow each other"},
    {"relays.base_pin", kind::number, 0, highest_pin, "", "", true, STORE(relay_base_pin, number_of), nullptr,
     "pin of the first relay"},
    {"relays.count", kind::number, 0, 256, "", "0", false, STORE(relay_count, number_of), nullptr, "how many relays there are"},
    {"virtual_count", kind::number, 0, 1000, "", "0", false, STORE(virtual_count, number_of), nullptr,
     "virtual ports, which reach other units over the network; without any, no port is in the Ember+ tree"},
    {"user_buttons", kind::number, 0, 64, "", "0", false, STORE(user_buttons, number_of), nullptr,
     "pairs of a front-panel button and the LED beside it"},
    {"udp_commands", kind::object, 0, 0, "", "", false, nullptr, nullptr,
     "GPI ports driven by datagrams in place of their pins"},
    {"udp_commands.enabled", kind::boolean, 0, 0, "", "false", false, STORE(udp_enabled, flag_of), nullptr,
     "whether they are"},
    {"udp_commands.address", kind::address, 0, 0, "", "\"127.0.0.1\"", false, STORE(udp.address, text_of), nullptr,
     "address to receive them on"},
    {"udp_commands.port", kind::number, 1, 65535, "", "5010", false, STORE(udp.port, number_of), nullptr,
     "UDP port to receive them on"},
    {"handlers", kind::array, 0, 200, "", "", false, nullptr, nullptr, "what the unit does when an input fires"},
    {"handlers[]", kind::object, 0, 0, "", "", false, nullptr, ENTER(handlers), "one handler"},
    {"handlers[].name", kind::text, 1, longest_name, "", "", true, STORE(handlers.back().name, text_of), nullptr,
     "its name in the grid"},
    {"handlers[].command", kind::array, 1, 64, "", "", false, nullptr, nullptr,
     "program to run at each change of its state, with arguments; no shell takes part"},
    {"handlers[].command[]", kind::text, 0, 4096, "", "", false, STORE(handlers.back().command.back(), text_of),
     ENTER(handlers.back().command),
     "the program's path, then its arguments"},
    {"triggers", kind::array, 0, 195, "", "", false, nullptr, nullptr, "events that can drive outputs, relays and handlers"},
    {"triggers[]", kind::text, 1, longest_name, "", "", false, STORE(triggers.back(), text_of), ENTER(triggers),
     "the event's name in the grid"},
    {"servers", kind::object, 0, 0, "", "", false, nullptr, nullptr, "where the unit's servers are"},
    {"servers.ember", kind::object, 0, 0, "", "", false, nullptr, nullptr, "the Ember+ provider"},
    {"servers.ember.address", kind::address, 0, 0, "", "\"127.0.0.1\"", false, STORE(ember.address, text_of), nullptr,
     "address to listen on"},
    {"servers.ember.port", kind::number, 1, 65535, "", "9000", false, STORE(ember.port, number_of), nullptr,
     "TCP port to listen on"},
    {"servers.web", kind::object, 0, 0, "", "", false, nullptr, nullptr, "the web server"},
    {"servers.web.address", kind::address, 0, 0, "", "\"127.0.0.1\"", false, STORE(web.address, text_of), nullptr,
     "address to listen on"},
    {"servers.web.port", kind::number, 1, 65535, "", "8080", false, STORE(web.port, number_of), nullptr,
     "TCP port to listen on"},
    {"servers.web.pages", kind::text, 0, 4096, "", "\"\"", false, STORE(web.pages, text_of), nullptr,
     "folder with the pages; empty: those that come with the program"},
    {"servers.web.names", kind::array, 0, 32, "", "", false, nullptr, nullptr,
     "names besides the machine's own under which browsers may ask for the pages"},
    {"servers.web.names[]", kind::text, 1, 253, "", "", false, STORE(web.names.back(), text_of), ENTER(web.names),
     "a host name, without a port"},
    {"servers.discovery", kind::text, 1, longest_text, "", "\"zel_sdiscd\"", false, STORE(discovery, text_of), nullptr,
     "name of the discovery daemon's socket in /run/zel"},
    {"servers.snmp", kind::text, 1, longest_text, "", "\"snmp_gpio\"", false, STORE(snmp, text_of), nullptr,
     "name of the SNMP agent's socket in /run/zel"},
    {"snmp_agent", kind::object, 0, 0, "", "", false, nullptr, nullptr, "the SNMP agent, zel_snmpd"},
    {"snmp_agent.address", kind::address, 0, 0, "", "\"127.0.0.1\"", false, STORE(snmp_agent.listen.address, text_of), nullptr,
     "address to listen on"},
    {"snmp_agent.port", kind::number, 1, 65535, "", "1161", false, STORE(snmp_agent.listen.port, number_of), nullptr,
     "UDP port to listen on"},
    {"snmp_agent.agentx", kind::text, 0, longest_text, "", "\"\"", false, STORE(snmp_agent.agentx, text_of), nullptr,
     "AgentX socket of the machine's snmpd to be a part of; empty: an agent by itself, which listens as above"},
    {"snmp_agent.trap_sinks", kind::array, 0, 16, "", "", false, nullptr, nullptr,
     "receivers of notifications of version 2c, for an agent by itself"},
    {"snmp_agent.trap_sinks[]", kind::object, 0, 0, "", "", false, nullptr, ENTER(snmp_agent.trap_sinks), "one receiver"},
    {"snmp_agent.trap_sinks[].address", kind::address, 0, 0, "", "", true,
     STORE(snmp_agent.trap_sinks.back().address, text_of), nullptr, "its address"},
    {"snmp_agent.trap_sinks[].port", kind::number, 1, 65535, "", "162", false,
     STORE(snmp_agent.trap_sinks.back().port, number_of), nullptr, "its UDP port"},
};

#undef STORE
#undef ENTER

constexpr std::string_view parent_of(std::string_view pattern)
{
    if (pattern.ends_with("[]")) return pattern.substr(0, pattern.size() - 2);
    const size_t dot = pattern.rfind('.');
    return dot == std::string_view::npos ? std::string_view{} : pattern.substr(0, dot);
}

constexpr bool every_row_has_a_parent_above_it()
{
    for (size_t row = 1; row < std::size(table); ++row) {
        size_t above = 0;
        while (above < row && table[above].pattern != parent_of(table[row].pattern)) ++above;
        if (above == row) return false;
    }
    return true;
}
static_assert(every_row_has_a_parent_above_it());
static_assert(std::ranges::all_of(table, [](const setting &row) { return row.min <= row.max && !row.meaning.empty(); }));

std::string shown_default(const setting &row)
{
    if (row.required) return "required";
    return row.fallback.empty() ? "" : "`" + std::string(row.fallback) + "`";
}

std::string joined_choices(std::string_view choices)
{
    std::string text;
    for (const char c : choices) {
        if (c == '|') text += "\", \"";
        else text += c;
    }
    return "one of \"" + text + "\"";
}

}  // namespace

std::span<const setting> settings_table()
{
    return table;
}

const setting *find_setting(std::string_view pattern)
{
    const auto row = std::ranges::find(table, pattern, &setting::pattern);
    return row == std::end(table) ? nullptr : row;
}

std::vector<const setting *> members_of(std::string_view pattern)
{
    std::vector<const setting *> rows;
    for (const setting &row : table) {
        if (!row.pattern.empty() && !row.pattern.ends_with("[]") && parent_of(row.pattern) == pattern) rows.push_back(&row);
    }
    return rows;
}

std::string accepted_values(const setting &row)
{
    const std::string min = std::to_string(row.min), max = std::to_string(row.max);
    switch (row.kind) {
    case kind::object:
    case kind::map: return "an object";
    case kind::array: return (row.min == 0 ? "an array of at most " : "an array of " + min + " to ") + max + " entries";
    case kind::text: return "a text of " + (row.min == 0 ? "at most " : min + " to ") + max + " bytes";
    case kind::choice: return joined_choices(row.choices);
    case kind::address: return "a numeric IPv4 or IPv6 address";
    case kind::number: return "a whole number from " + min + " to " + max;
    case kind::boolean: return "true or false";
    }
    return "a value";
}

std::string settings_as_markdown()
{
    std::string text = "| setting | value | default | meaning |\n|---|---|---|---|\n";
    for (const setting &row : table) {
        if (row.pattern.empty()) continue;
        text += "| `" + std::string(row.pattern) + "` | " + accepted_values(row) + " | " + shown_default(row) + " | " +
                std::string(row.meaning) + " |\n";
    }
    return text;
}

}  // namespace zel
