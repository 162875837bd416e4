#include <cstdlib>
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/ember_nodes.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/registry.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

namespace {

// Constant texts that are never released. The table holds them as the owned texts of its other slots.
const char *const built_in_names[built_in_triggers] = {"Eth Link Down", "AoIP Link Down", "AC Power Off", "DC Power Off",
                                                       "PTP Sync Lost"};

bool is_constant(const trigger_t &trigger)
{
    return trigger.id < built_in_triggers && trigger.name == built_in_names[trigger.id];
}

// Counts the names that each slot has had, to see whether a callback put another one in.
uint32_t names_held[trigger_count];

// Stores a name that the slot owns from now on; null frees the slot.
void give_name(trigger_t &trigger, char *name)
{
    ++names_held[trigger.id];
    if (!is_constant(trigger)) std::free(trigger.name);
    trigger.name = name;
}

void empty_handler_slot(handler_t &handler)
{
    handler = handler_t{};
    handler.id = none;
    for (int32_t k = 0; k < list_size; ++k) {
        handler.trig_ids[k] = none;
        handler.allow_invert[k] = 1;
    }
}

void name_built_in(int32_t id)
{
    trigger_t &trigger = trigger_list[id];
    trigger.name = const_cast<char *>(built_in_names[id]);
    trigger.on_grid = trigger_on_grid(trigger.name);
    // The leaf of a built-in trigger never changes, so its handle is not kept.
    (void)add_name_leaf(nodes.triggers, "t-%d", id, trigger.name);
}

// As slot_for_new_handler, but `taken_by` tells the slot that holds the name already.
int32_t slot_for_new_trigger(const char *name, int32_t &taken_by)
{
    taken_by = none;
    for (int32_t id = 0; id < trigger_count; ++id) {
        if (trigger_list[id].name == nullptr) return id;
        if (std::strcmp(trigger_list[id].name, name) != 0) continue;
        taken_by = id;
        return none;
    }
    return none;
}

// Calls `bind(entry)` for each entry of the list that names the trigger.
template <typename owner, typename binder>
void bind_entries(owner &record, const trigger_t &trigger, const binder &bind)
{
    const trigger_view list = triggers_of(record);
    for (int32_t k = 0; k < *list.count; ++k) {
        if (trigger.name == nullptr) return;
        if (list.names[k] == nullptr || std::strcmp(list.names[k], trigger.name) != 0) continue;
        list.ids[k] = trigger.id;
        note_listener(record, trigger.id);
        bind(k);
    }
}

void bind_port(gpio_port_t &port, trigger_t &trigger)
{
    bind_entries(port, trigger, [&](int32_t) {
        trigger.on_grid = 1;
        gpio_trigger_event(&port);
        snmp_send_gpio_info(port.index);
    });
}

void bind_relay(relay_t &relay, trigger_t &trigger)
{
    bind_entries(relay, trigger, [&](int32_t k) {
        trigger.on_grid = 1;
        const trigger_view list = triggers_of(relay);
        const int32_t count = count_active(list);
        // A relay whose pin did not open is bound all the same; there is nothing to drive.
        if (relay.pin != nullptr) {
            relay_trigger_event(&relay, entry_is_active(list, k), count);
        } else {
            relay.active_trigs = count;
            (void)set_relay_ember_status(&relay, 0);
        }
        snmp_send_relay_info(relay.index);
    });
}

void bind_handler(handler_t &handler, trigger_t &trigger)
{
    bind_entries(handler, trigger, [&](int32_t k) {
        handler.allow_invert[k] = check_paired_connection(1, trigger.id, handler.id, &handler.trig_inv[k]);
        handler_trigger_event(&handler, count_active(triggers_of(handler)));
    });
}

void rename_in_port(gpio_port_t &port, const char *old_name, const char *new_name)
{
    bool renamed = false;
    for (char *&name : port.trigger_names) {
        if (name != nullptr && std::strcmp(name, old_name) == 0 && replace_text(name, new_name)) renamed = true;
    }
    if (renamed) (void)update_gpio_json(port.index);
}

int32_t rename_slot(trigger_t &trigger, const char *old_name, const char *new_name, const char *function)
{
    char *const copy = strdup(new_name);
    if (copy == nullptr) {
        log_message(0, "%s: Failed to allocate memory to rename trigger '%s' to '%s'\n", function, old_name, new_name);
        return -1;
    }
    give_name(trigger, copy);
    if (publish_text(trigger.ember_param, copy) != 0) log_message(0, "%s: Failed to set trigger ember parameter\n", function);
    for (int32_t index = 0; index < port_end; ++index) rename_in_port(gpios[index], old_name, copy);
    snmp_send_trigger_info(trigger.id);
    return 0;
}

int32_t rename_slots(const char *old_name, const char *new_name, const char *function)
{
    int32_t result = -1;
    for (trigger_t &trigger : trigger_list) {
        if (trigger.name == nullptr || std::strcmp(trigger.name, old_name) != 0) continue;
        if (rename_slot(trigger, old_name, new_name, function) == 0) result = 0;
    }
    return result;
}

// An input's own trigger stands outside its list; the slot's next trigger must not become the input's.
void release_own_trigger(gpio_port_t &port, int32_t id)
{
    if (port.num_trigs == 0 && port.trig_ids[0] == id) port.trig_ids[0] = none;
}

// Takes the trigger out of all lists and ends it. False if a callback freed the slot meanwhile: what took it stays.
bool disconnect_trigger(int32_t id)
{
    const uint32_t holder = names_held[id];
    const auto remove_from = [&](int32_t owner, int32_t count) {
        for (int32_t index = 0; index < count && names_held[id] == holder; ++index)
            (void)set_trigger_connection(owner, 0, index, id, 0);
    };
    remove_from(owner_gpio, port_end);
    remove_from(owner_relay, relay_count);
    remove_from(owner_handler, handler_count);
    if (names_held[id] == holder) zel_gpio_notify_trigger_event(id, 0);
    if (names_held[id] != holder) return false;
    for (int32_t index = 0; index < port_end; ++index) release_own_trigger(gpios[index], id);
    return true;
}

}  // namespace

void init_handler_trigger_tables()
{
    load_on_grid_texts();
    for (handler_t &handler : handler_list) empty_handler_slot(handler);
    for (int32_t id = 0; id < trigger_count; ++id) {
        trigger_list[id] = trigger_t{};
        trigger_list[id].id = id;
        if (id < built_in_triggers) name_built_in(id);
    }
}

int32_t register_trigger(const char *trigger_name, uint8_t port_trigger)
{
    int32_t taken_by;
    const int32_t id = slot_for_new_trigger(trigger_name, taken_by);
    if (taken_by != none)
        log_message(1, "%s: Duplicate trigger called '%s' (id = %d) already registered\n", __func__, trigger_name, taken_by);
    if (id == none) return taken_by;
    trigger_t &trigger = trigger_list[id];
    trigger.id = id;
    trigger.name = strdup(trigger_name);
    ++names_held[id];
    if (trigger.name == nullptr) {
        log_message(0, "%s: Failed to allocate memory to register trigger_name '%s'\n", __func__, trigger_name);
        return -1;
    }
    log_message(2, "%s: Registered trigger '%s' (id = %d)\n", __func__, trigger_name, id);
    trigger.ember_param = add_name_leaf(nodes.triggers, "t-%d", id, trigger_name);
    trigger.state = 0;
    trigger.port_trigger = port_trigger;
    trigger.on_grid = trigger_on_grid(trigger_name);
    snmp_send_trigger_info(id);
    attach_trigger_to_ports(id);
    return id;
}

void attach_trigger_to_ports(int32_t id)
{
    trigger_t &trigger = trigger_list[id];
    if (trigger.name == nullptr) return;
    for (int32_t index = 0; index < port_end; ++index) {
        if (gpios[index].type == type_output) bind_port(gpios[index], trigger);
    }
    for (int32_t index = 0; index < relay_count; ++index) bind_relay(relays[index], trigger);
    // The walk ends at the first free slot; handlers behind it are not visited.
    for (int32_t slot = 0; slot < first_free_handler(); ++slot) bind_handler(handler_list[slot], trigger);
}

void free_handler_and_trigger_names()
{
    for (handler_t &handler : handler_list) {
        release_text(handler.name);
        handler.func = nullptr;
        handler.arg = nullptr;
        for (char *&name : handler.trigger_names) release_text(name);
    }
    for (int32_t id = 0; id < trigger_count; ++id) {
        trigger_list[id].id = id;  // also where start-up ended before it set up the table
        give_name(trigger_list[id], id < built_in_triggers ? const_cast<char *>(built_in_names[id]) : nullptr);
    }
}

}  // namespace zel

using namespace zel;

int32_t zel_gpio_register_trigger(const char *name)
{
    return register_trigger(name, 0);
}

int32_t zel_gpio_rename_trigger(const char *old_name, const char *new_name)
{
    if (old_name == nullptr || new_name == nullptr) {
        log_message(0, "%s: Invalid parameter: old_name = %p, new_name = %p\n", __func__, static_cast<const void *>(old_name),
                    static_cast<const void *>(new_name));
        return -1;
    }
    // Either may be the very text that a slot holds and gives up meanwhile.
    char *const sought = strdup(old_name), *const wanted = strdup(new_name);
    int32_t result = -1;
    if (sought == nullptr || wanted == nullptr)
        log_message(0, "%s: Failed to allocate memory to rename trigger '%s' to '%s'\n", __func__, old_name, new_name);
    else
        result = rename_slots(sought, wanted, __func__);
    std::free(sought);
    std::free(wanted);
    (void)update_on_grid_triggers();
    return result;
}

int32_t zel_gpio_deregister_trigger(const char *trigger_name)
{
    if (trigger_name == nullptr) {
        log_message(0, "%s: trigger_name is NULL\n", __func__);
        return -1;
    }
    trigger_t *const trigger = find_trigger_by_name(trigger_name);
    if (trigger == nullptr) {
        log_message(0, "%s: Trigger: '%s' not found\n", __func__, trigger_name);
        return -1;
    }
    if (!disconnect_trigger(trigger->id)) return 0;
    give_name(*trigger, nullptr);
    trigger->state = 0;
    trigger->port_trigger = 0;
    trigger->on_grid = 0;
    remove_element(trigger->ember_param);
    (void)update_on_grid_triggers();
    return 0;
}

uint8_t zel_gpio_trig_id_active_for_handler(int32_t handler_id, int32_t trigger_id)
{
    if (handler_id < 0 || handler_id >= handler_count || !valid_trigger_id(trigger_id)) return 0;
    const handler_t &handler = handler_list[handler_id];
    if (handler.id != handler_id || handler.state == 0) return 0;
    for (int32_t k = 0; k < handler.num_trigs; ++k) {
        if (handler.trig_ids[k] == trigger_id) return trigger_list[trigger_id].state;
    }
    return 0;
}

int32_t zel_gpio_primary_link_trig(void) { return none; }
int32_t zel_gpio_secondary_link_trig(void) { return none; }
int32_t zel_gpio_eth_link_trig(void) { return 0; }
int32_t zel_gpio_aoip_link_trig(void) { return 1; }
int32_t zel_gpio_ac_power_trig(void) { return 2; }
int32_t zel_gpio_dc_power_trig(void) { return 3; }
int32_t zel_gpio_poe1_power_trig(void) { return none; }
int32_t zel_gpio_poe2_power_trig(void) { return none; }
int32_t zel_gpio_ptp_clk_trig(void) { return 4; }
