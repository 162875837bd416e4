#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/ember_nodes.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/list_loading.h"
#include "zel_gpio/port_names.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/registry.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

namespace {

// The first free slot, where the new name goes; none if a slot before it holds the name already, or the table is full. Slots
// behind the first free one are not compared.
int32_t slot_for_new_handler(const char *name, const char *function)
{
    for (int32_t id = 0; id < handler_count; ++id) {
        if (handler_list[id].name == nullptr) return id;
        if (std::strcmp(handler_list[id].name, name) != 0) continue;
        log_message(1, "%s: Duplicate handler called '%s' (id = %d) already registered\n", function, name, id);
        return none;
    }
    return none;
}

// Counts the names that each slot has had, to see whether a callback put another one in.
uint32_t names_held[handler_count];

// What the slot's last handler may have left behind: entries of triggers that were never registered.
void forget_old_list(handler_t &handler)
{
    const trigger_view list = triggers_of(handler);
    for (int32_t k = 0; k < handler.num_trigs; ++k) {
        clear_entry(list, k);
        handler.allow_invert[k] = 1;
    }
    handler.num_trigs = handler.active_trigs = 0;
}

// The handler is told of each trigger of its saved list as if it had just changed, so that it starts at the right level.
void deliver_saved_triggers(handler_t &handler)
{
    const trigger_view list = triggers_of(handler);
    (void)get_triggers_for_handler(&handler);
    for (int32_t k = 0; k < handler.num_trigs; ++k) {
        if (handler.trig_ids[k] != none) handler_trigger_event(&handler, count_active_first(list, k + 1));
    }
}

// Takes the handler out of all lists and empties its own. False if a callback freed the slot meanwhile: what took it stays.
bool disconnect_handler(int32_t id)
{
    const uint32_t holder = names_held[id];
    for (int32_t index = 0; index < port_end && names_held[id] == holder; ++index) (void)remove_gpio_handler_connection(index, id);
    for (int32_t trigger = 0; trigger < trigger_count && names_held[id] == holder; ++trigger)
        (void)set_trigger_connection(owner_handler, 0, id, trigger, 0);
    return names_held[id] == holder;
}

void rename_in_port(gpio_port_t &port, const handler_t &handler)
{
    bool renamed = false;
    for (int32_t k = 0; k < list_size; ++k) {
        if (port.handlers[k] == nullptr || port.handlers[k]->id != handler.id) continue;
        if (replace_text(port.handler_names[k], handler.name)) renamed = true;
    }
    if (renamed) (void)update_gpio_json(port.index);
}

// True if the handler had an object in the file. A handler of the same name, behind a free slot, shared it.
bool drop_saved_object(handler_t &handler)
{
    const bool had_one = handler.json_obj != nullptr;
    if (handler_info_json_obj != nullptr) (void)zel_json_remove_object(gpio_json, handler_info_json_obj, handler.name);
    for (handler_t &sharer : handler_list) {
        if (sharer.name != nullptr && std::strcmp(sharer.name, handler.name) == 0) sharer.json_obj = nullptr;
    }
    return had_one;
}

// Rewriting the ports may have given the handler an object under its new name already.
void save_under_new_name(handler_t &handler, bool was_saved)
{
    if (was_saved && handler.json_obj == nullptr)
        handler.json_obj = zel_json_file_load_object(gpio_json, handler_info_json_obj, handler.name);
    (void)update_handler_json(handler.id);
}

// False if memory is short; the slot is free then.
bool store_new_name(handler_t &handler, const char *new_name)
{
    char *const copy = strdup(new_name);
    ++names_held[handler.id];
    release_text(handler.name);
    handler.name = copy;
    if (copy == nullptr) remove_element(handler.ember_param);
    return copy != nullptr;
}

}  // namespace

int32_t register_handler(const char *handler_name, zel_gpio_handler_func_t handler_func, void *arg, uint8_t led_handler)
{
    zel_assert(handler_name != NULL);
    zel_assert(handler_func != NULL);
    const int32_t id = slot_for_new_handler(handler_name, __func__);
    if (id == none) return -1;
    handler_t &handler = handler_list[id];
    handler.name = strdup(handler_name);
    if (handler.name == nullptr) {
        log_message(0, "%s: Failed to allocate memory to register handler_name '%s'\n", __func__, handler_name);
        return -1;
    }
    log_message(2, "%s: Registered handler '%s' (id = %d)\n", __func__, handler_name, id);
    if (led_handler == 0) handler.ember_param = add_name_leaf(nodes.handlers, "h-%d", id, handler_name);
    forget_old_list(handler);
    ++names_held[id];
    handler.id = id;
    handler.func = handler_func;
    handler.arg = arg;
    handler.led_handler = led_handler;
    handler.on_grid = handler_on_grid(handler_name);
    if (led_handler == 0) deliver_saved_triggers(handler);
    attach_handler_to_ports(id);
    snmp_send_handler_info(id);
    return id;
}

void attach_handler_to_ports(int32_t id)
{
    handler_t &handler = handler_list[id];
    for (int32_t index = 0; index < port_end; ++index) {
        gpio_port_t &port = gpios[index];
        if (port.type != type_input && port.gpio_class != class_user_led) continue;
        for (int32_t k = 0; k < port.num_handlers; ++k) {
            if (handler.name == nullptr || handler.func == nullptr) return;
            if (port.handler_names[k] == nullptr || std::strcmp(port.handler_names[k], handler.name) != 0) continue;
            port.handlers[k] = &handler;
            if (handler.led_handler == 0) handler.on_grid = 1;
            set_port_handler_state(index);
            snmp_send_gpio_info(index);
        }
    }
}

}  // namespace zel

using namespace zel;

int32_t zel_gpio_register_handler(const char *handler_name, zel_gpio_handler_func_t handler_func, void *arg)
{
    if (handler_name == nullptr || handler_func == nullptr) {
        log_message(0, "%s: Invalid parameter: handler_name = %p, handler_func = %p\n", __func__,
                    static_cast<const void *>(handler_name), reinterpret_cast<void *>(handler_func));
        return -1;
    }
    return register_handler(handler_name, handler_func, arg, 0);
}

int32_t zel_gpio_register_user_led_handler(int32_t led_id, zel_gpio_handler_func_t handler_func, void *arg)
{
    if (led_id < 0 || led_id > user_button_count) {
        log_message(0, "%s: Invalid LED id (%d) user_button_count = %d\n", __func__, led_id, user_button_count);
        return -1;
    }
    if (handler_func == nullptr) {
        log_message(0, "%s: handler_func buffer is NULL\n", __func__);
        return -1;
    }
    return register_handler(numbered("User LED %d", led_id + 1).text, handler_func, arg, 1);
}

int32_t zel_gpio_rename_handler(const char *old_name, const char *new_name)
{
    if (old_name == nullptr || new_name == nullptr) {
        log_message(0, "%s: Invalid parameter: old_name = %p, new_name = %p\n", __func__, static_cast<const void *>(old_name),
                    static_cast<const void *>(new_name));
        return -1;
    }
    handler_t *const handler = find_handler_by_name(old_name);
    if (handler == nullptr) {
        log_message(0, "%s: Handler: '%s' not found\n", __func__, old_name);
        return -1;
    }
    if (find_handler_by_name(new_name) != nullptr) {
        log_message(0, "%s: Duplicate handler called '%s' is already registered\n", __func__, new_name);
        return -1;
    }
    const bool was_saved = drop_saved_object(*handler);
    if (!store_new_name(*handler, new_name)) {
        log_message(0, "%s: Failed to allocate memory for new handler name\n", __func__);
        return -1;
    }
    if (publish_text(handler->ember_param, handler->name) != 0) {
        log_message(0, "%s: Failed to set handler ember parameter\n", __func__);
        // The name is changed all the same, so what is saved must follow it.
        save_under_new_name(*handler, was_saved);
        return -1;
    }
    for (int32_t index = 0; index < port_end; ++index) rename_in_port(gpios[index], *handler);
    save_under_new_name(*handler, was_saved);
    snmp_send_handler_info(handler->id);
    (void)update_on_grid_handlers();
    return 0;
}

int32_t zel_gpio_deregister_handler(const char *handler_name)
{
    if (handler_name == nullptr) {
        log_message(0, "%s: handler_name is NULL\n", __func__);
        return -1;
    }
    handler_t *const handler = find_handler_by_name(handler_name);
    if (handler == nullptr) {
        log_message(0, "%s: Handler: '%s' not found\n", __func__, handler_name);
        return -1;
    }
    if (snmp_client != nullptr)
        log_message(4, "%s: SENDING SNMP HANDLER INFO (index = %d, name = '%s')\n", __func__, handler->id, "");
    snmp_send_handler_removed(handler->id);
    if (!disconnect_handler(handler->id)) return 0;
    ++names_held[handler->id];
    (void)drop_saved_object(*handler);
    release_text(handler->name);
    handler->func = nullptr;
    handler->arg = nullptr;
    handler->on_grid = 0;
    remove_element(handler->ember_param);
    (void)update_on_grid_handlers();
    return 0;
}
