// What is read from the configuration file, with which ranges and defaults, and what an unreadable file leads to.
#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

struct stored {
    const char *json;   // null: absent
    uint32_t loaded;
};

/// A value in the file and the value that a record has afterwards, for each of a class's settings.
constexpr stored gpi_types[] = {{nullptr, 0}, {"0", 0},     {"1", 1},   {"2", 2},   {"3", 0},
                                {"-1", 0},    {"\"1\"", 0}, {"1.5", 0}, {"true", 0}};
constexpr stored cough_types[] = {{nullptr, 0}, {"0", 0}, {"1", 1}, {"2", 0}, {"-1", 0}};
constexpr stored modes[] = {{nullptr, 0}, {"0", 0}, {"1", 1}, {"2", 0}, {"-1", 0}, {"\"1\"", 0}};
constexpr stored cough_modes[] = {{nullptr, 1}, {"0", 1}, {"1", 1}, {"2", 1}};

void store(unit &unit, const std::string &path, const stored &value)
{
    if (value.json != nullptr)
        unit.set_json(path, value.json);
}

std::string numbered(const char *prefix, size_t number, const char *key) { return prefix + std::to_string(number) + "/" + key; }

lines names_of(char *const *list, int32_t count)
{
    lines result;
    for (int32_t i = 0; i < count; ++i)
        result.push_back(list[i]);
    return result;
}

std::vector<int> inverts_of(const uint8_t *list, int32_t count) { return {list, list + count}; }

lines handlers_of(int32_t index) { return names_of(zel::gpios[index].handler_names, zel::gpios[index].num_handlers); }
lines triggers_of(int32_t index) { return names_of(zel::gpios[index].trigger_names, zel::gpios[index].num_trigs); }

}  // namespace

TEST(types, of_gpi_ports_are_0_to_2)
{
    unit unit;
    unit.gpis(std::size(gpi_types));
    for (size_t i = 0; i < std::size(gpi_types); ++i)
        store(unit, numbered("physical/gpio_", i, "type"), gpi_types[i]);
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < std::size(gpi_types); ++i)
        EXPECT_EQ(zel::gpios[i].type, gpi_types[i].loaded) << i;
}

TEST(types, of_cough_ports_are_0_and_1)
{
    unit unit;
    unit.coughs(std::size(cough_types));
    for (size_t i = 0; i < std::size(cough_types); ++i)
        store(unit, numbered("physical/gpio_", i, "type"), cough_types[i]);
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < std::size(cough_types); ++i)
        EXPECT_EQ(zel::gpios[i].type, cough_types[i].loaded) << i;
}

TEST(types, of_virtual_ports_and_leds_are_0_to_2_and_of_buttons_0_and_1)
{
    const stored button_types[] = {{nullptr, 0}, {"0", 0}, {"1", 1}, {"2", 0}, {"-1", 0},
                                   {"\"1\"", 0}, {"3", 0}, {"1", 1}, {"0", 0}};
    constexpr size_t count = std::size(gpi_types);
    unit unit;
    unit.virtuals(count).buttons(count);
    for (size_t i = 0; i < count; ++i) {
        store(unit, numbered("virtual/vgpio_", i, "type"), gpi_types[i]);
        store(unit, numbered("user_buttons/led_", i + 1, "type"), gpi_types[i]);
        store(unit, numbered("user_buttons/btn_", i + 1, "type"), button_types[i]);
    }
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < count; ++i) {
        EXPECT_EQ(zel::gpios[i].type, gpi_types[i].loaded) << "vgpio " << i;
        EXPECT_EQ(zel::gpios[count + 2 * i].type, button_types[i].loaded) << "button " << i;
        EXPECT_EQ(zel::gpios[count + 2 * i + 1].type, gpi_types[i].loaded) << "led " << i;
    }
}

TEST(input_modes, of_inputs_are_0_and_1_and_of_cough_ports_always_1)
{
    unit unit;
    unit.gpis(std::size(modes)).coughs(std::size(cough_modes)).buttons(std::size(modes));
    for (size_t i = 0; i < std::size(modes); ++i) {
        store(unit, numbered("physical/gpio_", i, "input_mode"), modes[i]);
        unit.set(numbered("physical/gpio_", i, "type"), 1);
        store(unit, numbered("user_buttons/btn_", i + 1, "input_mode"), modes[i]);
        unit.set(numbered("user_buttons/btn_", i + 1, "type"), 1);
    }
    for (size_t i = 0; i < std::size(cough_modes); ++i) {
        store(unit, numbered("physical/gpio_", std::size(modes) + i, "input_mode"), cough_modes[i]);
        unit.set(numbered("physical/gpio_", std::size(modes) + i, "type"), 1);
    }
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < std::size(modes); ++i) {
        EXPECT_EQ(zel::gpios[i].input_mode, modes[i].loaded) << "gpio " << i;
        EXPECT_EQ(zel::gpios[static_cast<size_t>(zel::first_user_button) + 2 * i].input_mode, modes[i].loaded) << "button " << i;
    }
    for (size_t i = 0; i < std::size(cough_modes); ++i)
        EXPECT_EQ(zel::gpios[std::size(modes) + i].input_mode, 1U) << "cough " << i;
}

TEST(input_modes, are_read_for_inputs_only)
{
    unit unit;
    unit.gpis(2).buttons(1);
    unit.set("physical/gpio_0/input_mode", 1);
    unit.set("physical/gpio_1/type", 2).set("physical/gpio_1/input_mode", 1);
    unit.set("user_buttons/btn_1/input_mode", 1);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::gpios[0].input_mode, 0U);
    EXPECT_EQ(zel::gpios[1].input_mode, 0U);
    EXPECT_EQ(zel::gpios[2].input_mode, 0U);
}

TEST(lists, are_read_according_to_the_type)
{
    unit unit;
    unit.gpis(3).virtuals(3).buttons(4);
    const char *const with_types[][2] = {{"physical/gpio_0", "0"},    {"physical/gpio_1", "1"},    {"physical/gpio_2", "2"},
                                         {"virtual/vgpio_0", "0"},    {"virtual/vgpio_1", "1"},    {"virtual/vgpio_2", "2"},
                                         {"user_buttons/btn_1", "0"}, {"user_buttons/led_1", "0"}, {"user_buttons/btn_2", "1"},
                                         {"user_buttons/led_2", "1"}, {"user_buttons/led_3", "2"}};
    for (const auto &[port, type] : with_types)
        unit.set_json(port, std::string("{\"type\": ") + type +
                      R"(, "handler": "H", "handler_invert": "1", "trigger": "T, Eth Link Down", "invert_trigger": "1, 0"})");
    ASSERT_EQ(unit.start(), 0);
    const lines none, handlers{"H"}, triggers{"T", "Eth Link Down"};
    EXPECT_EQ(handlers_of(0), none);
    EXPECT_EQ(triggers_of(0), none);
    EXPECT_EQ(handlers_of(1), handlers);
    EXPECT_EQ(triggers_of(1), lines{"GPI 2"});   // an input's own
    EXPECT_EQ(handlers_of(2), none);
    EXPECT_EQ(triggers_of(2), triggers);
    EXPECT_EQ(handlers_of(3), none);
    EXPECT_EQ(triggers_of(3), none);
    EXPECT_EQ(handlers_of(4), handlers);
    EXPECT_EQ(triggers_of(4), lines{"vGPI 2"});
    EXPECT_EQ(handlers_of(5), none);
    EXPECT_EQ(triggers_of(5), triggers);
    EXPECT_EQ(handlers_of(6), none);              // button 1
    EXPECT_EQ(handlers_of(7), lines{"User LED 1"});
    EXPECT_EQ(triggers_of(7), none);
    EXPECT_EQ(handlers_of(8), handlers);          // button 2
    EXPECT_EQ(handlers_of(9), lines{"User LED 2"});
    EXPECT_EQ(triggers_of(9), none);              // a LED reads its triggers only as an output
    EXPECT_EQ(handlers_of(11), lines{"User LED 3"});
    EXPECT_EQ(triggers_of(11), triggers);
}

TEST(lists, are_cut_at_comma_and_blank_only)
{
    const struct { const char *text; lines names; } rows[] = {
        {"", {""}},
        {"A", {"A"}},
        {"A, B", {"A", "B"}},
        {"A,B", {"A,B"}},
        {"A,  B", {"A", " B"}},
        {", ", {"", ""}},
        {"A, , B", {"A", "", "B"}},
        {"A, ", {"A", ""}},
        {"Two words, C", {"Two words", "C"}},
        {",", {","}},
        {"A ,B", {"A ,B"}},
    };
    unit unit;
    unit.gpis(std::size(rows));
    for (size_t i = 0; i < std::size(rows); ++i) {
        unit.set(numbered("physical/gpio_", i, "type"), 1).set(numbered("physical/gpio_", i, "handler"), rows[i].text);
        unit.set(numbered("physical/gpio_", i, "handler_invert"), "0");
    }
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(handlers_of(static_cast<int32_t>(i)), rows[i].names) << rows[i].text;
}

TEST(lists, of_an_absent_key_are_empty)
{
    unit unit;
    unit.gpis(2).relays(1).set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(handlers_of(0), lines{});
    EXPECT_EQ(triggers_of(1), lines{});
    EXPECT_EQ(zel::relays[0].num_trigs, 0);
}

TEST(lists, end_at_200_entries)
{
    std::string names, inverts;
    for (int i = 0; i < 250; ++i) {
        names += (i == 0 ? "N" : ", N") + std::to_string(i);
        inverts += i == 0 ? "1" : ", 1";
    }
    unit unit;
    unit.gpis(2).relays(1).set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2);
    unit.set("physical/gpio_0/handler", names.c_str()).set("physical/gpio_0/handler_invert", inverts.c_str());
    unit.set("physical/gpio_1/trigger", names.c_str()).set("physical/gpio_1/invert_trigger", inverts.c_str());
    unit.set("relay/relay_0/triggers", names.c_str()).set("relay/relay_0/trigger_invert", inverts.c_str());
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::gpios[0].num_handlers, 200);
    EXPECT_EQ(zel::gpios[1].num_trigs, 200);
    EXPECT_EQ(zel::relays[0].num_trigs, 200);
    EXPECT_EQ(handlers_of(0).back(), "N199");
    EXPECT_EQ(triggers_of(1).back(), "N199");
    EXPECT_STREQ(zel::relays[0].trigger_names[199], "N199");
    EXPECT_EQ(zel::gpios[0].handler_inv[199], 1);
    EXPECT_EQ(zel::relays[0].trig_inv[199], 1);
}

TEST(inverts, are_numbers_of_which_any_but_0_means_1)
{
    const struct { const char *text; std::vector<int> inverts; } rows[] = {
        {"1", {1, 0, 0}},        {"0, 1, 0", {0, 1, 0}},    {"1, 1, 1, 1, 1", {1, 1, 1}}, {"", {0, 0, 0}},
        {"7, -1, 00", {1, 1, 0}}, {"x, 1, 0x1", {0, 1, 0}}, {" 1, 0", {1, 0, 0}},         {"1,1, 1", {1, 1, 0}},
        {"4294967296, 0, 1", {1, 0, 1}},
    };
    unit unit;
    unit.gpis(std::size(rows));
    for (size_t i = 0; i < std::size(rows); ++i) {
        unit.set(numbered("physical/gpio_", i, "type"), 1).set(numbered("physical/gpio_", i, "handler"), "A, B, C");
        unit.set(numbered("physical/gpio_", i, "handler_invert"), rows[i].text);
    }
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(inverts_of(zel::gpios[i].handler_inv, 3), rows[i].inverts) << rows[i].text;
}

TEST(inverts, of_a_list_with_fewer_of_them_belong_to_the_first_names)
{
    unit unit;
    unit.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "A, B").set("physical/gpio_0/handler_invert", "1");
    ASSERT_EQ(unit.start(), 0);
    unit.handler("A"), unit.handler("B");
    EXPECT_EQ(zel::gpios[0].handlers[0], &handler_list[0]);
    EXPECT_EQ(zel::gpios[0].handlers[1], &handler_list[1]);
    EXPECT_EQ(handler_list[0].state, 1);   // inverted: on while the input is not pressed
    EXPECT_EQ(handler_list[1].state, 0);
}

TEST(an_empty_handler_text, is_one_entry_that_no_handler_matches)
{
    unit unit;
    unit.gpis(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "").set("physical/gpio_0/handler_invert", "");
    ASSERT_EQ(unit.start(), 0);
    unit.handler("A");
    EXPECT_EQ(handlers_of(0), lines{""});
    EXPECT_EQ(zel::gpios[0].handlers[0], nullptr);
}

TEST(a_relay, is_on_the_grid_by_default_when_its_list_is_not_empty)
{
    const struct { const char *json; uint8_t on_grid; } rows[] = {
        {R"({})", 0},
        {R"({"triggers": "A, B", "trigger_invert": "0, 0"})", 1},
        {R"({"triggers": "A, B", "trigger_invert": "0, 0", "on_grid": false})", 0},
        {R"({"on_grid": true})", 1},
        {R"({"triggers": "A", "trigger_invert": "0", "on_grid": 0})", 1},   // no boolean counts as absent
    };
    unit unit;
    unit.relays(std::size(rows));
    for (size_t i = 0; i < std::size(rows); ++i)
        unit.set_json("relay/relay_" + std::to_string(i), rows[i].json);
    ASSERT_EQ(unit.start(), 0);
    for (size_t i = 0; i < std::size(rows); ++i)
        EXPECT_EQ(zel::relays[i].on_grid, rows[i].on_grid) << rows[i].json;
}

TEST(loading_a_list, marks_the_triggers_that_it_names_as_shown_on_the_grid)
{
    unit unit;
    unit.gpis(2).relays(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down, GPI 1, GPI 2");
    unit.set("physical/gpio_0/invert_trigger", "0, 0, 0")
        .set("relay/relay_0/triggers", "AC Power Off")
        .set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(trigger_list[0].on_grid, 1);
    EXPECT_EQ(trigger_list[1].on_grid, 0);
    EXPECT_EQ(trigger_list[2].on_grid, 1);
    EXPECT_EQ(trigger_list[5].on_grid, 1);   // GPI 1 is registered before its port's list is read
    EXPECT_EQ(zel::gpios[0].trig_ids[1], 5);
}

TEST(a_file, of_the_wrong_kinds_of_values_reads_as_an_empty_one)
{
    unit unit;
    unit.gpis(2).relays(1).set_json("physical/gpio_0",
                                    R"({"type": 1, "handler": 5, "handler_invert": [1, 2], "input_mode": {}})");
    unit.set_json("physical/gpio_1", R"({"type": 2, "trigger": null, "invert_trigger": true})")
        .set_json("relay/relay_0", R"({"triggers": ["A"]})");
    unit.set_json("on_grid_triggers", "[]").set_json("physical/phys_gpio_count", "\"2\"");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(handlers_of(0), lines{});
    EXPECT_EQ(triggers_of(1), lines{});
    EXPECT_EQ(unit.json("gpio/physical/phys_gpio_count"), "2");
}

TEST(opening, tries_every_section_and_logs_each_that_fails)
{
    const struct { const char *fault; const char *message; } rows[] = {
        {"json load gpio/physical", "0 init_gpio_json_objs: zel_json_file_load_object failed for physical gpio settings"},
        {"json load gpio/relay", "0 init_gpio_json_objs: zel_json_file_load_object failed for relay settings"},
        {"json load gpio/virtual", "0 init_gpio_json_objs: zel_json_file_load_object failed for virtual gpio settings"},
        {"json load gpio/user_buttons", "0 init_gpio_json_objs: zel_json_file_load_object failed for user button settings"},
        {"json load gpio/handler_info", "0 init_gpio_json_objs: zel_json_file_load_object failed for handler info"},
    };
    for (const auto &row : rows) {
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            unit.fail(row.fault);
            EXPECT_EQ(zel_gpio_get_relay_count(), -1);
            EXPECT_TRUE(unit.fault_fired());
            EXPECT_EQ(unit.journal_of("log"), lines{std::string("log ") + row.message});
            EXPECT_EQ(unit.count_of("json make"), 5);   // "gpio" and the four other sections
            unit.heal();
            EXPECT_EQ(zel_gpio_get_relay_count(), 0);
            unit.stop());
    }
}

TEST(opening, ends_when_there_is_no_file_or_no_gpio_section)
{
    EXPECT_CHILD_SUCCEEDS(
        unit unit;
        unit.fail("json open");
        EXPECT_EQ(zel_gpio_get_phys_gpio_count(), -1);
        EXPECT_TRUE(unit.logged("0 init_gpio_json_objs: Failed to initialise /mnt/data/config/config.json"));
        EXPECT_EQ(unit.count_of("json make"), 0));
    EXPECT_CHILD_SUCCEEDS(
        unit unit;
        unit.fail("json load gpio");
        EXPECT_EQ(zel_gpio_get_phys_gpio_count(), -1);
        EXPECT_EQ(unit.journal_of("log"), lines{"log 0 init_gpio_json_objs: Failed to load gpio config object"});
        EXPECT_EQ(unit.count_of("json make"), 0);
        unit.stop());
}

TEST(opening, asks_only_for_what_is_not_open_yet)
{
    unit unit;
    unit.fail("json load gpio/relay", 1);
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), -1);
    unit.take();
    const int calls = unit.calls();
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), 0);
    EXPECT_EQ(unit.take(), lines{"json make gpio/relay"});
    EXPECT_EQ(unit.calls(), calls + 1);
    EXPECT_EQ(zel_gpio_get_relay_count(), 0);
    EXPECT_EQ(unit.take(), lines{});
    EXPECT_EQ(unit.calls(), calls + 1);
    unit.stop();
}

TEST(a_section, that_is_no_object_is_a_failure_like_any_other)
{
    unit unit;
    unit.set("virtual", 5).gpis(1);
    EXPECT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 init_gpio_json_objs: zel_json_file_load_object failed for virtual gpio settings"));
    EXPECT_TRUE(unit.logged("0 zel_gpio_init: Failed to initialise /mnt/data/config/config.json"));
    EXPECT_EQ(zel::total_gpio_count, 0);
    EXPECT_EQ(unit.json("gpio/virtual"), "5");
}
