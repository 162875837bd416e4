#include "zel_gpio/propagation.h"

#include <algorithm>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

namespace {

// One change of a trigger on its way to the listeners. A callback may change the trigger again, or free its slot, meanwhile.
struct trigger_change {
    int32_t id;
    uint8_t state;

    bool has_listeners() const { return trigger_list[id].name != nullptr; }
    bool stands() const { return trigger_list[id].state == state; }
};

// A button flips at each change, also at one that another change overtook.
void flip_button(gpio_port_t &port, uint8_t trigger_state)
{
    port.state = !port.state;
    set_port_handler_state(port.index);
    snmp_send_gpio_info(port.index);
    (void)publish_int64(port.ember_state, trigger_state);
}

// How many entries are active now that `entry` is told. Those behind it that wait to be told of the same change count as before it,
// so that the count goes up and down by one; it comes out right whatever else happened to the list meanwhile.
int32_t count_when_told(const trigger_view &list, int32_t entry, const trigger_change &change)
{
    int32_t active = count_active(list);
    for (int32_t k = entry + 1; change.stands() && k < *list.count; ++k) {
        if (list.ids[k] == change.id) active += entry_is_active(list, k) ? -1 : 1;
    }
    return active;
}

void tell_port_entry(gpio_port_t &port, const trigger_change &change)
{
    if (port.gpio_class == class_user_button && port.type == type_input) {
        flip_button(port, change.state);
    } else if (port.type == type_output) {
        gpio_trigger_event(&port);
        snmp_send_gpio_info(port.index);
    }
}

void tell_relay_entry(relay_t &relay, int32_t entry, const trigger_change &change)
{
    const trigger_view list = triggers_of(relay);
    relay_trigger_event(&relay, entry_is_active(list, entry), count_when_told(list, entry, change));
    snmp_send_relay_info(relay.index);
}

// A user LED's handler counts its port's list, so the entries of a list of its own can only add to that or take away.
int32_t led_handler_count(const handler_t &handler, bool active)
{
    return std::max(handler.active_trigs + (active ? 1 : -1), 0);
}

void tell_handler_entry(handler_t &handler, int32_t entry, const trigger_change &change)
{
    const trigger_view list = triggers_of(handler);
    handler_trigger_event(&handler, handler.led_handler ? led_handler_count(handler, entry_is_active(list, entry))
                                                        : count_when_told(list, entry, change));
}

// Calls `tell` for each entry of the list that holds the trigger, in order. False if there was none.
template <typename teller>
bool tell_entries(const trigger_view &list, const trigger_change &change, const teller &tell)
{
    bool listens = false;
    for (int32_t k = 0; k < *list.count && change.has_listeners(); ++k) {
        if (list.ids[k] != change.id) continue;
        listens = true;
        tell(k);
    }
    return listens;
}

// Calls `tell` for each listener below `end()` in index order, and forgets those that turn out not to listen any more.
template <typename limit, typename teller>
void tell_listeners(index_sets &listeners, const limit &end, const trigger_change &change, const teller &tell)
{
    for (int32_t i = listeners.next(change.id, 0); i != none && i < end(); i = listeners.next(change.id, i + 1)) {
        if (!change.has_listeners()) return;
        if (!tell(i)) listeners.erase(change.id, i);
    }
}

void tell_ports(const trigger_change &change)
{
    tell_listeners(port_listeners, [] { return port_end; }, change, [&](int32_t i) {
        return tell_entries(triggers_of(gpios[i]), change, [&](int32_t) { tell_port_entry(gpios[i], change); });
    });
}

void tell_relays(const trigger_change &change)
{
    tell_listeners(relay_listeners, [] { return relay_count; }, change, [&](int32_t i) {
        if (relays[i].pin == nullptr) {  // not told, but counted right
            relays[i].active_trigs = count_active(triggers_of(relays[i]));
            return true;
        }
        return tell_entries(triggers_of(relays[i]), change, [&](int32_t k) { tell_relay_entry(relays[i], k, change); });
    });
}

void tell_handlers(const trigger_change &change)
{
    // The walk ends at the first free slot; handlers behind it are not told.
    tell_listeners(handler_listeners, first_free_handler, change, [&](int32_t i) {
        handler_t &handler = handler_list[i];
        if (handler.name == nullptr) return false;
        return tell_entries(triggers_of(handler), change, [&](int32_t k) { tell_handler_entry(handler, k, change); });
    });
}

void show_on_led(gpio_port_t &port, handler_t &handler)
{
    handler.active_trigs = count_active(triggers_of(port));
    handler.state = handler_level(handler);
    port.state = handler.state;
}

// A handler listed by a port gets the port's bit: set while the port's level differs from the entry's invert.
void assert_handler(gpio_port_t &port, int32_t entry)
{
    handler_t &handler = *port.handlers[entry];
    const uint64_t bit = port_bit(port.index);
    const bool asserted = port.state != port.handler_inv[entry];
    handler.port_mask = (handler.port_mask & ~bit) | (asserted ? bit : 0);
    handler.state = handler_level(handler);
    if (port.gpio_class == class_user_led) show_on_led(port, handler);
    call_handler(handler, port.index, port.input_mode);
}


void report_own_trigger_inverted(int32_t id)
{
    if (valid_trigger_id(id)) zel_gpio_notify_trigger_event(id, !trigger_list[id].state);
}

}  // namespace

void call_handler(const handler_t &handler, int32_t source, uintptr_t context)
{
    if (handler.func != nullptr) (void)handler.func(handler.arg, source, handler.state, context);
}

void drive_output(gpio_port_t &port)
{
    const bool driven_by_udp = udp_drives(port.index);
    if (!driven_by_udp) port.state = port.active_trigs != 0;
    if (port.pin != nullptr) {
        if (!driven_by_udp) (void)zel_sys_gpio_write(port.pin, port.state);
    } else if (port.gpio_class == class_user_led) {
        set_port_handler_state(port.index);
    }
}

void gpio_trigger_event(gpio_port_t *port)
{
    zel_assert(port != NULL);
    if (port->num_trigs == 0) return;
    port->active_trigs = count_active(triggers_of(*port));
    drive_output(*port);
    (void)set_gpio_ember_status(port, 0);
}

void relay_trigger_event(relay_t *relay, uint8_t active, int32_t count)
{
    zel_assert(relay != NULL);
    zel_assert(relay->pin != NULL);
    const bool was_off = relay->active_trigs == 0;
    relay->active_trigs = count;
    // Another trigger of the list may be active by now whose own report is still on its way: the level goes by the count.
    if (was_off && count >= 1) (void)zel_sys_gpio_write(relay->pin, 1);
    if (!active && count < 1) (void)zel_sys_gpio_write(relay->pin, 0);
    (void)set_relay_ember_status(relay, 0);
}

void handler_trigger_event(handler_t *handler, int32_t count)
{
    zel_assert(handler != NULL);
    handler->active_trigs = count;
    handler->state = handler_level(*handler);
    call_handler(*handler, handler->id, 0);
}

void set_port_handler_state(int32_t index)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        if (port.handlers[k] != nullptr) assert_handler(port, k);
    }
}

void clear_port_handler_state(int32_t index)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        handler_t *const handler = port.handlers[k];
        if (handler == nullptr || handler->func == nullptr) continue;
        handler->port_mask &= ~port_bit(index);
        handler->state = handler_level(*handler);
        call_handler(*handler, index, port.input_mode);
    }
}

}  // namespace zel

using namespace zel;

void zel_gpio_notify_trigger_event(int32_t trigger_id, uint8_t state)
{
    const trigger_change change{trigger_id, state != 0};
    if (!trigger_is_named(trigger_id) || trigger_list[trigger_id].state == change.state) return;
    log_message(2, "%s: event '%s' has %s\n", __func__, trigger_list[trigger_id].name, change.state ? "occurred" : "ended");
    trigger_list[trigger_id].state = change.state;
    tell_ports(change);
    tell_relays(change);
    tell_handlers(change);
}

void zel_gpio_notify_user_button_event(int32_t button_id)
{
    if (button_id < 0 || button_id > user_button_count) {
        log_message(0, "%s: Invalid button id (%d) user_button_count = %d\n", __func__, button_id, user_button_count);
        return;
    }
    const int32_t index = first_user_button + 2 * button_id;
    if (!port_exists(index) || gpios[index].gpio_class != class_user_button) {
        log_message(0, "%s: Index %d does not point to a user button\n", __func__, index);
        return;
    }
    gpio_port_t &port = gpios[index];
    if (port.type != type_input) {
        log_message(2, "%s: Ignoring user button event as button id %d is currently disabled\n", __func__, button_id);
        return;
    }
    report_own_trigger_inverted(port.trig_ids[0]);
    port.state = !port.state;
    (void)publish_byte(port.ember_state, port.state);
    set_port_handler_state(index);
    snmp_send_gpio_info(index);
}

int32_t zel_gpio_set_handler_state(int32_t handler_id)
{
    // The slot behind the last is refused like any other number outside the table.
    if (!handler_is_named(handler_id)) {
        log_message(0, "%s: Invalid handler_id (%d)\n", __func__, handler_id);
        return -1;
    }
    handler_t &handler = handler_list[handler_id];
    if (handler.port_mask == 0) {
        handler.state = !handler.state;
        call_handler(handler, none, 0);
    }
    for (int32_t k = 0; k < handler.num_trigs; ++k) {
        const int32_t id = handler.trig_ids[k];
        if (id != none) zel_gpio_notify_trigger_event(id, handler.trig_inv[k] != handler.state);
    }
    return 0;
}
