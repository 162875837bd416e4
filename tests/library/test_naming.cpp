// Names that users see, keys in the file, and which names count as shown on the grid.
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/port_names.h"

using fake::lines;
using fake::unit;

namespace {

std::string name_of(int32_t number, uint32_t gpio_class)
{
    char name[64] = "untouched";
    zel::get_gpio_port_name(number, gpio_class, name);
    return name;
}

}  // namespace

TEST(port_name, says_the_kind_and_the_number)
{
    unit unit;
    unit.gpis(2).coughs(2).virtuals(3).buttons(2);
    ASSERT_EQ(unit.start(), 0);
    const struct { int32_t number; uint32_t gpio_class; const char *name; } rows[] = {
        {1, 0, "Physical Port 1"}, {2, 0, "Physical Port 2"}, {3, 0, "Cough Port 1"}, {4, 0, "Cough Port 2"},
        {1, 1, "Virtual Port 1"},  {3, 1, "Virtual Port 3"},  {1, 2, "User Button 1"}, {2, 2, "User Button 2"},
        {1, 3, "User LED 1"},      {2, 3, "User LED 2"},      {1, 4, "untouched"},     {1, 0xFFFFFFFF, "untouched"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(name_of(row.number, row.gpio_class), row.name);
}

TEST(port_name, of_the_third_of_three_entries_of_which_the_last_is_a_cough_port_is_cough_port_1)
{
    unit unit;
    unit.gpis(2).coughs(1);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(name_of(3, 0), "Cough Port 1");
    EXPECT_NE(unit.trigger_id("COUGH 1"), -1);
    EXPECT_EQ(unit.trigger_id("GPI 3"), -1);
}

TEST(port_name_death, needs_a_buffer)
{
    EXPECT_DEATH(
        {
            unit unit;
            zel::get_gpio_port_name(1, 1, nullptr);
        },
        "buf != NULL");
}

TEST(configuration_keys, count_physical_virtual_and_relays_from_0_and_buttons_and_leds_from_1)
{
    unit unit;
    unit.gpis(1).coughs(1).relays(2).virtuals(2).buttons(2);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(
        unit.take_of("json make"),
        (lines{"json make gpio", "json make gpio/physical", "json make gpio/relay", "json make gpio/virtual",
               "json make gpio/user_buttons", "json make gpio/handler_info", "json make gpio/physical/gpio_0",
               "json make gpio/physical/gpio_1", "json make gpio/relay/relay_0", "json make gpio/relay/relay_1",
               "json make gpio/virtual/vgpio_0", "json make gpio/virtual/vgpio_1", "json make gpio/user_buttons/btn_1",
               "json make gpio/user_buttons/led_1", "json make gpio/user_buttons/btn_2", "json make gpio/user_buttons/led_2"}));
}

TEST(on_grid, is_a_plain_search_in_the_saved_text)
{
    unit unit;
    unit.set("on_grid_triggers", "GPI 10, Door").set("on_grid_handlers", "Record");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_TRUE(zel::trigger_on_grid("GPI 10"));
    EXPECT_TRUE(zel::trigger_on_grid("GPI 1"));
    EXPECT_TRUE(zel::trigger_on_grid("Doo"));
    EXPECT_FALSE(zel::trigger_on_grid("GPI 2"));
    EXPECT_FALSE(zel::trigger_on_grid("door"));
    EXPECT_FALSE(zel::trigger_on_grid("Record"));
    EXPECT_TRUE(zel::handler_on_grid("Rec"));
    EXPECT_FALSE(zel::handler_on_grid("Door"));
}

TEST(on_grid, marks_names_as_they_are_registered)
{
    unit unit;
    unit.gpis(2).set("on_grid_triggers", "GPI 20, Door").set("on_grid_handlers", "Recorder");
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.handler("Mute");
    unit.trigger("Door");
    unit.trigger("Fire");
    EXPECT_EQ(trigger_list[5].on_grid, 0);   // GPI 1
    EXPECT_EQ(trigger_list[6].on_grid, 1);   // GPI 2, found in GPI 20
    EXPECT_EQ(trigger_list[unit::trigger_id("Door")].on_grid, 1);
    EXPECT_EQ(trigger_list[unit::trigger_id("Fire")].on_grid, 0);
    EXPECT_EQ(handler_list[unit::handler_id("Record")].on_grid, 1);
    EXPECT_EQ(handler_list[unit::handler_id("Mute")].on_grid, 0);
}

TEST(on_grid, is_no_name_where_the_file_has_no_text)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    EXPECT_FALSE(zel::trigger_on_grid("GPI 1"));
    EXPECT_FALSE(zel::handler_on_grid("Record"));
}
