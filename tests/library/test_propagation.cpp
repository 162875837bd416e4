// How state moves through the grid: trigger events to outputs, relays and handlers, inputs to handlers, buttons, LEDs.
#include "grid_test.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/propagation.h"

using namespace grid_test;

namespace {

/// Ports 0 and 1, a virtual output (2), a button (3) with its LED (4), two relays and the handler Lamp listen to Eth Link Down
/// (0).
void describe(unit &u)
{
    u.gpis(2).relays(2).virtuals(1).buttons(1);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down").set("physical/gpio_0/invert_trigger", "0");
    u.set("virtual/vgpio_0/type", 2).set("virtual/vgpio_0/trigger", "Eth Link Down").set("virtual/vgpio_0/invert_trigger", "1");
    u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Eth Link Down");
    u.set("user_buttons/led_1/invert_trigger", "0");
    u.set("relay/relay_0/triggers", "AC Power Off").set("relay/relay_0/trigger_invert", "0");
    u.set("relay/relay_1/triggers", "Eth Link Down").set("relay/relay_1/trigger_invert", "1");
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down");
    u.set("handler_info/Lamp/trigger_inverts", "0");
}

void register_all(unit &u)
{
    u.handler("Lamp"), u.led_handler(0);
    u.take(), u.forget_sent();
}

}  // namespace

// ---- Trigger events ----

TEST(trigger_event, reaches_ports_then_relays_then_handlers)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    register_all(u);
    zel_gpio_notify_trigger_event(0, 1);
    EXPECT_LINES(u.take(), "log 2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has occurred", "pin 101 write 1",
                 "ipc snmp send 7 (696 bytes)", "ipc snmp send 8 (696 bytes)", "callback User LED 1 source 4 state 1 context 0",
                 "ipc snmp send 10 (696 bytes)", "pin 202 write 0", "ipc snmp send 11 (416 bytes)",
                 "callback Lamp source 0 state 1 context 0");
    EXPECT_LINES(told(u), "7 0", "8 0", "10 0", "11 1");
    u.forget_sent();
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(zel::gpios[2].state, 0);
    EXPECT_EQ(zel::gpios[4].state, 1);
    zel_gpio_notify_trigger_event(0, 0);
    EXPECT_LINES(u.take(), "log 2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has ended", "pin 101 write 0",
                 "ipc snmp send 7 (696 bytes)", "ipc snmp send 8 (696 bytes)", "callback User LED 1 source 4 state 0 context 0",
                 "ipc snmp send 10 (696 bytes)", "pin 202 write 1", "ipc snmp send 11 (416 bytes)",
                 "callback Lamp source 0 state 0 context 0");
    EXPECT_LINES(told(u), "7 0", "8 0", "10 0", "11 1");
    EXPECT_EQ(zel::gpios[2].state, 1);
}

TEST(trigger_event, is_published_to_the_tree)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    register_all(u);
    zel_gpio_notify_trigger_event(0, 1);
    EXPECT_LINES(fake::only(u.take(), {"ember", "ipc", "pin"}), "pin 101 write 1",
        "ember set gpio/physical/gpio 1/type 2 (8 bytes)",
                 "ember set gpio/physical/gpio 1/input functions \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 1/output triggers \"Eth Link Down\" (14 bytes)",
                 "ember set gpio/physical/gpio 1/active triggers \"Eth Link Down\" (14 bytes)",
                 "ember set gpio/physical/gpio 1/input mode 0 (8 bytes)", "ember set gpio/physical/gpio 1/status 1 (4 bytes)",
                 "ipc snmp send 7 (696 bytes)", "ember set gpio/virtual/vgpio 1/type 2 (8 bytes)",
                 "ember set gpio/virtual/vgpio 1/input functions \"\" (1 bytes)",
                 "ember set gpio/virtual/vgpio 1/output triggers \"!Eth Link Down\" (15 bytes)",
                 "ember set gpio/virtual/vgpio 1/active triggers \"!Eth Link Down\" (15 bytes)",
                 "ember set gpio/virtual/vgpio 1/status 0 (4 bytes)", "ipc snmp send 8 (696 bytes)",
                 "ember set gpio/user buttons/led 1/type 2 (8 bytes)",
                 "ember set gpio/user buttons/led 1/output triggers \"Eth Link Down\" (14 bytes)",
                 "ember set gpio/user buttons/led 1/active triggers \"Eth Link Down\" (14 bytes)",
                 "ember set gpio/user buttons/led 1/status 1 (4 bytes)", "ipc snmp send 10 (696 bytes)", "pin 202 write 0",
                 "ember set gpio/physical/relay 2/output triggers \"Eth Link Down\" (14 bytes)",
                 "ember set gpio/physical/relay 2/status 0 (4 bytes)",
                 "ember set gpio/physical/relay 2/active triggers \"Eth Link Down\" (14 bytes)", "ipc snmp send 11 (416 bytes)");
}

TEST(trigger_event, that_repeats_a_state_or_has_no_trigger_does_and_says_nothing)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    register_all(u);
    zel_gpio_notify_trigger_event(0, 0);
    for (const int32_t id : {-1, -2, 150, 199, 200, 201, INT32_MAX, INT32_MIN})
        for (const uint8_t state : {0, 1})
            zel_gpio_notify_trigger_event(id, state);
    EXPECT_LINES(u.take());
    zel_gpio_notify_trigger_event(0, 1);
    u.take();
    zel_gpio_notify_trigger_event(0, 1);
    EXPECT_LINES(u.take());
    for (const trigger_t &t : trigger_list)
        EXPECT_EQ(t.state, t.id == 0);
}

TEST(trigger_event, any_state_but_0_is_an_occurrence)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    register_all(u);
    zel_gpio_notify_trigger_event(0, 255);
    EXPECT_TRUE(u.logged("2 zel_gpio_notify_trigger_event: event 'Eth Link Down' has occurred"));
    EXPECT_EQ(u.level(101), 1);
    EXPECT_EQ(handler_list[0].state, 1);
    u.take();
    zel_gpio_notify_trigger_event(0, 2);
    EXPECT_LINES(fake::only(u.take(), {"pin", "callback"})) << "no change";
    zel_gpio_notify_trigger_event(0, 0);
    EXPECT_EQ(u.level(101), 0);
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(trigger_event, an_inverted_output_is_on_until_the_event_occurs)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down");
    u.set("physical/gpio_0/invert_trigger", "1");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.level(101), 1);
    u.raise("Eth Link Down");
    EXPECT_EQ(u.level(101), 0);
    u.clear("Eth Link Down");
    EXPECT_EQ(u.level(101), 1);
}

TEST(trigger_event, an_output_is_on_while_any_of_its_entries_is_active_and_written_each_time)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down, AC Power Off, Unknown");
    u.set("physical/gpio_0/invert_trigger", "0, 0, 1");
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.raise("Eth Link Down"), u.raise("AC Power Off"), u.clear("Eth Link Down"), u.clear("AC Power Off");
    EXPECT_LINES(u.take_of("pin"), "pin 101 write 1", "pin 101 write 1", "pin 101 write 1", "pin 101 write 0");
    EXPECT_EQ(zel::gpios[0].active_trigs, 0);
}

TEST(trigger_event, an_owner_that_lists_the_trigger_twice_is_told_twice)
{
    unit u;
    u.gpis(1).relays(1).set("physical/gpio_0/type", 2).set("on_grid_handlers", "Lamp");
    u.set("physical/gpio_0/trigger", "Eth Link Down, Eth Link Down").set("physical/gpio_0/invert_trigger", "0, 1");
    u.set("relay/relay_0/triggers", "Eth Link Down, Eth Link Down").set("relay/relay_0/trigger_invert", "0, 1");
    u.set("handler_info/Lamp/triggers", "Eth Link Down, Eth Link Down").set("handler_info/Lamp/trigger_inverts", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take(), u.forget_sent();
    u.raise("Eth Link Down");
    EXPECT_LINES(fake::only(u.take(), {"pin", "callback"}), "pin 101 write 1", "pin 101 write 1",
        "callback Lamp source 0 state 0 context 0",
                 "callback Lamp source 0 state 1 context 0");
    EXPECT_LINES(told(u), "7 0", "7 0", "11 0", "11 0");
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(u.level(201), 1);
    EXPECT_EQ(handler_list[0].active_trigs, 1);
}

TEST(trigger_event, an_output_with_an_empty_list_keeps_its_level)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 2);
    ASSERT_EQ(u.start(), 0);
    zel::gpios[0].state = 1;
    zel::gpios[0].active_trigs = 7;
    u.take();
    zel::gpio_trigger_event(&zel::gpios[0]);
    EXPECT_LINES(u.take());
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(zel::gpios[0].active_trigs, 7);
}

TEST(trigger_event, a_gpi_output_that_udp_commands_drive_is_published_only)
{
    unit u;
    u.gpis(1).virtuals(1).ember().udp(true);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down").set("physical/gpio_0/invert_trigger", "0");
    u.set("virtual/vgpio_0/type", 2).set("virtual/vgpio_0/trigger", "Eth Link Down").set("virtual/vgpio_0/invert_trigger", "0");
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    u.raise("Eth Link Down");
    EXPECT_EQ(u.journal_of("pin"), lines{});
    EXPECT_EQ(zel::gpios[0].state, 0) << "its level is theirs";
    EXPECT_EQ(zel::gpios[0].active_trigs, 1);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/active triggers"), "Eth Link Down");
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/status"), "1");
    EXPECT_EQ(zel::gpios[1].state, 1) << "a virtual output is no GPI port";
    EXPECT_LINES(told(u), "7 0", "8 0");
}

TEST(trigger_event, an_output_whose_pin_did_not_open_is_no_obstacle)
{
    unit u;
    u.gpis(2).virtuals(1).ember().fail("pin 101 open");
    for (const char *object : {"physical/gpio_0", "physical/gpio_1"}) {
        u.set(object + std::string("/type"), 2).set(object + std::string("/trigger"), "Eth Link Down");
        u.set(object + std::string("/invert_trigger"), "0");
    }
    (void)u.start();
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(u.level(102), 1);
}

// ---- Relays ----

TEST(relay, goes_on_with_its_first_trigger_and_off_after_its_last)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "Eth Link Down, AC Power Off").set("relay/relay_0/trigger_invert", "0, 0");
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.raise("Eth Link Down");
    EXPECT_LINES(u.take_of("pin"), "pin 201 write 1");
    u.raise("AC Power Off"), u.clear("Eth Link Down");
    EXPECT_LINES(u.take_of("pin"));
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    u.clear("AC Power Off");
    EXPECT_LINES(u.take_of("pin"), "pin 201 write 0");
    EXPECT_EQ(zel::relays[0].active_trigs, 0);
}

TEST(relay, without_a_pin_hears_of_no_event_and_stops_nothing)
{
    unit u;
    u.relays(2).virtuals(1).ember().fail("pin 201 open");
    for (const char *relay : {"relay/relay_0", "relay/relay_1"})
        u.set(relay + std::string("/triggers"), "Eth Link Down").set(relay + std::string("/trigger_invert"), "0");
    (void)u.start();
    u.take(), u.forget_sent();
    u.raise("Eth Link Down"), u.clear("Eth Link Down");
    EXPECT_LINES(u.take_of("pin"), "pin 202 write 1", "pin 202 write 0");
    EXPECT_LINES(told(u), "11 1", "11 1");
}

TEST(relay, whose_pin_refuses_a_write_stays_counted)
{
    unit u;
    u.relays(1).set("relay/relay_0/triggers", "Eth Link Down").set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.fail("pin 201 write", 1);
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    u.clear("Eth Link Down"), u.raise("Eth Link Down");
    EXPECT_EQ(u.level(201), 1);
}

// ---- Handlers ----

TEST(handler, is_called_on_every_evaluation_changed_or_not)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, AC Power Off");
    u.set("handler_info/Lamp/trigger_inverts", "0, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take();
    u.raise("Eth Link Down"), u.raise("AC Power Off"), u.clear("Eth Link Down"), u.clear("AC Power Off");
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 0", "callback Lamp source 0 state 1 context 0",
                 "callback Lamp source 0 state 1 context 0", "callback Lamp source 0 state 0 context 0");
}

TEST(handler, gets_its_own_argument_and_id)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    struct seen {
        int calls = 0;
        int32_t source = 0;
    } first, second;
    const auto count = [](void *arg, int32_t source, uint8_t, uintptr_t) {
        auto *s = static_cast<seen *>(arg);
        ++s->calls, s->source = source;
        return -1;   // ignored
    };
    ASSERT_EQ(zel_gpio_register_handler("First", count, &first), 0);
    ASSERT_EQ(zel_gpio_register_handler("Second", count, &second), 1);
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 1, 0, 0), 0);
    u.raise("Eth Link Down");
    EXPECT_EQ(first.calls, 0);
    EXPECT_EQ(second.calls, 2);
    EXPECT_EQ(second.source, 1);
}

TEST(handler, behind_a_free_slot_hears_of_no_event)
{
    unit u;
    u.set("on_grid_handlers", "A, B, C");
    for (const char *name : {"A", "B", "C"}) {
        u.set("handler_info/" + std::string(name) + "/triggers", "Eth Link Down");
        u.set("handler_info/" + std::string(name) + "/trigger_inverts", "0");
    }
    ASSERT_EQ(u.start(), 0);
    u.handler("A"), u.handler("B"), u.handler("C");
    ASSERT_EQ(zel_gpio_deregister_handler("B"), 0);
    u.take();
    u.raise("Eth Link Down");
    EXPECT_LINES(u.take_of("callback"), "callback A source 0 state 1 context 0");
    EXPECT_EQ(handler_list[2].state, 0);
    ASSERT_EQ(u.handler("D"), 1);
    u.take();
    u.clear("Eth Link Down"), u.raise("Eth Link Down"), u.clear("Eth Link Down");
    EXPECT_EQ(handler_list[2].active_trigs, 0) << "what it missed leaves nothing behind";
    EXPECT_EQ(handler_list[2].state, 0);
    EXPECT_LINES(u.take_of("callback C"), "callback C source 2 state 0 context 0", "callback C source 2 state 1 context 0",
                 "callback C source 2 state 0 context 0");
}

TEST(handler, that_missed_the_end_of_an_event_is_not_kept_on_by_it)
{
    unit u;
    u.set("on_grid_handlers", "A, B");
    for (const char *name : {"A", "B"}) {
        u.set("handler_info/" + std::string(name) + "/triggers", "Eth Link Down, AC Power Off");
        u.set("handler_info/" + std::string(name) + "/trigger_inverts", "0, 0");
    }
    ASSERT_EQ(u.start(), 0);
    u.handler("A"), u.handler("B");
    u.raise("Eth Link Down");
    ASSERT_EQ(zel_gpio_deregister_handler("A"), 0);
    u.clear("Eth Link Down");
    ASSERT_EQ(u.handler("C"), 0);
    u.raise("AC Power Off"), u.clear("AC Power Off");
    EXPECT_EQ(handler_list[1].active_trigs, 0);
    EXPECT_EQ(handler_list[1].state, 0);
}

TEST(handler, is_on_while_an_input_or_a_trigger_keeps_it_on)
{
    unit u;
    u.gpis(2);
    for (const char *object : {"physical/gpio_0", "physical/gpio_1"}) {
        u.set(object + std::string("/type"), 1).set(object + std::string("/input_mode"), 1);
        u.set(object + std::string("/handler"), "Lamp").set(object + std::string("/handler_invert"), "0");
    }
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 0, 0, 0), 0);
    u.take();
    u.edge(1, 1), u.edge(2, 1), u.raise("Eth Link Down"), u.edge(1, 0), u.clear("Eth Link Down"), u.edge(2, 0);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 1", "callback Lamp source 1 state 1 context 1",
                 "callback Lamp source 0 state 1 context 0", "callback Lamp source 0 state 1 context 1",
                 "callback Lamp source 0 state 1 context 0", "callback Lamp source 1 state 0 context 1");
}

TEST(handler, of_an_inverting_entry_is_on_while_the_input_is_off)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_0/handler", "Lamp, Horn");
    u.set("physical/gpio_0/handler_invert", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.handler("Horn");
    u.take();
    u.edge(1, 1);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 0 context 1", "callback Horn source 0 state 1 context 1");
    u.edge(1, 0);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 1", "callback Horn source 0 state 0 context 1");
}

TEST(handler, of_ports_from_index_64_on_is_called_but_not_asserted)
{
    unit u;
    u.virtuals(70).buttons(4);
    for (const int pair : {1, 2, 3, 4}) {
        const std::string button = "user_buttons/btn_" + std::to_string(pair);
        u.set(button + "/type", 1).set(button + "/handler", "Lamp, Horn").set(button + "/handler_invert", "0, 1");
    }
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.handler("Horn");
    EXPECT_EQ(handler_list[1].port_mask, 0u);
    u.take();
    for (const int32_t button : {0, 1, 2, 3})
        zel_gpio_notify_user_button_event(button);
    EXPECT_EQ(zel::gpios[70].state, 1);
    EXPECT_LINES(u.take_of("callback Lamp"), "callback Lamp source 70 state 0 context 0",
        "callback Lamp source 72 state 0 context 0",
                 "callback Lamp source 74 state 0 context 0", "callback Lamp source 76 state 0 context 0");
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(handler_list[0].state, 0);
    EXPECT_EQ(handler_list[1].state, 0);
    EXPECT_EQ(zel::remove_gpio_handler_connection(70, 0), 0);
    zel::clear_port_handler_state(72);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST(handler, of_the_last_port_with_a_bit_is_asserted)
{
    unit u;
    u.virtuals(63).buttons(1).set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler", "Lamp");
    u.set("user_buttons/btn_1/handler_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(handler_list[0].port_mask, uint64_t{1} << 63);
    EXPECT_EQ(handler_list[0].state, 1);
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(handler_list[0].state, 0);
}

// ---- An input that stops being one ----

TEST(released_input, clears_its_bit_and_calls_each_of_its_handlers)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1);
    u.set("physical/gpio_0/handler", "Lamp, Horn, Gone");
    u.set("physical/gpio_0/handler_invert", "1, 0, 1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.handler("Horn");
    u.take();
    zel::clear_port_handler_state(0);
    EXPECT_LINES(u.take(), "callback Lamp source 0 state 0 context 1", "callback Horn source 0 state 0 context 1");
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST(released_input, leaves_a_handler_without_a_callback_as_it_is)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Lamp").set("physical/gpio_0/handler_invert", "1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    handler_list[0].func = nullptr;
    zel::clear_port_handler_state(0);
    EXPECT_EQ(handler_list[0].port_mask, 1u);
    EXPECT_EQ(handler_list[0].state, 1);
    zel::gpios[0].state = 1;
    zel::set_port_handler_state(0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(handler_list[0].state, 0);
}

// ---- Programming errors ----

TEST(propagation_death, records_and_indexes_must_exist)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    EXPECT_DEATH(zel::gpio_trigger_event(nullptr), "port != NULL");
    EXPECT_DEATH(zel::relay_trigger_event(nullptr, 1, 1), "relay != NULL");
    EXPECT_DEATH(zel::handler_trigger_event(nullptr, 1), "handler != NULL");
    EXPECT_DEATH(zel::set_port_handler_state(5), "index < total_gpio_count");
    EXPECT_DEATH(zel::set_port_handler_state(-1), "index < total_gpio_count");
    EXPECT_DEATH(zel::clear_port_handler_state(5), "index < total_gpio_count");
    zel::relay_t without_pin{};
    EXPECT_DEATH(zel::relay_trigger_event(&without_pin, 1, 1), "relay->pin != NULL");
}
