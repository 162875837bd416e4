#include "zel_gpio/ember_callbacks.h"

#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/port_settings.h"
#include "zel_gpio/port_type.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

namespace {

int64_t number_of(const void *value)
{
    int64_t number = 0;
    if (value != nullptr) std::memcpy(&number, value, sizeof number);
    return number;
}

const char *text_of(const void *value)
{
    return value != nullptr ? static_cast<const char *>(value) : "";
}

int after_change(gpio_port_t &port, int32_t result)
{
    snmp_send_gpio_info(port.index);
    return result;
}

}  // namespace

int gpio_type_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change a gpio type received from %s:%u\n", __func__, client_addr, client_port);
    gpio_port_t *const port = static_cast<gpio_port_t *>(user_data);
    if (port == nullptr) return -1;
    return after_change(*port, set_gpio_type(port, static_cast<uint32_t>(number_of(value)), 1));
}

int gpio_handler_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change a gpio handler function received from %s:%u\n", __func__, client_addr, client_port);
    if (user_data == nullptr) return -1;
    return check_and_set_new_gpio_handler_list(static_cast<gpio_port_t *>(user_data), text_of(value), 1);
}

int gpio_trigger_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change a gpio trigger received from %s:%u\n", __func__, client_addr, client_port);
    if (user_data == nullptr) return -1;
    return check_and_set_new_gpio_trig_list(static_cast<gpio_port_t *>(user_data), text_of(value), 1);
}

int gpio_in_mode_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change a gpio input mode received from %s:%u\n", __func__, client_addr, client_port);
    gpio_port_t *const port = static_cast<gpio_port_t *>(user_data);
    if (port == nullptr) return -1;
    return after_change(*port, set_gpio_in_mode(port, static_cast<uint32_t>(number_of(value)), 1));
}

int vgpo_src_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change a vgpio source received from %s:%u\n", __func__, client_addr, client_port);
    gpio_port_t *const port = static_cast<gpio_port_t *>(user_data);
    if (port == nullptr) return -1;
    return after_change(*port, set_gpio_vgpo_src(port, text_of(value), 1));
}

int gpio_status_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change a gpio status received from %s:%u\n", __func__, client_addr, client_port);
    gpio_port_t *const port = static_cast<gpio_port_t *>(user_data);
    if (port == nullptr) return -1;
    const int32_t result = after_change(*port, set_gpio_status(port, number_of(value) != 0, 1));
    set_port_handler_state(port->index);
    return result;
}

int relay_trigger_cb(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *, const void *value)
{
    log_message(2, "%s: Request to change relay trigger list received from %s:%u\n", __func__, client_addr, client_port);
    if (user_data == nullptr) {
        log_message(0, "%s: Invalid user_data\n", __func__);
        return -1;
    }
    return check_and_set_new_relay_trig_list(static_cast<relay_t *>(user_data), text_of(value), 1);
}

}  // namespace zel
