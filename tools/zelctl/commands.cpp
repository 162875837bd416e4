#include "commands.h"

#include "common/whole_number.h"
#include "printing.h"

#include <algorithm>

namespace zel {
namespace {

// Releases the request where it throws.
void put_text(json_t *request, const char *key, std::string_view text)
{
    if (json_object_set_new(request, key, json_stringn(text.data(), text.size())) == 0) return;
    json_decref(request);
    throw usage_error("an argument is not UTF-8 text");
}

// The request of that name, with text arguments under their keys.
json_t *request_of(std::string_view name, std::initializer_list<std::pair<const char *, std::string_view>> texts = {})
{
    json_t *const request = json_object();
    put_text(request, "request", name);
    for (const auto &[key, text] : texts) put_text(request, key, text);
    return request;
}

json_t *plain(const command_words &words)
{
    return request_of(words.command->name);
}

json_t *of_pin(const command_words &words)
{
    return request_of(words.command->name, {{"pin", words.arguments[0]}});
}

json_t *of_pulse(const command_words &words)
{
    constexpr int64_t longest_ms = 60000;
    const std::string *const length = words.value_of("--hold");
    const int64_t milliseconds = length != nullptr ? number_argument(*length, "--hold", 0, longest_ms) : 0;
    json_t *const request = of_pin(words);
    (void)json_object_set_new(request, "length_ms", json_integer(milliseconds));
    return request;
}

json_t *of_button(const command_words &words)
{
    const int64_t number = number_argument(words.arguments[0], "the button", 1, INT32_MAX);
    json_t *const request = plain(words);
    (void)json_object_set_new(request, "number", json_integer(number));
    return request;
}

json_t *of_event(const command_words &words)
{
    const std::string &state = words.arguments[1];
    if (state != "on" && state != "off") throw usage_error("the event's state must be on or off, not \"" + state + "\"");
    json_t *const request = request_of("event", {{"trigger", words.arguments[0]}});
    (void)json_object_set_new(request, "state", json_integer(state == "on"));
    return request;
}

json_t *of_handler(const command_words &words)
{
    if (words.arguments[1] != "toggle") throw usage_error("a handler can be toggled, not \"" + words.arguments[1] + "\"");
    return request_of("toggle", {{"handler", words.arguments[0]}});
}

json_t *of_connection(const command_words &words)
{
    json_t *const request = request_of(words.command->name, {{"input", words.arguments[0]}, {"output", words.arguments[1]}});
    (void)json_object_set_new(request, "invert", json_boolean(words.has("--invert")));
    return request;
}

json_t *of_port(const command_words &words)
{
    json_t *const request = request_of("set-port", {{"port", words.arguments[0]}, {"type", words.arguments[1]}});
    const std::string *const mode = words.value_of("--mode"), *const source = words.value_of("--source");
    if (mode != nullptr) put_text(request, "mode", *mode);
    if (source != nullptr) put_text(request, "source", *source);
    return request;
}

json_t *of_watch(const command_words &words)
{
    json_t *const request = plain(words);
    (void)json_object_set_new(request, "calls", json_boolean(words.has("--calls")));
    return request;
}

constexpr command_row table[] = {
    {"status", 0, 0, "", "", "everything: the unit, its ports, relays, handlers and triggers", plain, print_status},
    {"unit", 0, 0, "", "", "the unit itself", plain, print_unit},
    {"pins", 0, 0, "", "", "the pins of the ports and relays, with their levels", plain, print_pins},
    {"ports", 0, 0, "", "", "all ports with type, mode and state", plain, print_ports},
    {"relays", 0, 0, "", "", "the relays", plain, print_relays},
    {"handlers", 0, 0, "", "", "the handlers, what holds them on and which triggers drive them", plain, print_handlers},
    {"triggers", 0, 0, "", "", "the triggers", plain, print_triggers},
    {"states", 0, 0, "", "", "what is on and what is off", plain, print_states},
    {"grid", 0, 0, "", "", "the connections", plain, print_grid},
    {"press", 1, 1, "", "PIN", "close the contact at an input", of_pin, nullptr},
    {"release", 1, 1, "", "PIN", "open it", of_pin, nullptr},
    {"pulse", 1, 1, "--hold= ", "PIN [--hold MS]", "close it and open it again", of_pulse, nullptr},
    {"button", 1, 1, "", "N", "press user button N", of_button, nullptr},
    {"event", 2, 2, "", "TRIGGER on|off", "let an event begin or end", of_event, nullptr},
    {"handler", 2, 2, "", "HANDLER toggle", "toggle a handler by hand", of_handler, nullptr},
    {"connect", 2, 2, "--invert ", "INPUT OUTPUT [--invert]", "connect an input or trigger to an output, relay or handler",
     of_connection, nullptr},
    {"disconnect", 2, 2, "", "INPUT OUTPUT", "take that connection away", of_connection, nullptr},
    {"set-port", 2, 2, "--mode= --source= ", "PORT input|output|disabled [--mode latching|momentary] [--source VGPO]",
     "change what a port is", of_port, nullptr},
    {"watch", 0, 0, "--count= --for= --calls --time ", "[--count N] [--for SECONDS] [--calls] [--time]",
     "one line per change, in order, as it happens", of_watch, nullptr},
};

// The row's own spelling of an option, which lives as long as the program; empty if the command has no such option.
std::string_view known_option(const command_row &row, std::string_view word, bool &has_value)
{
    for (size_t begin = 0; begin < row.options.size();) {
        const size_t end = row.options.find(' ', begin);
        std::string_view option = row.options.substr(begin, end - begin);
        has_value = option.ends_with('=');
        if (has_value) option.remove_suffix(1);
        if (option == word) return option;
        begin = end + 1;
    }
    return {};
}

const command_row &find_command(const std::string &name)
{
    const auto row = std::ranges::find(table, name, &command_row::name);
    if (row == std::end(table)) throw usage_error("there is no command \"" + name + "\"");
    return *row;
}

}  // namespace

std::span<const command_row> command_table()
{
    return table;
}

bool command_words::has(std::string_view option) const
{
    return value_of(option) != nullptr;
}

const std::string *command_words::value_of(std::string_view option) const
{
    const auto found = std::ranges::find(options, option, &option_word::name);
    return found == options.end() ? nullptr : &found->value;
}

command_words take_command(const std::vector<std::string> &words)
{
    const command_row &row = find_command(words.at(0));
    command_words taken{&row, {}, {}};
    bool only_arguments = false;
    for (size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "--" && !only_arguments) {
            only_arguments = true;
            continue;
        }
        if (only_arguments || !words[i].starts_with("--")) {
            taken.arguments.push_back(words[i]);
            continue;
        }
        const size_t equals = words[i].find('=');
        bool has_value = false;
        const std::string_view option = known_option(row, std::string_view(words[i]).substr(0, equals), has_value);
        if (option.empty() || (!has_value && equals != std::string::npos)) {
            throw usage_error(std::string(row.name) + " has no option \"" + words[i] + "\"");
        }
        std::string value;
        if (has_value && equals != std::string::npos) value = words[i].substr(equals + 1);
        else if (has_value && i + 1 < words.size()) value = words[++i];
        else if (has_value) throw usage_error(std::string(option) + " needs a value");
        taken.options.push_back({option, value});
    }
    const size_t count = taken.arguments.size();
    if (count < row.least_arguments || count > row.most_arguments) {
        throw usage_error("usage: zelctl " + std::string(row.name) + " " + std::string(row.arguments));
    }
    return taken;
}

int64_t number_argument(std::string_view text, std::string_view what, int64_t min, int64_t max)
{
    const auto number = whole_number(text);
    if (number && *number >= min && *number <= max) return *number;
    throw usage_error(std::string(what) + " must be a whole number from " + std::to_string(min) + " to " + std::to_string(max) +
                      ", not \"" + std::string(text) + "\"");
}

}  // namespace zel
