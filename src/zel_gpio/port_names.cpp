#include "zel_gpio/port_names.h"

#include <cstdio>

#include "zel_gpio/assertion.h"

namespace zel {

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
port_name numbered(const char *format, int32_t number)
{
    port_name name;
    std::snprintf(name.text, sizeof name.text, format, number);
    return name;
}
#pragma GCC diagnostic pop

int32_t pair_number(int32_t index)
{
    return (index - first_user_button) / 2 + 1;
}

void get_gpio_port_name(int32_t number, uint32_t gpio_class, char *buf)
{
    zel_assert(buf != NULL);
    const auto write = [buf](const char *format, int32_t shown) {
        const port_name name = numbered(format, shown);
        std::snprintf(buf, sizeof name.text, "%s", name.text);
    };
    switch (gpio_class) {
        case class_physical: {
            const bool cough = number >= 1 && number <= max_physical && pin_table[number - 1].cough != 0;
            write(cough ? "Cough Port %d" : "Physical Port %d", cough ? number - gpi_count : number);
            break;
        }
        case class_virtual: write("Virtual Port %d", number); break;
        case class_user_button: write("User Button %d", number); break;
        case class_user_led: write("User LED %d", number); break;
        default: break;
    }
}

int32_t display_number(int32_t index)
{
    const bool buttons = user_button_count > 0;
    if (buttons && index >= first_user_button) return pair_number(index);
    return index >= phys_gpio_count ? index - phys_gpio_count + 1 : index + 1;
}

port_name port_key(const gpio_port_t &port)
{
    switch (port.gpio_class) {
        case class_physical: return numbered("gpio_%d", port.index);
        case class_virtual: return numbered("vgpio_%d", port.index - phys_gpio_count);
        case class_user_button: return numbered("btn_%d", pair_number(port.index));
        default: return numbered("led_%d", pair_number(port.index));
    }
}

port_name relay_key(int32_t index)
{
    return numbered("relay_%d", index);
}

port_name own_name(const gpio_port_t &port)
{
    switch (port.gpio_class) {
        case class_physical:
            return is_cough(port) ? numbered("COUGH %d", port.index - gpi_count + 1) : numbered("GPI %d", port.index + 1);
        case class_virtual: return numbered("vGPI %d", port.index + 1 - phys_gpio_count);
        case class_user_button: return numbered("User Button %d", pair_number(port.index));
        default: return numbered("User LED %d", pair_number(port.index));
    }
}

}  // namespace zel
