// "/cgi/gpioGrid.cgi": GET gives the grid or what can be put on it, POST puts items on and off it and turns ports round.
#include <cstdlib>
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/grid_documents.h"
#include "zel_gpio/json_writer.h"
#include "zel_gpio/list_text.h"
#include "zel_gpio/port_names.h"
#include "zel_gpio/port_type.h"
#include "zel_gpio/snmp_info.h"
#include "zel_gpio/web_form.h"

using namespace zel;

namespace {

enum form_key { key_free, key_type, key_port, key_in_mode, key_new_state, key_vgpo_src };
enum new_state : long { state_remove = 0, state_input = 1, state_output = 2 };

constexpr const char *post_function = "gpio_grid_post_handler";

struct grid_request {
    const web_form &form;
    long new_state;
    const char *type;
};

// Workers for one item each. `result` is that of the request: the last operation that has one decides.

void change_relay(const grid_request &request, long index, int32_t &result)
{
    if (relays == nullptr || index < 0 || index >= relay_count) return;
    const int32_t r = static_cast<int32_t>(index);
    const port_name key = relay_key(r);
    zel_json_obj_t *const object = zel_json_file_load_object(gpio_json, relays_json_obj, key.text);
    if (object == nullptr) {
        log_message(0, "%s: Failed to load json object: relays->%s\n", post_function, key.text);
        result = -1;
        return;
    }
    relays[r].on_grid = request.new_state == state_output;
    if (zel_json_file_set_boolean(gpio_json, object, "on_grid", relays[r].on_grid) != 0) {
        log_message(0, "%s: Failed to set on_grid for json object: %s to %d\n", post_function, key.text, relays[r].on_grid);
        result = -1;
    }
    if (request.new_state == state_remove) result = set_relay_trigger_list(r, "null", "null", 0);
}

void remove_trigger_from_grid(int32_t id)
{
    for (int32_t index = 0; index < port_end; ++index) (void)set_trigger_connection(owner_gpio, 0, index, id, 0);
    for (int32_t index = 0; index < relay_count; ++index) (void)set_trigger_connection(owner_relay, 0, index, id, 0);
    for (int32_t index = 0; index < handler_count; ++index) (void)set_trigger_connection(owner_handler, 0, index, id, 0);
}

void remove_handler_from_grid(int32_t id)
{
    for (int32_t index = 0; index < port_end; ++index) (void)remove_gpio_handler_connection(index, id);
    for (int32_t trigger = 0; trigger < trigger_count; ++trigger)
        (void)set_trigger_connection(owner_handler, 0, id, trigger, 0);
}

void show_trigger(int32_t id, uint8_t on_grid)
{
    trigger_list[id].on_grid = on_grid;
    (void)update_on_grid_triggers();
}

void show_handler(int32_t id, uint8_t on_grid)
{
    handler_list[id].on_grid = on_grid;
    (void)update_on_grid_handlers();
}

void change_event(const grid_request &request, long index, int32_t &result)
{
    if (index < 0) return;
    if (index >= trigger_count) {
        result = -1;
        return;
    }
    const int32_t id = static_cast<int32_t>(index);
    long ignored;
    if (request.new_state == state_remove && request.form.number(key_in_mode, ignored)) {
        remove_trigger_from_grid(id);
        show_trigger(id, 0);
    } else if (request.new_state == state_remove) {
        remove_handler_from_grid(id);
        show_handler(id, 0);
    } else if (request.new_state == state_input) {
        show_trigger(id, 1);
    } else if (request.new_state == state_output) {
        if (handler_list[id].led_handler == 0) handler_list[id].on_grid = 1;
        (void)update_on_grid_handlers();
    }
}

// The source as it is stored, for the caller to free; null if memory is short.
char *stored_source(const char *value)
{
    char *const source = static_cast<char *>(std::malloc(3 * std::strlen(value) + 1));
    if (source != nullptr) zel_sys_strpercentenc(value, source);
    else log_message(0, "%s: Failed to allocate memory for a vgpo src\n", post_function);
    return source;
}

int32_t make_virtual_input(int32_t index, uint32_t mode, const char *value)
{
    char *const source = stored_source(value);
    if (source == nullptr) return -1;
    const bool wanted = std::strcmp(source, "-") != 0;
    const int32_t result = set_gpio_to_input(index, mode, none, wanted ? source : nullptr, 0);
    std::free(source);
    return result;
}

int32_t make_input(const web_form &form, int32_t index)
{
    const uint32_t gpio_class = gpios[index].gpio_class;
    long number = -1;
    const bool has_mode = form.number(key_in_mode, number);
    if (!has_mode && (gpio_class == class_physical || gpio_class == class_user_button)) {
        log_message(0, "%s: Failed to get new input mode\n", post_function);
        return -1;
    }
    const uint32_t mode = static_cast<uint32_t>(has_mode ? index_from(number) : -1);
    if (gpio_class != class_virtual) return set_gpio_to_input(index, mode, none, nullptr, 0);
    const char *const source = form.text(key_vgpo_src);
    if (source == nullptr) {
        log_message(0, "%s: Failed to get new vgpo src\n", post_function);
        return -1;
    }
    return make_virtual_input(index, mode, source);
}

void change_port(const grid_request &request, long number, int32_t &result)
{
    const int32_t index = index_from(number);
    if (!port_exists(index)) return;
    if (request.new_state == state_remove) result = disable_gpio(index);
    if (request.new_state == state_input) result = make_input(request.form, index);
    if (request.new_state == state_output) result = set_gpio_to_output(index, gpios[index].trig_ids[0], 0);
    snmp_send_gpio_info(index);
}

struct item_kind {
    const char *word;
    void (*change)(const grid_request &, long, int32_t &);
};

constexpr item_kind kinds[] = {{"relay", change_relay}, {"event", change_event}};

void (*worker_for(const char *word))(const grid_request &, long, int32_t &)
{
    for (const item_kind &kind : kinds) {
        if (std::strcmp(kind.word, word) == 0) return kind.change;
    }
    return change_port;
}

int32_t change_items(const web_form &form)
{
    grid_request request{form, 0, nullptr};
    (void)form.number(key_new_state, request.new_state);
    const char *const ports = form.text(key_port);
    if (ports == nullptr) {
        log_message(0, "%s: Failed to get list of ports\n", post_function);
        return -1;
    }
    request.type = form.text(key_type);
    if (request.type == nullptr) {
        log_message(0, "%s: Failed to get type string\n", post_function);
        return -1;
    }
    int32_t result = 0;
    exchange_pieces pieces(ports);
    for (std::string_view piece; pieces.next(piece);) worker_for(request.type)(request, leading_number(piece), result);
    return result;
}

int32_t carry_out_post(const char *body, size_t length)
{
    const web_form form(body, length, gpio_grid_get_str);
    if (!form.copied()) {
        log_message(0, "%s: strdup failed\n", post_function);
        return 0;
    }
    if (form.empty()) {
        log_message(0, "%s: Invalid header string\n", post_function);
        return -1;
    }
    return change_items(form);
}

int32_t gpio_grid_post_handler(const char *body, size_t length, char **reply, size_t *reply_len, char *buf, size_t size)
{
    const int32_t result = carry_out_post(body, length);
    return reply_with_empty_object(reply, reply_len, buf, size) ? result : -1;
}

int32_t gpio_grid_get_handler(const char *query, size_t length, char **reply, size_t *reply_len, char *buf, size_t size)
{
    const web_form form(query, length, gpio_grid_get_str);
    if (!form.copied()) {
        log_message(0, "%s: strdup failed\n", __func__);
        return -1;
    }
    int pos = zel_json_writer_start(buf);
    long kind;
    if (form.empty())
        pos = get_gpio_grid_info(buf, size, pos);
    else if (form.number(key_free, kind))
        pos = get_gpio_free_info(kind, buf, size, pos);
    const int written = zel_json_writer_finish(buf, size, pos);
    if (written < 0) {
        log_message(0, "%s: The document does not fit %zu bytes\n", __func__, size);
        return -1;
    }
    *reply = buf;
    *reply_len = static_cast<size_t>(written);
    return 0;
}

int url_handler_func_gpioGrid(void *, const char *query, size_t query_len, const char *body, size_t body_len, int *status,
                              char **reply, size_t *reply_len, void *, char *buf, size_t size)
{
    int32_t result = -1;
    if (query != nullptr && query_len > 0)
        result = gpio_grid_get_handler(query, query_len, reply, reply_len, buf, size);
    else if (body != nullptr && body_len > 0)
        result = gpio_grid_post_handler(body, body_len, reply, reply_len, buf, size);
    if (result != 0) *status = status_failed;
    return 1;
}

}  // namespace

bool zel::reply_with_empty_object(char **reply, size_t *reply_len, char *buf, size_t size)
{
    json_writer json(buf, size, zel_json_writer_start(buf));
    json.begin_object();
    json.end_object();
    const int written = zel_json_writer_finish(buf, size, json.position());
    if (written < 0) return false;
    *reply = buf;
    *reply_len = static_cast<size_t>(written);
    return true;
}

extern const char *const gpio_grid_get_str[7] = {"getFreeGpio", "gpioType", "gpioPort", "gpioInMode",
                                                       "newState",    "vgpoSrc",  nullptr};
extern const zel_web_url_handler_t url_handler_gpioGrid = {"/cgi/gpioGrid.cgi", url_handler_func_gpioGrid};
