// Renaming and removing triggers, with all that follows in its order, and the release of everything at the end.
#include <utility>

#include "grid_test.h"
#include "library_allocations.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

const std::string null_text = address(nullptr);

/// An output, a relay and a handler listen to the trigger On Air (7).
void describe_listeners(unit &u)
{
    u.gpis(1).virtuals(1).relays(1).set("on_grid_handlers", "Lamp");
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "On Air, Eth Link Down");
    u.set("physical/gpio_0/invert_trigger", "0, 0");
    u.set("relay/relay_0/triggers", "On Air").set("relay/relay_0/trigger_invert", "0");
    u.set("handler_info/Lamp/triggers", "AC Power Off, On Air").set("handler_info/Lamp/trigger_inverts", "0, 0");
}

}  // namespace

// ---- Renaming a trigger ----

TEST(trigger_rename, follows_the_lists_of_ports_only_in_this_order)
{
    unit u;
    describe_listeners(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.trigger("On Air");
    u.take(), u.forget_sent();
    EXPECT_EQ(zel_gpio_rename_trigger("On Air", "Live"), 0);
    EXPECT_LINES(u.take(), "ember set gpio/triggers/t-7 \"Live\" (5 bytes)",
                 "log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 2)", "json set gpio/physical/gpio_0/type 2",
                 "json remove gpio/physical/gpio_0/handler (absent)", "json remove gpio/physical/gpio_0/trigger",
                 "json remove gpio/physical/gpio_0/invert_trigger", "json remove gpio/physical/gpio_0/input_mode (absent)",
                 "json set gpio/physical/gpio_0/trigger \"Live, Eth Link Down\"",
                 "json set gpio/physical/gpio_0/invert_trigger \"0, 0\"",
                 "json set gpio/on_grid_triggers \"Eth Link Down, AC Power Off, Live\"",
                 "json set gpio/on_grid_handlers \"Lamp\"",
                 "ipc snmp send 12 (68 bytes)", "json set gpio/on_grid_triggers \"Eth Link Down, AC Power Off, Live\"");
    EXPECT_LINES(told(u), "12 7 Live");
    EXPECT_EQ(port_list(0), "Live#7 Eth Link Down#0");
    EXPECT_EQ(relay_list(0), "On Air#7") << "keeps the old text and stays bound";
    EXPECT_EQ(handler_triggers(0), "AC Power Off#2 On Air#7");
    u.raise("Live");
    EXPECT_EQ(u.level(101), 1);
    EXPECT_EQ(u.level(201), 1);
    EXPECT_EQ(handler_list[0].state, 1);
}

TEST(trigger_rename, a_name_that_is_taken_is_no_obstacle)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air"), u.trigger("Live");
    EXPECT_EQ(zel_gpio_rename_trigger("On Air", "Live"), 0);
    EXPECT_STREQ(trigger_list[5].name, "Live");
    EXPECT_STREQ(trigger_list[6].name, "Live");
    u.forget_sent();
    EXPECT_EQ(zel_gpio_rename_trigger("Live", "Late"), 0) << "both slots at once";
    EXPECT_STREQ(trigger_list[5].name, "Late");
    EXPECT_STREQ(trigger_list[6].name, "Late");
    EXPECT_LINES(told(u), "12 5 Late", "12 6 Late");
}

TEST(trigger_rename, to_its_own_name_succeeds)
{
    unit u;
    describe_listeners(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    EXPECT_EQ(zel_gpio_rename_trigger("On Air", "On Air"), 0);
    EXPECT_EQ(zel_gpio_rename_trigger(trigger_list[7].name, trigger_list[7].name), 0);
    EXPECT_STREQ(trigger_list[7].name, "On Air");
    EXPECT_EQ(port_list(0), "On Air#7 Eth Link Down#0");
}

TEST(trigger_rename, of_two_slots_may_be_given_the_librarys_own_text_as_the_new_name)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.trigger("A"), u.trigger("B");
    ASSERT_EQ(zel_gpio_rename_trigger("B", "A"), 0);
    EXPECT_EQ(zel_gpio_rename_trigger("A", trigger_list[5].name), 0);
    EXPECT_STREQ(trigger_list[5].name, "A");
    EXPECT_STREQ(trigger_list[6].name, "A");
}

TEST(trigger_rename, an_unknown_name_fails_without_a_word_and_saves_the_names_on_the_grid)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "DC Power Off");
    u.set("physical/gpio_0/invert_trigger", "0");
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(zel_gpio_rename_trigger("On Air", "Live"), -1);
    EXPECT_LINES(u.take(), "json set gpio/on_grid_triggers \"DC Power Off\"");
}

TEST(trigger_rename, missing_names_are_refused)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    const char *const name = "Live";
    EXPECT_EQ(zel_gpio_rename_trigger(nullptr, name), -1);
    EXPECT_EQ(zel_gpio_rename_trigger(name, nullptr), -1);
    EXPECT_LINES(fake::only(u.take(), {"log"}),
                 "log 0 zel_gpio_rename_trigger: Invalid parameter: old_name = " + null_text + ", new_name = " + address(name),
                 "log 0 zel_gpio_rename_trigger: Invalid parameter: old_name = " + address(name) + ", new_name = " + null_text);
}

TEST(trigger_rename, may_be_given_the_librarys_own_text_as_the_old_name)
{
    unit u;
    describe_listeners(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    EXPECT_EQ(zel_gpio_rename_trigger(trigger_list[7].name, "Live"), 0);
    EXPECT_EQ(port_list(0), "Live#7 Eth Link Down#0");
    EXPECT_EQ(zel_gpio_rename_trigger(zel::gpios[0].trigger_names[0], "Late"), 0);
    EXPECT_EQ(port_list(0), "Late#7 Eth Link Down#0");
    EXPECT_EQ(zel_gpio_rename_trigger("Late", zel::gpios[0].trigger_names[0]), 0);
    EXPECT_EQ(port_list(0), "Late#7 Eth Link Down#0");
}

TEST(trigger_rename, a_tree_that_refuses_the_name_does_not_fail_it)
{
    unit u;
    describe_listeners(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    u.fail("ember set gpio/triggers/t-7");
    u.take();
    EXPECT_EQ(zel_gpio_rename_trigger("On Air", "Live"), 0);
    EXPECT_TRUE(u.logged("0 zel_gpio_rename_trigger: Failed to set trigger ember parameter"));
    EXPECT_EQ(port_list(0), "Live#7 Eth Link Down#0");
}

TEST(trigger_rename, an_inputs_own_trigger_takes_the_new_name_in_its_port)
{
    unit u;
    u.gpis(1).buttons(1).set("physical/gpio_0/type", 1).set("user_buttons/btn_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(zel_gpio_rename_trigger("GPI 1", "Door"), 0);
    EXPECT_STREQ(zel::gpios[0].trigger_names[0], "Door");
    EXPECT_EQ(zel_gpio_rename_trigger("User Button 1", "Bell"), 0);
    EXPECT_STREQ(zel::gpios[1].trigger_names[0], "Bell") << "every entry is looked at, not only those of the count";
    u.edge(1, 1);
    EXPECT_EQ(trigger_list[5].state, 1);
}

TEST(trigger_rename, a_built_in_one_gets_a_name_of_its_own_and_back_again)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(zel_gpio_rename_trigger("Eth Link Down", "LAN"), 0);
    EXPECT_STREQ(trigger_list[0].name, "LAN");
    EXPECT_EQ(zel_gpio_rename_trigger("LAN", "Eth Link Down"), 0);
    EXPECT_STREQ(trigger_list[0].name, "Eth Link Down");
    zel_gpio_notify_trigger_event(0, 1);
    EXPECT_EQ(trigger_list[0].state, 1);
}

// ---- Removing a trigger ----

TEST(trigger_removal, disconnects_ends_and_forgets_in_this_order)
{
    unit u;
    describe_listeners(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.trigger("On Air"), u.raise("On Air");
    u.take(), u.forget_sent();
    EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), 0);
    EXPECT_LINES(u.take(), "log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 2)",
        "json set gpio/physical/gpio_0/type 2",
                 "json remove gpio/physical/gpio_0/handler (absent)", "json remove gpio/physical/gpio_0/trigger",
                 "json remove gpio/physical/gpio_0/invert_trigger", "json remove gpio/physical/gpio_0/input_mode (absent)",
                 "json set gpio/physical/gpio_0/trigger \"Eth Link Down\"", "json set gpio/physical/gpio_0/invert_trigger \"0\"",
                 "json set gpio/on_grid_triggers \"Eth Link Down, AC Power Off, On Air\"",
                 "json set gpio/on_grid_handlers \"Lamp\"",
                 "pin 101 write 0", "ember set gpio/physical/gpio 1/type 2 (8 bytes)",
                 "ember set gpio/physical/gpio 1/input functions \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 1/output triggers \"Eth Link Down\" (14 bytes)",
                 "ember set gpio/physical/gpio 1/active triggers \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 1/input mode 0 (8 bytes)",
                 "ember set gpio/physical/gpio 1/status 0 (4 bytes)", "ipc snmp send 7 (696 bytes)",
                 "json set gpio/relay/relay_0/triggers \"\"",
                 "json set gpio/relay/relay_0/trigger_invert \"\"", "pin 201 write 0",
                 "ember set gpio/physical/relay 1/output triggers \"\" (1 bytes)",
                 "ember set gpio/physical/relay 1/status 0 (4 bytes)",
                 "ember set gpio/physical/relay 1/active triggers \"\" (1 bytes)", "ipc snmp send 11 (416 bytes)",
                 "log 2 update_handler_json: Updating json entry: 'Lamp'",
                 "json set gpio/handler_info/Lamp/triggers \"AC Power Off\"",
                 "json set gpio/handler_info/Lamp/trigger_inverts \"0\"", "callback Lamp source 0 state 0 context 0",
                 "log 2 zel_gpio_notify_trigger_event: event 'On Air' has ended", "ember remove gpio/triggers/t-7",
                 "json set gpio/on_grid_triggers \"Eth Link Down, AC Power Off\"");
    EXPECT_LINES(told(u), "7 0", "11 0");
    EXPECT_EQ(trigger_list[7].name, nullptr);
    EXPECT_EQ(trigger_list[7].state, 0);
    EXPECT_EQ(trigger_list[7].on_grid, 0);
    EXPECT_EQ(trigger_list[7].id, 7);
}

TEST(trigger_removal, reaches_handlers_behind_a_free_slot)
{
    unit u;
    u.set("on_grid_handlers", "A, B");
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    u.handler("A"), u.handler("B");
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 1, 5, 1), 0);
    ASSERT_EQ(zel_gpio_deregister_handler("A"), 0);
    EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), 0);
    EXPECT_EQ(handler_triggers(1), "");
    EXPECT_EQ(handler_list[1].state, 0);
    EXPECT_EQ(u.trigger("Other"), 5);
    EXPECT_EQ(handler_triggers(1), "");
}

TEST(trigger_removal, a_name_that_is_missing_or_unknown_changes_nothing)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(zel_gpio_deregister_trigger(nullptr), -1);
    EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), -1);
    EXPECT_LINES(u.take(), "log 0 zel_gpio_deregister_trigger: trigger_name is NULL",
                 "log 0 zel_gpio_deregister_trigger: Trigger: 'On Air' not found");
}

TEST(trigger_removal, of_an_inactive_trigger_reports_no_end)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    u.take();
    EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), 0);
    EXPECT_LINES(u.take(), "json set gpio/on_grid_triggers \"\"");
    EXPECT_EQ(u.trigger("Live"), 5);
}

TEST(trigger_removal, of_one_of_two_equal_names_takes_the_first)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.trigger("A"), u.trigger("B");
    ASSERT_EQ(zel_gpio_rename_trigger("B", "A"), 0);
    EXPECT_EQ(zel_gpio_deregister_trigger("A"), 0);
    EXPECT_EQ(trigger_list[5].name, nullptr);
    EXPECT_STREQ(trigger_list[6].name, "A");
}

TEST(trigger_removal, of_a_built_in_trigger_releases_no_constant_and_its_slot_is_used_again)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "Eth Link Down").set("relay/relay_0/trigger_invert", "1");
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.level(201), 1);
    EXPECT_EQ(zel_gpio_deregister_trigger("Eth Link Down"), 0);
    EXPECT_EQ(trigger_list[0].name, nullptr);
    EXPECT_EQ(u.level(201), 0);
    zel_gpio_notify_trigger_event(0, 1);
    EXPECT_EQ(trigger_list[0].state, 0);
    EXPECT_EQ(u.trigger("Eth Link Down"), 0) << "the first free slot";
    u.raise("Eth Link Down");
    EXPECT_EQ(trigger_list[0].state, 1);
}

TEST(trigger_removal, of_an_inputs_own_trigger_leaves_an_input_that_raises_nothing)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Record").set("physical/gpio_0/handler_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    EXPECT_EQ(zel_gpio_deregister_trigger("GPI 1"), 0);
    EXPECT_EQ(trigger_list[5].port_trigger, 0);
    u.take();
    u.edge(1, 1);
    EXPECT_LINES(u.take_of("callback"), "callback Record source 0 state 1 context 0");
    EXPECT_EQ(zel::gpios[0].trig_ids[0], -1);
}

TEST(trigger_removal, of_an_inputs_own_trigger_does_not_give_the_input_the_slots_next_one)
{
    unit u;
    u.gpis(1).buttons(1).set("user_buttons/btn_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel_gpio_set_pin_direction(0, 1), 1);
    ASSERT_EQ(zel_gpio_deregister_trigger("GPI 1"), 0);
    ASSERT_EQ(zel_gpio_deregister_trigger("User Button 1"), 0);
    ASSERT_EQ(u.trigger("Door"), 5);
    ASSERT_EQ(u.trigger("Fire"), 6);
    u.edge(1, 1);
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(trigger_list[5].state, 0);
    EXPECT_EQ(trigger_list[6].state, 0);
}

TEST(trigger_removal, may_be_given_the_librarys_own_text)
{
    unit u;
    describe_listeners(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air"), u.raise("On Air");
    EXPECT_EQ(zel_gpio_deregister_trigger(zel::relays[0].trigger_names[0]), 0);
    EXPECT_EQ(trigger_list[7].name, nullptr);
    EXPECT_EQ(relay_list(0), "");
    ASSERT_EQ(u.trigger("Live"), 7);
    EXPECT_EQ(zel_gpio_deregister_trigger(trigger_list[7].name), 0);
    EXPECT_EQ(trigger_list[7].name, nullptr);
}

TEST(trigger_removal, a_callback_of_the_disconnection_may_raise_the_trigger_that_goes)
{
    unit u;
    describe_listeners(u);
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("Lamp", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false))
            zel_gpio_notify_trigger_event(7, 1);
    });
    u.trigger("On Air");
    armed = true;
    EXPECT_EQ(zel_gpio_deregister_trigger("On Air"), 0);
    EXPECT_EQ(trigger_list[7].name, nullptr);
    EXPECT_EQ(trigger_list[7].state, 0);
    EXPECT_EQ(handler_triggers(0), "AC Power Off#2");
    EXPECT_EQ(u.level(101), 0);
    EXPECT_EQ(u.level(201), 0);
}

// ---- The end ----

TEST(registry_shutdown, releases_every_name_and_entry)
{
    const size_t before = fake::allocations_held();
    {
        unit u;
        describe_listeners(u);
        u.buttons(1);
        ASSERT_EQ(u.start(), 0);
        u.handler("Lamp"), u.handler("Horn"), u.led_handler(0), u.trigger("On Air"), u.trigger("Door");
        ASSERT_EQ(zel_gpio_rename_trigger("PTP Sync Lost", "Clock"), 0);
        ASSERT_EQ(zel_gpio_deregister_trigger("AC Power Off"), 0);
        ASSERT_EQ(u.trigger("Spare"), 2);
        u.stop();
        for (const handler_t &handler : handler_list) {
            EXPECT_EQ(handler.name, nullptr);
            EXPECT_EQ(handler.func, nullptr);
            EXPECT_EQ(handler.arg, nullptr);
        }
    }
    EXPECT_EQ(fake::allocations_held(), before);
}
