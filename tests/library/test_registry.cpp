// Registering handlers and triggers: slots, duplicates, full tables, refusals, and how saved connections come back.
#include "grid_test.h"
#include "zel_gpio/registry.h"

using namespace grid_test;

namespace {

int nothing(void *, int32_t, uint8_t, uintptr_t) { return 0; }

const std::string null_text = address(nullptr);

}  // namespace

// ---- Slots and ids ----

TEST(handler_registration, takes_a_slot_then_publishes_then_tells_the_agent)
{
    unit u;
    u.gpis(1).virtuals(1).ember();
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    EXPECT_EQ(u.handler("Record"), 0);
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Record' (id = 0)",
        "ember add string gpio/handlers/h-0 = Record r",
                 "ipc snmp send 13 (68 bytes)");
    EXPECT_LINES(told(u), "13 0 Record");
}

TEST(handler_registration, works_without_a_provider)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(u.handler("Record"), 0);
    EXPECT_EQ(u.handler("Play"), 1);
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Record' (id = 0)", "ipc snmp send 13 (68 bytes)",
                 "log 2 register_handler: Registered handler 'Play' (id = 1)", "ipc snmp send 13 (68 bytes)");
}

TEST(handler_registration, works_without_the_agents_link)
{
    unit u;
    u.fail("ipc snmp init");
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(u.handler("Record"), 0);
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Record' (id = 0)");
}

TEST(handler_registration, goes_on_when_the_tree_refuses_the_parameter)
{
    unit u;
    u.virtuals(1).ember().fail("ember add gpio/handlers/h-0");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.handler("Record"), 0);
    EXPECT_EQ(handler_list[0].ember_param, nullptr);
    EXPECT_EQ(u.handler_id("Record"), 0);
}

TEST(handler_registration, fills_the_record_and_copies_the_name)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(handler_list[0].id, -1);
    char name[] = "Record";
    int argument = 0;
    ASSERT_EQ(zel_gpio_register_handler(name, nothing, &argument), 0);
    name[0] = 'X';
    EXPECT_STREQ(handler_list[0].name, "Record");
    EXPECT_EQ(handler_list[0].id, 0);
    EXPECT_EQ(handler_list[0].func, &nothing);
    EXPECT_EQ(handler_list[0].arg, &argument);
    EXPECT_EQ(handler_list[0].led_handler, 0);
    EXPECT_EQ(handler_list[0].on_grid, 0);
    EXPECT_EQ(handler_list[0].state, 0);
    EXPECT_EQ(handler_list[0].num_trigs, 0);
}

TEST(handler_registration, refuses_a_missing_name_or_callback)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    const char *const name = "Record";
    EXPECT_EQ(zel_gpio_register_handler(nullptr, nothing, nullptr), -1);
    EXPECT_EQ(zel_gpio_register_handler(name, nullptr, nullptr), -1);
    EXPECT_LINES(u.take(),
                 "log 0 zel_gpio_register_handler: Invalid parameter: handler_name = " + null_text +
                     ", handler_func = " + address(reinterpret_cast<const void *>(&nothing)),
                 "log 0 zel_gpio_register_handler: Invalid parameter: handler_name = " + address(name) + ", handler_func = " +
                 null_text);
    EXPECT_EQ(u.handler("Record"), 0);
}

TEST(handler_registration, refuses_a_name_that_is_taken)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    u.take();
    EXPECT_EQ(u.handler("Play"), -1);
    EXPECT_LINES(u.take(), "log 1 register_handler: Duplicate handler called 'Play' (id = 1) already registered");
    EXPECT_EQ(u.handler("play"), 2) << "names differ by case";
    EXPECT_EQ(u.handler("Pla"), 3);
}

TEST(handler_registration, compares_names_only_before_the_first_free_slot)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("A"), u.handler("B"), u.handler("C");
    ASSERT_EQ(zel_gpio_deregister_handler("B"), 0);
    EXPECT_EQ(u.handler("C"), 1);
    EXPECT_EQ(u.handler_id("C"), 1) << "the first of the two is found";
    EXPECT_EQ(u.handler("C"), -1);
}

TEST(handler_registration, reuses_the_lowest_freed_slot)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 6; ++i)
        ASSERT_EQ(u.handler("H" + std::to_string(i)), i);
    ASSERT_EQ(zel_gpio_deregister_handler("H4"), 0);
    ASSERT_EQ(zel_gpio_deregister_handler("H2"), 0);
    EXPECT_EQ(u.handler("X"), 2);
    EXPECT_EQ(u.handler("Y"), 4);
    EXPECT_EQ(u.handler("Z"), 6);
}

TEST(handler_registration, a_full_table_refuses_the_next_one_without_a_word)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(u.handler("H" + std::to_string(i)), i);
    u.take();
    EXPECT_EQ(u.handler("One More"), -1);
    EXPECT_LINES(u.take());
    EXPECT_EQ(u.handler("H199"), -1);
    EXPECT_LINES(u.take(), "log 1 register_handler: Duplicate handler called 'H199' (id = 199) already registered");
    ASSERT_EQ(zel_gpio_deregister_handler("H100"), 0);
    EXPECT_EQ(u.handler("One More"), 100);
}

TEST(handler_registration, a_handler_is_on_the_grid_when_its_name_occurs_in_the_saved_text)
{
    unit u;
    u.set("on_grid_handlers", "Record 10, Playback");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record 1"), u.handler("Play"), u.handler("record"), u.handler("Stop");
    EXPECT_EQ(handler_list[0].on_grid, 1) << "a plain search: found inside Record 10";
    EXPECT_EQ(handler_list[1].on_grid, 1);
    EXPECT_EQ(handler_list[2].on_grid, 0);
    EXPECT_EQ(handler_list[3].on_grid, 0);
}

TEST(trigger_registration, takes_a_slot_then_publishes_then_tells_the_agent)
{
    unit u;
    u.gpis(1).virtuals(1).ember();
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    EXPECT_EQ(u.trigger("On Air"), 7) << "behind five built-in ones, GPI 1 and vGPI 1";
    EXPECT_LINES(u.take(), "log 2 register_trigger: Registered trigger 'On Air' (id = 7)",
        "ember add string gpio/triggers/t-7 = On Air r",
                 "ipc snmp send 12 (68 bytes)");
    EXPECT_LINES(told(u), "12 7 On Air");
    EXPECT_NE(trigger_list[7].ember_param, nullptr);
}

TEST(trigger_registration, fills_the_record_and_copies_the_name)
{
    unit u;
    u.gpis(1).set("on_grid_triggers", "GPI 10, On Air");
    ASSERT_EQ(u.start(), 0);
    char name[] = "On Air";
    ASSERT_EQ(zel_gpio_register_trigger(name), 6);
    name[0] = 'X';
    EXPECT_STREQ(trigger_list[6].name, "On Air");
    EXPECT_EQ(trigger_list[6].id, 6);
    EXPECT_EQ(trigger_list[6].state, 0);
    EXPECT_EQ(trigger_list[6].port_trigger, 0);
    EXPECT_EQ(trigger_list[6].on_grid, 1);
    EXPECT_EQ(trigger_list[5].port_trigger, 1);
    EXPECT_EQ(trigger_list[5].on_grid, 1) << "GPI 1 is found inside GPI 10";
    EXPECT_EQ(trigger_list[0].on_grid, 0);
    EXPECT_EQ(trigger_list[199].id, 199);
}

TEST(trigger_registration, ports_register_theirs_in_the_order_of_the_table)
{
    unit u;
    u.gpis(2).coughs(1).virtuals(2).buttons(2).relays(1);
    ASSERT_EQ(u.start(), 0);
    const lines names = {"Eth Link Down", "AoIP Link Down", "AC Power Off", "DC Power Off", "PTP Sync Lost", "GPI 1", "GPI 2",
        "COUGH 1",
                         "vGPI 1", "vGPI 2", "User Button 1", "User Button 2"};
    for (size_t id = 0; id < names.size(); ++id) {
        EXPECT_STREQ(trigger_list[id].name, names[id].c_str());
        EXPECT_EQ(trigger_list[id].port_trigger, id >= 5);
    }
    EXPECT_EQ(trigger_list[names.size()].name, nullptr);
    EXPECT_EQ(u.trigger("On Air"), 12);
}

TEST(trigger_registration, a_name_that_is_taken_gives_the_same_id)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.trigger("On Air"), 5);
    u.raise("On Air");
    u.take();
    EXPECT_EQ(u.trigger("On Air"), 5);
    EXPECT_EQ(u.trigger("PTP Sync Lost"), 4);
    EXPECT_LINES(u.take(), "log 1 register_trigger: Duplicate trigger called 'On Air' (id = 5) already registered",
                 "log 1 register_trigger: Duplicate trigger called 'PTP Sync Lost' (id = 4) already registered");
    EXPECT_EQ(trigger_list[5].state, 1) << "nothing of it changed";
}

TEST(trigger_registration, compares_names_only_before_the_first_free_slot)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.trigger("A"), u.trigger("B"), u.trigger("C");
    ASSERT_EQ(zel_gpio_deregister_trigger("B"), 0);
    EXPECT_EQ(u.trigger("C"), 6) << "the hole is taken before slot 7 is reached";
    EXPECT_EQ(u.trigger_id("C"), 6);
    EXPECT_EQ(u.trigger("D"), 8);
}

TEST(trigger_registration, a_full_table_refuses_the_next_one_without_a_word)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    for (int id = 5; id < 200; ++id)
        ASSERT_EQ(u.trigger("T" + std::to_string(id)), id);
    u.take();
    EXPECT_EQ(u.trigger("One More"), -1);
    EXPECT_LINES(u.take());
    EXPECT_EQ(u.trigger("T199"), 199) << "one that is there is still found";
    ASSERT_EQ(zel_gpio_deregister_trigger("T77"), 0);
    EXPECT_EQ(u.trigger("One More"), 77);
}

TEST(well_known_triggers, have_their_ids)
{
    EXPECT_EQ(zel_gpio_primary_link_trig(), -1);
    EXPECT_EQ(zel_gpio_secondary_link_trig(), -1);
    EXPECT_EQ(zel_gpio_eth_link_trig(), 0);
    EXPECT_EQ(zel_gpio_aoip_link_trig(), 1);
    EXPECT_EQ(zel_gpio_ac_power_trig(), 2);
    EXPECT_EQ(zel_gpio_dc_power_trig(), 3);
    EXPECT_EQ(zel_gpio_poe1_power_trig(), -1);
    EXPECT_EQ(zel_gpio_poe2_power_trig(), -1);
    EXPECT_EQ(zel_gpio_ptp_clk_trig(), 4);
    unit u;
    ASSERT_EQ(u.start(), 0);
    EXPECT_STREQ(trigger_list[zel_gpio_eth_link_trig()].name, "Eth Link Down");
    EXPECT_STREQ(trigger_list[zel_gpio_aoip_link_trig()].name, "AoIP Link Down");
    EXPECT_STREQ(trigger_list[zel_gpio_ac_power_trig()].name, "AC Power Off");
    EXPECT_STREQ(trigger_list[zel_gpio_dc_power_trig()].name, "DC Power Off");
    EXPECT_STREQ(trigger_list[zel_gpio_ptp_clk_trig()].name, "PTP Sync Lost");
}

// ---- Handlers of user LEDs ----

TEST(user_led_handler, is_bound_to_its_led_and_stays_out_of_tree_and_grid)
{
    unit u;
    u.virtuals(1).buttons(2).ember().set("on_grid_handlers", "Tally");
    u.set("handler_info/User LED 2/triggers", "Eth Link Down");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(port_handlers(4), "User LED 2#-1");
    u.take(), u.forget_sent();
    EXPECT_EQ(u.led_handler(1), 0);
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'User LED 2' (id = 0)",
        "callback User LED 2 source 4 state 0 context 0",
                 "ipc snmp send 10 (696 bytes)", "ipc snmp send 13 (68 bytes)");
    EXPECT_LINES(told(u), "10 1", "13 0 User LED 2");
    EXPECT_EQ(port_handlers(4), "User LED 2#0");
    EXPECT_EQ(handler_list[0].led_handler, 1);
    EXPECT_EQ(handler_list[0].on_grid, 0);
    EXPECT_EQ(handler_list[0].ember_param, nullptr);
    EXPECT_EQ(handler_triggers(0), "") << "its list is that of its LED";
}

TEST(user_led_handler, has_no_list_of_its_own_even_if_the_file_holds_one)
{
    unit u;
    u.buttons(1).set("on_grid_handlers", "User LED 1").set("handler_info/User LED 1/triggers", "Eth Link Down");
    u.set("handler_info/User LED 1/trigger_inverts", "1");
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.led_handler(0), 0);
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(user_led_handler, the_number_of_the_led_may_equal_the_number_of_buttons)
{
    unit u;
    u.buttons(2);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(u.led_handler(-1), -1);
    EXPECT_EQ(u.led_handler(3), -1);
    EXPECT_EQ(u.led_handler(INT32_MAX), -1);
    EXPECT_EQ(u.led_handler(INT32_MIN), -1);
    EXPECT_LINES(u.take(), "log 0 zel_gpio_register_user_led_handler: Invalid LED id (-1) user_button_count = 2",
                 "log 0 zel_gpio_register_user_led_handler: Invalid LED id (3) user_button_count = 2",
                 "log 0 zel_gpio_register_user_led_handler: Invalid LED id (2147483647) user_button_count = 2",
                 "log 0 zel_gpio_register_user_led_handler: Invalid LED id (-2147483648) user_button_count = 2");
    EXPECT_EQ(u.led_handler(0), 0);
    EXPECT_EQ(u.led_handler(2), 1);
    EXPECT_STREQ(handler_list[0].name, "User LED 1");
    EXPECT_STREQ(handler_list[1].name, "User LED 3");
}

TEST(user_led_handler, needs_a_callback_and_a_free_name)
{
    unit u;
    u.buttons(1);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(zel_gpio_register_user_led_handler(0, nullptr, nullptr), -1);
    EXPECT_EQ(u.led_handler(0), 0);
    EXPECT_EQ(u.led_handler(0), -1);
    EXPECT_LINES(fake::only(u.take(), {"log 0", "log 1"}),
        "log 0 zel_gpio_register_user_led_handler: handler_func buffer is NULL",
                 "log 1 register_handler: Duplicate handler called 'User LED 1' (id = 0) already registered");
}

TEST(user_led_handler, shows_an_led_that_is_on_already)
{
    unit u;
    u.buttons(1).set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Eth Link Down");
    u.set("user_buttons/led_1/invert_trigger", "1");
    ASSERT_EQ(u.start(), 0);
    u.take();
    ASSERT_EQ(u.led_handler(0), 0);
    EXPECT_LINES(u.take_of("callback"), "callback User LED 1 source 1 state 1 context 0");
    EXPECT_EQ(handler_list[0].active_trigs, 1);
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 1);
}

// ---- The question whether a trigger drives a handler ----

TEST(trigger_active_for_handler, needs_a_handler_that_is_on_and_lists_a_trigger_that_is_active)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, AC Power Off");
    u.set("handler_info/Lamp/trigger_inverts", "0, 1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.handler("Horn");
    ASSERT_EQ(handler_list[0].state, 1) << "by the inverted entry";
    EXPECT_EQ(zel_gpio_trig_id_active_for_handler(0, 0), 0) << "the trigger is not active";
    EXPECT_EQ(zel_gpio_trig_id_active_for_handler(0, 2), 0) << "the trigger's own state counts, not its entry's";
    u.raise("Eth Link Down");
    EXPECT_EQ(zel_gpio_trig_id_active_for_handler(0, 0), 1);
    EXPECT_EQ(zel_gpio_trig_id_active_for_handler(0, 1), 0) << "not listed";
    EXPECT_EQ(zel_gpio_trig_id_active_for_handler(1, 0), 0) << "another handler";
    u.clear("Eth Link Down");
    u.raise("AC Power Off");
    EXPECT_EQ(zel_gpio_trig_id_active_for_handler(0, 2), 0) << "the handler is off";
}

TEST(trigger_active_for_handler, unknown_ids_give_no)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    ASSERT_EQ(zel_gpio_set_handler_state(0), 0);
    for (const int32_t id : {-1, -2, 1, 199, 200, 201, INT32_MAX, INT32_MIN})
        EXPECT_EQ(zel_gpio_trig_id_active_for_handler(id, 0), 0) << id;
    for (const int32_t id : {-1, -2, 199, 200, 201, INT32_MAX, INT32_MIN})
        EXPECT_EQ(zel_gpio_trig_id_active_for_handler(0, id), 0) << id;
}

TEST(registry_death, a_handler_without_a_name_or_callback_is_a_programming_error_inside)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    EXPECT_DEATH(zel::register_handler(nullptr, nothing, nullptr, 0), "handler_name != NULL");
    EXPECT_DEATH(zel::register_handler("Record", nullptr, nullptr, 0), "handler_func != NULL");
}
