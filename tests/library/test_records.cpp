// The tables as start-up leaves them: their layout, their first values, the built-in triggers, and the counts of the file.
#include <algorithm>
#include <cstddef>

#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

constexpr const char *built_in[] = {"Eth Link Down", "AoIP Link Down", "AC Power Off", "DC Power Off", "PTP Sync Lost"};

}  // namespace

TEST(tables, have_200_slots_each)
{
    EXPECT_EQ(sizeof handler_list / sizeof handler_list[0], 200U);
    EXPECT_EQ(sizeof trigger_list / sizeof trigger_list[0], 200U);
    if (sizeof(void *) == 4) {
        EXPECT_EQ(sizeof(handler_t), 2048U);
        EXPECT_EQ(sizeof handler_list, 409600U);
        EXPECT_EQ(sizeof(trigger_t), 16U);
        EXPECT_EQ(sizeof trigger_list, 3200U);
    }
}

TEST(tables, keep_the_order_of_their_fields)
{
    const std::vector<size_t> handler{offsetof(handler_t, id), offsetof(handler_t, name), offsetof(handler_t, json_obj),
        offsetof(handler_t, func), offsetof(handler_t, arg), offsetof(handler_t, state), offsetof(handler_t, port_mask),
        offsetof(handler_t, ember_param), offsetof(handler_t, led_handler), offsetof(handler_t, on_grid),
        offsetof(handler_t, trigger_names), offsetof(handler_t, trig_ids), offsetof(handler_t, trig_inv),
        offsetof(handler_t, allow_invert), offsetof(handler_t, num_trigs), offsetof(handler_t, active_trigs)};
    const std::vector<size_t> trigger{offsetof(trigger_t, id), offsetof(trigger_t, name), offsetof(trigger_t, state),
        offsetof(trigger_t, port_trigger), offsetof(trigger_t, on_grid), offsetof(trigger_t, ember_param)};
    using port_t = zel::gpio_port_t;
    const std::vector<size_t> port{offsetof(port_t, index),
                                   offsetof(port_t, gpio_class),
                                   offsetof(port_t, pin),
                                   offsetof(port_t, type),
                                   offsetof(port_t, input_mode),
                                   offsetof(port_t, handler_names),
                                   offsetof(port_t, handlers),
                                   offsetof(port_t, handler_inv),
                                   offsetof(port_t, num_handlers),
                                   offsetof(port_t, state),
                                   offsetof(port_t, ignore_irq),
                                   offsetof(port_t, trigger_names),
                                   offsetof(port_t, trig_ids),
                                   offsetof(port_t, trig_inv),
                                   offsetof(port_t, num_trigs),
                                   offsetof(port_t, active_trigs),
                                   offsetof(port_t, vgpo_src),
                                   offsetof(port_t, vgpo_src_valid),
                                   offsetof(port_t, ember_node),
                                   offsetof(port_t, ember_type),
                                   offsetof(port_t, ember_handlers),
                                   offsetof(port_t, ember_in_mode),
                                   offsetof(port_t, ember_vgpo_src),
                                   offsetof(port_t, ember_triggers),
                                   offsetof(port_t, ember_active_triggers),
                                   offsetof(port_t, ember_state),
                                   offsetof(port_t, vgpi_session),
                                   offsetof(port_t, vgpi_provider_addr)};
    using relay_t = zel::relay_t;   // the inverts stand before the ids here
    const std::vector<size_t> relay{offsetof(relay_t, index), offsetof(relay_t, pin), offsetof(relay_t, trigger_names),
        offsetof(relay_t, trig_inv), offsetof(relay_t, trig_ids), offsetof(relay_t, num_trigs), offsetof(relay_t, active_trigs),
        offsetof(relay_t, on_grid)};
    for (const auto &record : {handler, trigger, port, relay}) {
        EXPECT_EQ(record.front(), 0U);
        EXPECT_TRUE(std::is_sorted(record.begin(), record.end(), [](size_t a, size_t b) { return a <= b; }));
    }
}

TEST(port_table, holds_physical_ports_then_virtual_ports_then_buttons_and_leds_in_pairs)
{
    unit unit;
    unit.gpis(2).coughs(1).virtuals(2).buttons(2);
    ASSERT_EQ(unit.start(), 0);
    const uint32_t classes[] = {0, 0, 0, 1, 1, 2, 3, 2, 3};
    ASSERT_EQ(zel::total_gpio_count, 9);
    for (int32_t i = 0; i < 9; ++i) {
        EXPECT_EQ(zel::gpios[i].index, i);
        EXPECT_EQ(zel::gpios[i].gpio_class, classes[i]) << i;
    }
    EXPECT_EQ(zel::gpi_count, 2);
    EXPECT_EQ(zel::cough_count, 1);
    EXPECT_EQ(zel::phys_gpio_count, 3);
    EXPECT_EQ(zel::virtual_gpio_count, 2);
    EXPECT_EQ(zel::first_user_button, 5);
    EXPECT_EQ(zel::user_button_count, 2);
}

TEST(port_table, has_no_pairs_on_a_unit_without_buttons)
{
    unit unit;
    unit.gpis(3).virtuals(2);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::total_gpio_count, 5);
    EXPECT_TRUE(unit.logged("2 zel_gpio_init: Calling calloc(5, " + std::to_string(sizeof(zel::gpio_port_t)) + ")"));
    EXPECT_TRUE(unit.logged("2 init_user_buttons: No user buttons"));
}

TEST(port_record, of_a_disabled_port_starts_empty)
{
    unit unit;
    unit.gpis(1).virtuals(1);
    ASSERT_EQ(unit.start(), 0);
    for (int32_t index = 0; index < 2; ++index) {
        const zel::gpio_port_t &port = zel::gpios[index];
        EXPECT_EQ(port.pin, nullptr);
        EXPECT_EQ(port.type, 0U);
        EXPECT_EQ(port.state, 0);
        EXPECT_EQ(port.ignore_irq, 0);
        EXPECT_EQ(port.num_handlers, 0);
        EXPECT_EQ(port.num_trigs, 0);
        EXPECT_EQ(port.active_trigs, 0);
        EXPECT_EQ(port.vgpo_src, nullptr);
        EXPECT_EQ(port.vgpo_src_valid, 0);
        EXPECT_EQ(port.vgpi_session, nullptr);
        for (int i = 0; i < 200; ++i) {
            ASSERT_EQ(port.trigger_names[i], nullptr);
            ASSERT_EQ(port.trig_ids[i], -1);
            ASSERT_EQ(port.trig_inv[i], 0);
            ASSERT_EQ(port.handler_names[i], nullptr);
            ASSERT_EQ(port.handlers[i], nullptr);
            ASSERT_EQ(port.handler_inv[i], 0);
        }
    }
}

TEST(relay_record, without_settings_is_off_the_grid_with_an_open_pin)
{
    unit unit;
    unit.relays(2, 300);
    ASSERT_EQ(unit.start(), 0);
    ASSERT_EQ(zel::relay_count, 2);
    for (int32_t r = 0; r < 2; ++r) {
        EXPECT_EQ(zel::relays[r].index, r);
        EXPECT_NE(zel::relays[r].pin, nullptr);
        EXPECT_EQ(zel::relays[r].num_trigs, 0);
        EXPECT_EQ(zel::relays[r].active_trigs, 0);
        EXPECT_EQ(zel::relays[r].on_grid, 0);
    }
    EXPECT_EQ(unit.take_of("pin"), (lines{"pin 300 open 2", "pin 301 open 2"}));
}

TEST(handler_table, starts_with_200_free_slots)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    for (const handler_t &h : handler_list) {
        ASSERT_EQ(h.id, -1);
        ASSERT_EQ(h.name, nullptr);
        ASSERT_EQ(h.json_obj, nullptr);
        ASSERT_TRUE(h.func == nullptr);
        ASSERT_EQ(h.arg, nullptr);
        ASSERT_EQ(h.state, 0);
        ASSERT_EQ(h.port_mask, 0U);
        ASSERT_EQ(h.on_grid, 0);
        ASSERT_EQ(h.num_trigs, 0);
        ASSERT_EQ(h.active_trigs, 0);
        for (int i = 0; i < 200; ++i) {
            ASSERT_EQ(h.trigger_names[i], nullptr);
            ASSERT_EQ(h.trig_ids[i], -1);
            ASSERT_EQ(h.trig_inv[i], 0);
            ASSERT_EQ(h.allow_invert[i], 1);
        }
    }
}

TEST(trigger_table, starts_with_the_five_built_in_triggers)
{
    unit unit;
    unit.set("on_grid_triggers", "AC Power Off, GPI 9");
    ASSERT_EQ(unit.start(), 0);
    for (int32_t id = 0; id < 200; ++id) {
        const trigger_t &t = trigger_list[id];
        ASSERT_EQ(t.id, id);
        ASSERT_EQ(t.port_trigger, 0);
        ASSERT_EQ(t.state, 0);
        if (id < 5)
            ASSERT_STREQ(t.name, built_in[id]);
        else
            ASSERT_EQ(t.name, nullptr);
        ASSERT_EQ(t.on_grid, id == 2 ? 1 : 0) << id;
    }
}

TEST(trigger_table, shows_the_built_in_triggers_in_the_tree_without_keeping_their_handles)
{
    unit unit;
    unit.ember();
    ASSERT_EQ(unit.start(), 0);
    for (int id = 0; id < 5; ++id) {
        const fake::parameter shown = unit.parameter_of("gpio/triggers/t-" + std::to_string(id));
        EXPECT_EQ(shown.kind, "string");
        EXPECT_EQ(shown.access, 1);
        EXPECT_EQ(shown.text, built_in[id]);
        EXPECT_EQ(trigger_list[id].ember_param, nullptr);
    }
    EXPECT_EQ(unit.count_of("ember add string"), 5);
}

TEST(trigger_table, gives_the_hosts_first_trigger_id_5_while_the_built_in_ones_stay)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.trigger("Door"), 5);
    EXPECT_EQ(unit.trigger("Fire"), 6);
    for (int id = 0; id < 5; ++id)
        EXPECT_STREQ(trigger_list[id].name, built_in[id]);
    EXPECT_EQ(trigger_list[5].port_trigger, 0);
}

TEST(port_triggers, are_registered_for_every_input_place_whatever_its_type_and_for_no_led_or_relay)
{
    unit unit;
    unit.gpis(2).coughs(1).relays(2).virtuals(2).buttons(2);
    unit.set("physical/gpio_1/type", 2).set("virtual/vgpio_0/type", 2).set("user_buttons/led_1/type", 2);
    ASSERT_EQ(unit.start(), 0);
    const char *const names[] = {"GPI 1", "GPI 2", "COUGH 1", "vGPI 1", "vGPI 2", "User Button 1", "User Button 2"};
    for (int32_t i = 0; i < 7; ++i) {
        EXPECT_STREQ(trigger_list[5 + i].name, names[i]);
        EXPECT_EQ(trigger_list[5 + i].port_trigger, 1);
        EXPECT_TRUE(unit.logged(std::string("2 register_trigger: Registered trigger '") + names[i] +
                                "' (id = " + std::to_string(5 + i) + ")"));
    }
    EXPECT_EQ(trigger_list[12].name, nullptr);
}

TEST(active_count, at_start_up_is_the_number_of_entries_whose_trigger_differs_from_its_invert)
{
    unit unit;
    unit.gpis(1).relays(2);
    unit.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down, Nobody, AC Power Off, PTP Sync Lost");
    unit.set("physical/gpio_0/invert_trigger", "0, 1, 1, 1");
    unit.set("relay/relay_0/triggers", "Nobody").set("relay/relay_0/trigger_invert", "1");
    unit.set("relay/relay_1/triggers", "Eth Link Down, AC Power Off").set("relay/relay_1/trigger_invert", "0, 1");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::gpios[0].active_trigs, 2);   // the two inverted ones that are registered
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(zel::gpios[0].trig_ids[1], -1);
    EXPECT_EQ(zel::relays[0].active_trigs, 0);
    EXPECT_EQ(zel::relays[1].active_trigs, 1);
    EXPECT_EQ(unit.level(101), 1);
    EXPECT_EQ(unit.level(201), 0);
    EXPECT_EQ(unit.level(202), 1);
}

TEST(counts, are_minus_one_while_no_file_can_be_opened)
{
    unit unit;
    unit.fail("json open");
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), -1);
    EXPECT_EQ(zel_gpio_get_virt_gpio_count(), -1);
    EXPECT_EQ(zel_gpio_get_relay_count(), -1);
    unit.heal();
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), 0);
    unit.stop();
}

TEST(counts, are_those_of_the_file_even_before_the_library_is_initialised)
{
    unit unit;
    unit.set("physical/phys_gpio_count", 3).set("virtual/virtual_gpio_count", 4).set("relay/relay_count", 5);
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), 3);
    EXPECT_EQ(zel_gpio_get_virt_gpio_count(), 4);
    EXPECT_EQ(zel_gpio_get_relay_count(), 5);
    unit.stop();
}

TEST(counts, are_0_when_the_file_has_none)
{
    unit unit;
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), 0);
    EXPECT_EQ(zel_gpio_get_virt_gpio_count(), 0);
    EXPECT_EQ(zel_gpio_get_relay_count(), 0);
    unit.stop();
}

TEST(counts, in_the_file_become_those_that_the_host_gave)
{
    unit unit;
    unit.gpis(2).coughs(1).relays(2).virtuals(4).set("physical/phys_gpio_count", 20).set("relay/relay_count", 2);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), 3);
    EXPECT_EQ(zel_gpio_get_virt_gpio_count(), 4);
    EXPECT_EQ(zel_gpio_get_relay_count(), 2);
    EXPECT_EQ(fake::only(unit.take(), {"json set gpio/physical/phys_gpio_count", "json set gpio/relay/relay_count",
                                       "json set gpio/virtual/virtual_gpio_count"}),
              (lines{"json set gpio/physical/phys_gpio_count 3", "json set gpio/virtual/virtual_gpio_count 4"}));
}
