// The unit's front panel: its pins, buttons, LEDs and relays, and pressing them.
#pragma once

#include "unit_parts.h"

#include <jansson.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

struct panel_pin {
    int32_t pin;
    bool output, active_low;
    int32_t port;      // index in the port table
};

// The pins of the physical ports: each port's input, and its output unless it is the same pin or the port is a cough port.
std::vector<panel_pin> panel_pins(const unit_parts &unit);
// 0 or 1. `port_level` is what counts for a pin that is no simulated one: reading a line takes its edge away from the library.
int pin_level(const panel_pin &each, bool port_level);

json_t *report_panel(const unit_parts &unit);

// Contacts that are to be closed and opened. At most one move of a pin per turn of the host's loop: two in one turn would leave
// no edge for the library to see.
class contact_moves {
public:
    // False if the pin is not simulated.
    bool add(int32_t pin, bool pressed);
    // To be called in every turn, before requests are served.
    void next_turn();
    bool waiting() const { return !later_.empty(); }

private:
    struct move {
        int32_t pin;
        bool pressed;
    };
    static constexpr size_t most_waiting = 1000;
    bool moved(int32_t pin) const;

    std::vector<int32_t> moved_;   // in this turn
    std::deque<move> later_;
};

struct panel_answer {
    int status = 200;
    std::string error;             // one line; "" when it was done
    std::string note;              // a remark; "" for none
};

// Does what a form says: "pin" and "level" ("active", "inactive"), or "button" and "pressed" (0, 1).
panel_answer press_on_panel(unit_parts &unit, contact_moves &contacts, std::string form);

}  // namespace zel
