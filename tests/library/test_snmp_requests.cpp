// What the SNMP agent asks for.
#include <gtest/gtest.h>

#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_records.h"

using namespace vgpo_units;
using fake::unit;
using zel::snmp_request_record;

namespace {

/// GPI 0 input, GPI 1 output, cough 2, vGPI 3, vGPO 4, buttons 5 and 7, LEDs 6 and 8, relays 0 and 1.
void start_all(unit &u)
{
    u.gpis(2).coughs(1).virtuals(2).buttons(2).relays(2);
    u.set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2).set("physical/gpio_2/type", 1);
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_1/type", 2);
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/led_1/type", 2).set("user_buttons/led_2/type", 2);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.led_handler(0);
    resolve(u, near);
    u.take();
    u.forget_sent();
}

struct reply {
    int32_t type, result, tag;
};

/// Delivers a request and gives the one reply to it.
reply ask(unit &u, uint8_t type, int32_t index, int32_t value, const char *text = "")
{
    static int32_t tag = 1000;
    snmp_request_record record{};
    record.index = index;
    record.value = value;
    strncpy(record.text, text, sizeof record.text);
    record.tag = ++tag;
    u.forget_sent();
    u.deliver_record("snmp", type, record);
    const auto replies = u.sent("snmp", 36);
    EXPECT_EQ(replies.size(), 1u);
    if (replies.size() != 1) return {0, -99, 0};
    EXPECT_EQ(replies[0].payload.size(), 12u);
    EXPECT_EQ(replies[0].int_at(8), tag);
    return {replies[0].int_at(0), replies[0].int_at(4), replies[0].int_at(8)};
}

struct request_case {
    uint8_t type;
    int32_t index, value;
    const char *text;
    int32_t result;
    const char *message;
};
const request_case request_cases[] = {
    {15, 1, 2, "", 0, "Setting phys_type for gpio index 1 to 2"},
    {16, 0, 0, "Record", 0, "Setting input function for gpio index 0 to 'Record'"},
    {16, 0, 0, "Nobody", -1, "Setting input function for gpio index 0 to 'Nobody'"},
    {17, 1, 0, "!Eth Link Down", 0, "Setting trigger for gpio index 1 to '!Eth Link Down'"},
    {19, 0, 1, "", 0, "Setting input mode for gpio index 0 to 1"},
    {19, 0, 7, "", -1, "Setting input mode for gpio index 0 to 7"},
    {20, 1, 5, "", 0, "Setting status for gpio index 1 to 5"},
    {20, 0, 1, "", -1, "Setting status for gpio index 0 to 1"},
    {21, 0, 0, "", 0, "Setting phys_type for gpio index 2 to 0"},
    {21, 0, 2, "", -1, "Setting phys_type for gpio index 2 to 2"},
    {22, 0, 0, "Record", 0, "Setting input function for gpio index 2 to 'Record'"},
    {23, 0, 1, "", 0, "Setting phys_type for gpio index 3 to 1"},
    {24, 0, 0, "Record", 0, "Setting input function for gpio index 3 to 'Record'"},
    {25, 1, 0, "Eth Link Down", 0, "Setting trigger for gpio index 4 to 'Eth Link Down'"},
    {25, 1, 0, "Eth Link Down,,AC Power Off", -1, "Setting trigger for gpio index 4 to 'Eth Link Down,,AC Power Off'"},
    {35, 1, 0, "Eth Link Down,", -1, "Setting triggers for relay index 1 to 'Eth Link Down,'"},
    {27, 0, 0, near, 0, "Setting source for vGPO index 3 to 'vGPO1@Studio 2'"},
    {27, 0, 0, "vGPO1@Nowhere", -1, "Setting source for vGPO index 3 to 'vGPO1@Nowhere'"},
    {28, 1, 1, "", 0, "Setting status for gpio index 4 to 1"},
    {29, 1, 0, "", 0, "Setting phys_type for gpio index 6 to 0"},
    {30, 2, 0, "", 0, "Setting input function for gpio index 8 to ''"},
    {31, 2, 1, "", -1, "Setting phys_type for gpio index 8 to 1"},
    {32, 1, 0, "Eth Link Down", 0, "Setting trigger for gpio index 6 to 'Eth Link Down'"},
    {34, 1, 1, "", 0, "Setting status for user led index 6 to 1"},
    {34, 2, 1, "", 0, "Setting status for user led index 8 to 1"},
    {35, 1, 0, "Eth Link Down, AC Power Off", 0, "Setting triggers for relay index 1 to 'Eth Link Down, AC Power Off'"},
};

TEST(a_request, lands_at_its_port_and_is_answered_with_its_tag)
{
    unit u;
    start_all(u);
    for (const request_case &c : request_cases) {
        const reply answer = ask(u, c.type, c.index, c.value, c.text);
        EXPECT_EQ(answer.type, c.type);
        EXPECT_EQ(answer.result, c.result) << c.message;
        EXPECT_TRUE(u.logged(std::string("2 snmp_ipc_cb: ") + c.message)) << c.message;
    }
    EXPECT_EQ(grid_test::relay_list(1), "Eth Link Down#0 AC Power Off#2");
    EXPECT_EQ(zel::gpios[6].type, 0u);
}

TEST(a_request, without_an_action_fails)
{
    unit u;
    start_all(u);
    for (int type = 2; type <= 255; ++type) {
        const bool known = std::any_of(std::begin(request_cases), std::end(request_cases), [&](const auto &c) { return c.type == type; });
        if (!known) { EXPECT_EQ(ask(u, static_cast<uint8_t>(type), 0, 0).result, -1) << type; }
    }
    EXPECT_EQ(u.count_of("log"), 0);
}

TEST(a_request, for_what_does_not_exist_fails)
{
    unit u;
    start_all(u);
    for (const auto &[type, index] : {std::pair{15, 9}, {15, -1}, {21, 10}, {23, INT32_MAX}, {29, 3}, {29, INT32_MIN}, {34, -3}, {35, 2}, {35, -1}, {27, -1}, {23, 2}, {25, 3}, {15, 3}}) {
        u.take();
        EXPECT_EQ(ask(u, static_cast<uint8_t>(type), index, 0).result, -1) << type << " " << index;
        EXPECT_EQ(u.count_of("log 1"), 1);
        EXPECT_TRUE(u.take_of("json").empty());
    }
}

TEST(a_request, that_is_short_or_long_or_empty_is_ignored)
{
    unit u;
    start_all(u);
    for (size_t length : {size_t{1}, size_t{75}, size_t{77}, size_t{4000}}) {
        u.take();
        u.deliver("snmp", 15, fake::bytes(length));
        EXPECT_EQ(u.count_of("log 1"), 1) << length;
    }
    u.take();
    u.deliver_without_payload("snmp", 15);
    u.deliver_without_payload("snmp", 1);
    EXPECT_TRUE(u.take().empty());
    EXPECT_TRUE(u.sent("snmp", 36).empty());
}

TEST(a_request, with_a_text_without_terminator_ends_it_at_its_field)
{
    unit u;
    start_all(u);
    EXPECT_EQ(ask(u, 16, 0, 0, std::string(64, 'x').c_str()).result, -1);
    EXPECT_TRUE(u.logged("1 check_and_set_new_gpio_handler_list: Handler name: '" + std::string(64, 'x') + "' not found"));
}

TEST(a_led, is_evaluated_again_only_when_the_wish_differs)
{
    unit u;
    start_all(u);
    u.take();
    ask(u, 34, 1, 0);
    EXPECT_EQ(u.count_of("callback"), 0);
    ask(u, 34, 1, 1);
    EXPECT_EQ(u.count_of("callback User LED 1"), 1);
}

}  // namespace
