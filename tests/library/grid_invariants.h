// What holds after every call, whatever happened inside it: counts are numbers of active entries, and levels and pins follow
// them.
#pragma once

#include "grid_test.h"

namespace grid_test {

inline int32_t active_entries(const zel::trigger_view &list)
{
    int32_t active = 0;
    for (int32_t k = 0; k < *list.count; ++k)
        active += list.ids[k] != -1 && trigger_list[list.ids[k]].state != list.inverts[k];
    return active;
}

inline void expect_consistent_port(const unit &u, zel::gpio_port_t &p)
{
    if (p.type != 2 || p.num_trigs == 0)
        return;
    const std::string which = "port " + std::to_string(p.index) + " with " + list_of(zel::triggers_of(p));
    EXPECT_EQ(p.active_trigs, active_entries(zel::triggers_of(p))) << which;
    EXPECT_EQ(p.state, p.active_trigs != 0) << which;
    if (p.pin != nullptr) {
        EXPECT_EQ(u.level(101 + p.index), p.state) << which;
    }
}

inline void expect_consistent_handler(const handler_t &h)
{
    const std::string which = "handler " + std::to_string(h.id) + " with " + handler_triggers(h.id);
    if (!h.led_handler) {
        EXPECT_EQ(h.active_trigs, active_entries(zel::triggers_of(handler_list[h.id]))) << which;
    }
    if (h.num_trigs > 0) {   // one without a list may have been toggled by hand
        EXPECT_EQ(h.state, h.active_trigs > 0 || h.port_mask != 0) << which;
    }
}

/// Only ports that list the handler, and assert it, have their bit set.
inline void expect_consistent_mask(const handler_t &h)
{
    for (int32_t i = 0; i < 64; ++i) {
        if ((h.port_mask >> i & 1) == 0)
            continue;
        bool asserts = false;
        for (int32_t k = 0; i < zel::port_end && k < zel::gpios[i].num_handlers; ++k)
            asserts = asserts || (zel::gpios[i].handlers[k] == &h && zel::gpios[i].state != zel::gpios[i].handler_inv[k]);
        EXPECT_TRUE(asserts) << "handler " << h.id << " " << h.name << " is not asserted by port " << i;
    }
}

/// `handlers`: false where the host toggled some that have a list, too.
inline void expect_consistent(const unit &u, bool handler_states = true)
{
    for (int32_t i = 0; i < zel::total_gpio_count; ++i)
        expect_consistent_port(u, zel::gpios[i]);
    for (int32_t r = 0; r < zel::relay_count; ++r) {
        const std::string which = "relay " + std::to_string(r) + " with " + relay_list(r);
        EXPECT_EQ(zel::relays[r].active_trigs, active_entries(zel::triggers_of(zel::relays[r]))) << which;
        EXPECT_EQ(u.level(201 + r), zel::relays[r].active_trigs != 0) << which;
    }
    for (const handler_t &h : handler_list)
        if (h.name != nullptr)
            expect_consistent_mask(h);
    // Handlers behind a free slot hear of nothing.
    for (int32_t id = 0; id < 200 && handler_list[id].name != nullptr; ++id)
        if (handler_states)
            expect_consistent_handler(handler_list[id]);
}

}  // namespace grid_test
