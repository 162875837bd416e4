// What the library tells the SNMP agent, decoded by offsets.
#include <gtest/gtest.h>

#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_info.h"

using namespace vgpo_units;
using fake::message;
using fake::unit;

namespace {

/// GPI 0 input, GPI 1 output, cough 2, vGPI 3, vGPO 4, button 5, LED 6, relay 0.
void describe_all(unit &u)
{
    u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(1);
    u.set("on_grid_handlers", "Record");
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_0/handler", "Nobody, Record");
    u.set("physical/gpio_0/handler_invert", "0, 0");
    u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", "Eth Link Down, Nobody, AoIP Link Down");
    u.set("physical/gpio_1/invert_trigger", "0, 0, 1");
    u.set("physical/gpio_2/type", 1).set("physical/gpio_2/handler_invert", "");
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_0/handler_invert", "");
    u.set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/invert_trigger", "");
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler_invert", "");
    u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Eth Link Down").set("user_buttons/led_1/invert_trigger", "1");
    u.set("relay/relay_0/triggers", "Eth Link Down, AoIP Link Down").set("relay/relay_0/trigger_invert", "1, 0");
}

void start_all(unit &u)
{
    describe_all(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.led_handler(0);
    u.forget_sent();
}

message sent_one(unit &u, int32_t index)
{
    u.forget_sent();
    zel::snmp_send_gpio_info(index);
    const auto sent = u.sent("snmp");
    EXPECT_EQ(sent.size(), 1u);
    return sent.at(0);
}

TEST(the_agent, is_told_everything_at_start_and_whenever_it_comes)
{
    unit u;
    start_all(u);
    for (int round = 0; round < 2; ++round) {
        u.forget_sent();
        u.deliver("snmp", 1, {1});
        std::string types;
        for (const message &m : u.sent("snmp")) types += std::to_string(m.type) + " ";
        EXPECT_EQ(types.substr(0, 10), "2 3 4 5 6 ");
        EXPECT_EQ(types.substr(10, 17), "7 7 7 8 8 9 10 11");
        EXPECT_NE(types.find("13 13 14 "), std::string::npos);
        const int expected[] = {2, 1, 1, 2, 1};
        for (int i = 0; i < 5; ++i) EXPECT_EQ(u.sent("snmp").at(static_cast<size_t>(i)).int_at(0), expected[i]);
    }
    EXPECT_TRUE(u.logged("2 snmp_ipc_cb: IPC CONNECTED"));
    u.forget_sent();
    u.deliver("snmp", 0, {1});
    EXPECT_TRUE(u.logged("2 snmp_ipc_cb: IPC DISCONNECTED"));
    EXPECT_TRUE(u.sent("snmp").empty());
}

TEST(the_agent, may_be_missing)
{
    unit u;
    describe_all(u);
    u.fail("ipc snmp init");
    ASSERT_EQ(u.start(), 0);
    EXPECT_TRUE(u.logged("0 snmp_init: Failed to setup snmp ipc client for zel_gpio"));
    EXPECT_TRUE(u.logged("0 zel_gpio_init: Failed to setup snmp"));
    u.handler("Record");
    u.edge(1, 1);
    zel_gpio_deregister_handler("Record");
    zel::snmp_send_all_info();
    zel::snmp_send_vgpo_info(-1);
    zel::snmp_send_vgpo_removed(1);
    EXPECT_TRUE(u.sent("snmp").empty());
}

TEST(a_port_record, of_an_input_holds_its_handlers)
{
    unit u;
    start_all(u);
    u.edge(1, 1);
    const message m = sent_one(u, 0);
    EXPECT_EQ(m.type, 7);
    ASSERT_EQ(m.payload.size(), 696u);
    for (const auto &[offset, value] : {std::pair{0, 0}, {4, 1}, {8, 0}, {12, -1}, {16, 0}, {212, 2}, {416, 0}, {620, 0}, {688, 1}, {692, 1}})
        EXPECT_EQ(m.int_at(static_cast<size_t>(offset)), value) << offset;
    EXPECT_EQ(m.text_at(624, 64), "");
}

TEST(a_port_record, of_an_output_holds_its_triggers_and_the_active_ones)
{
    unit u;
    start_all(u);
    u.raise("Eth Link Down");
    const message m = sent_one(u, 1);
    for (const auto &[offset, value] : {std::pair{0, 1}, {4, 2}, {212, 0}, {216, 0}, {220, -1}, {224, 1}, {416, 3}, {420, 0}, {424, 1}, {620, 2}, {692, 1}})
        EXPECT_EQ(m.int_at(static_cast<size_t>(offset)), value) << offset;
}

TEST(a_port_record, counts_each_kind_from_its_own_start)
{
    unit u;
    start_all(u);
    const message cough = sent_one(u, 2), vgpi = sent_one(u, 3), vgpo = sent_one(u, 4), button = sent_one(u, 5), led = sent_one(u, 6);
    EXPECT_EQ(cough.type, 7);
    EXPECT_EQ(cough.int_at(0), 0);
    EXPECT_EQ(cough.int_at(8), 1);
    EXPECT_EQ(vgpi.type, 8);
    EXPECT_EQ(vgpi.int_at(0), 0);
    EXPECT_EQ(vgpi.text_at(624, 64), near);
    EXPECT_EQ(vgpo.int_at(0), 1);
    EXPECT_EQ(button.type, 9);
    EXPECT_EQ(button.int_at(0), 0);
    EXPECT_EQ(led.type, 10);
    EXPECT_EQ(led.int_at(0), 0);
    EXPECT_EQ(led.int_at(692), 1) << "an inverted trigger that is off lights it";
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(sent_one(u, 5).int_at(692), 1);
    zel_gpio_deregister_trigger("User Button 1");
    EXPECT_EQ(sent_one(u, 5).int_at(692), 0) << "an unbound trigger is off";
    zel_gpio_deregister_handler("User LED 1");
    EXPECT_EQ(sent_one(u, 6).int_at(692), 0);
}

TEST(a_port_record, ends_a_long_source_with_a_zero)
{
    unit u;
    u.virtuals(1).set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", std::string(80, 's').c_str());
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(sent_one(u, 0).text_at(624, 64), std::string(63, 's'));
}

TEST(a_port_record, sends_the_first_fifty_with_true_counts)
{
    unit u;
    std::string names, inverts, handlers;
    for (int i = 0; i < 60; ++i) {
        names += (i > 0 ? ", T" : "T") + std::to_string(i);
        handlers += (i > 0 ? ", H" : "H") + std::to_string(i);
        inverts += i > 0 ? ", 1" : "1";
    }
    u.gpis(2).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", names.c_str()).set("physical/gpio_0/invert_trigger", inverts.c_str());
    u.set("physical/gpio_1/type", 1).set("physical/gpio_1/handler", handlers.c_str()).set("physical/gpio_1/handler_invert", "");
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 60; ++i) u.trigger("T" + std::to_string(i));
    for (int i = 0; i < 60; ++i) u.handler("H" + std::to_string(i));
    const message output = sent_one(u, 0), input = sent_one(u, 1);
    EXPECT_EQ(output.int_at(416), 60);
    EXPECT_EQ(output.int_at(216 + 49 * 4), zel::gpios[0].trig_ids[49]);
    EXPECT_EQ(output.int_at(420 + 49 * 4), zel::gpios[0].trig_ids[49]);
    EXPECT_EQ(output.int_at(620), 60);
    EXPECT_EQ(input.int_at(212), 60);
    EXPECT_EQ(input.int_at(12 + 49 * 4), 49);
}

TEST(a_relay_record, holds_its_triggers_and_the_active_ones)
{
    unit u;
    start_all(u);
    u.raise("AoIP Link Down");
    u.forget_sent();
    zel::snmp_send_relay_info(0);
    const message m = u.sent("snmp").at(0);
    EXPECT_EQ(m.type, 11);
    ASSERT_EQ(m.payload.size(), 416u);
    for (const auto &[offset, value] : {std::pair{0, 0}, {4, 0}, {8, 1}, {204, 2}, {208, 0}, {212, 1}, {408, 2}, {412, 1}})
        EXPECT_EQ(m.int_at(static_cast<size_t>(offset)), value) << offset;
    u.raise("Eth Link Down"), u.clear("AoIP Link Down");
    u.forget_sent();
    zel::snmp_send_relay_info(-1);
    EXPECT_EQ(u.sent("snmp").at(0).int_at(412), 0);
}

TEST(a_name_record, cuts_a_long_name_without_a_terminator)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.forget_sent();
    u.trigger(std::string(70, 'n'));
    const message m = u.sent("snmp", 12).at(0);
    ASSERT_EQ(m.payload.size(), 68u);
    EXPECT_EQ(m.int_at(0), 5);
    EXPECT_EQ(m.text_at(4, 64), std::string(64, 'n'));
}

TEST(the_senders, tell_of_nothing_that_does_not_exist)
{
    unit u;
    start_all(u);
    u.forget_sent();
    for (int32_t index : {-2, 7, 200, 1 << 30}) zel::snmp_send_gpio_info(index);
    for (int32_t index : {-2, 1, 200}) zel::snmp_send_relay_info(index);
    for (int32_t id : {-2, 150, 200}) zel::snmp_send_trigger_info(id), zel::snmp_send_handler_info(id), zel::snmp_send_vgpo_info(id);
    EXPECT_TRUE(u.sent("snmp").empty());
    zel::snmp_send_vgpo_info(0);
    EXPECT_EQ(u.sent("snmp", 14).at(0).text_at(4, 64), near);
}

}  // namespace
