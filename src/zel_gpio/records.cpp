#include "zel_gpio/records.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

handler_t handler_list[ZEL_GPIO_HANDLER_COUNT];
trigger_t trigger_list[ZEL_GPIO_TRIGGER_COUNT];

// Other programs of a unit read these tables in place, so their layout is fixed where pointers have 32 bits.
#if UINTPTR_MAX == 0xFFFFFFFF
static_assert(sizeof(handler_t) == 2048 && offsetof(handler_t, id) == 0 && offsetof(handler_t, name) == 4);
static_assert(offsetof(handler_t, json_obj) == 8 && offsetof(handler_t, func) == 12 && offsetof(handler_t, arg) == 16);
static_assert(offsetof(handler_t, state) == 20 && offsetof(handler_t, port_mask) == 24 && offsetof(handler_t, ember_param) == 32);
static_assert(offsetof(handler_t, led_handler) == 36 && offsetof(handler_t, on_grid) == 37);
static_assert(offsetof(handler_t, trigger_names) == 40 && offsetof(handler_t, trig_ids) == 840);
static_assert(offsetof(handler_t, trig_inv) == 1640 && offsetof(handler_t, allow_invert) == 1840);
static_assert(offsetof(handler_t, num_trigs) == 2040 && offsetof(handler_t, active_trigs) == 2044);
static_assert(sizeof(trigger_t) == 16 && offsetof(trigger_t, id) == 0 && offsetof(trigger_t, name) == 4);
static_assert(offsetof(trigger_t, state) == 8 && offsetof(trigger_t, port_trigger) == 9 && offsetof(trigger_t, on_grid) == 10);
static_assert(offsetof(trigger_t, ember_param) == 12);
static_assert(sizeof(gpio_phys_cfg_t) == 20 && sizeof(vgpo_list_t) == 12 && sizeof(vgpo_node_t) == 8 && sizeof(vGPO_t) == 32);
#endif

namespace zel {

gpio_port_t *gpios;
relay_t *relays;
gpio_phys_cfg_t pin_table[max_physical];

int32_t gpi_count, cough_count, phys_gpio_count, virtual_gpio_count;
int32_t first_user_button, user_button_count, relay_count;
int32_t total_gpio_count, port_end;
uint8_t udp_pins[max_physical];

zel_net_config_t *udp_config, *publish_config;
zel_ember_session_t *ember_provider;
uint16_t ember_port_number;
zel_ipc_client_t *sdisc_client, *snmp_client;
vgpo_list_t remote_vgpos;

index_sets port_listeners, relay_listeners, handler_listeners, vgpi_session_ports;

namespace {

template <typename record>
record *allocate_table(int32_t count)
{
    const size_t records = count > 0 ? static_cast<size_t>(count) : 1;  // an empty table is still a table
    return static_cast<record *>(std::calloc(records, sizeof(record)));
}

uint32_t class_at(int32_t index, int32_t physical, int32_t virtual_ports)
{
    if (index < physical) return class_physical;
    if (index < physical + virtual_ports) return class_virtual;
    return (index - physical - virtual_ports) % 2 == 0 ? class_user_button : class_user_led;
}

void mark_entries_unused(int32_t *ids)
{
    for (int32_t k = 0; k < list_size; ++k) ids[k] = none;
}

}  // namespace

trigger_view triggers_of(gpio_port_t &p)
{
    return {p.trigger_names, p.trig_ids, p.trig_inv, &p.num_trigs, &p.active_trigs, nullptr};
}

trigger_view triggers_of(relay_t &r)
{
    return {r.trigger_names, r.trig_ids, r.trig_inv, &r.num_trigs, &r.active_trigs, nullptr};
}

trigger_view triggers_of(handler_t &h)
{
    return {h.trigger_names, h.trig_ids, h.trig_inv, &h.num_trigs, &h.active_trigs, h.allow_invert};
}

void note_listener(const gpio_port_t &port, int32_t trigger_id)
{
    port_listeners.insert(trigger_id, port.index);
}

void note_listener(const relay_t &relay, int32_t trigger_id)
{
    relay_listeners.insert(trigger_id, relay.index);
}

void note_listener(const handler_t &handler, int32_t trigger_id)
{
    handler_listeners.insert(trigger_id, static_cast<int32_t>(&handler - handler_list));
}

bool allocate_ports(int32_t physical, int32_t virtual_ports, int32_t buttons)
{
    const int32_t count = physical + virtual_ports + 2 * buttons;
    gpios = allocate_table<gpio_port_t>(count);
    if (gpios == nullptr || !port_listeners.allocate(trigger_count, count) || !vgpi_session_ports.allocate(1, count) ||
        !handler_listeners.allocate(trigger_count, handler_count)) {
        release_port_table();
        return false;
    }
    for (int32_t index = 0; index < count; ++index) {
        gpios[index].index = index;
        gpios[index].gpio_class = class_at(index, physical, virtual_ports);
        mark_entries_unused(gpios[index].trig_ids);
    }
    return true;
}

bool allocate_relays(int32_t count)
{
    relays = allocate_table<relay_t>(count);
    if (relays == nullptr || !relay_listeners.allocate(trigger_count, count)) {
        release_relay_table();
        return false;
    }
    for (int32_t r = 0; r < count; ++r) {
        relays[r].index = r;
        mark_entries_unused(relays[r].trig_ids);
    }
    return true;
}

void release_port_table()
{
    std::free(gpios);
    gpios = nullptr;
    port_end = 0;
    port_listeners.release();
    handler_listeners.release();
    vgpi_session_ports.release();
}

void release_relay_table()
{
    std::free(relays);
    relays = nullptr;
    relay_listeners.release();
}

bool port_exists(int32_t index)
{
    return gpios != nullptr && index >= 0 && index < port_end;
}

bool is_cough(const gpio_port_t &port)
{
    return port.gpio_class == class_physical && port.index < max_physical && pin_table[port.index].cough != 0;
}

bool udp_drives(int32_t index)
{
    return zel_net_config_get_udp_commands_enabled(udp_config) == 1 && index < gpi_count;
}

uint64_t port_bit(int32_t index)
{
    return index >= 0 && index < 64 ? uint64_t{1} << index : 0;
}

bool valid_trigger_id(int32_t id)
{
    return id >= 0 && id < trigger_count;
}

bool trigger_is_named(int32_t id)
{
    return valid_trigger_id(id) && trigger_list[id].name != nullptr;
}

bool handler_is_named(int32_t id)
{
    return id >= 0 && id < handler_count && handler_list[id].name != nullptr;
}

handler_t *find_handler_by_name(const char *name)
{
    if (name == nullptr) return nullptr;
    for (handler_t &handler : handler_list) {
        if (handler.name != nullptr && std::strcmp(handler.name, name) == 0) return &handler;
    }
    return nullptr;
}

trigger_t *find_trigger_by_name(const char *name)
{
    if (name == nullptr) return nullptr;
    for (trigger_t &trigger : trigger_list) {
        if (trigger.name != nullptr && std::strcmp(trigger.name, name) == 0) return &trigger;
    }
    return nullptr;
}

int32_t find_trigger_id_by_name(const char *name)
{
    const trigger_t *const trigger = find_trigger_by_name(name);
    return trigger != nullptr ? trigger->id : none;
}

bool entry_is_active(const trigger_view &list, int32_t entry)
{
    const int32_t id = list.ids[entry];
    return id != none && trigger_list[id].state != list.inverts[entry];
}

int32_t count_active_first(const trigger_view &list, int32_t entries)
{
    int32_t active = 0;
    for (int32_t k = 0; k < entries; ++k) active += entry_is_active(list, k);
    return active;
}

int32_t count_active(const trigger_view &list)
{
    return count_active_first(list, *list.count);
}

uint8_t handler_level(const handler_t &handler)
{
    return handler.active_trigs >= 1 || handler.port_mask != 0;
}

int32_t first_free_handler()
{
    int32_t slot = 0;
    while (slot < handler_count && handler_list[slot].name != nullptr) ++slot;
    return slot;
}

void release_text(char *&text)
{
    std::free(text);
    text = nullptr;
}

bool replace_text(char *&owned, const char *text)
{
    char *const copy = strdup(text);
    if (copy == nullptr) return false;
    std::free(owned);
    owned = copy;
    return true;
}

void clear_entry(const trigger_view &list, int32_t entry)
{
    release_text(list.names[entry]);
    list.ids[entry] = none;
    list.inverts[entry] = 0;
}

void clear_handler_entry(gpio_port_t &port, int32_t entry)
{
    release_text(port.handler_names[entry]);
    port.handlers[entry] = nullptr;
    port.handler_inv[entry] = 0;
}

void set_handler_entry(gpio_port_t &port, int32_t entry, char *name, handler_t *handler, uint8_t invert)
{
    release_text(port.handler_names[entry]);
    port.handler_names[entry] = name;
    port.handlers[entry] = handler;
    port.handler_inv[entry] = invert;
}

}  // namespace zel
