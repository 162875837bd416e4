#include "zel_gpio/port_settings.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/list_text.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/vgpi_links.h"

namespace zel {

namespace {

const char *type_that_refuses(const gpio_port_t &port)
{
    return port.type != type_disabled ? "an output" : "disabled";
}

void leave_source(gpio_port_t &port)
{
    (void)disconnect_vgpi_from_vgpo(port.vgpo_src, port.index);
    port.vgpo_src = "";
    port.vgpo_src_valid = 0;
    close_vgpi_session(port.index);
    port.state = 0;
    set_port_handler_state(port.index);
    (void)publish_int64(port.ember_state, 0);
    zel_gpio_notify_trigger_event(port.trig_ids[0], 0);
}

std::string_view without_leading_blanks(std::string_view name)
{
    while (!name.empty() && std::isspace(static_cast<unsigned char>(name.front()))) name.remove_prefix(1);
    return name;
}

// Calls `take(name, marked)` for each name of the list; ends with -1 at the first that it refuses. `marks`: a leading "!" is a
// mark and not part of the name.
template <typename taker>
int32_t for_each_name(const char *new_list, bool marks, const taker &take)
{
    int32_t result = 0;
    name_pieces pieces(new_list);
    for (std::string_view piece; result == 0 && pieces.next(piece);) {
        std::string_view name = without_leading_blanks(piece);
        const bool marked = marks && !name.empty() && name.front() == '!';
        if (marked) name.remove_prefix(1);
        char *const copy = copy_of(name);
        result = copy != nullptr ? take(copy, static_cast<uint8_t>(marked)) : -1;
        std::free(copy);
    }
    return result;
}

}  // namespace

int32_t set_gpio_in_mode(gpio_port_t *port, uint32_t mode, uint8_t from_ember)
{
    zel_assert(port != NULL);
    if (port->type != type_input) {
        log_message(1, "%s: Unable to modify input mode for a port that is %s\n", __func__, type_that_refuses(*port));
        return -1;
    }
    if (mode > mode_momentary) {
        log_message(0, "%s: Invalid value new input mode value requested: %d\n", __func__, static_cast<int>(mode));
        return -1;
    }
    port->input_mode = mode;
    if (from_ember != 1) (void)publish_int64(port->ember_in_mode, mode);
    return update_gpio_json(port->index);
}

int32_t set_gpio_vgpo_src(gpio_port_t *port, const char *source_name, uint8_t from_ember)
{
    zel_assert(port != NULL);
    if (port->type != type_input) {
        log_message(1, "%s: Unable to modify vgpio source for a port that is %s\n", __func__, type_that_refuses(*port));
        return -1;
    }
    if (source_name[0] == '\0') {
        leave_source(*port);
    } else if (find_vgpo_by_name(&remote_vgpos, source_name) == nullptr) {
        log_message(0, "%s: vGPIO Source: '%s' not found\n", __func__, source_name);
        return -1;
    } else {
        choose_vgpo_source(*port, source_name);
    }
    if (from_ember != 1) (void)publish_text(port->ember_vgpo_src, port->vgpo_src);
    return update_gpio_json(port->index);
}

int32_t set_gpio_status(gpio_port_t *port, uint8_t state, uint8_t from_ember)
{
    zel_assert(port != NULL);
    if (port->type != type_output) {
        log_message(2, port->type == type_disabled ? "%s: Unable to change state of a disabled GPIO\n"
                                                   : "%s: Unable to change state of a GPI\n", __func__);
        return -1;
    }
    if (udp_drives(port->index)) return 0;
    port->state = state;
    if (port->gpio_class == class_physical && port->pin != nullptr) (void)zel_sys_gpio_write(port->pin, state);
    if (from_ember != 1) (void)publish_int64(port->ember_state, state);
    return 0;
}

int32_t check_and_set_new_gpio_trig_list(gpio_port_t *port, const char *new_list, uint8_t from_ember)
{
    zel_assert(port != NULL);
    zel_assert(new_list != NULL);
    exchange_list text;
    const auto take = [&, function = __func__](const char *name, uint8_t marked) {
        const int32_t id = find_trigger_id_by_name(name);
        if (id == none) log_message(1, "%s: Trigger name: '%s' not found\n", function, name);
        else text.add(id, marked);
        return id == none ? -1 : 0;
    };
    if (for_each_name(new_list, true, take) != 0) return -1;
    return set_gpio_trigger_list(port->index, text.ids(), text.inverts(), from_ember);
}

int32_t check_and_set_new_relay_trig_list(relay_t *relay, const char *new_list, uint8_t from_ember)
{
    zel_assert(relay != NULL);
    zel_assert(new_list != NULL);
    exchange_list text;
    const auto take = [&, function = __func__](const char *name, uint8_t) {
        const int32_t id = find_trigger_id_by_name(name);
        if (id == none) log_message(2, "%s: Trigger name: '%s' not found\n", function, name);
        else text.add(id, get_relay_trigger_invert(relay->index, id));
        return id == none ? -1 : 0;
    };
    if (for_each_name(new_list, false, take) != 0) return -1;
    return set_relay_trigger_list(relay->index, text.ids(), text.inverts(), from_ember);
}

int32_t check_and_set_new_gpio_handler_list(gpio_port_t *port, const char *new_list, uint8_t from_ember)
{
    zel_assert(port != NULL);
    zel_assert(new_list != NULL);
    exchange_list text;
    const auto take = [&, function = __func__](const char *name, uint8_t) {
        const handler_t *const handler = find_handler_by_name(name);
        if (handler == nullptr) log_message(1, "%s: Handler name: '%s' not found\n", function, name);
        else text.add(none, get_gpio_handler_invert(port->index, handler->id));
        return handler == nullptr ? -1 : 0;
    };
    if (for_each_name(new_list, false, take) != 0) return -1;
    return set_gpio_trigger_list(port->index, text.ids(), text.inverts(), from_ember);
}

uint8_t get_gpio_handler_invert(int32_t port_index, int32_t handler_id)
{
    if (!port_exists(port_index)) return 0;
    const gpio_port_t &port = gpios[port_index];
    for (int32_t k = 0; k < list_size; ++k) {
        if (port.handlers[k] != nullptr && port.handlers[k]->id == handler_id) return port.handler_inv[k];
    }
    return 0;
}

uint8_t get_relay_trigger_invert(int32_t relay_index, int32_t trigger_id)
{
    if (relays == nullptr || relay_index < 0 || relay_index >= relay_count) return 0;
    const relay_t &relay = relays[relay_index];
    for (int32_t k = 0; k < list_size; ++k) {
        if (relay.trig_ids[k] == trigger_id) return relay.trig_inv[k];
    }
    return 0;
}

}  // namespace zel
