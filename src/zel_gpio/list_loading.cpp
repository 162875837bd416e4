#include "zel_gpio/list_loading.h"

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/list_text.h"

namespace zel {

namespace {

// How the entries of one owner's list are stored, and the words of its keys and messages.
struct saved_list_form {
    const char *function, *names_key, *inverts_key, *no_memory;
};

constexpr saved_list_form port_triggers{"get_gpio_triggers", "trigger", "invert_trigger",
                                        "%s: Failed to allocate memory for trigger name for port\n"};
constexpr saved_list_form relay_triggers{"get_relay_triggers", "triggers", "trigger_invert",
                                         "%s: Failed to allocate memory for trigger name for relay\n"};
constexpr saved_list_form handler_triggers{"get_triggers_for_handler", "triggers", "trigger_inverts",
                                           "%s: Failed to allocate memory for trigger name for port\n"};
constexpr saved_list_form port_handlers{"get_gpio_handlers", "handler", "handler_invert",
                                        "%s: Failed to allocate memory for handler name for port\n"};

// Calls `store(entry, name)` for each saved name, counting in *count up to the list's size.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <typename storer>
int32_t read_names(zel_json_obj_t *object, const saved_list_form &form, int32_t *count, const storer &store)
{
    saved_pieces pieces(zel_json_file_load_string(gpio_json, object, form.names_key, nullptr));
    for (std::string_view piece; *count < list_size && pieces.next(piece);) {
        char *const name = copy_of(piece);
        if (name == nullptr) {
            log_message(0, form.no_memory, form.function);
            return -1;
        }
        store(*count, name);
        ++*count;
    }
    return 0;
}
#pragma GCC diagnostic pop

// False if the key is absent. Pieces behind the last entry are ignored; entries without one keep their invert.
bool read_inverts(zel_json_obj_t *object, const saved_list_form &form, uint8_t *inverts, int32_t count)
{
    const char *const text = zel_json_file_load_string(gpio_json, object, form.inverts_key, nullptr);
    if (text == nullptr) return false;
    saved_pieces pieces(text);
    std::string_view piece;
    for (int32_t k = 0; k < count && pieces.next(piece); ++k) inverts[k] = invert_of(piece);
    return true;
}

template <typename owner>
int32_t read_trigger_names(zel_json_obj_t *object, const saved_list_form &form, owner &record)
{
    const trigger_view list = triggers_of(record);
    return read_names(object, form, list.count, [&](int32_t k, char *name) {
        release_text(list.names[k]);
        list.names[k] = name;
        list.ids[k] = find_trigger_id_by_name(name);
        if (list.ids[k] == none) return;
        note_listener(record, list.ids[k]);
        trigger_list[list.ids[k]].on_grid = 1;
    });
}

// Saves an owner whose file entry lacked its inverts; not one whose names could not all be read, or the rest would be lost.
int32_t complete(int32_t names_read, bool has_inverts, int32_t (*save)(int32_t index), int32_t index)
{
    if (!has_inverts && names_read == 0) (void)save(index);
    return names_read;
}

}  // namespace

int32_t get_gpio_triggers(zel_json_obj_t *object, gpio_port_t *port)
{
    zel_assert(gpio_json != NULL);
    zel_assert(object != NULL);
    zel_assert(port != NULL);
    port->num_trigs = 0;
    const int32_t result = read_trigger_names(object, port_triggers, *port);
    return complete(result, read_inverts(object, port_triggers, port->trig_inv, port->num_trigs), update_gpio_json, port->index);
}

int32_t get_relay_triggers(zel_json_file_t *file, zel_json_obj_t *object, relay_t *relay)
{
    zel_assert(file != NULL);
    zel_assert(object != NULL);
    zel_assert(relay != NULL);
    relay->num_trigs = 0;
    const int32_t result = read_trigger_names(object, relay_triggers, *relay);
    return complete(result, read_inverts(object, relay_triggers, relay->trig_inv, relay->num_trigs), update_relay_json, relay->index);
}

int32_t get_gpio_handlers(zel_json_obj_t *object, gpio_port_t *port)
{
    zel_assert(gpio_json != NULL);
    zel_assert(object != NULL);
    zel_assert(port != NULL);
    port->num_handlers = 0;
    const int32_t result = read_names(object, port_handlers, &port->num_handlers, [&](int32_t k, char *name) {
        set_handler_entry(*port, k, name, find_handler_by_name(name), 0);
        if (port->handlers[k] != nullptr) port->handlers[k]->on_grid = 1;
    });
    return complete(result, read_inverts(object, port_handlers, port->handler_inv, port->num_handlers), update_gpio_json, port->index);
}

int32_t get_triggers_for_handler(handler_t *handler)
{
    if (handler == nullptr || gpio_json == nullptr || handler_info_json_obj == nullptr || handler->on_grid == 0) return 0;
    handler->json_obj = zel_json_file_load_object(gpio_json, handler_info_json_obj, handler->name);
    if (handler->json_obj == nullptr) {
        log_message(1, "Failed to load handler info json obj for '%s'\n", handler->name);
        return 0;
    }
    const int32_t result = read_trigger_names(handler->json_obj, handler_triggers, *handler);
    (void)read_inverts(handler->json_obj, handler_triggers, handler->trig_inv, handler->num_trigs);
    return result;
}

}  // namespace zel
