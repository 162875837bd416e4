// A file of an older layout, without the invert keys, is completed on the first start, and loses nothing by it.
#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

std::string port_json(const unit &unit, const std::string &path) { return unit.json("gpio/" + path); }

}  // namespace

TEST(an_older_physical_input, gets_its_inverts_and_keeps_its_mode)
{
    unit unit;
    unit.gpis(1).set_json("physical/gpio_0", R"({"type": 1, "input_mode": 1, "handler": "A, B"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(
        fake::only(unit.take(), {"json set gpio/physical/gpio_0", "json remove", "log 4"}),
        (lines{"log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 1)", "json set gpio/physical/gpio_0/type 1",
               "json remove gpio/physical/gpio_0/handler", "json remove gpio/physical/gpio_0/trigger (absent)",
               "json remove gpio/physical/gpio_0/invert_trigger (absent)", "json remove gpio/physical/gpio_0/input_mode",
               "json set gpio/physical/gpio_0/handler \"A, B\"", "json set gpio/physical/gpio_0/handler_invert \"0, 0\"",
               "json set gpio/physical/gpio_0/input_mode 1"}));
    EXPECT_EQ(zel::gpios[0].input_mode, 1U);
    EXPECT_EQ(zel::gpios[0].num_handlers, 2);
}

TEST(an_older_output, gets_its_inverts)
{
    unit unit;
    unit.gpis(1).set_json("physical/gpio_0", R"({"type": 2, "trigger": "Eth Link Down, Door"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(port_json(unit, "physical/gpio_0"), R"({"type": 2, "trigger": "Eth Link Down, Door", "invert_trigger": "0, 0"})");
    EXPECT_EQ(zel::gpios[0].num_trigs, 2);
    EXPECT_EQ(zel::gpios[0].trig_ids[0], 0);
}

TEST(an_older_relay, gets_its_inverts_and_keeps_its_place_on_the_grid)
{
    unit unit;
    unit.relays(2).set_json("relay/relay_0", R"({"triggers": "Eth Link Down, Door"})");
    unit.set_json("relay/relay_1", R"({"triggers": "Door", "on_grid": false})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(port_json(unit, "relay/relay_0"), R"({"triggers": "Eth Link Down, Door", "trigger_invert": "0, 0"})");
    EXPECT_EQ(port_json(unit, "relay/relay_1"), R"({"triggers": "Door", "on_grid": false, "trigger_invert": "0"})");
    EXPECT_EQ(zel::relays[0].on_grid, 1);
    EXPECT_EQ(zel::relays[1].on_grid, 0);
}

TEST(an_older_virtual_input, keeps_the_source_that_it_follows)
{
    unit unit;
    unit.ember().virtuals(2).set_json("virtual/vgpio_0", R"({"type": 1, "vgpo_src": "vGPO1@Studio 9", "handler": "A"})");
    unit.set_json("virtual/vgpio_1", R"({"vgpo_src": "vGPO2@Studio 9", "type": 1})");
    ASSERT_EQ(unit.start(), 0);
    ASSERT_NE(zel::gpios[0].vgpo_src, nullptr);
    EXPECT_STREQ(zel::gpios[0].vgpo_src, "vGPO1@Studio 9");
    EXPECT_STREQ(zel::gpios[1].vgpo_src, "vGPO2@Studio 9");
    EXPECT_EQ(port_json(unit, "virtual/vgpio_0/vgpo_src"), "\"vGPO1@Studio 9\"");
    EXPECT_EQ(port_json(unit, "virtual/vgpio_1/vgpo_src"), "\"vGPO2@Studio 9\"");
    EXPECT_EQ(port_json(unit, "virtual/vgpio_0/handler"), "\"A\"");
    EXPECT_EQ(port_json(unit, "virtual/vgpio_0/handler_invert"), "\"0\"");
    EXPECT_EQ(unit.value_of("gpio/vgpio sources/v-0"), "vGPO1@Studio 9");
}

TEST(an_older_virtual_input, keeps_its_source_in_the_file_even_when_no_record_of_it_can_be_made)
{
    unit unit;   // no provider: the record is made by name alone
    unit.virtuals(1).set_json("virtual/vgpio_0", R"({"type": 1, "vgpo_src": "vGPO1@Studio 9"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(port_json(unit, "virtual/vgpio_0/vgpo_src"), "\"vGPO1@Studio 9\"");
}

TEST(an_older_button, gets_its_inverts_and_keeps_its_mode)
{
    unit unit;
    unit.buttons(1).set_json("user_buttons/btn_1", R"({"type": 1, "input_mode": 1, "handler": "A"})");
    unit.set_json("user_buttons/led_1", R"({"type": 2, "trigger": "Door"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(port_json(unit, "user_buttons/btn_1"), R"({"type": 1, "input_mode": 1, "handler": "A", "handler_invert": "0"})");
    EXPECT_EQ(port_json(unit, "user_buttons/led_1"), R"({"type": 2, "trigger": "Door", "invert_trigger": "0"})");
    EXPECT_EQ(zel::gpios[0].input_mode, 1U);
}

TEST(completing_an_older_file, leaves_the_names_on_the_grid_until_the_host_has_registered_them)
{
    unit unit;
    unit.gpis(2).relays(1).virtuals(2).buttons(1).set("on_grid_handlers", "Record, Mute").set("on_grid_triggers", "Door, Fire");
    unit.set_json("physical/gpio_0", R"({"type": 1, "handler": "Record"})")
        .set_json("physical/gpio_1", R"({"type": 2, "trigger": "Door"})");
    unit.set_json("relay/relay_0", R"({"triggers": "Fire"})").set_json("virtual/vgpio_0", R"({"type": 2, "trigger": "Door"})");
    unit.set_json("virtual/vgpio_1", R"({"type": 1})").set_json("user_buttons/btn_1", R"({"type": 1})");
    unit.set_json("handler_info", R"({"Record": {"triggers": "Fire", "trigger_inverts": "1"}})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.json("gpio/on_grid_handlers"), "\"Record, Mute\"");
    EXPECT_EQ(unit.json("gpio/on_grid_triggers"), "\"Door, Fire\"");
    unit.trigger("Door"), unit.trigger("Fire");
    unit.handler("Record"), unit.handler("Mute");
    EXPECT_EQ(trigger_list[unit::trigger_id("Fire")].on_grid, 1);
    EXPECT_EQ(handler_list[unit::handler_id("Mute")].on_grid, 1);
    const handler_t &record = handler_list[unit::handler_id("Record")];
    ASSERT_EQ(record.num_trigs, 1);   // its saved connection came back
    EXPECT_STREQ(record.trigger_names[0], "Fire");
    EXPECT_EQ(record.trig_inv[0], 1);
}

TEST(completing_an_older_file, stops_with_the_start_up_and_later_rewrites_cover_the_names_on_the_grid)
{
    unit unit;
    unit.gpis(1)
        .set("on_grid_handlers", "Record")
        .set("on_grid_triggers", "Door")
        .set_json("physical/gpio_0", R"({"type": 2, "trigger": "Door"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.json("gpio/on_grid_triggers"), "\"Door\"");
    ASSERT_EQ(zel_gpio_set_pin_direction(0, 0), 1);
    EXPECT_EQ(unit.json("gpio/on_grid_triggers"), "\"\"");   // the host never registered it
    EXPECT_EQ(unit.json("gpio/on_grid_handlers"), "\"\"");
}

TEST(a_complete_file, is_not_written_at_start_up)
{
    unit unit;
    unit.gpis(2).relays(1).virtuals(2).buttons(1).config(R"({"gpio": {"on_grid_handlers": "", "on_grid_triggers": "",
        "physical": {"phys_gpio_count": 2, "gpio_0": {"type": 1, "handler": "A", "handler_invert": "0"},
                     "gpio_1": {"type": 2, "trigger": "Eth Link Down", "invert_trigger": "0"}},
        "relay": {"relay_count": 1, "relay_0": {"triggers": "AC Power Off", "trigger_invert": "1", "on_grid": true}},
        "virtual": {"virtual_gpio_count": 2, "vgpio_0": {"type": 1, "vgpo_src": "", "handler": "A", "handler_invert": "0"},
                    "vgpio_1": {"type": 2, "trigger": "Eth Link Down", "invert_trigger": "0"}},
        "user_buttons": {"btn_1": {"type": 1, "handler": "A", "handler_invert": "0"}, "led_1": {"type": 0}},
        "handler_info": {}}})");
    const std::string before = unit.json("");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(fake::only(unit.take(), {"json set", "json make", "json remove"}), lines{});
    unit.stop();
    EXPECT_EQ(unit.json(""), before);
}

TEST(an_older_input, whose_pin_does_not_open_loses_none_of_its_settings)
{
    for (const char *const fault : {"pin 1 open", "pin 1 active_low", "pin 1 edge", "pin 1 read"}) {
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            unit.ember().gpis(1).virtuals(1).set_json("physical/gpio_0", R"({"type": 1, "input_mode": 1, "handler": "A, B"})");
            unit.fail(fault);
            EXPECT_EQ(unit.start(), 0);
            EXPECT_TRUE(unit.fault_fired());
            EXPECT_EQ(unit.json("gpio/physical/gpio_0/type"), "1");
            EXPECT_EQ(unit.json("gpio/physical/gpio_0/input_mode"), "1");
            EXPECT_EQ(unit.json("gpio/physical/gpio_0/handler"), "\"A, B\""));
    }
}

TEST(a_failing_write, during_completion_leaves_the_old_lists_in_memory)
{
    unit unit;
    unit.gpis(1)
        .set_json("physical/gpio_0", R"({"type": 1, "input_mode": 1, "handler": "A, B"})")
        .fail("json set gpio/physical/gpio_0");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 update_gpio_json: Failed to set type for json object: gpio_0 to 1"));
    EXPECT_EQ(zel::gpios[0].num_handlers, 2);
    EXPECT_EQ(unit.json("gpio/physical/gpio_0/handler"), "\"A, B\"");
}
