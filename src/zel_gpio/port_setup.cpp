#include "zel_gpio/port_setup.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/ember_tree.h"
#include "zel_gpio/list_loading.h"
#include "zel_gpio/port_names.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/registry.h"
#include "zel_gpio/vgpi_links.h"
#include "zel_gpio/vgpo_discovery.h"
#include "zel_gpio/vgpo_publishing.h"

namespace zel {

namespace {

constexpr int32_t pin_input = 0, pin_output = 2;

// The type and mode that a class of ports may have in the file; the least is the default too.
struct allowed_settings {
    int32_t last_type, first_mode;
};
constexpr allowed_settings gpi_settings{type_output, mode_latching}, cough_settings{type_input, mode_momentary};
constexpr allowed_settings virtual_settings{type_output, mode_latching}, button_settings{type_input, mode_latching};
constexpr allowed_settings led_settings{type_output, mode_latching};

uint32_t load_type(zel_json_obj_t *object, const allowed_settings &allowed)
{
    if (object == nullptr) return type_disabled;
    return static_cast<uint32_t>(
        zel_json_file_integer_validate(gpio_json, object, "type", type_disabled, type_disabled, allowed.last_type));
}

uint32_t load_mode(zel_json_obj_t *object, const allowed_settings &allowed)
{
    return static_cast<uint32_t>(zel_json_file_integer_validate(gpio_json, object, "input_mode", allowed.first_mode,
                                                                allowed.first_mode, mode_momentary));
}

void keep_count(zel_json_obj_t *object, const char *key, int32_t saved, int32_t count)
{
    if (saved != count) (void)zel_json_file_set_integer(gpio_json, object, key, count);
}

// Also for a port whose settings cannot be loaded: it is shown in the tree, so controllers may ask something of it.
void port_is_in_use(const gpio_port_t &port)
{
    port_end = std::max(port_end, port.index + 1);
}

// Puts the trigger that the port raises into entry 0 of its list. `count`: whether it counts as an entry.
void set_own_trigger(gpio_port_t &port, int32_t id, const char *name, int32_t count)
{
    port.trigger_names[0] = strdup(name);
    if (port.trigger_names[0] == nullptr)
        log_message(0, "%s: Failed to allocate memory for trigger name for port\n", __func__);
    port.trig_ids[0] = id;
    port.trig_inv[0] = 0;
    port.num_trigs = count;
}

// Result of a port's turn, once its node was added: the tree's if there is one.
int32_t add_to_tree(int32_t result, int32_t (*add)(int32_t index), int32_t index)
{
    return ember_provider != nullptr ? add(index) : result;
}

// Null, with a line in the log and *result -1, if the object cannot be loaded.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
zel_json_obj_t *load_record(zel_json_obj_t *section, const port_name &key, const char *failure, const char *function,
                            int32_t *result)
{
    zel_json_obj_t *const object = zel_json_file_load_object(gpio_json, section, key.text);
    if (object == nullptr) {
        log_message(0, failure, function, key.text);
        *result = -1;
    }
    return object;
}
#pragma GCC diagnostic pop

// ---- Physical ports

// Counts the port and registers the trigger of its place, whatever its configuration says.
int32_t register_physical(const gpio_phys_cfg_t &pins, port_name &name)
{
    name = pins.cough ? numbered("COUGH %d", ++cough_count) : numbered("GPI %d", ++gpi_count);
    return register_trigger(name.text, 1);
}

bool open_pin(gpio_port_t &port, int32_t number, int32_t direction, uint32_t active_low)
{
    constexpr const char *function = "init_phys_gpio";
    port.pin = zel_sys_gpio_open(number, direction);
    if (port.pin == nullptr) {
        log_message(0, "%s: Failed to open gpio %d\n", function, number);
        return false;
    }
    if (zel_sys_gpio_set_active_low(port.pin, active_low) >= 0) return true;
    log_message(0, "%s: Failed to set active_low property for gpio %d\n", function, number);
    return false;
}

void start_input_pin(gpio_port_t &port, const gpio_phys_cfg_t &pins)
{
    const int active_edge = pins.in_active_low ? 1 : 2, both_edges = 3;
    const bool momentary = port.input_mode == mode_momentary;
    (void)zel_sys_gpio_set_edge(port.pin, momentary ? both_edges : active_edge);
    if (momentary && !udp_drives(port.index)) port.state = zel_sys_gpio_read(port.pin) != 0;
}

int32_t set_up_input(gpio_port_t &port, zel_json_obj_t *object, int32_t trigger_id, const char *trigger_name)
{
    const gpio_phys_cfg_t &pins = pin_table[port.index];
    const bool ready = open_pin(port, pins.in_pin, pin_input, pins.in_active_low);
    // Without its pin too: what is saved for the port must be known when it is saved again.
    port.input_mode = load_mode(object, pins.cough ? cough_settings : gpi_settings);
    if (ready) start_input_pin(port, pins);
    const int32_t handlers = get_gpio_handlers(object, &port);
    set_own_trigger(port, trigger_id, trigger_name, 1);
    zel_gpio_notify_trigger_event(trigger_id, port.state);
    return ready ? handlers : -1;
}

int32_t set_up_output(gpio_port_t &port, zel_json_obj_t *object)
{
    const gpio_phys_cfg_t &pins = pin_table[port.index];
    const bool ready = open_pin(port, pins.out_pin, pin_output, pins.out_active_low);
    const int32_t triggers = get_gpio_triggers(object, &port);
    return ready ? triggers : -1;
}

int32_t set_up_physical(gpio_port_t &port, zel_json_obj_t *object, int32_t trigger_id, const char *trigger_name)
{
    ++total_gpio_count;
    port.type = load_type(object, pin_table[port.index].cough ? cough_settings : gpi_settings);
    (void)zel_gpio_set_udp_pin(port.index, 0);
    if (port.type == type_input) return set_up_input(port, object, trigger_id, trigger_name);
    return port.type == type_output ? set_up_output(port, object) : 0;
}

int32_t start_output(gpio_port_t &port)
{
    port.active_trigs = count_active(triggers_of(port));
    const uint8_t driven = port.active_trigs != 0;
    port.state = udp_drives(port.index) ? udp_pins[port.index] : driven;
    if (port.pin != nullptr) (void)zel_sys_gpio_write(port.pin, port.state);
    return set_gpio_ember_status(&port, 0);
}

// False where start-up ends: at a port that failed before, or in, being added to the tree.
bool init_one_physical(gpio_port_t &port, const gpio_phys_cfg_t &pins, int32_t *result)
{
    constexpr const char *function = "init_phys_gpio";
    port_is_in_use(port);
    pin_table[port.index] = pins;
    port_name trigger_name;
    const int32_t trigger_id = register_physical(pins, trigger_name);
    *result = 0;
    zel_json_obj_t *const object = load_record(phys_gpio_json_obj, port_key(port),
                                               "%s: Failed to load json object: physical->%s\n", function, result);
    if (object != nullptr) *result = set_up_physical(port, object, trigger_id, trigger_name.text);
    *result = add_to_tree(*result, add_gpio_to_ember_tree, port.index);
    if (*result == -1) return false;
    if (port.type == type_input) set_port_handler_state(port.index);
    if (port.type == type_output && port.num_trigs > 0) *result = start_output(port);
    return true;
}

// ---- Relays

int32_t set_up_relay(relay_t &relay, zel_json_obj_t *object, int32_t pin)
{
    relay.pin = zel_sys_gpio_open(pin, pin_output);
    if (relay.pin == nullptr) log_message(0, "%s: Failed to open relay %d\n", "init_relays", pin);
    const int32_t triggers = get_relay_triggers(gpio_json, object, &relay);
    relay.on_grid = zel_json_file_load_boolean(gpio_json, object, "on_grid", relay.num_trigs > 0) != 0;
    return relay.pin != nullptr ? triggers : -1;
}

int32_t init_one_relay(relay_t &relay, int32_t pin)
{
    int32_t result = 0;
    zel_json_obj_t *const object = load_record(relays_json_obj, relay_key(relay.index),
                                               "%s: Failed to load json object: relays->%s\n", "init_relays", &result);
    if (object != nullptr) result = set_up_relay(relay, object, pin);
    result = add_to_tree(result, add_relay_to_ember_tree, relay.index);
    if (result == -1 || relay.num_trigs == 0) return result;
    relay.active_trigs = count_active(triggers_of(relay));
    if (relay.pin != nullptr) (void)zel_sys_gpio_write(relay.pin, relay.active_trigs != 0);
    (void)set_relay_ember_status(&relay, 0);
    return result;
}

// ---- Virtual ports

// False if memory is short. The port names its source before its list of handlers is read, as reading may save the port.
bool load_source(gpio_port_t &port, zel_json_obj_t *object)
{
    const char *const source = zel_json_file_load_string(gpio_json, object, "vgpo_src", "");
    return source[0] == '\0' || set_source_name(port, source);
}

void follow_source(gpio_port_t &port)
{
    if (port.vgpo_src == nullptr || add_remote_vgpo(port.vgpo_src, nullptr, 0, nullptr) == nullptr) return;
    (void)connect_vgpi_to_vgpo(port.index);
}

int32_t set_up_vgpi(gpio_port_t &port, zel_json_obj_t *object, int32_t trigger_id, const char *trigger_name)
{
    if (!load_source(port, object)) return -1;
    const int32_t result = get_gpio_handlers(object, &port);
    set_own_trigger(port, trigger_id, trigger_name, 1);
    follow_source(port);
    return result;
}

int32_t set_up_virtual(gpio_port_t &port, zel_json_obj_t *object, int32_t trigger_id, const char *trigger_name)
{
    port.type = load_type(object, virtual_settings);
    if (port.type == type_input) return set_up_vgpi(port, object, trigger_id, trigger_name);
    return port.type == type_output ? get_gpio_triggers(object, &port) : 0;
}

void start_vgpo(gpio_port_t &port)
{
    const trigger_view list = triggers_of(port);
    for (int32_t k = 0; k < port.num_trigs; ++k) {
        if (list.ids[k] != none) trigger_list[list.ids[k]].on_grid = 1;
    }
    port.active_trigs = count_active(list);
    port.state = port.active_trigs != 0;
    (void)set_gpio_ember_status(&port, 0);
}

int32_t init_one_virtual(gpio_port_t &port)
{
    port_is_in_use(port);
    const port_name trigger_name = own_name(port);
    const int32_t trigger_id = register_trigger(trigger_name.text, 1);
    int32_t result = 0;
    zel_json_obj_t *const object = load_record(virt_gpio_json_obj, port_key(port),
                                               "%s: Failed to load json object: virtual->%s\n", "init_vgpio", &result);
    if (object != nullptr) result = set_up_virtual(port, object, trigger_id, trigger_name.text);
    result = add_to_tree(result, add_gpio_to_ember_tree, port.index);
    if (ember_provider != nullptr && port.type == type_output) publish_vgpo(port.index);
    if (result == -1) return result;
    if (port.type == type_input) set_port_handler_state(port.index);
    if (port.type == type_output && port.num_trigs > 0) start_vgpo(port);
    return result;
}

// ---- User buttons and LEDs

void set_up_button(gpio_port_t &button, zel_json_obj_t *object, int32_t trigger_id, const char *trigger_name)
{
    button.type = load_type(object, button_settings);
    if (button.type == type_input) {
        button.input_mode = load_mode(object, button_settings);
        (void)get_gpio_handlers(object, &button);
        // Not counted, so that the press that this trigger reports does not come back to the button.
        set_own_trigger(button, trigger_id, trigger_name, 0);
    }
    (void)add_to_tree(0, add_gpio_to_ember_tree, button.index);
}

void set_up_led(gpio_port_t &led, zel_json_obj_t *object)
{
    const port_name handler_name = own_name(led);
    led.type = load_type(object, led_settings);
    char *const copy = strdup(handler_name.text);
    if (copy == nullptr) log_message(0, "%s: Failed to allocate memory for handler name for port\n", __func__);
    set_handler_entry(led, 0, copy, find_handler_by_name(handler_name.text), 0);
    led.num_handlers = 1;
    if (led.type == type_output) {
        (void)get_gpio_triggers(object, &led);
        led.active_trigs = count_active(triggers_of(led));
    }
    (void)add_to_tree(0, add_gpio_to_ember_tree, led.index);
}

// 0, or -1; *stop is set where the pairs behind this one are not set up.
int32_t init_one_pair(int32_t pair, bool *stop)
{
    constexpr const char *function = "init_user_buttons";
    constexpr const char *failure = "%s: Failed to load json object: user_buttons->%s\n";
    gpio_port_t &button = gpios[first_user_button + 2 * (pair - 1)], &led = gpios[button.index + 1];
    const port_name trigger_name = own_name(button);
    const int32_t trigger_id = register_trigger(trigger_name.text, 1);
    int32_t result = 0;
    zel_json_obj_t *const button_object = load_record(user_btn_json_obj, port_key(button), failure, function, &result);
    zel_json_obj_t *const led_object = load_record(user_btn_json_obj, port_key(led), failure, function, &result);
    *stop = led_object == nullptr;
    if (*stop) return result;
    total_gpio_count += 2;
    port_is_in_use(led);
    if (button_object != nullptr) set_up_button(button, button_object, trigger_id, trigger_name.text);
    else (void)add_to_tree(0, add_gpio_to_ember_tree, button.index);
    set_up_led(led, led_object);
    return result;
}

}  // namespace

int32_t init_phys_gpio(const gpio_phys_cfg_t *phys_cfg, int32_t count)
{
    zel_assert(phys_gpio_json_obj != NULL);
    zel_assert(gpio_json != NULL);
    zel_assert(gpios != NULL);
    if (count == 0) log_message(2, "%s: No physical gpio\n", __func__);
    if (count < 0 || count > max_physical) {
        log_message(0, "%s: Too many physical gpios to map - %d/%d\n", __func__, count, max_physical);
        return -1;
    }
    gpi_count = cough_count = 0;
    int32_t result = 0;
    for (int32_t i = 0; i < count && init_one_physical(gpios[i], phys_cfg[i], &result); ++i) {}
    phys_gpio_count = gpi_count + cough_count;
    keep_count(phys_gpio_json_obj, "phys_gpio_count", zel_gpio_get_phys_gpio_count(), phys_gpio_count);
    return result;
}

int32_t init_relays(int32_t base_pin, int32_t count)
{
    zel_assert(relays_json_obj != NULL);
    zel_assert(gpio_json != NULL);
    zel_assert(gpios != NULL);
    if (!allocate_relays(count)) {
        log_message(0, "%s: Failed to allocate memory for relay info\n", __func__);
        return -1;
    }
    relay_count = count;
    int32_t result = 0;
    for (int32_t r = 0; r < count && result != -1; ++r) result = init_one_relay(relays[r], base_pin + r);
    keep_count(relays_json_obj, "relay_count", zel_gpio_get_relay_count(), relay_count);
    return result;
}

int32_t init_vgpio(int32_t count)
{
    zel_assert(virt_gpio_json_obj != NULL);
    zel_assert(gpio_json != NULL);
    zel_assert(gpios != NULL);
    virtual_gpio_count = count;
    total_gpio_count += count;
    int32_t result = 0;
    // Where a physical port could not be loaded the total is short, and the last virtual ports stay unused.
    for (int32_t index = phys_gpio_count; index < total_gpio_count && result != -1; ++index) result = init_one_virtual(gpios[index]);
    keep_count(virt_gpio_json_obj, "virtual_gpio_count", zel_gpio_get_virt_gpio_count(), virtual_gpio_count);
    return result;
}

int32_t init_user_buttons(int32_t count)
{
    zel_assert(user_btn_json_obj != NULL);
    zel_assert(gpio_json != NULL);
    zel_assert(gpios != NULL);
    if (count == 0) {
        log_message(2, "%s: No user buttons\n", __func__);
        return 0;
    }
    first_user_button = phys_gpio_count + virtual_gpio_count;
    user_button_count = 0;
    int32_t result = 0;
    bool stop = false;
    while (user_button_count < count && !stop) {
        ++user_button_count;
        if (init_one_pair(user_button_count, &stop) != 0) result = -1;
    }
    return result;
}

}  // namespace zel
