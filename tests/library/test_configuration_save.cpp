// Writing records back: the keys of each kind of port in their order, what is removed, what a failing write leads to.
#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

/// A unit with one port of every kind: 0 input, 1 output, 2 disabled, 3 cough, 4 virtual input, 5 virtual output, 6 virtual
/// disabled, 7 button (input), 8 its LED (output), 9 button (disabled), 10 its LED (disabled).
void every_kind(unit &unit)
{
    unit.gpis(3).coughs(1).relays(1).virtuals(3).buttons(2);
    unit.set_json("physical/gpio_0", R"({"type": 1, "input_mode": 1, "handler": "A, B", "handler_invert": "1, 0"})");
    unit.set_json("physical/gpio_1",
                  R"({"type": 2, "trigger": "Eth Link Down, Door", "invert_trigger": "0, 1", "handler_invert": "1"})");
    unit.set_json("physical/gpio_3", R"({"type": 1, "handler": "A", "handler_invert": "0"})");
    unit.set_json("virtual/vgpio_0", R"({"type": 1, "vgpo_src": "vGPO1@X", "handler": "B", "handler_invert": "0"})");
    unit.set_json("virtual/vgpio_1", R"({"type": 2, "trigger": "Door", "invert_trigger": "0"})");
    unit.set_json("user_buttons/btn_1", R"({"type": 1, "input_mode": 1, "handler": "A", "handler_invert": "1"})");
    unit.set_json("user_buttons/led_1", R"({"type": 2, "trigger": "Door", "invert_trigger": "1"})");
    unit.set_json("relay/relay_0", R"({"triggers": "Eth Link Down, Door", "trigger_invert": "1, 0", "on_grid": false})");
}

/// The lines that every rewrite ends with, on a unit whose lists name "Eth Link Down" and whose host registered nothing.
const lines tail{"json set gpio/on_grid_triggers \"Eth Link Down\"", "json set gpio/on_grid_handlers \"\""};

lines with_tail(lines first)
{
    first.insert(first.end(), tail.begin(), tail.end());
    return first;
}

/// What saving each port of that unit writes, before the tail.
const struct { int32_t index; lines expected; } saved_ports[] = {
    {0,
     {"log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 1)", "json set gpio/physical/gpio_0/type 1",
      "json remove gpio/physical/gpio_0/handler", "json remove gpio/physical/gpio_0/trigger (absent)",
      "json remove gpio/physical/gpio_0/invert_trigger (absent)", "json remove gpio/physical/gpio_0/input_mode",
      "json set gpio/physical/gpio_0/handler \"A, B\"", "json set gpio/physical/gpio_0/handler_invert \"1, 0\"",
      "json set gpio/physical/gpio_0/input_mode 1"}},
    {1,
     {"log 4 update_gpio_json: Updating json entry: 'gpio_1' (new type = 2)", "json set gpio/physical/gpio_1/type 2",
      "json remove gpio/physical/gpio_1/handler (absent)", "json remove gpio/physical/gpio_1/trigger",
      "json remove gpio/physical/gpio_1/invert_trigger", "json remove gpio/physical/gpio_1/input_mode (absent)",
      "json set gpio/physical/gpio_1/trigger \"Eth Link Down, Door\"",
      "json set gpio/physical/gpio_1/invert_trigger \"0, 1\""}},
    {2,
     {"log 4 update_gpio_json: Updating json entry: 'gpio_2' (new type = 0)", "json set gpio/physical/gpio_2/type 0",
      "json remove gpio/physical/gpio_2/handler (absent)", "json remove gpio/physical/gpio_2/trigger (absent)",
      "json remove gpio/physical/gpio_2/invert_trigger (absent)", "json remove gpio/physical/gpio_2/input_mode (absent)"}},
    {3,
     {"log 4 update_gpio_json: Updating json entry: 'gpio_3' (new type = 1)", "json set gpio/physical/gpio_3/type 1",
      "json remove gpio/physical/gpio_3/handler", "json remove gpio/physical/gpio_3/trigger (absent)",
      "json remove gpio/physical/gpio_3/invert_trigger (absent)", "json remove gpio/physical/gpio_3/input_mode (absent)",
      "json set gpio/physical/gpio_3/handler \"A\"", "json set gpio/physical/gpio_3/handler_invert \"0\"",
      "json set gpio/physical/gpio_3/input_mode 1"}},
    {4,
     {"log 4 update_gpio_json: Updating json entry: 'vgpio_0' (new type = 1)", "json set gpio/virtual/vgpio_0/type 1",
      "json remove gpio/virtual/vgpio_0/handler", "json remove gpio/virtual/vgpio_0/trigger (absent)",
      "json remove gpio/virtual/vgpio_0/invert_trigger (absent)", "json remove gpio/virtual/vgpio_0/vgpo_src",
      "json set gpio/virtual/vgpio_0/handler \"B\"", "json set gpio/virtual/vgpio_0/handler_invert \"0\"",
      "json set gpio/virtual/vgpio_0/vgpo_src \"vGPO1@X\""}},
    {5,
     {"log 4 update_gpio_json: Updating json entry: 'vgpio_1' (new type = 2)", "json set gpio/virtual/vgpio_1/type 2",
      "json remove gpio/virtual/vgpio_1/handler (absent)", "json remove gpio/virtual/vgpio_1/trigger",
      "json remove gpio/virtual/vgpio_1/invert_trigger", "json remove gpio/virtual/vgpio_1/vgpo_src (absent)",
      "json set gpio/virtual/vgpio_1/trigger \"Door\"", "json set gpio/virtual/vgpio_1/invert_trigger \"0\""}},
    {6,
     {"log 4 update_gpio_json: Updating json entry: 'vgpio_2' (new type = 0)", "json set gpio/virtual/vgpio_2/type 0",
      "json remove gpio/virtual/vgpio_2/handler (absent)", "json remove gpio/virtual/vgpio_2/trigger (absent)",
      "json remove gpio/virtual/vgpio_2/invert_trigger (absent)", "json remove gpio/virtual/vgpio_2/vgpo_src (absent)"}},
    {7,
     {"log 4 update_gpio_json: Updating json entry: 'btn_1' (new type = 1)", "json set gpio/user_buttons/btn_1/type 1",
      "json remove gpio/user_buttons/btn_1/handler", "json remove gpio/user_buttons/btn_1/trigger (absent)",
      "json remove gpio/user_buttons/btn_1/invert_trigger (absent)", "json set gpio/user_buttons/btn_1/handler \"A\"",
      "json set gpio/user_buttons/btn_1/handler_invert \"1\""}},
    {8,
     {"log 4 update_gpio_json: Updating json entry: 'led_1' (new type = 2)", "json set gpio/user_buttons/led_1/type 2",
      "json remove gpio/user_buttons/led_1/handler (absent)", "json remove gpio/user_buttons/led_1/trigger",
      "json remove gpio/user_buttons/led_1/invert_trigger", "json set gpio/user_buttons/led_1/trigger \"Door\"",
      "json set gpio/user_buttons/led_1/invert_trigger \"1\""}},
    {9,
     {"log 4 update_gpio_json: Updating json entry: 'btn_2' (new type = 0)", "json set gpio/user_buttons/btn_2/type 0",
      "json remove gpio/user_buttons/btn_2/handler (absent)", "json remove gpio/user_buttons/btn_2/trigger (absent)",
      "json remove gpio/user_buttons/btn_2/invert_trigger (absent)"}},
    {10,
     {"log 4 update_gpio_json: Updating json entry: 'led_2' (new type = 0)", "json set gpio/user_buttons/led_2/type 0",
      "json remove gpio/user_buttons/led_2/handler (absent)", "json remove gpio/user_buttons/led_2/trigger (absent)",
      "json remove gpio/user_buttons/led_2/invert_trigger (absent)", "json set gpio/user_buttons/led_2/trigger \"\"",
      "json set gpio/user_buttons/led_2/invert_trigger \"\""}},
};

}  // namespace

TEST(saving_a_port, writes_its_settings_in_order_and_then_the_names_on_the_grid)
{
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    for (const auto &row : saved_ports) {
        unit.take();
        EXPECT_EQ(zel::update_gpio_json(row.index), 0);
        EXPECT_EQ(fake::joined(unit.take()), fake::joined(with_tail(row.expected))) << row.index;
    }
    EXPECT_EQ(unit.json("gpio/user_buttons/btn_1/input_mode"), "1");   // not written, and not lost
}

TEST(saving_a_port, that_went_from_input_to_output_leaves_its_handler_inverts_in_the_file)
{
    unit unit;
    unit.gpis(1).set_json("physical/gpio_0", R"({"type": 1, "input_mode": 0, "handler": "A, B", "handler_invert": "1, 0"})");
    ASSERT_EQ(unit.start(), 0);
    ASSERT_EQ(zel_gpio_set_pin_direction(0, 2), 1);
    EXPECT_EQ(unit.json("gpio/physical/gpio_0/type"), "2");
    EXPECT_EQ(unit.json("gpio/physical/gpio_0/handler_invert"), "\"1, 0\"");
    EXPECT_EQ(unit.json("gpio/physical/gpio_0/handler"), "absent");
    EXPECT_EQ(unit.json("gpio/physical/gpio_0/input_mode"), "absent");
}

TEST(saving_a_port, reports_what_could_not_be_written_and_goes_on)
{
    const struct { int32_t index; const char *fault; int32_t result; const char *message; } rows[] = {
        {0, "json set gpio/physical/gpio_0/handler", -1,
         "log 0 update_gpio_json: Failed to set handler name for json object: gpio_0 (handler_names = 'A, B')"},
        {0, "json set gpio/physical/gpio_0/handler_invert", -1,
         "log 0 update_gpio_json: Failed to set handler_invert for json object: gpio_0 to "},
        {0, "json set gpio/physical/gpio_0/input_mode", -1,
         "log 0 update_gpio_json: Failed to set input_mode for json object: gpio_0 to 1"},
        {4, "json set gpio/virtual/vgpio_0/vgpo_src", -1,
         "log 0 update_gpio_json: Failed to set vgpo_src for json object: vgpio_0 to vGPO1@X"},
        {1, "json set gpio/physical/gpio_1/trigger", 0, ""},   // the result is that of the last write
        {1, "json set gpio/physical/gpio_1/invert_trigger", -1, ""},
        {8, "json set gpio/user_buttons/led_1/invert_trigger", -1, ""},
    };
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    for (const auto &row : rows) {
        unit.take();
        unit.fail(row.fault);
        EXPECT_EQ(zel::update_gpio_json(row.index), row.result) << row.fault;
        unit.heal();
        const std::string all = fake::joined(unit.journal());
        EXPECT_NE(all.find(row.message), std::string::npos) << row.fault << "\n" << all;
        EXPECT_EQ(fake::only(unit.journal(), {"json set gpio/on_grid_triggers", "json set gpio/on_grid_handlers"}), tail)
            << row.fault;
    }
}

TEST(saving_a_port, ends_at_once_when_its_type_cannot_be_written)
{
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    unit.fail("json set gpio/virtual/vgpio_1/type");
    EXPECT_EQ(zel::update_gpio_json(5), -1);
    EXPECT_EQ(unit.take(), (lines{"log 4 update_gpio_json: Updating json entry: 'vgpio_1' (new type = 2)",
                                  "json set gpio/virtual/vgpio_1/type 2 failed",
                                  "log 0 update_gpio_json: Failed to set type for json object: vgpio_1 to 2"}));
}

TEST(saving_a_port, ends_when_its_object_cannot_be_loaded)
{
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    unit.fail("json load gpio/user_buttons/led_2");
    EXPECT_EQ(zel::update_gpio_json(10), -1);
    EXPECT_EQ(unit.take(),
              (lines{"log 4 update_gpio_json: Updating json entry: 'led_2' (new type = 0)",
                     "json load gpio/user_buttons/led_2 failed", "log 0 update_gpio_json: Failed to load json object: led_2"}));
}

TEST(saving_a_port, needs_its_section)
{
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    for (const auto &[section, index] :
         {std::pair{&zel::phys_gpio_json_obj, 0}, {&zel::virt_gpio_json_obj, 4}, {&zel::user_btn_json_obj, 8}}) {
        zel_json_obj_t *const kept = *section;
        unit.take();
        *section = nullptr;
        EXPECT_EQ(zel::update_gpio_json(index), -1);
        *section = kept;
        EXPECT_EQ(unit.take(), lines{"log 0 update_gpio_json: invalid parent json object"});
    }
}

TEST(saving_a_port_death, beyond_the_table_is_a_programming_error)
{
    EXPECT_DEATH(
        {
            unit unit;
            unit.gpis(1).start();
            zel::update_gpio_json(1);
        },
        "index < total_gpio_count");
}

TEST(saving_a_relay, writes_its_triggers_and_inverts_but_not_its_place_on_the_grid)
{
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(zel::update_relay_json(0), 0);
    EXPECT_EQ(unit.take(), (lines{"json set gpio/relay/relay_0/triggers \"Eth Link Down, Door\"",
                                  "json set gpio/relay/relay_0/trigger_invert \"1, 0\""}));
}

TEST(saving_a_relay, has_the_result_of_the_last_write)
{
    unit unit;
    every_kind(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.fail("json set gpio/relay/relay_0/triggers", 1);
    EXPECT_EQ(zel::update_relay_json(0), 0);
    unit.fail("json set gpio/relay/relay_0/trigger_invert", 1);
    EXPECT_EQ(zel::update_relay_json(0), -1);
    unit.take();
    unit.fail("json load gpio/relay/relay_0", 1);
    EXPECT_EQ(zel::update_relay_json(0), -1);
    EXPECT_EQ(unit.take_of("log"), lines{"log 0 update_relay_json: Failed to load json object: relay->relay_0"});
    zel_json_obj_t *const kept = std::exchange(zel::relays_json_obj, nullptr);
    EXPECT_EQ(zel::update_relay_json(0), -1);
    zel::relays_json_obj = kept;
    EXPECT_EQ(unit.take(), lines{"log 0 update_relay_json: relays_json_obj is NULL"});
}

TEST(saving_a_relay_death, needs_the_table_and_an_index_in_it)
{
    EXPECT_DEATH(
        {
            unit unit;
            unit.relays(1).start();
            zel::update_relay_json(1);
        },
        "index < relay_count");
    EXPECT_DEATH(
        {
            unit unit;
            zel::update_relay_json(0);
        },
        "relays != NULL");
}

TEST(saving_a_handler, writes_its_triggers_and_inverts)
{
    unit unit;
    unit.set("on_grid_handlers", "Record")
        .set_json("handler_info/Record", R"({"triggers": "Eth Link Down, Door", "trigger_inverts": "1, 0"})");
    ASSERT_EQ(unit.start(), 0);
    const int32_t id = unit.handler("Record");
    unit.take();
    EXPECT_EQ(zel::update_handler_json(id), 0);
    EXPECT_EQ(unit.take(), (lines{"log 2 update_handler_json: Updating json entry: 'Record'",
                                  "json set gpio/handler_info/Record/triggers \"Eth Link Down, Door\"",
                                  "json set gpio/handler_info/Record/trigger_inverts \"1, 0\""}));
    unit.fail("json set gpio/handler_info/Record/triggers", 1);
    EXPECT_EQ(zel::update_handler_json(id), 0);
    unit.fail("json set gpio/handler_info/Record/trigger_inverts", 1);
    EXPECT_EQ(zel::update_handler_json(id), -1);
}

TEST(saving_a_handler, without_an_object_does_nothing)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    const int32_t id = unit.handler("Record");   // not on the grid: it has no object
    ASSERT_EQ(handler_list[id].json_obj, nullptr);
    unit.take();
    EXPECT_EQ(zel::update_handler_json(id), 0);
    EXPECT_EQ(unit.take(), lines{});
}

TEST(saving_the_handlers_on_the_grid, lists_them_by_id_without_leds_and_gives_each_an_object)
{
    unit unit;
    unit.buttons(1).set("user_buttons/led_1/type", 2).set("on_grid_handlers", "C, A, User LED 1");
    ASSERT_EQ(unit.start(), 0);
    unit.handler("A"), unit.handler("B"), unit.led_handler(0), unit.handler("C"), unit.handler("Z");
    handler_list[unit::handler_id("Z")].on_grid = 1;
    unit.take();
    EXPECT_EQ(zel::update_on_grid_handlers(), 0);
    EXPECT_EQ(unit.take(), (lines{"json make gpio/handler_info/Z", "json set gpio/on_grid_handlers \"A, C, Z\""}));
    EXPECT_NE(handler_list[unit::handler_id("Z")].json_obj, nullptr);
    EXPECT_TRUE(zel::handler_on_grid("Z"));   // the kept text is the new one
}

TEST(saving_the_handlers_on_the_grid, warns_of_an_object_that_cannot_be_made)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    unit.handler("A"), unit.handler("B");
    handler_list[0].on_grid = handler_list[1].on_grid = 1;
    unit.fail("json load gpio/handler_info/A");
    unit.take();
    EXPECT_EQ(zel::update_on_grid_handlers(), 0);
    EXPECT_EQ(unit.take(), (lines{"json load gpio/handler_info/A failed", "log 1 Failed to load handler info json obj for 'A'",
                                  "json make gpio/handler_info/B", "json set gpio/on_grid_handlers \"A, B\""}));
}

TEST(saving_the_triggers_on_the_grid, lists_them_by_id)
{
    unit unit;
    unit.gpis(2).set("on_grid_triggers", "Door, GPI 2, Eth Link Down");
    ASSERT_EQ(unit.start(), 0);
    unit.trigger("Fire"), unit.trigger("Door");
    unit.take();
    EXPECT_EQ(zel::update_on_grid_triggers(), 0);
    EXPECT_EQ(unit.take(), lines{"json set gpio/on_grid_triggers \"Eth Link Down, GPI 2, Door\""});
    trigger_list[unit::trigger_id("Fire")].on_grid = 1;
    EXPECT_FALSE(zel::trigger_on_grid("Fire"));
    EXPECT_EQ(zel::update_on_grid_triggers(), 0);
    EXPECT_TRUE(zel::trigger_on_grid("Fire"));
}

TEST(saving_the_names_on_the_grid, that_fails_keeps_the_old_text)
{
    unit unit;
    unit.set("on_grid_triggers", "Door").set("on_grid_handlers", "Record");
    ASSERT_EQ(unit.start(), 0);
    unit.fail("json set");
    (void)zel::update_on_grid_triggers();
    (void)zel::update_on_grid_handlers();
    EXPECT_TRUE(zel::trigger_on_grid("Door"));
    EXPECT_TRUE(zel::handler_on_grid("Record"));
    EXPECT_EQ(unit.json("gpio/on_grid_triggers"), "\"Door\"");
}
