// Lists of the greatest length are saved whole.
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

struct list_texts {
    std::string names, inverts;
};

/// `count` distinct names of `length` characters.
list_texts long_list(int count, size_t length)
{
    list_texts texts;
    for (int i = 0; i < count; ++i) {
        std::string name = std::to_string(i) + " ";
        name.resize(length, 'x');
        texts.names += (i == 0 ? "" : ", ") + name;
        texts.inverts += i == 0 ? "1" : ", 1";
    }
    return texts;
}

lines pieces(std::string text)
{
    lines result;
    if (text.size() >= 2 && text.front() == '"')
        text = text.substr(1, text.size() - 2);
    for (size_t from = 0; from <= text.size();) {
        const size_t to = std::min(text.find(", ", from), text.size());
        result.push_back(text.substr(from, to - from));
        from = to + 2;
    }
    return result;
}

void store_everywhere(unit &unit, const list_texts &texts)
{
    unit.gpis(2).relays(1).set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2).set("on_grid_handlers", "Record");
    unit.set("physical/gpio_0/handler", texts.names.c_str()).set("physical/gpio_0/handler_invert", texts.inverts.c_str());
    unit.set("physical/gpio_1/trigger", texts.names.c_str()).set("physical/gpio_1/invert_trigger", texts.inverts.c_str());
    unit.set("relay/relay_0/triggers", texts.names.c_str()).set("relay/relay_0/trigger_invert", texts.inverts.c_str());
    unit.set("handler_info/Record/triggers", texts.names.c_str())
        .set("handler_info/Record/trigger_inverts", texts.inverts.c_str());
}

constexpr const char *saved_lists[][2] = {{"gpio/physical/gpio_0/handler", "gpio/physical/gpio_0/handler_invert"},
                                          {"gpio/physical/gpio_1/trigger", "gpio/physical/gpio_1/invert_trigger"},
                                          {"gpio/relay/relay_0/triggers", "gpio/relay/relay_0/trigger_invert"},
                                          {"gpio/handler_info/Record/triggers", "gpio/handler_info/Record/trigger_inverts"}};

void save_everything(unit &unit)
{
    const int32_t record = unit.handler("Record");
    EXPECT_EQ(zel::update_gpio_json(0), 0);
    EXPECT_EQ(zel::update_gpio_json(1), 0);
    EXPECT_EQ(zel::update_relay_json(0), 0);
    EXPECT_EQ(zel::update_handler_json(record), 0);
}

}  // namespace

TEST(long_lists, of_200_names_of_64_characters_are_saved_whole)
{
    const list_texts texts = long_list(200, 64);
    unit unit;
    store_everywhere(unit, texts);
    ASSERT_EQ(unit.start(), 0);
    save_everything(unit);
    for (const auto &[names, inverts] : saved_lists) {
        EXPECT_EQ(unit.json(names), "\"" + texts.names + "\"");
        EXPECT_EQ(unit.json(inverts), "\"" + texts.inverts + "\"");
    }
}

TEST(long_lists, of_all_triggers_on_the_grid_are_saved_whole)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    std::string expected;
    for (int i = 5; i < 200; ++i) {
        std::string name = std::to_string(i) + " ";
        name.resize(64, 'y');
        ASSERT_EQ(unit.trigger(name), i);
        trigger_list[i].on_grid = 1;
        expected += (i == 5 ? "" : ", ") + name;
    }
    EXPECT_EQ(zel::update_on_grid_triggers(), 0);
    EXPECT_EQ(unit.json("gpio/on_grid_triggers"), "\"" + expected + "\"");
}

TEST(long_lists, of_all_handlers_on_the_grid_are_saved_whole)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    std::string expected;
    for (int i = 0; i < 200; ++i) {
        std::string name = std::to_string(i) + " ";
        name.resize(64, 'z');
        ASSERT_EQ(unit.handler(name), i);
        handler_list[i].on_grid = 1;
        expected += (i == 0 ? "" : ", ") + name;
    }
    EXPECT_EQ(zel::update_on_grid_handlers(), 0);
    EXPECT_EQ(unit.json("gpio/on_grid_handlers"), "\"" + expected + "\"");
}

TEST(long_lists, of_even_longer_names_are_saved_whole_or_end_at_a_whole_entry_with_a_line_in_the_log)
{
    const list_texts texts = long_list(200, 600);
    const lines all = pieces(texts.names);
    unit unit;
    store_everywhere(unit, texts);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    save_everything(unit);
    for (const auto &[names, inverts] : saved_lists) {
        const lines kept = pieces(unit.json(names));
        ASSERT_LE(kept.size(), all.size());
        EXPECT_TRUE(std::equal(kept.begin(), kept.end(), all.begin())) << names;
        EXPECT_EQ(pieces(unit.json(inverts)).size(), kept.size()) << names;
        EXPECT_TRUE(kept.size() == all.size() || unit.count_of("log 0") + unit.count_of("log 1") > 0) << names;
    }
}
