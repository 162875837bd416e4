// User buttons, user LEDs, and handlers that the host toggles by hand.
#include "grid_test.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

/// Button 1 is port 1 (trigger 6), LED 1 port 2; button 2 is port 3 (trigger 7), LED 2 port 4. vGPI 1 has trigger 5.
void describe(unit &u)
{
    u.virtuals(1).buttons(2).relays(1).set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler", "Bell");
    u.set("user_buttons/btn_1/handler_invert", "0").set("user_buttons/led_1/type", 2);
    u.set("user_buttons/led_1/trigger", "User Button 1");
    u.set("user_buttons/led_1/invert_trigger", "0").set("relay/relay_0/triggers", "User Button 1");
    u.set("relay/relay_0/trigger_invert", "0");
}

}  // namespace

// ---- Presses ----

TEST(button_press, reports_its_trigger_then_flips_its_level_and_publishes)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Bell"), u.led_handler(0);
    u.take(), u.forget_sent();
    zel_gpio_notify_user_button_event(0);
    EXPECT_LINES(u.take(), "log 2 zel_gpio_notify_trigger_event: event 'User Button 1' has occurred",
                 "callback User LED 1 source 2 state 1 context 0", "ember set gpio/user buttons/led 1/type 2 (8 bytes)",
                 "ember set gpio/user buttons/led 1/output triggers \"User Button 1\" (14 bytes)",
                 "ember set gpio/user buttons/led 1/active triggers \"User Button 1\" (14 bytes)",
                 "ember set gpio/user buttons/led 1/status 1 (4 bytes)", "ipc snmp send 10 (696 bytes)", "pin 201 write 1",
                 "ember set gpio/physical/relay 1/output triggers \"User Button 1\" (14 bytes)",
                 "ember set gpio/physical/relay 1/status 1 (4 bytes)",
                 "ember set gpio/physical/relay 1/active triggers \"User Button 1\" (14 bytes)", "ipc snmp send 11 (416 bytes)",
                 "ember set gpio/user buttons/button 1/status 1 (1 bytes)", "callback Bell source 1 state 1 context 0",
                 "ipc snmp send 9 (696 bytes)");
    EXPECT_LINES(told(u), "10 0", "11 0", "9 0");
    EXPECT_EQ(trigger_list[6].state, 1);
    EXPECT_EQ(zel::gpios[1].state, 1);
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(trigger_list[6].state, 0);
    EXPECT_EQ(zel::gpios[1].state, 0);
    EXPECT_EQ(zel::gpios[2].state, 0);
    EXPECT_EQ(u.level(201), 0);
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(button_press, of_a_momentary_button_is_latched_all_the_same)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_1/input_mode", 1);
    ASSERT_EQ(u.start(), 0);
    u.handler("Bell");
    u.take();
    zel_gpio_notify_user_button_event(0), zel_gpio_notify_user_button_event(0);
    EXPECT_LINES(u.take_of("callback"), "callback Bell source 1 state 1 context 1", "callback Bell source 1 state 0 context 1");
}

TEST(button_press, of_a_disabled_button_is_ignored)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    zel_gpio_notify_user_button_event(1);
    EXPECT_LINES(u.take(),
        "log 2 zel_gpio_notify_user_button_event: Ignoring user button event as button id 1 is currently disabled");
    EXPECT_EQ(trigger_list[7].state, 0);
}

TEST(button_press, of_a_button_that_does_not_exist_is_refused)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    for (const int32_t id : {-1, 3, INT32_MAX, INT32_MIN})
        zel_gpio_notify_user_button_event(id);
    EXPECT_LINES(u.take(), "log 0 zel_gpio_notify_user_button_event: Invalid button id (-1) user_button_count = 2",
                 "log 0 zel_gpio_notify_user_button_event: Invalid button id (3) user_button_count = 2",
                 "log 0 zel_gpio_notify_user_button_event: Invalid button id (2147483647) user_button_count = 2",
                 "log 0 zel_gpio_notify_user_button_event: Invalid button id (-2147483648) user_button_count = 2");
    zel_gpio_notify_user_button_event(2);
    EXPECT_LINES(u.take(), "log 0 zel_gpio_notify_user_button_event: Index 5 does not point to a user button");
}

TEST(button_press, on_a_unit_without_buttons_reads_nothing_behind_its_table)
{
    for (const int physical : {0, 1})
        EXPECT_DEATH({
            unit u;
            u.gpis(physical);
            (void)u.start();
            u.take();
            zel_gpio_notify_user_button_event(0);
            const lines log = u.take();
            std::fprintf(stderr, "%s", fake::joined(log).c_str());
            std::_Exit(log.size() == 1 ? 3 : 0);
        }, "log 0 zel_gpio_notify_user_button_event: (Index 0 does not point to a user button|Invalid button id)");
}

TEST(button_press, after_the_trigger_was_reported_elsewhere_both_go_their_own_way)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.raise("User Button 1");
    EXPECT_EQ(zel::gpios[1].state, 0) << "its own trigger stands outside its list";
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(trigger_list[6].state, 0);
    EXPECT_EQ(zel::gpios[1].state, 1);
}

// ---- A trigger in a button's list ----

TEST(button, is_flipped_by_a_trigger_of_its_list_on_both_edges)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Bell");
    ASSERT_EQ(zel::set_trigger_connection(0, 1, 1, 0, 0), 0);
    u.take(), u.forget_sent();
    u.raise("Eth Link Down");
    EXPECT_LINES(u.take(), "log 2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has occurred",
        "callback Bell source 1 state 1 context 0",
                 "ipc snmp send 9 (696 bytes)", "ember set gpio/user buttons/button 1/status 1 (8 bytes)");
    EXPECT_EQ(zel::gpios[1].state, 1);
    u.clear("Eth Link Down");
    EXPECT_LINES(u.take(), "log 2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has ended",
        "callback Bell source 1 state 0 context 0",
                 "ipc snmp send 9 (696 bytes)", "ember set gpio/user buttons/button 1/status 0 (8 bytes)");
    EXPECT_EQ(zel::gpios[1].state, 0);
    EXPECT_LINES(told(u), "9 0", "9 0");
}

TEST(button, that_is_flipped_by_a_trigger_is_published_with_the_triggers_state)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel::set_trigger_connection(0, 1, 1, 0, 0), 0);
    zel::gpios[1].state = 1;
    u.take();
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[1].state, 0);
    EXPECT_LINES(u.take_of("ember"), "ember set gpio/user buttons/button 1/status 1 (8 bytes)");
}

TEST(button, that_is_disabled_is_not_flipped)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel::set_trigger_connection(0, 1, 3, 0, 0), 0);
    u.take(), u.forget_sent();
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[3].state, 0);
    EXPECT_LINES(told(u));
}

// ---- LEDs ----

TEST(led, shows_the_state_of_its_handler)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.led_handler(0);
    u.raise("User Button 1");
    EXPECT_EQ(handler_list[0].active_trigs, 1);
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(zel::gpios[2].state, 1);
    u.clear("User Button 1");
    EXPECT_EQ(handler_list[0].active_trigs, 0);
    EXPECT_EQ(handler_list[0].state, 0);
    EXPECT_EQ(zel::gpios[2].state, 0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST(led, whose_handler_is_not_registered_still_follows_its_triggers)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.raise("User Button 1");
    EXPECT_EQ(zel::gpios[2].state, 1);
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 1);
    u.clear("User Button 1");
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 0);
}

TEST(led, is_on_while_one_of_its_triggers_is_active)
{
    unit u;
    describe(u);
    u.set("user_buttons/led_1/trigger", "User Button 1, Eth Link Down").set("user_buttons/led_1/invert_trigger", "0, 0");
    ASSERT_EQ(u.start(), 0);
    u.led_handler(0);
    u.take();
    u.raise("User Button 1"), u.raise("Eth Link Down"), u.clear("User Button 1"), u.clear("Eth Link Down");
    EXPECT_LINES(u.take_of("callback"), "callback User LED 1 source 2 state 1 context 0",
        "callback User LED 1 source 2 state 1 context 0",
                 "callback User LED 1 source 2 state 1 context 0", "callback User LED 1 source 2 state 0 context 0");
    EXPECT_EQ(zel::gpios[2].state, 0);
}

TEST(led, from_port_64_on_is_lit_by_its_triggers_too)
{
    unit u;
    u.virtuals(70).buttons(1).set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Eth Link Down");
    u.set("user_buttons/led_1/invert_trigger", "0");
    ASSERT_EQ(u.start(), 0);
    u.led_handler(0);
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[71].state, 1);
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    u.clear("Eth Link Down");
    EXPECT_EQ(zel::gpios[71].state, 0);
    EXPECT_EQ(handler_list[0].state, 0);
}

// ---- Handlers toggled by hand ----

TEST(toggled_handler, calls_back_with_no_source_and_drives_the_triggers_of_its_list)
{
    unit u;
    u.relays(1).set("on_grid_handlers", "Mute").set("handler_info/Mute/triggers", "Mute, Unknown, Eth Link Down");
    u.set("handler_info/Mute/trigger_inverts", "0, 0, 1").set("relay/relay_0/triggers", "Mute");
    u.set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.trigger("Mute"), u.handler("Mute");
    u.raise("Eth Link Down");
    ASSERT_EQ(handler_list[0].state, 0);
    u.take();
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_LINES(u.take(), "callback Mute source -1 state 1 context 0",
        "log 2 zel_gpio_notify_trigger_event: event 'Mute' has occurred",
                 "pin 201 write 1", "ipc snmp send 11 (416 bytes)", "callback Mute source 0 state 1 context 0",
                 "log 2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has ended",
                 "callback Mute source 0 state 1 context 0");
    EXPECT_EQ(handler_list[0].active_trigs, 2);
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_LINES(u.take(), "callback Mute source -1 state 0 context 0",
        "log 2 zel_gpio_notify_trigger_event: event 'Mute' has ended",
                 "pin 201 write 0", "ipc snmp send 11 (416 bytes)", "callback Mute source 0 state 1 context 0");
    EXPECT_EQ(trigger_list[0].state, 0) << "the handler is on again by its other entry when its turn comes";
}

TEST(toggled_handler, without_a_list_only_changes_its_state)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("Mute");
    u.take();
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_EQ(handler_list[0].state, 0);
    EXPECT_LINES(u.take(), "callback Mute source -1 state 1 context 0", "callback Mute source -1 state 0 context 0");
}

TEST(toggled_handler, that_an_input_asserts_stays_on_and_still_drives_its_triggers)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Mute").set("physical/gpio_0/handler_invert", "1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Mute");
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 0, 0, 0), 0);
    u.take();
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(trigger_list[0].state, 1);
    EXPECT_LINES(u.take(), "log 2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has occurred",
        "callback Mute source 0 state 1 context 0");
}

TEST(toggled_handler, in_a_mirrored_pair_takes_its_mirror_along)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    for (const char *name : {"A", "B"})
        u.handler(name), u.trigger(name);
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 0, 6, 0), 0);
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 1, 5, 0), 0);
    u.take();
    EXPECT_EQ(zel_gpio_set_handler_state(0), 0);
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(trigger_list[6].state, 1) << "B, which is in its list";
    EXPECT_EQ(trigger_list[5].state, 0) << "its own trigger is the host's to report";
    EXPECT_LINES(u.take_of("callback"), "callback A source -1 state 1 context 0", "callback A source 0 state 1 context 0");
    u.raise("A");
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(zel_gpio_set_handler_state(1), 0);
    EXPECT_EQ(handler_list[1].state, 0);
    EXPECT_EQ(trigger_list[5].state, 0);
}

TEST(toggled_handler, that_does_not_exist_is_refused)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("Mute");
    u.take();
    for (const int32_t id : {-1, 1, 199, 200, 201, INT32_MAX, INT32_MIN})
        EXPECT_EQ(zel_gpio_set_handler_state(id), -1);
    EXPECT_LINES(u.take(), "log 0 zel_gpio_set_handler_state: Invalid handler_id (-1)",
        "log 0 zel_gpio_set_handler_state: Invalid handler_id (1)",
                 "log 0 zel_gpio_set_handler_state: Invalid handler_id (199)",
                 "log 0 zel_gpio_set_handler_state: Invalid handler_id (200)",
                 "log 0 zel_gpio_set_handler_state: Invalid handler_id (201)",
                 "log 0 zel_gpio_set_handler_state: Invalid handler_id (2147483647)",
                 "log 0 zel_gpio_set_handler_state: Invalid handler_id (-2147483648)");
}
