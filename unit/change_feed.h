// What happens in the unit, as one line per change, in the order in which it happens.
//
// The library calls a handler first, stores a trigger's new state in its exported table second and writes the output pins
// third; only the calls and the pin writes are seen from here. So the triggers' states are kept a second time, and what
// differs is told before the call or the pin write that came behind it.
#pragma once

#include "port_names.h"

#include "zel_gpio.h"

#include <array>
#include <functional>
#include <string>

namespace zel {

struct handler_call {
    std::string name;
    int32_t id;
    int led_number;       // from 1; 0 for a handler that is no user LED's
    int32_t source;       // as the library tells it
    std::string by;       // who drives it: a port's name, "triggers" or "host"
    uint8_t state;
    uintptr_t context;
    bool changed;         // false: evaluated again with the same state
};

class change_feed {
public:
    // `is_call`: the line tells of a call that changed nothing.
    using sink = std::function<void(const std::string &line, bool is_call)>;

    explicit change_feed(const port_map &ports) : ports_(ports) {}

    // Where the lines go (one JSON object each, without a line feed); `wanted` tells whether anybody listens.
    void set_sink(sink out, std::function<bool()> wanted);

    // Fits zel_sys_set_pin_observer with the feed as user data.
    static void observe_pin(void *feed, int32_t pin, int32_t direction, int level) noexcept;
    void handler_called(const handler_call &call) noexcept;
    void button_pressed(int32_t number) noexcept;
    // Level given to GPI port `number` (from 1) by a datagram.
    void udp_level(int32_t number, uint8_t level) noexcept;
    // Tells what the last library call changed and nothing else has told yet.
    void settle() noexcept;

private:
    void pin_changed(int32_t pin, bool output, int level);
    void tell_triggers();
    void tell(json_t *line, bool is_call = false);
    template <typename work> void guarded(work &&run) noexcept;

    const port_map &ports_;
    sink out_;
    std::function<bool()> wanted_;
    std::array<uint8_t, ZEL_GPIO_TRIGGER_COUNT> trigger_states_{};
};

}  // namespace zel
