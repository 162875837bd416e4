// The units of the start-up and shut-down tests.
#pragma once

#include "fake_platform.h"
#include "zel_gpio/records.h"

namespace fake {

/// One of everything with a complete configuration: 0 momentary input, 1 output, 2 cough, 3 virtual output, 4 virtual input that
/// follows another unit's output, 5 button, 6 LED, and one relay.
inline void one_of_everything(unit &u)
{
    u.gpis(2).coughs(1).relays(1).virtuals(2).buttons(1).friendly_name("Studio 1").config(R"({"gpio": {
        "on_grid_handlers": "", "on_grid_triggers": "",
        "physical": {"phys_gpio_count": 3, "gpio_0": {"type": 1, "input_mode": 1, "handler": "Record", "handler_invert": "0"},
                     "gpio_1": {"type": 2, "trigger": "Eth Link Down, GPI 1", "invert_trigger": "1, 0"},
                     "gpio_2": {"type": 1, "handler": "Mute", "handler_invert": "0"}},
        "relay": {"relay_count": 1, "relay_0": {"triggers": "AC Power Off", "trigger_invert": "0", "on_grid": true}},
        "virtual": {"virtual_gpio_count": 2, "vgpio_0": {"type": 2, "trigger": "GPI 1, COUGH 1", "invert_trigger": "0, 0"},
                    "vgpio_1": {"type": 1, "vgpo_src": "vGPO3@Studio 2", "handler": "Record", "handler_invert": "1"}},
        "user_buttons": {"btn_1": {"type": 1, "input_mode": 0, "handler": "Mute", "handler_invert": "0"},
                         "led_1": {"type": 2, "trigger": "Door", "invert_trigger": "0"}},
        "handler_info": {}}})");
}

inline std::string calloc_line(int count)
{
    return "log 2 zel_gpio_init: Calling calloc(" + std::to_string(count) + ", " + std::to_string(sizeof(zel::gpio_port_t)) + ")";
}

}  // namespace fake
