#include "grid.h"

#include "zel_debug.h"
#include "zel_gpio.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace zel {
namespace {

constexpr size_t first_document_size = size_t{256} << 10, largest_document_size = size_t{16} << 20;
constexpr int status_ok = 200;

struct web_answer {
    int status = status_ok;
    std::string text;
};

web_answer ask(const zel_web_url_handler_t &endpoint, const std::string &query, const std::string &body, size_t size)
{
    web_answer answer;
    std::vector<char> buffer(size);
    char *reply = nullptr;
    size_t length = 0;
    (void)endpoint.func(nullptr, query.empty() ? nullptr : query.c_str(), query.size(), body.empty() ? nullptr : body.c_str(),
                        body.size(), &answer.status, &reply, &length, nullptr, buffer.data(), buffer.size());
    if (reply != nullptr) answer.text.assign(reply, length);
    return answer;
}

std::string form_encoded(std::string_view text)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const unsigned char c : text) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (plain) encoded += static_cast<char>(c);
        else encoded.append({'%', digits[c >> 4], digits[c & 15]});
    }
    return encoded;
}

using form_fields = std::initializer_list<std::pair<const char *, std::string>>;

std::string form(form_fields fields)
{
    std::string text;
    for (const auto &[key, value] : fields) {
        if (!text.empty()) text += '&';
        text += std::string(key) + "=" + form_encoded(value);
    }
    return text;
}

int post(const zel_web_url_handler_t &endpoint, form_fields fields)
{
    constexpr size_t reply_size = 4096;
    return ask(endpoint, "", form(fields), reply_size).status;
}

int post_connection(const char *action, const std::string &input_class, int32_t input, const std::string &output_class,
                    int32_t output, bool invert)
{
    return post(url_handler_gpioConn, {{"action", action}, {"inputClass", input_class}, {"inputID", std::to_string(input)},
                                       {"outputClass", output_class}, {"outputID", std::to_string(output)},
                                       {"gpioInvert", invert ? "1" : "0"}});
}

std::string_view text_member(const json_t *object, const char *key)
{
    const char *const text = json_string_value(json_object_get(object, key));
    return text != nullptr ? text : "";
}

int number_member(const json_t *object, const char *key)
{
    const json_t *const value = json_object_get(object, key);
    return json_is_integer(value) ? static_cast<int>(json_integer_value(value)) : -1;
}

// Triggers and handlers stand in the document as "event"; what a port is called there depends on which end it is.
bool is_end(const json_t *connection, const char *class_key, const char *id_key, const std::string &class_word, int32_t id)
{
    const std::string_view given = text_member(connection, class_key);
    const auto group = [](std::string_view word) { return word == "event" ? 0 : word == "relay" ? 1 : 2; };
    return group(given) == group(class_word) && number_member(connection, id_key) == id;
}

void take_views(const json_t *list, port_type type, std::vector<port_view> &views)
{
    for (size_t i = 0; i < json_array_size(list); ++i) {
        const json_t *const entry = json_array_get(list, i);
        const std::string_view class_word = text_member(entry, "class");
        const int index = number_member(entry, "index");
        if (class_word == "event" || class_word == "relay" || index < 0 || static_cast<size_t>(index) >= views.size()) continue;
        port_view &view = views[static_cast<size_t>(index)];
        view.type = type;
        view.state = json_is_true(json_object_get(entry, "state"));
        view.input_mode = number_member(entry, "input_mode");
        view.source = text_member(entry, "vgpo_src");
        view.source_valid = json_is_true(json_object_get(entry, "vgpo_src_valid"));
    }
}

void take_relays(const json_t *list, bool on_grid, std::vector<relay_view> &views)
{
    for (size_t i = 0; i < json_array_size(list); ++i) {
        const json_t *const entry = json_array_get(list, i);
        const int index = number_member(entry, "index");
        if (text_member(entry, "class") != "relay" || index < 0 || static_cast<size_t>(index) >= views.size()) continue;
        views[static_cast<size_t>(index)] = {json_is_true(json_object_get(entry, "state")), on_grid};
    }
}

// `query` without a key that the endpoint knows asks for the whole grid.
json_handle ask_for_document(const char *query)
{
    for (size_t size = first_document_size; size <= largest_document_size; size *= 4) {
        const web_answer answer = ask(url_handler_gpioGrid, query, "", size);
        if (answer.status == status_ok) return json_handle(json_loadb(answer.text.data(), answer.text.size(), 0, nullptr));
    }
    log_message(0, "%s: The library gives no grid document\n", __func__);
    return nullptr;
}

int32_t trigger_id(const std::string &name)
{
    for (const trigger_t &trigger : trigger_list) {
        if (trigger.name != nullptr && trigger.port_trigger == 0 && name == trigger.name) return trigger.id;
    }
    return -1;
}

int32_t handler_id(const std::string &name)
{
    for (const handler_t &handler : handler_list) {
        if (handler.name != nullptr && handler.led_handler == 0 && name == handler.name) return handler.id;
    }
    return -1;
}

}  // namespace

json_handle grid::document() const
{
    return ask_for_document("grid");
}

std::vector<port_view> grid::port_views() const
{
    std::vector<port_view> views(static_cast<size_t>(ports_.port_count()));
    const json_handle whole = document();
    take_views(json_object_get(whole.get(), "inputs"), port_type::input, views);
    take_views(json_object_get(whole.get(), "outputs"), port_type::output, views);
    return views;
}

std::vector<relay_view> grid::relay_views(size_t count) const
{
    std::vector<relay_view> views(count);
    const json_handle whole = document(), rest = ask_for_document("getFreeGpio=1");
    take_relays(json_object_get(whole.get(), "outputs"), true, views);
    take_relays(json_object_get(rest.get(), "gpio"), false, views);
    return views;
}

std::string grid::end_name(const json_t *connection, bool input) const
{
    const std::string_view class_word = text_member(connection, input ? "input_class" : "output_class");
    const int id = number_member(connection, input ? "input_id" : "output_id");
    if (class_word == "event" && id >= 0 && id < ZEL_GPIO_TRIGGER_COUNT) {
        const char *const name = input ? trigger_list[id].name : handler_list[id].name;
        return name != nullptr ? name : "";
    }
    if (class_word == "relay") return port_name({port_kind::relay, id + 1}, port_type::output);
    if (id < 0 || id >= ports_.port_count()) return "";
    return port_name(ports_.port_at(id), input ? port_type::input : port_type::output);
}

void grid::name_connections(json_t *document) const
{
    const json_t *const connections = json_object_get(document, "connections");
    for (size_t i = 0; i < json_array_size(connections); ++i) {
        json_t *const each = json_array_get(connections, i);
        (void)json_object_set_new(each, "input_name", json_string(end_name(each, true).c_str()));
        (void)json_object_set_new(each, "output_name", json_string(end_name(each, false).c_str()));
    }
}

std::optional<grid::item> grid::find_port(const std::string &name) const
{
    const auto port = parse_port_name(name);
    const auto index = port ? ports_.index_of(*port) : std::nullopt;
    if (!index) return std::nullopt;
    return item{port_map::class_word(port->kind), *index, port};
}

std::optional<grid::item> grid::find_input(const std::string &name) const
{
    const int32_t id = trigger_id(name);
    if (id >= 0) return item{"event", id, std::nullopt};
    auto found = find_port(name);
    if (found && (found->port->kind == port_kind::relay || found->port->kind == port_kind::user_led)) return std::nullopt;
    return found;
}

std::optional<grid::item> grid::find_output(const std::string &name) const
{
    const int32_t id = handler_id(name);
    if (id >= 0) return item{"event", id, std::nullopt};
    auto found = find_port(name);
    if (found && (found->port->kind == port_kind::cough || found->port->kind == port_kind::user_button)) return std::nullopt;
    return found;
}

std::optional<grid::link> grid::find_link(const std::string &input, const std::string &output, grid_outcome &outcome) const
{
    const auto from = find_input(input), to = find_output(output);
    if (!from) outcome.text = "\"" + input + "\" is no input or trigger of this unit";
    else if (!to) outcome.text = "\"" + output + "\" is no output, relay or handler of this unit";
    if (!from || !to) return std::nullopt;
    return link{*from, *to};
}

const char *grid::refusal_of_types(const link &wanted) const
{
    const auto views = port_views();
    const auto type_of = [&](const item &end) { return views[static_cast<size_t>(end.id)].type; };
    const bool from_port = wanted.input.port.has_value();
    const bool to_port = wanted.output.port && wanted.output.port->kind != port_kind::relay;
    if (from_port && type_of(wanted.input) != port_type::input) return "the first port is not set to be an input";
    if (from_port && to_port && type_of(wanted.output) != port_type::output) return "the second port is not set to be an output";
    return nullptr;
}

// What is not on the grid takes connections that the grid does not show and that do not come back after a restart.
void grid::put_on_grid(const link &wanted) const
{
    const bool to_relay = wanted.output.port && wanted.output.port->kind == port_kind::relay;
    const std::string input = std::to_string(wanted.input.id), output = std::to_string(wanted.output.id);
    if (!wanted.input.port && trigger_list[wanted.input.id].on_grid == 0) {
        (void)post(url_handler_gpioGrid, {{"gpioType", "event"}, {"gpioPort", input}, {"newState", "1"}});
    }
    if (to_relay) (void)post(url_handler_gpioGrid, {{"gpioType", "relay"}, {"gpioPort", output}, {"newState", "2"}});
    if (!wanted.output.port && handler_list[wanted.output.id].on_grid == 0) {
        (void)post(url_handler_gpioGrid, {{"gpioType", "event"}, {"gpioPort", output}, {"newState", "2"}});
    }
}

std::optional<bool> grid::invert_of(const link &wanted) const
{
    const json_handle whole = document();
    const json_t *const connections = json_object_get(whole.get(), "connections");
    for (size_t i = 0; i < json_array_size(connections); ++i) {
        const json_t *const each = json_array_get(connections, i);
        if (is_end(each, "input_class", "input_id", wanted.input.class_word, wanted.input.id) &&
            is_end(each, "output_class", "output_id", wanted.output.class_word, wanted.output.id)) {
            return json_is_true(json_object_get(each, "invert"));
        }
    }
    return std::nullopt;
}

// The endpoint's status does not tell: a port is connected to a handler with the status of a failure. The grid does.
grid_outcome grid::connect(const std::string &input, const std::string &output, bool invert)
{
    grid_outcome outcome;
    const auto wanted = find_link(input, output, outcome);
    if (!wanted) return outcome;
    const char *const refused = refusal_of_types(*wanted);
    if (refused != nullptr) return {false, refused};
    put_on_grid(*wanted);
    (void)post_connection("1", wanted->input.class_word, wanted->input.id, wanted->output.class_word, wanted->output.id, invert);
    const auto stands = invert_of(*wanted);
    if (!stands) return {false, "the library refused the connection; the unit's log says why"};
    if (*stands != invert) return {true, "its invert is locked to that of the mirrored connection"};
    return {true, ""};
}

grid_outcome grid::disconnect(const std::string &input, const std::string &output)
{
    grid_outcome outcome;
    const auto wanted = find_link(input, output, outcome);
    if (!wanted) return outcome;
    if (!invert_of(*wanted)) return {false, "\"" + input + "\" is not connected to \"" + output + "\""};
    (void)post_connection("0", wanted->input.class_word, wanted->input.id, wanted->output.class_word, wanted->output.id, false);
    if (invert_of(*wanted)) return {false, "the library refused; the unit's log says why"};
    return {true, ""};
}

// A name that another unit made of control characters cannot be chosen: the form's encoding makes another name of it.
bool grid::knows_source(const std::string &name) const
{
    const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
    if (std::ranges::any_of(name, is_control)) return false;
    const json_handle grid_document = document();
    const json_t *const list = json_object_get(grid_document.get(), "vgpo_src_list");
    for (size_t i = 0; i < json_array_size(list); ++i) {
        if (text_member(json_array_get(list, i), "name") == name) return true;
    }
    return false;
}

grid_outcome grid::set_port(port_ref port, const port_change &change)
{
    const auto index = ports_.index_of(port);
    if (!index || port.kind == port_kind::relay) return {false, "there is no such port"};
    if (port.kind == port_kind::cough && change.type == port_type::output) return {false, "a cough port has no output pin"};
    // The library takes a name that it does not know for none, and would drop the source that the port has.
    if (change.source && !knows_source(*change.source)) return {false, "there is no source \"" + *change.source + "\""};
    const port_view before = port_views()[static_cast<size_t>(*index)];
    const int usual_mode = port.kind == port_kind::user_button ? 0 : 1;
    const int mode = change.input_mode.value_or(before.input_mode >= 0 ? before.input_mode : usual_mode);
    const std::string source = change.source.value_or(before.source.empty() ? "-" : before.source);
    (void)post(url_handler_gpioGrid, {{"gpioType", port_map::class_word(port.kind)}, {"gpioPort", std::to_string(*index)},
                                      {"gpioInMode", std::to_string(mode)}, {"vgpoSrc", source},
                                      {"newState", std::to_string(static_cast<int>(change.type))}});
    const port_view after = port_views()[static_cast<size_t>(*index)];
    const bool taken = after.type == change.type && (!change.input_mode || after.input_mode == *change.input_mode) &&
                       (!change.source || after.source == *change.source);
    if (!taken) return {false, "the library refused it; the unit's log says why"};
    return {true, ""};
}

}  // namespace zel
