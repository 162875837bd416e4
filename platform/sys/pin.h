// A pin as the C interface hands it out; each back end derives its own.
#pragma once

#include "pin_table.h"
#include "zel_sys.h"

#include <cstdint>

namespace zel {

constexpr int32_t direction_input = 0;
constexpr int32_t direction_output = 2;

// A pin's polarity turns line levels into logical ones, and line edges into logical edges. Both ways alike.
constexpr int across_polarity(int level, bool active_low)
{
    return active_low ? 1 - level : level;
}

enum edge_code { edge_none = 0, edge_falling = 1, edge_rising = 2, edge_both = 3 };

}  // namespace zel

struct zel_sys_gpio {
    zel_sys_gpio(int32_t pin_number, int32_t pin_direction, zel::pin_state &pin_state)
        : number(pin_number), direction(pin_direction), state(pin_state)
    {
    }
    zel_sys_gpio(const zel_sys_gpio &) = delete;
    zel_sys_gpio &operator=(const zel_sys_gpio &) = delete;
    virtual ~zel_sys_gpio() = default;

    // As the functions of the C interface; arguments are checked, inputs are never written, outputs have no edges.
    virtual int read() = 0;
    virtual int write(int level) = 0;
    virtual int set_active_low(bool low) = 0;
    virtual int set_edge(int edge) = 0;
    virtual int fd() const = 0;
    // What the pin starts with: an output 0, an input the level of its contact or line.
    virtual int first_level() const = 0;

    bool is_output() const { return direction == zel::direction_output; }

    const int32_t number;
    const int32_t direction;

protected:
    // Tell the table and those who watch; the pin may be gone afterwards, closed by one of them.
    void tell_level(int level) { zel::tell_pin_level(number, state, level); }

    zel::pin_state &state;
};
