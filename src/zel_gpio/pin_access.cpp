// The host's questions about pins and user button LEDs, and its wish to turn a pin round.
#include "zel_debug.h"
#include "zel_gpio/port_type.h"
#include "zel_gpio/records.h"
#include "zel_gpio/udp_pins.h"

using namespace zel;

namespace {

// The LED of a pair, or null. The number behind the last pair passes the first test and is refused by the second.
const gpio_port_t *find_led(int32_t number, const char *function)
{
    if (number < 0 || number > user_button_count) {
        log_message(0, "%s: Invalid LED id (%d) user_button_count = %d\n", function, number, user_button_count);
        return nullptr;
    }
    const int32_t index = first_user_button + 2 * number + 1;
    if (!port_exists(index) || gpios[index].gpio_class != class_user_led) {
        log_message(0, "%s: Index %d does not point to a user button LED\n", function, index);
        return nullptr;
    }
    return &gpios[index];
}

}  // namespace

int32_t zel_gpio_set_pin_direction(int32_t index, uint32_t direction)
{
    if (!is_gpi_index(index)) return -1;
    gpio_port_t &port = gpios[index];
    if (direction == port.type) return 0;
    switch (direction) {
        case type_input: (void)set_gpio_to_input(index, port.input_mode, none, nullptr, 0); return 1;
        case type_output: (void)set_gpio_to_output(index, port.trig_ids[0], 0); return 1;
        case type_disabled: (void)disable_gpio(index); return 1;
        default: return -1;
    }
}

uint8_t zel_gpio_get_user_button_led_enabled(int32_t number)
{
    const gpio_port_t *const led = find_led(number, __func__);
    return led != nullptr && led->type == type_output;
}

uint8_t zel_gpio_get_user_button_state(int32_t number)
{
    const gpio_port_t *const led = find_led(number, __func__);
    return led != nullptr ? led->state : 0;
}
