// GPI ports driven by UDP commands, and the host's queries of pins, directions, buttons and LEDs.
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

/// 0 input with a handler "Record", 1 output, 2 disabled, 3 cough.
void ports(unit &unit)
{
    unit.gpis(3).coughs(1);
    unit.set_json("physical/gpio_0", R"({"type": 1, "input_mode": 1, "handler": "Record", "handler_invert": "0"})");
    unit.set_json("physical/gpio_1", R"({"type": 2, "trigger": "Eth Link Down", "invert_trigger": "0"})");
    unit.set_json("physical/gpio_3", R"({"type": 1, "handler": "Record", "handler_invert": "0"})");
}

uint8_t udp_value(int32_t index)
{
    uint8_t value = 0xEE;
    return zel_gpio_get_udp_pin(index, &value) == 0 ? value : 0xFF;
}

}  // namespace

TEST(udp_pin, of_an_input_is_stored_and_applied_by_the_next_turn_of_the_loop)
{
    unit unit;
    ports(unit);
    unit.udp(true);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    EXPECT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    EXPECT_EQ(udp_value(0), 1);
    EXPECT_EQ(unit.take(), lines{});
    EXPECT_EQ(zel::gpios[0].state, 0);
    unit.loop();
    const lines applied{"callback Record source 0 state 1 context 1", "ipc snmp send 7 (696 bytes)",
                        "log 2 zel_gpio_notify_trigger_event: event 'GPI 1' has occurred"};
    // An output that UDP commands drive does not follow the event.
    EXPECT_EQ(fake::only(unit.take(), {"callback", "log", "ipc snmp send", "pin 102"}), applied);
    EXPECT_EQ(zel::gpios[0].state, 1);
}

TEST(udp_pin, given_twice_the_same_value_fires_once)
{
    unit unit;
    ports(unit);
    unit.udp(true);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    EXPECT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    unit.loop();
    unit.take();
    EXPECT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    unit.loop();
    EXPECT_EQ(fake::only(unit.take(), {"callback", "log", "ipc snmp send"}), lines{});
    EXPECT_EQ(zel_gpio_set_udp_pin(0, 0), 1);
    unit.loop();
    EXPECT_EQ(
        fake::only(unit.take(), {"callback", "log"}),
        (lines{"callback Record source 0 state 0 context 1", "log 2 zel_gpio_notify_trigger_event: event 'GPI 1' has ended"}));
}

TEST(udp_pin, makes_interrupts_of_gpi_inputs_count_for_nothing_but_not_those_of_cough_ports)
{
    unit unit;
    ports(unit);
    unit.udp(true);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    unit.set_level(1, 1), unit.set_level(4, 1);
    unit.loop({1, 4});
    EXPECT_EQ(unit.count_of("pin 1 read"), 0);
    EXPECT_EQ(unit.take_of("callback"), lines{"callback Record source 3 state 1 context 1"});
    EXPECT_EQ(zel::gpios[0].state, 0);
}

TEST(udp_pin, is_asked_for_at_every_port_in_every_turn)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    const int before = unit.udp_queries();
    unit.loop();
    EXPECT_EQ(unit.udp_queries() - before, 4);
    unit.loop();
    EXPECT_EQ(unit.udp_queries() - before, 8);
}

TEST(udp_pin, switched_on_while_the_unit_runs_applies_the_stored_value)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    unit.loop();
    EXPECT_EQ(zel::gpios[0].state, 0);   // off: the value is only stored
    unit.udp(true);
    unit.loop();
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(trigger_list[5].state, 1);
}

TEST(udp_pin, of_an_output_is_driven_at_once_without_telling_anybody)
{
    unit unit;
    ports(unit);
    unit.udp(true);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_set_udp_pin(1, 1), 1);
    EXPECT_EQ(unit.take(), lines{"pin 102 write 1"});
    EXPECT_EQ(zel::gpios[1].state, 1);
    EXPECT_EQ(udp_value(1), 1);
    EXPECT_EQ(zel_gpio_set_udp_pin(1, 0), 1);
    EXPECT_EQ(unit.take(), lines{"pin 102 write 0"});
    EXPECT_EQ(zel::gpios[1].state, 0);
}

TEST(udp_pin, of_an_output_whose_pin_is_not_open_is_stored)
{
    unit unit;
    ports(unit);
    unit.ember().virtuals(1).udp(true).fail("pin 102 open");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel_gpio_set_udp_pin(1, 1), 1);
    EXPECT_EQ(udp_value(1), 1);
    EXPECT_EQ(zel::gpios[1].state, 1);
}

TEST(udp_pin, of_a_disabled_port_is_not_stored)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel_gpio_set_udp_pin(2, 1), 0);
    EXPECT_EQ(udp_value(2), 0);
}

TEST(udp_pin, exists_for_gpi_ports_only)
{
    unit unit;
    ports(unit);
    unit.virtuals(1);
    ASSERT_EQ(unit.start(), 0);
    uint8_t value = 0x55;
    for (const int32_t index : {-1, 3, 4, 5, 20, 1000, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(zel_gpio_set_udp_pin(index, 1), -1) << index;
        EXPECT_EQ(zel_gpio_get_udp_pin(index, &value), -1) << index;
    }
    EXPECT_EQ(value, 0x55);
}

TEST(udp_pin, is_0_after_start_up)
{
    unit unit;
    ports(unit);
    unit.udp(true);
    ASSERT_EQ(unit.start(), 0);
    for (int32_t index = 0; index < 3; ++index)
        EXPECT_EQ(udp_value(index), 0);
}

TEST(udp_pin, works_without_a_network_configuration_as_if_commands_were_off)
{
    unit unit;
    ports(unit);
    unit.without_udp_config();
    ASSERT_EQ(unit.start(), 0);
    unit.edge(1, 1);
    EXPECT_EQ(zel::gpios[0].state, 1);
}

TEST(pin_direction, is_the_type_of_a_gpi_port)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    const uint32_t types[] = {1, 2, 0};
    for (int32_t index = 0; index < 3; ++index) {
        uint32_t direction = 77;
        EXPECT_EQ(zel_gpio_get_pin_direction(index, &direction), 0);
        EXPECT_EQ(direction, types[index]);
    }
    uint32_t direction = 77;
    for (const int32_t index : {-1, 3, 4, INT32_MAX, INT32_MIN})
        EXPECT_EQ(zel_gpio_get_pin_direction(index, &direction), -1);
    EXPECT_EQ(direction, 77U);
}

TEST(pin_direction, that_is_the_present_one_changes_nothing)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    const uint32_t types[] = {1, 2, 0};
    for (int32_t index = 0; index < 3; ++index)
        EXPECT_EQ(zel_gpio_set_pin_direction(index, types[index]), 0);
    EXPECT_EQ(unit.take(), lines{});
}

TEST(pin_direction, of_anything_else_is_refused)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    for (const int32_t index : {-1, 3, 4, INT32_MAX, INT32_MIN})
        for (const uint32_t direction : {0U, 1U, 2U})
            EXPECT_EQ(zel_gpio_set_pin_direction(index, direction), -1);
    for (const uint32_t direction : {3U, 4U, 0xFFFFFFFFU})
        EXPECT_EQ(zel_gpio_set_pin_direction(0, direction), -1);
    EXPECT_EQ(unit.take(), lines{});
    EXPECT_EQ(zel::gpios[0].type, 1U);
}

TEST(pin_direction, input_has_no_handler_and_keeps_the_stored_mode)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_set_pin_direction(2, 1), 1);
    EXPECT_EQ(unit.take_of("pin"), (lines{"pin 3 open 0", "pin 3 active_low 0", "pin 3 edge 2"}));
    EXPECT_EQ(zel::gpios[2].type, 1U);
    EXPECT_EQ(zel::gpios[2].num_handlers, 0);
    EXPECT_STREQ(zel::gpios[2].trigger_names[0], "GPI 3");
    EXPECT_EQ(unit.json("gpio/physical/gpio_2/type"), "1");
}

TEST(pin_direction, output_of_an_input_listens_to_the_ports_first_trigger)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_set_pin_direction(0, 2), 1);
    EXPECT_EQ(zel::gpios[0].type, 2U);
    EXPECT_EQ(fake::only(unit.journal(), {"pin 1", "pin 101 open", "pin 101 active_low"}),
              (lines{"pin 1 close", "pin 101 open 2", "pin 101 active_low 0"}));
    ASSERT_EQ(zel::gpios[0].num_trigs, 1);
    EXPECT_STREQ(zel::gpios[0].trigger_names[0], "GPI 1");
    EXPECT_EQ(unit.json("gpio/physical/gpio_0/trigger"), "\"GPI 1\"");
}

TEST(pin_direction, output_of_a_disabled_port_has_no_trigger)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_set_pin_direction(2, 2), 1);
    EXPECT_EQ(zel::gpios[2].num_trigs, 0);
    EXPECT_EQ(unit.take_of("pin"), (lines{"pin 103 open 2", "pin 103 active_low 0", "pin 103 write 0"}));
}

TEST(pin_direction, disabled_closes_the_pin)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_set_pin_direction(1, 0), 1);
    EXPECT_EQ(unit.take_of("pin"), (lines{"pin 102 write 0", "pin 102 close"}));
    EXPECT_EQ(unit.json("gpio/physical/gpio_1/type"), "0");
    EXPECT_EQ(unit.json("gpio/physical/gpio_1/trigger"), "absent");
}

TEST(pin_direction, of_a_pin_that_does_not_open_is_still_reported_as_a_change)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.fail("pin 3 open");
    EXPECT_EQ(zel_gpio_set_pin_direction(2, 1), 1);
    EXPECT_EQ(zel::gpios[2].type, 1U);
    EXPECT_EQ(zel::gpios[2].pin, nullptr);
    unit.loop();
}

TEST(an_input, without_udp_commands_ignores_stored_values)
{
    unit unit;
    ports(unit);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    unit.take();
    unit.loop();
    EXPECT_EQ(fake::only(unit.take(), {"callback", "log", "ipc snmp send"}), lines{});
}

TEST(user_button_led, is_enabled_as_an_output_and_has_the_state_of_its_handler)
{
    unit unit;
    unit.gpis(1).virtuals(1).buttons(3);
    unit.set_json("user_buttons/led_1", R"({"type": 2, "trigger": "Eth Link Down", "invert_trigger": "0"})")
        .set("user_buttons/led_2/type", 1);
    ASSERT_EQ(unit.start(), 0);
    unit.led_handler(0);
    EXPECT_EQ(zel_gpio_get_user_button_led_enabled(0), 1);
    EXPECT_EQ(zel_gpio_get_user_button_led_enabled(1), 0);
    EXPECT_EQ(zel_gpio_get_user_button_led_enabled(2), 0);
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 0);
    unit.raise("Eth Link Down");
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 1);
    EXPECT_EQ(zel_gpio_get_user_button_state(1), 0);
    unit.clear("Eth Link Down");
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 0);
}

TEST(user_button_led, number_outside_the_buttons_is_refused_with_a_line)
{
    unit unit;
    unit.buttons(2);
    ASSERT_EQ(unit.start(), 0);
    for (const int32_t number : {-1, 3, 1000, INT32_MAX, INT32_MIN}) {
        unit.take();
        const std::string text = "Invalid LED id (" + std::to_string(number) + ") user_button_count = 2";
        EXPECT_EQ(zel_gpio_get_user_button_led_enabled(number), 0);
        EXPECT_EQ(unit.take(), lines{"log 0 zel_gpio_get_user_button_led_enabled: " + text});
        EXPECT_EQ(zel_gpio_get_user_button_state(number), 0);
        EXPECT_EQ(unit.take(), lines{"log 0 zel_gpio_get_user_button_state: " + text});
    }
}

TEST(user_button_led, number_equal_to_the_count_points_at_no_led)
{
    unit unit;
    unit.gpis(2).virtuals(3).buttons(2);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_get_user_button_led_enabled(2), 0);
    EXPECT_EQ(unit.take(), lines{"log 0 zel_gpio_get_user_button_led_enabled: Index 10 does not point to a user button LED"});
    EXPECT_EQ(zel_gpio_get_user_button_state(2), 0);
    EXPECT_EQ(unit.take(), lines{"log 0 zel_gpio_get_user_button_state: Index 10 does not point to a user button LED"});
}

TEST(user_button_led, number_0_of_a_unit_without_buttons_points_at_no_led)
{
    unit unit;
    unit.gpis(1);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel_gpio_get_user_button_state(0), 0);
    ASSERT_EQ(unit.journal().size(), 1U);
    EXPECT_EQ(unit.take().front().rfind("log 0 zel_gpio_get_user_button_state: Index ", 0), 0U);
}
