#include "zel_gpio/udp_pins.h"

using namespace zel;

bool zel::is_gpi_index(int32_t index)
{
    return index >= 0 && index < gpi_count && port_exists(index);
}

int32_t zel_gpio_get_pin_direction(int32_t index, uint32_t *direction)
{
    if (!is_gpi_index(index) || direction == nullptr) return -1;
    *direction = gpios[index].type;
    return 0;
}

int32_t zel_gpio_set_udp_pin(int32_t index, uint8_t value)
{
    uint32_t direction;
    if (zel_gpio_get_pin_direction(index, &direction) != 0) return -1;
    if (direction == type_disabled) return 0;
    const uint8_t level = value != 0;
    if (direction == type_output) {
        gpio_port_t &port = gpios[index];
        port.state = level;
        if (port.pin != nullptr) (void)zel_sys_gpio_write(port.pin, level);
    }
    udp_pins[index] = level;
    return 1;
}

int32_t zel_gpio_get_udp_pin(int32_t index, uint8_t *value)
{
    if (!is_gpi_index(index) || value == nullptr) return -1;
    *value = udp_pins[index];
    return 0;
}
