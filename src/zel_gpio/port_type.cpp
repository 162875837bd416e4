#include "zel_gpio/port_type.h"

#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/port_names.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/publishing.h"
#include "zel_gpio/vgpi_links.h"
#include "zel_gpio/vgpo_publishing.h"

namespace zel {

namespace {

// One more than the last slot passes; it then finds no record.
constexpr int32_t max_id = 200;

constexpr int32_t pin_input = 0, pin_output = 2;
enum pin_edge : int { edge_falling = 1, edge_rising = 2, edge_both = 3 };

int32_t save_publish_send(gpio_port_t &port)
{
    const int32_t result = update_gpio_json(port.index);
    (void)publish_and_send(port, 0);
    return result;
}

void close_pin(gpio_port_t &port)
{
    if (port.pin != nullptr) zel_sys_gpio_close(port.pin);
    port.pin = nullptr;
}

// False if the pin cannot be opened; a failed polarity is told apart by the caller.
bool open_pin(gpio_port_t &port, int32_t number, int32_t direction, const char *function)
{
    close_pin(port);
    port.pin = zel_sys_gpio_open(number, direction);
    if (port.pin == nullptr) log_message(0, "%s: Failed to open gpio %d\n", function, number);
    return port.pin != nullptr;
}

bool set_polarity(gpio_port_t &port, int32_t number, uint32_t active_low, const char *function)
{
    if (zel_sys_gpio_set_active_low(port.pin, active_low) >= 0) return true;
    log_message(0, "%s: Failed to set active_low property for gpio %d\n", function, number);
    return false;
}

bool open_input_pin(gpio_port_t &port, const char *function)
{
    const gpio_phys_cfg_t &pins = pin_table[port.index];
    const bool opened = open_pin(port, pins.in_pin, pin_input, function) &&
                        set_polarity(port, pins.in_pin, pins.in_active_low, function);
    // Turning the polarity raises an interrupt of its own, which is no press.
    if (pins.in_active_low) port.ignore_irq = 1;
    return opened;
}

// A failed polarity does not fail a change to an output, unlike one to an input.
bool open_output_pin(gpio_port_t &port, const char *function)
{
    const gpio_phys_cfg_t &pins = pin_table[port.index];
    if (!open_pin(port, pins.out_pin, pin_output, function)) return false;
    (void)set_polarity(port, pins.out_pin, pins.out_active_low, function);
    return true;
}

void release_led_binding(gpio_port_t &port)
{
    if (port.handler_names[0] == nullptr) return;
    clear_port_handler_state(port.index);
    clear_handler_entry(port, 0);
    port.num_handlers = 0;
}

void end_listed_triggers(gpio_port_t &port)
{
    const trigger_view list = triggers_of(port);
    for (int32_t k = 0; k < port.num_trigs; ++k) {
        if (list.names[k] == nullptr) continue;
        zel_gpio_notify_trigger_event(list.ids[k], 0);
        clear_entry(list, k);
    }
}

// False if the pin of a physical port could not be set up.
bool become_input(gpio_port_t &port, const char *function)
{
    bool ready = true;
    if (port.gpio_class == class_virtual && port.type == type_output) {
        unpublish_vgpo(port.index);
    } else if (port.gpio_class == class_physical) {
        ready = open_input_pin(port, function);
    }
    if (port.type == type_output) {
        release_led_binding(port);
        end_listed_triggers(port);
    }
    port.type = type_input;
    port.num_trigs = port.active_trigs = 0;
    return ready;
}

void set_up_physical_input(gpio_port_t &port, uint32_t mode)
{
    const bool active_low = pin_table[port.index].in_active_low != 0;
    port.input_mode = mode;
    (void)zel_sys_gpio_set_edge(port.pin, mode == mode_momentary ? edge_both : active_low ? edge_falling : edge_rising);
}

void raise_own_trigger_from(gpio_port_t &port, const port_name &name)
{
    const trigger_view list = triggers_of(port);
    char *const copy = strdup(name.text);
    if (copy == nullptr) log_message(0, "%s: Failed to allocate memory for trigger name\n", "set_gpio_to_input");
    clear_entry(list, 0);
    list.names[0] = copy;
    list.ids[0] = find_trigger_id_by_name(name.text);
    note_listener(port, list.ids[0]);
}

int32_t finish_input(gpio_port_t &port, uint32_t mode, int32_t handler_id, const char *vgpo_src, uint8_t invert)
{
    const int32_t index = port.index;
    clear_port_handler_state(index);
    if (port.gpio_class == class_physical) set_up_physical_input(port, mode);
    if (port.gpio_class == class_virtual) choose_vgpo_source(port, vgpo_src);
    raise_own_trigger_from(port, own_name(port));
    if (handler_id >= 0) (void)set_gpio_handler_connection(index, handler_id, invert);
    if (udp_drives(index)) (void)zel_gpio_set_udp_pin(index, 0);
    port.state = 0;
    set_port_handler_state(index);
    zel_gpio_notify_trigger_event(port.trig_ids[0], 0);
    return save_publish_send(port);
}

void stop_being_input(gpio_port_t &port)
{
    zel_gpio_notify_trigger_event(port.trig_ids[0], 0);
    if (port.trigger_names[0] != nullptr) {
        clear_entry(triggers_of(port), 0);
        port.num_trigs = port.active_trigs = 0;
    }
    clear_port_handler_state(port.index);
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        if (port.handler_names[k] != nullptr) clear_handler_entry(port, k);
    }
}

void leave_vgpo_source(gpio_port_t &port)
{
    (void)disconnect_vgpi_from_vgpo(port.vgpo_src, port.index);
    close_vgpi_session(port.index);
}

bool become_output(gpio_port_t &port, const char *function)
{
    if (port.type == type_input) stop_being_input(port);
    port.type = type_output;
    port.num_handlers = 0;
    if (port.gpio_class == class_physical) return open_output_pin(port, function);
    if (port.gpio_class == class_virtual) {
        leave_vgpo_source(port);
        port.vgpo_src = "";
        port.vgpo_src_valid = 0;
        publish_vgpo(port.index);
    }
    return true;
}

void bind_led_handler(gpio_port_t &port)
{
    handler_t *const handler = find_handler_by_name(own_name(port).text);
    if (handler == nullptr) return;
    char *const copy = strdup(handler->name);
    if (copy == nullptr) {
        log_message(0, "%s: Failed to allocate memory for handler name\n", "set_gpio_to_output");
        return;
    }
    set_handler_entry(port, 0, copy, handler, 0);
    port.num_handlers = 1;
}

void drive_new_output(gpio_port_t &port)
{
    if (port.gpio_class != class_physical) {
        set_port_handler_state(port.index);
        return;
    }
    if (udp_drives(port.index) && zel_gpio_set_udp_pin(port.index, port.state) != 0) return;
    (void)zel_sys_gpio_write(port.pin, port.state);
}

int32_t finish_output(gpio_port_t &port, int32_t trigger_id, uint8_t invert)
{
    port.input_mode = mode_latching;
    port.vgpo_src = nullptr;
    port.vgpo_src_valid = 0;
    if (port.gpio_class == class_user_led) bind_led_handler(port);
    if (trigger_id >= 0) (void)set_trigger_connection(owner_gpio, 1, port.index, trigger_id, invert);
    drive_new_output(port);
    return save_publish_send(port);
}

void disconnect_own_trigger(gpio_port_t &port)
{
    const int32_t own = port.trig_ids[0];
    zel_gpio_notify_trigger_event(own, port.state);
    clear_port_handler_state(port.index);
    for (int32_t index = 0; index < port_end; ++index) {
        if (gpios[index].type == type_output) (void)set_trigger_connection(owner_gpio, 0, index, own, 0);
    }
    for (int32_t index = 0; index < relay_count; ++index) (void)set_trigger_connection(owner_relay, 0, index, own, 0);
}

void release_by_class(gpio_port_t &port)
{
    switch (port.gpio_class) {
        case class_physical:
            if (port.pin != nullptr) (void)zel_sys_gpio_write(port.pin, port.state);
            close_pin(port);
            break;
        case class_virtual:
            if (port.type == type_output)
                unpublish_vgpo(port.index);
            else
                leave_vgpo_source(port);
            break;
        case class_user_led: clear_port_handler_state(port.index); break;
        default: break;
    }
}

void clear_all_entries(gpio_port_t &port)
{
    for (int32_t k = 0; k < list_size; ++k) {
        clear_entry(triggers_of(port), k);
        clear_handler_entry(port, k);
    }
    port.num_trigs = port.active_trigs = port.num_handlers = 0;
}

}  // namespace

int32_t set_gpio_to_input(int32_t index, uint32_t mode, int32_t handler_id, const char *vgpo_src, uint8_t invert)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    if (handler_id > max_id) {
        log_message(0, "%s: Invalid handler id %d (Max = %d)\n", __func__, handler_id, max_id);
        return -1;
    }
    if (port.gpio_class == class_user_led) {
        log_message(0, "%s: Cannot set user button LED as an input\n", __func__);
        return -1;
    }
    if (port.gpio_class != class_virtual && mode > mode_momentary) {
        log_message(0, "%s: Invalid input mode %d\n", __func__, static_cast<int>(mode));
        return -1;
    }
    log_message(4, "%s: Setting up index %d as input (mode = %d, class = %d)\n", __func__, index, static_cast<int>(mode),
                static_cast<int>(port.gpio_class));
    if (port.type != type_input && !become_input(port, __func__)) return -1;
    return finish_input(port, mode, handler_id, vgpo_src, invert);
}

int32_t set_gpio_to_output(int32_t index, int32_t trigger_id, uint8_t invert)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    if (trigger_id > max_id) {
        log_message(0, "%s: Invalid trigger id %d (Max = %d)\n", __func__, trigger_id, max_id);
        return -1;
    }
    if (port.gpio_class == class_user_button) {
        log_message(0, "%s: Cannot set user button as an output\n", __func__);
        return -1;
    }
    if (port.type != type_output && !become_output(port, __func__)) return -1;
    return finish_output(port, trigger_id, invert);
}

int32_t disable_gpio(int32_t index)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    port.state = 0;
    if (udp_drives(index)) (void)zel_gpio_set_udp_pin(index, 0);
    if (port.type == type_input) disconnect_own_trigger(port);
    release_by_class(port);
    port.type = type_disabled;
    port.vgpo_src = nullptr;
    port.vgpo_src_valid = 0;
    clear_all_entries(port);
    return save_publish_send(port);
}

int32_t set_gpio_type(gpio_port_t *port, uint32_t type, uint8_t from_ember)
{
    zel_assert(port != NULL);
    int32_t result = -1;
    if (type == type_input) {
        // A cough port that was never an input has no mode of its own yet.
        const int32_t mode = is_cough(*port) ? mode_momentary : port->input_mode;
        result = set_gpio_to_input(port->index, mode, none, port->vgpo_src, 0);
    } else if (type == type_disabled) {
        result = disable_gpio(port->index);
    } else if (type == type_output) {
        if (is_cough(*port))
            log_message(0, "%s: Cannot set a cough port as an output\n", __func__);
        else
            result = set_gpio_to_output(port->index, none, 0);
    }
    // The parameter shows what was asked for, also when it was refused.
    if (from_ember != 1) (void)publish_int64(port->ember_type, type);
    return result;
}

}  // namespace zel
