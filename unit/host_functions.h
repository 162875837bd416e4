// The unit's handlers, triggers and user LEDs: registered with the library, logged, shown, and made to run commands.
#pragma once

#include "change_feed.h"
#include "command_runner.h"
#include "settings.h"

#include <deque>
#include <optional>
#include <string>

namespace zel {

class host_functions {
public:
    // Borrows everything.
    host_functions(const unit_settings &settings, const port_map &ports, change_feed &feed, command_runner &commands)
        : settings_(settings), ports_(ports), feed_(feed), commands_(commands) {}

    // After zel_gpio_init; what cannot be registered is logged and left out.
    void register_all();

private:
    // One per registered handler; the library holds its address.
    struct record {
        host_functions *owner;
        std::string name;
        int led_number;                 // from 1; 0 for a handler of the configuration
        std::optional<size_t> command;  // its slot
        int32_t id = -1;
        uint8_t state = 0;
        int32_t active_triggers = 0;    // at the last call
    };
    static int called(void *record, int32_t source, uint8_t state, uintptr_t context) noexcept;
    void take_call(record &handler, int32_t source, uint8_t state, uintptr_t context);
    std::string driver_of(record &handler, int32_t source) const;
    void register_handler(const handler_settings &handler);
    void register_led(int number);

    const unit_settings &settings_;
    const port_map &ports_;
    change_feed &feed_;
    command_runner &commands_;
    std::deque<record> records_;  // stays where it is while it grows
};

}  // namespace zel
