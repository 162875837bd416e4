// Registration as the moment at which saved connections come back: a handler's own list, the ports of a handler, the listeners
// of a trigger, and what callbacks may register meanwhile.
#include <utility>

#include "grid_test.h"

using namespace grid_test;

// ---- Saved connections come back: a handler's own list ----

TEST(handler_revival, reads_its_saved_list_and_evaluates_what_is_registered)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, GPI 2");
    u.set("handler_info/Lamp/trigger_inverts", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.take();
    ASSERT_EQ(u.handler("Lamp"), 0);
    EXPECT_EQ(handler_triggers(0), "!Eth Link Down#0 GPI 2#-1");
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Lamp' (id = 0)",
        "callback Lamp source 0 state 1 context 0",
                 "ipc snmp send 13 (68 bytes)");
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(handler_list[0].active_trigs, 1);
    EXPECT_EQ(trigger_list[0].on_grid, 1);
    EXPECT_EQ(handler_list[0].allow_invert[0], 1);

    ASSERT_EQ(u.trigger("GPI 2"), 5);
    EXPECT_EQ(handler_triggers(0), "!Eth Link Down#0 GPI 2#5");
    EXPECT_EQ(trigger_list[5].on_grid, 0) << "only outputs and relays put a late trigger on the grid";
    EXPECT_EQ(handler_list[0].active_trigs, 1) << "bound inactive, it leaves on what the other entry keeps on";
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 0");
}

TEST(handler_revival, an_inactive_entry_does_not_switch_off_what_another_keeps_on)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, AC Power Off, DC Power Off");
    u.set("handler_info/Lamp/trigger_inverts", "1, 0, 0");
    ASSERT_EQ(u.start(), 0);
    u.take();
    ASSERT_EQ(u.handler("Lamp"), 0);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 0", "callback Lamp source 0 state 1 context 0",
                 "callback Lamp source 0 state 1 context 0");
    EXPECT_EQ(handler_list[0].active_trigs, 1);
    u.raise("Eth Link Down");
    EXPECT_EQ(handler_list[0].active_trigs, 0);
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(handler_revival, needs_the_handler_to_be_on_the_grid)
{
    unit u;
    u.set("on_grid_handlers", "Record").set("handler_info/Lamp/triggers", "Eth Link Down");
    u.set("handler_info/Lamp/trigger_inverts", "1");
    ASSERT_EQ(u.start(), 0);
    u.take();
    ASSERT_EQ(u.handler("Lamp"), 0);
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Lamp' (id = 0)", "ipc snmp send 13 (68 bytes)");
    EXPECT_EQ(handler_list[0].json_obj, nullptr);
}

TEST(handler_revival, an_object_that_cannot_be_loaded_leaves_the_list_empty)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down").fail("json load gpio/handler_info/Lamp");
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(u.handler("Lamp"), 0);
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Lamp' (id = 0)",
        "json load gpio/handler_info/Lamp failed",
                 "log 1 Failed to load handler info json obj for 'Lamp'", "ipc snmp send 13 (68 bytes)");
}

TEST(handler_revival, inverts_are_read_piece_by_piece)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "A, B, C, D, E, F, G");
    u.set("handler_info/Lamp/trigger_inverts", "2, x, -1, , 1x, 0");
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.handler("Lamp"), 0);
    EXPECT_EQ(handler_triggers(0), "!A#-1 B#-1 !C#-1 D#-1 !E#-1 F#-1 G#-1") << "a missing piece leaves its entry as it was";
}

TEST(handler_revival, surplus_inverts_are_ignored_and_missing_keys_are_no_error)
{
    unit u;
    u.set("on_grid_handlers", "Lamp, Horn, Fan").set("handler_info/Lamp/triggers", "A");
    u.set("handler_info/Lamp/trigger_inverts", "0, 1, 1");
    u.set("handler_info/Horn/trigger_inverts", "1").set("handler_info/Fan/triggers", "A, B");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.handler("Horn"), u.handler("Fan");
    EXPECT_EQ(handler_triggers(0), "A#-1");
    EXPECT_EQ(handler_triggers(1), "");
    EXPECT_EQ(handler_triggers(2), "A#-1 B#-1");
    EXPECT_EQ(handler_list[0].trig_inv[1], 0);
}

TEST(handler_revival, two_hundred_names_of_a_longer_list_are_read)
{
    std::string names = "A0", inverts = "1";
    for (int i = 1; i < 250; ++i)
        names += ", A" + std::to_string(i), inverts += ", 1";
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", names.c_str());
    u.set("handler_info/Lamp/trigger_inverts", inverts.c_str());
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.handler("Lamp"), 0);
    EXPECT_EQ(handler_list[0].num_trigs, 200);
    EXPECT_STREQ(handler_list[0].trigger_names[199], "A199");
    EXPECT_EQ(handler_list[0].trig_inv[199], 1);
}

// ---- Saved connections come back: the ports of a handler ----

TEST(handler_binding, every_entry_that_names_the_handler_is_bound_and_its_port_evaluated)
{
    unit u;
    u.gpis(2).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Record, Play, Record");
    u.set("physical/gpio_0/handler_invert", "0, 1, 1").set("physical/gpio_0/input_mode", 1);
    u.set("physical/gpio_1/type", 1).set("physical/gpio_1/handler", "Play").set("physical/gpio_1/handler_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    ASSERT_EQ(u.handler("Record"), 0);
    EXPECT_LINES(u.take(), "log 2 register_handler: Registered handler 'Record' (id = 0)",
        "callback Record source 0 state 0 context 1",
                 "ipc snmp send 7 (696 bytes)", "callback Record source 0 state 0 context 1",
                 "callback Record source 0 state 1 context 1",
                 "ipc snmp send 7 (696 bytes)", "ipc snmp send 13 (68 bytes)");
    EXPECT_LINES(told(u), "7 0", "7 0", "13 0 Record");
    EXPECT_EQ(port_handlers(0), "Record#0 !Play#-1 !Record#0");
    EXPECT_EQ(port_handlers(1), "Play#-1");
    EXPECT_EQ(handler_list[0].port_mask, 1u);
    EXPECT_EQ(handler_list[0].on_grid, 1);
}

TEST(handler_binding, the_other_handlers_of_the_port_are_evaluated_too)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Record, Play");
    u.set("physical/gpio_0/handler_invert", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take();
    u.handler("Play");
    EXPECT_LINES(u.take_of("callback"), "callback Record source 0 state 1 context 0", "callback Play source 0 state 0 context 0");
}

TEST(handler_binding, an_input_that_is_active_already_switches_the_handler_on)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_0/handler", "Record");
    u.set("physical/gpio_0/handler_invert", "0").set_level(1, 1);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.handler("Record"), 0);
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(handler_list[0].port_mask, 1u);
}

TEST(handler_binding, an_entry_with_an_empty_name_matches_nothing)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "").set("physical/gpio_0/handler_invert", "");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(port_handlers(0), "#-1");
    u.handler("Record");
    EXPECT_EQ(port_handlers(0), "#-1");
}

TEST(handler_binding, every_kind_of_input_is_bound)
{
    unit u;
    u.gpis(1).coughs(1).virtuals(1).buttons(1);
    for (const char *object : {"physical/gpio_0", "physical/gpio_1", "virtual/vgpio_0", "user_buttons/btn_1"}) {
        u.set(object + std::string("/type"), 1).set(object + std::string("/handler"), "Record");
        u.set(object + std::string("/handler_invert"), "1");
    }
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    ASSERT_EQ(u.handler("Record"), 0);
    EXPECT_EQ(handler_list[0].port_mask, 0xFu);
    EXPECT_LINES(u.take_of("callback"), "callback Record source 0 state 1 context 0",
        "callback Record source 1 state 1 context 1",
                 "callback Record source 2 state 1 context 0", "callback Record source 3 state 1 context 0");
    EXPECT_LINES(told(u), "7 0", "7 0", "8 0", "9 0", "13 0 Record");
}

// ---- Saved connections come back: the listeners of a trigger ----

TEST(trigger_binding, outputs_then_relays_then_handlers_are_bound_and_driven)
{
    unit u;
    u.gpis(1).relays(1).virtuals(1);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "On Air").set("physical/gpio_0/invert_trigger", "0");
    u.set("virtual/vgpio_0/type", 2).set("virtual/vgpio_0/trigger", "Door, On Air").set("virtual/vgpio_0/invert_trigger", "0, 1");
    u.set("relay/relay_0/triggers", "On Air").set("relay/relay_0/trigger_invert", "1");
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "On Air").set("handler_info/Lamp/trigger_inverts", "1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take(), u.forget_sent();
    ASSERT_EQ(u.trigger("On Air"), 7);
    EXPECT_LINES(u.take(), "log 2 register_trigger: Registered trigger 'On Air' (id = 7)", "ipc snmp send 12 (68 bytes)",
        "pin 101 write 0",
                 "ipc snmp send 7 (696 bytes)", "ipc snmp send 8 (696 bytes)", "pin 201 write 1", "ipc snmp send 11 (416 bytes)",
                 "callback Lamp source 0 state 1 context 0");
    EXPECT_LINES(told(u), "12 7 On Air", "7 0", "8 0", "11 0");
    EXPECT_EQ(port_list(0), "On Air#7");
    EXPECT_EQ(port_list(1), "Door#-1 !On Air#7");
    EXPECT_EQ(relay_list(0), "!On Air#7");
    EXPECT_EQ(handler_triggers(0), "!On Air#7");
    EXPECT_EQ(zel::gpios[0].state, 0);
    EXPECT_EQ(zel::gpios[1].state, 1);
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(trigger_list[7].on_grid, 1);
}

TEST(trigger_binding, is_published_to_the_tree)
{
    unit u;
    u.gpis(1).relays(1).virtuals(1).ember();
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "On Air").set("physical/gpio_0/invert_trigger", "1");
    u.set("relay/relay_0/triggers", "On Air").set("relay/relay_0/trigger_invert", "1");
    ASSERT_EQ(u.start(), 0);
    u.take();
    ASSERT_EQ(u.trigger("On Air"), 7);
    EXPECT_LINES(u.take(), "log 2 register_trigger: Registered trigger 'On Air' (id = 7)",
        "ember add string gpio/triggers/t-7 = On Air r",
                 "ipc snmp send 12 (68 bytes)", "pin 101 write 1", "ember set gpio/physical/gpio 1/type 2 (8 bytes)",
                 "ember set gpio/physical/gpio 1/input functions \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 1/output triggers \"!On Air\" (8 bytes)",
                 "ember set gpio/physical/gpio 1/active triggers \"!On Air\" (8 bytes)",
                 "ember set gpio/physical/gpio 1/input mode 0 (8 bytes)",
                 "ember set gpio/physical/gpio 1/status 1 (4 bytes)", "ipc snmp send 7 (696 bytes)", "pin 201 write 1",
                 "ember set gpio/physical/relay 1/output triggers \"On Air\" (7 bytes)",
                 "ember set gpio/physical/relay 1/status 1 (4 bytes)",
                 "ember set gpio/physical/relay 1/active triggers \"\" (1 bytes)", "ipc snmp send 11 (416 bytes)");
}

TEST(trigger_binding, every_entry_of_the_name_counts)
{
    unit u;
    u.gpis(1).relays(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "On Air, On Air");
    u.set("physical/gpio_0/invert_trigger", "0, 1").set("relay/relay_0/triggers", "On Air, On Air");
    u.set("relay/relay_0/trigger_invert", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    ASSERT_EQ(u.trigger("On Air"), 6);
    EXPECT_LINES(u.take_of("pin 101"), "pin 101 write 0", "pin 101 write 1");
    EXPECT_LINES(told(u), "12 6 On Air", "7 0", "7 0", "11 0", "11 0");
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(u.level(201), 1);
}

TEST(trigger_binding, an_inactive_trigger_does_not_switch_off_a_relay_that_another_keeps_on)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "Eth Link Down, On Air").set("relay/relay_0/trigger_invert", "1, 0");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.level(201), 1);
    u.take();
    u.trigger("On Air");
    EXPECT_LINES(u.take(), "log 2 register_trigger: Registered trigger 'On Air' (id = 5)", "ipc snmp send 12 (68 bytes)",
                 "ipc snmp send 11 (416 bytes)");
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    u.raise("Eth Link Down");
    EXPECT_EQ(u.level(201), 0);
    u.raise("On Air");
    EXPECT_EQ(u.level(201), 1);
}

TEST(trigger_binding, an_inactive_trigger_writes_a_relay_that_nothing_keeps_on)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "On Air").set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.trigger("On Air");
    EXPECT_LINES(u.take_of("pin"), "pin 201 write 0");
    EXPECT_EQ(zel::relays[0].active_trigs, 0);
}

TEST(trigger_binding, a_relay_whose_pin_did_not_open_is_bound_and_does_not_stop_the_process)
{
    unit u;
    u.relays(2).virtuals(1).ember().fail("pin 201 open");
    for (const char *relay : {"relay/relay_0", "relay/relay_1"})
        u.set(relay + std::string("/triggers"), "On Air").set(relay + std::string("/trigger_invert"), "1");
    (void)u.start();
    ASSERT_EQ(zel::relay_count, 2);
    ASSERT_EQ(zel::relays[0].pin, nullptr);
    u.take(), u.forget_sent();
    const int32_t id = u.trigger("On Air");
    EXPECT_EQ(relay_list(0), "!On Air#" + std::to_string(id));
    EXPECT_EQ(trigger_list[id].on_grid, 1);
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(u.level(202), 1);
    EXPECT_LINES(told(u), "12 " + std::to_string(id) + " On Air", "11 0", "11 1");
    u.raise("On Air");
    EXPECT_EQ(u.level(202), 0);
}

TEST(trigger_binding, ends_at_the_first_free_handler_slot)
{
    unit u;
    u.set("on_grid_handlers", "H0, H1, H2, H3, H4, H5");
    for (int i = 0; i < 6; ++i) {
        u.set("handler_info/H" + std::to_string(i) + "/triggers", "On Air");
        u.set("handler_info/H" + std::to_string(i) + "/trigger_inverts", "0");
    }
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 6; ++i)
        u.handler("H" + std::to_string(i));
    ASSERT_EQ(zel_gpio_deregister_handler("H3"), 0);
    u.take();
    ASSERT_EQ(u.trigger("On Air"), 5);
    EXPECT_LINES(u.take_of("callback"), "callback H0 source 0 state 0 context 0", "callback H1 source 1 state 0 context 0",
                 "callback H2 source 2 state 0 context 0");
    EXPECT_EQ(handler_triggers(2), "On Air#5");
    EXPECT_EQ(handler_triggers(4), "On Air#-1");
    EXPECT_EQ(handler_triggers(5), "On Air#-1");
    EXPECT_EQ(u.handler("New"), 3);
}

TEST(trigger_binding, inputs_and_disabled_ports_are_left_alone)
{
    unit u;
    u.gpis(2).set("physical/gpio_0/type", 1).set("physical/gpio_0/trigger", "On Air").set("physical/gpio_1/trigger", "On Air");
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    u.trigger("On Air");
    EXPECT_LINES(told(u), "12 7 On Air");
    EXPECT_LINES(u.take_of("pin"));
    EXPECT_EQ(trigger_list[7].on_grid, 0);
}

TEST(trigger_binding, a_gpi_output_that_udp_commands_drive_keeps_its_level)
{
    unit u;
    u.gpis(1).udp(true).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "On Air");
    u.set("physical/gpio_0/invert_trigger", "1");
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    u.trigger("On Air");
    EXPECT_LINES(u.take_of("pin"));
    EXPECT_EQ(zel::gpios[0].active_trigs, 1);
    EXPECT_EQ(zel::gpios[0].state, 0);
    EXPECT_LINES(told(u), "12 6 On Air", "7 0");
}

// ---- Registration from inside a callback ----

TEST(registration_in_a_callback, a_handler_called_while_it_is_registered_registers_another)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "First, Second");
    u.set("physical/gpio_0/handler_invert", "1, 1");
    ASSERT_EQ(u.start(), 0);
    bool done = false;
    int32_t second = -2;
    EXPECT_EQ(u.handler("First", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(done, true))
            second = u.handler("Second");
    }), 0);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(port_handlers(0), "!First#0 !Second#1");
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(handler_list[1].state, 1);
}

TEST(registration_in_a_callback, a_trigger_being_bound_lets_a_handler_register_another_trigger)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "Second, First").set("relay/relay_0/trigger_invert", "1, 1");
    u.set("on_grid_handlers", "Lamp, Horn");
    for (const char *handler : {"handler_info/Lamp", "handler_info/Horn"})
        u.set(handler + std::string("/triggers"), "First, Second").set(handler + std::string("/trigger_inverts"), "1, 1");
    ASSERT_EQ(u.start(), 0);
    bool done = false;
    u.handler("Lamp", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(done, true)) {
            EXPECT_EQ(u.trigger("Second"), 6);
        }
    });
    u.handler("Horn");
    EXPECT_EQ(u.trigger("First"), 5);
    EXPECT_EQ(handler_triggers(0), "!First#5 !Second#6");
    EXPECT_EQ(handler_triggers(1), "!First#5 !Second#6");
    EXPECT_EQ(handler_list[0].active_trigs, 2);
    EXPECT_EQ(handler_list[1].active_trigs, 2);
    EXPECT_EQ(zel::relays[0].active_trigs, 2);
}

TEST(registration_in_a_callback, a_revived_handler_raises_a_trigger_of_its_own_list)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, AC Power Off, DC Power Off");
    u.set("handler_info/Lamp/trigger_inverts", "0, 0, 0");
    ASSERT_EQ(u.start(), 0);
    bool done = false;
    u.handler("Lamp", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(done, true))
            u.raise("Eth Link Down");
    });
    EXPECT_EQ(handler_list[0].active_trigs, 1);
    EXPECT_EQ(handler_list[0].state, 1);
    u.clear("Eth Link Down");
    EXPECT_EQ(handler_list[0].active_trigs, 0);
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(registration_in_a_callback, a_handler_bound_to_a_trigger_raises_it)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "On Air").set("relay/relay_0/trigger_invert", "0");
    u.set("on_grid_handlers", "Lamp, Horn");
    for (const char *handler : {"handler_info/Lamp", "handler_info/Horn"})
        u.set(handler + std::string("/triggers"), "On Air").set(handler + std::string("/trigger_inverts"), "0");
    ASSERT_EQ(u.start(), 0);
    bool done = false;
    u.handler("Lamp", [&](int32_t, uint8_t, uintptr_t) {
        if (!std::exchange(done, true))
            u.raise("On Air");
    });
    u.handler("Horn");
    EXPECT_EQ(u.trigger("On Air"), 5);
    for (const int32_t id : {0, 1}) {
        EXPECT_EQ(handler_list[id].active_trigs, 1);
        EXPECT_EQ(handler_list[id].state, 1);
    }
    EXPECT_EQ(u.level(201), 1);
    u.clear("On Air");
    for (const int32_t id : {0, 1})
        EXPECT_EQ(handler_list[id].active_trigs, 0);
    EXPECT_EQ(u.level(201), 0);
}
