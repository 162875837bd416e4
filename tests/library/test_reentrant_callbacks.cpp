// Host callbacks that call back into the library from inside its walks: afterwards everything stands as the triggers' states say.
#include <random>
#include <utility>

#include "grid_invariants.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

/// Two buttons with LEDs (ports 0 to 3), two relays, the handlers First and Last.
void describe(unit &u)
{
    u.buttons(2).relays(2).set("user_buttons/led_1/type", 2).set("user_buttons/led_2/type", 2).set("user_buttons/btn_2/type", 1);
    u.set("on_grid_handlers", "First, Last");
}

void connect(int owner, int32_t index, int32_t trigger, uint8_t invert = 0)
{
    ASSERT_EQ(zel::set_trigger_connection(owner, 1, index, trigger, invert), 0);
}

enum { of_port = 0, of_relay = 1, of_handler = 2, led_1 = 1, button_2 = 2, led_2 = 3, eth = 0, aoip = 1, ac = 2 };

}  // namespace

TEST(reentrant_callback, that_ends_the_event_it_is_told_of_leaves_nothing_on)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("First", [&](int32_t, uint8_t state, uintptr_t) {
        if (state == 1)
            u.clear("Eth Link Down");
    });
    u.handler("Last");
    connect(of_handler, 0, eth), connect(of_handler, 1, eth), connect(of_handler, 1, ac), connect(of_relay, 0, eth),
        connect(of_port, led_2, eth);
    u.raise("AC Power Off");
    u.raise("Eth Link Down");
    EXPECT_EQ(trigger_list[eth].state, 0);
    EXPECT_EQ(handler_list[0].state, 0);
    EXPECT_EQ(handler_list[1].active_trigs, 1) << "AC Power Off keeps it on";
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(u.level(201), 0);
    expect_consistent(u);
}

TEST(reentrant_callback, of_an_led_that_ends_the_event_before_relays_and_handlers_hear_of_it)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("First");
    u.led_handler(0, [&](int32_t, uint8_t state, uintptr_t) {
        if (state == 1)
            u.clear("Eth Link Down");
    });
    connect(of_port, led_1, eth), connect(of_port, led_2, eth), connect(of_relay, 0, eth), connect(of_relay, 1, eth, 1),
        connect(of_relay, 0, ac), connect(of_handler, 0, eth);
    u.raise("AC Power Off");
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[led_1].state, 0);
    EXPECT_EQ(zel::gpios[led_2].state, 0);
    EXPECT_EQ(u.level(201), 1) << "AC Power Off keeps it on";
    EXPECT_EQ(u.level(202), 1);
    EXPECT_EQ(handler_list[0].state, 0);
    expect_consistent(u);
}

TEST(reentrant_callback, a_button_flips_once_for_every_change_even_when_one_happens_inside_another)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.led_handler(0, [&](int32_t, uint8_t state, uintptr_t) {
        if (state == 1)
            u.clear("Eth Link Down");
    });
    connect(of_port, led_1, eth), connect(of_port, button_2, eth);
    u.raise("Eth Link Down");
    EXPECT_EQ(trigger_list[eth].state, 0);
    EXPECT_EQ(zel::gpios[button_2].state, 0) << "it has occurred and ended";
}

TEST(reentrant_callback, a_relay_goes_on_when_another_of_its_triggers_came_and_went_meanwhile)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    bool first = false;
    u.led_handler(0, [&](int32_t, uint8_t state, uintptr_t) {
        if (state == 1 && !std::exchange(first, true))
            u.raise("AoIP Link Down");
    });
    u.led_handler(1, [&](int32_t, uint8_t state, uintptr_t) {
        if (state == 1)
            u.clear("AoIP Link Down");
    });
    connect(of_port, led_1, eth), connect(of_port, led_2, aoip), connect(of_relay, 0, eth), connect(of_relay, 0, aoip);
    u.raise("Eth Link Down");
    EXPECT_EQ(trigger_list[aoip].state, 0);
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(u.level(201), 1);
}

TEST(reentrant_callback, an_event_that_ends_and_occurs_again_inside_itself_stands)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    int left = 2;
    u.handler("First", [&](int32_t, uint8_t state, uintptr_t) {
        if (left-- > 0)
            zel_gpio_notify_trigger_event(eth, !state);
    });
    u.handler("Last");
    left = 0;
    connect(of_handler, 0, eth), connect(of_handler, 1, eth), connect(of_relay, 0, eth);
    left = 2;
    u.raise("Eth Link Down");
    EXPECT_EQ(trigger_list[eth].state, 1);
    EXPECT_EQ(handler_list[1].active_trigs, 1);
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(u.level(201), 1);
    expect_consistent(u);
}

TEST(reentrant_callback, that_toggles_another_handler_drives_its_triggers)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false)) {
            EXPECT_EQ(zel_gpio_set_handler_state(1), 0);
        }
    });
    u.handler("Last");
    connect(of_handler, 0, eth), connect(of_handler, 1, ac), connect(of_relay, 1, ac);
    armed = true;
    u.raise("Eth Link Down");
    EXPECT_EQ(trigger_list[ac].state, 1);
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(u.level(202), 1);
    expect_consistent(u);
}

TEST(reentrant_callback, that_toggles_itself_ends_with_the_state_of_the_inner_call)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t source, uint8_t, uintptr_t) {
        if (source == -1 && std::exchange(armed, false)) {
            EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
        }
    });
    connect(of_handler, 0, eth);
    armed = true;
    u.take();
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_LINES(u.take_of("callback"), "callback First source -1 state 1 context 0",
        "callback First source -1 state 0 context 0");
    EXPECT_EQ(trigger_list[eth].state, 0);
    expect_consistent(u);
}

TEST(reentrant_callback, that_registers_names_during_a_walk_binds_them_to_the_present_state)
{
    unit u;
    describe(u);
    u.set("on_grid_handlers", "First, Last, New").set("handler_info/New/triggers", "Eth Link Down, Fresh");
    u.set("handler_info/New/trigger_inverts", "0, 1");
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(armed, false))
            return;
        EXPECT_EQ(u.handler("New"), 2);
        u.trigger("Fresh"), u.led_handler(0);
    });
    u.handler("Last");
    connect(of_handler, 0, eth), connect(of_handler, 1, eth);
    armed = true;
    u.raise("Eth Link Down");
    EXPECT_EQ(handler_list[2].active_trigs, 2);
    EXPECT_EQ(handler_list[1].active_trigs, 1);
    expect_consistent(u);
    u.clear("Eth Link Down");
    EXPECT_EQ(handler_list[2].active_trigs, 1);
    expect_consistent(u);
}

TEST(reentrant_callback, that_removes_another_handler_during_a_walk_leaves_the_rest_working)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false)) {
            EXPECT_EQ(zel_gpio_deregister_handler("Last"), 0);
        }
    });
    u.handler("Last");
    connect(of_handler, 0, eth), connect(of_handler, 1, eth);
    armed = true;
    u.take();
    u.raise("Eth Link Down");
    EXPECT_EQ(handler_list[1].name, nullptr);
    EXPECT_EQ(handler_list[0].state, 1);
    expect_consistent(u);
}

TEST(reentrant_callback, that_removes_the_trigger_being_reported_ends_it_everywhere)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    const int32_t id = u.trigger_id("On Air");
    bool armed = false;
    u.led_handler(0, [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false)) {
            EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), 0);
        }
    });
    u.handler("Last");
    connect(of_port, led_1, id), connect(of_port, led_2, id), connect(of_relay, 0, id), connect(of_handler, u.handler_id("Last"),
        id);
    armed = true;
    u.raise("On Air");
    EXPECT_EQ(trigger_list[id].name, nullptr);
    EXPECT_EQ(trigger_list[id].state, 0);
    EXPECT_EQ(port_list(led_1), "");
    EXPECT_EQ(relay_list(0), "");
    EXPECT_EQ(u.level(201), 0);
    EXPECT_EQ(zel::gpios[led_2].state, 0);
    expect_consistent(u);
}

TEST(reentrant_callback, that_changes_connections_during_a_walk_leaves_the_rest_working)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(armed, false))
            return;
        EXPECT_EQ(zel::set_trigger_connection(of_handler, 0, 0, eth, 0), 0);
        EXPECT_EQ(zel::set_trigger_connection(of_handler, 1, 1, ac, 1), 0);
        EXPECT_EQ(zel::set_trigger_connection(of_relay, 1, 1, eth, 0), 0);
    });
    u.handler("Last");
    connect(of_handler, 0, eth), connect(of_handler, 1, eth);
    armed = true;
    u.raise("Eth Link Down");
    EXPECT_EQ(handler_list[0].num_trigs, 0);
    EXPECT_EQ(handler_list[1].active_trigs, 2);
    EXPECT_EQ(u.level(202), 1);
    expect_consistent(u);
}

TEST(reentrant_callback, of_a_button_press_may_press_the_other_button)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler", "First").set("user_buttons/btn_1/handler_invert", "0");
    u.set("user_buttons/btn_2/handler", "Last").set("user_buttons/btn_2/handler_invert", "0");
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false))
            zel_gpio_notify_user_button_event(1);
    });
    u.handler("Last");
    connect(of_relay, 0, u.trigger_id("User Button 2"));
    armed = true;
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(zel::gpios[button_2].state, 1);
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(u.level(201), 1);
    expect_consistent(u);
}

TEST(reentrant_callback, of_a_handler_that_is_being_disconnected_does_not_leave_it_asserted)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_2/handler", "First, Last").set("user_buttons/btn_2/handler_invert", "0, 0");
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false))
            zel_gpio_notify_user_button_event(1);
    });
    u.handler("Last");
    armed = true;
    u.take();
    EXPECT_EQ(zel::remove_gpio_handler_connection(button_2, 0), 0);
    EXPECT_EQ(port_handlers(button_2), "Last#1");
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(handler_list[0].state, 0);
    const lines calls = u.take_of("callback First");
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.back(), "callback First source 2 state 0 context 0") << "what the host was told last";
    EXPECT_EQ(handler_list[1].state, 1);
}

TEST(reentrant_callback, of_a_handler_that_is_being_removed_does_not_leave_the_next_one_of_its_slot_asserted)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_2/handler", "First").set("user_buttons/btn_2/handler_invert", "0");
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false))
            zel_gpio_notify_user_button_event(1);
    });
    armed = true;
    ASSERT_EQ(zel_gpio_deregister_handler("First"), 0);
    ASSERT_EQ(u.handler("Next"), 0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    u.take();
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_EQ(u.count_of("callback Next source -1"), 1) << "no input asserts it, so the host can toggle it";
}

TEST(reentrant_callback, that_removes_the_handler_that_is_being_removed_leaves_what_took_its_slot)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_2/handler", "First, Last").set("user_buttons/btn_2/handler_invert", "0, 0");
    u.set("on_grid_handlers", "First, Last");
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("First");
    u.handler("Last", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(armed, false))
            return;
        EXPECT_EQ(zel_gpio_deregister_handler("First"), 0);
        EXPECT_EQ(u.handler("Next"), 0);
        EXPECT_EQ(zel::set_trigger_connection(2, 1, 0, 0, 1), 0);
    });
    armed = true;
    (void)zel_gpio_deregister_handler("First");
    EXPECT_EQ(u.handler_id("First"), -1);
    EXPECT_EQ(u.handler_id("Next"), 0);
    EXPECT_EQ(handler_triggers(0), "!Eth Link Down#0");
}

TEST(reentrant_callback, that_removes_the_trigger_that_is_being_removed_leaves_what_took_its_slot)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    const int32_t id = u.trigger_id("On Air");
    bool armed = false;
    u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(armed, false))
            return;
        EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), 0);
        EXPECT_EQ(u.trigger("Next"), id);
        zel_gpio_notify_trigger_event(id, 1);
    });
    connect(of_handler, 0, id);
    armed = true;
    (void)zel_gpio_deregister_trigger("On Air");
    EXPECT_EQ(u.trigger_id("On Air"), -1);
    EXPECT_EQ(u.trigger_id("Next"), id);
    EXPECT_EQ(trigger_list[id].state, 1);
    EXPECT_EQ(handler_triggers(0), "");
}

// ---- At random ----

namespace {

struct chaos {
    unit &u;
    std::mt19937 random;
    int depth = 0, budget = 0;

    int pick(int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); }

    /// What a callback may do, now and then, and never endlessly.
    void inside()
    {
        if (budget <= 0 || depth >= 6 || pick(3) != 0)
            return;
        --budget, ++depth;
        event();
        --depth;
    }

    void event()
    {
        switch (pick(8)) {
        case 0: zel_gpio_notify_user_button_event(pick(2)); break;
        case 1: (void)zel_gpio_set_handler_state(pick(6)); break;
        default: {
            const int32_t id = pick(10);
            zel_gpio_notify_trigger_event(id, pick(4) == 0 ? trigger_list[id].state : !trigger_list[id].state);
        }
        }
    }

    void rewire()
    {
        const int owner = pick(3), index = owner == of_port ? 1 + 2 * pick(2) : owner == of_relay ? pick(2) : pick(4);
        (void)zel::set_trigger_connection(owner, pick(3) != 0, index, pick(10), static_cast<uint8_t>(pick(2)));
    }
};

}  // namespace

namespace {

void run_at_random(unsigned seed)
{
    SCOPED_TRACE("seed " + std::to_string(seed) + ", repeated with ZEL_TEST_SEED");
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    chaos c{u, std::mt19937(seed)};
    const auto hook = [&](int32_t, uint8_t, uintptr_t) { c.inside(); };
    for (const char *name : {"First", "Second", "Third", "Last"})
        u.handler(name, hook);
    u.led_handler(0, hook), u.led_handler(1, hook);
    for (const char *name : {"A", "B", "C"})
        u.trigger(name);
    for (int step = 0; step < 3000 && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        c.budget = 0;
        if (c.pick(4) == 0)
            c.rewire();
        c.budget = 40;
        c.event();
        expect_consistent(u);
        u.take(), u.forget_sent();
    }
}

}  // namespace

TEST(reentrant_callback, at_random_leaves_counts_levels_and_pins_as_the_triggers_say)
{
    run_at_random(1);
}

TEST(reentrant_callback, at_random_with_a_fresh_seed_does_so_too)
{
    const char *const wanted = std::getenv("ZEL_TEST_SEED");
    const unsigned seed = wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : std::random_device{}();
    std::printf("seed %u\n", seed);
    run_at_random(seed);
}
