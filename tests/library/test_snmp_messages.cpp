// When the agent is told, and what its requests reach.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_records.h"

using namespace vgpo_units;
using fake::unit;
using grid_test::told;
using zel::snmp_request_record;

namespace {

/// 0 and 1 GPI (input, output), 2 and 3 cough (inputs), 4 vGPI, 5 vGPO, 6 and 8 buttons, 7 and 9 LEDs; relays 0 and 1.
void start(unit &u)
{
    u.ember().gpis(2).coughs(2).virtuals(2).buttons(2).relays(2);
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_1/type", 2);
    u.set("physical/gpio_2/type", 1).set("physical/gpio_3/type", 1);
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_1/type", 2);
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/led_1/type", 2).set("user_buttons/led_2/type", 2);
    u.set("relay/relay_0/triggers", "Eth Link Down").set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.led_handler(0);
    resolve(u, near);
    u.take();
    u.forget_sent();
}

int32_t ask(unit &u, uint8_t type, int32_t index, int32_t value = 0, const char *text = "")
{
    snmp_request_record record{index, value, {}, 4711};
    strncpy(record.text, text, sizeof record.text);
    u.forget_sent();
    u.deliver_record("snmp", type, record);
    const auto replies = u.sent("snmp", 36);
    EXPECT_EQ(replies.size(), 1u) << int{type};
    return replies.size() == 1 ? replies[0].int_at(4) : -99;
}

// ---- News

struct news {
    const char *what;
    void (*happens)(unit &);
    fake::lines told;   // type and index (and name) of each message
};

const news all_news[] = {
    {"an edge", [](unit &u) { u.edge(1, 1); }, {"7 0"}},
    {"a trigger that a relay lists", [](unit &u) { u.raise("Eth Link Down"); }, {"11 0"}},
    {"a press of a button", [](unit &) { zel_gpio_notify_user_button_event(0); }, {"9 0"}},
    {"a level of another unit", [](unit &u) { u.value(1, "/near/status", 1); }, {"8 0"}},
    {"a type of another unit", [](unit &u) { u.value(1, "/near/type", 1); }, {"8 0"}},
    {"a type chosen in the tree", [](unit &u) { u.write("gpio/physical/gpio 2/type", 0); }, {"7 1", "7 1"}},
    {"a cough port disabled in the tree", [](unit &u) { u.write("gpio/physical/cough 2/type", 0); }, {"7 1", "7 1"}},
    {"a relay's list in the tree", [](unit &u) { u.write("gpio/physical/relay 2/output triggers", "AC Power Off"); }, {"11 1"}},
    {"a port on the web",
     [](unit &u) { u.request("/cgi/gpioGrid.cgi", nullptr, "gpioType=p&gpioPort=1&newState=0"); },
     {"7 1", "7 1"}},
    {"a connection on the web",
     [](unit &u) { u.request("/cgi/gpioConn.cgi", nullptr, "action=1&inputClass=event&inputID=2&outputClass=relay&outputID=1"); },
     {"11 1"}},
    {"a new trigger", [](unit &u) { u.trigger("Door"); }, {"12 13 Door"}},
    {"a new handler", [](unit &u) { u.handler("Play"); }, {"13 2 Play"}},
    {"a renamed handler", [](unit &) { zel_gpio_rename_handler("Record", "Tape"); }, {"13 0 Tape"}},
    {"a renamed trigger", [](unit &) { zel_gpio_rename_trigger("AC Power Off", "Mains"); }, {"12 2 Mains"}},
    {"a handler that is gone", [](unit &) { zel_gpio_deregister_handler("Record"); }, {"13 0 "}},
    {"a unit that is found", [](unit &u) { resolve(u, far, "10.0.0.3"); }, {"14 1 " + std::string(far)}},
    {"a unit that is found again", [](unit &u) { resolve(u, near); }, {"14 0 " + std::string(near)}},
    {"a unit that is gone", [](unit &u) { resolve(u, far, "10.0.0.3"), u.forget_sent(), remove(u, far); }, {"14 1 "}},
    {"a unit that is gone and followed", [](unit &u) { remove(u, near); }, {"8 0"}},
    {"a link that is lost", [](unit &u) { u.connected(1, false); }, {}},
};

TEST(the_agent, is_told_of_every_change_at_once)
{
    for (const news &n : all_news) {
        SCOPED_TRACE(n.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start(u);
            n.happens(u);
            EXPECT_EQ(fake::joined(told(u)), fake::joined(n.told));
        });
    }
}

TEST(the_agent, that_comes_again_and_again_is_told_everything_each_time)
{
    unit u;
    start(u);
    u.deliver("snmp", 1, {1});
    const fake::lines first = told(u);
    EXPECT_GT(first.size(), 30u);
    u.deliver("snmp", 0, {1});
    EXPECT_EQ(told(u), first) << "leaving tells nothing";
    u.forget_sent();
    u.deliver("snmp", 1, fake::bytes(3000, 0xFF));
    EXPECT_EQ(told(u), first) << "whatever comes with it";
    EXPECT_TRUE(u.sent("snmp", 36).empty()) << "neither is answered";
}

TEST(the_agent, that_cannot_be_reached_costs_nothing_but_the_messages)
{
    for (const news &n : all_news) {
        SCOPED_TRACE(n.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start(u);
            u.fail("ipc snmp send");
            n.happens(u);
            u.deliver("snmp", 1, {1});
            u.deliver_record("snmp", 19, snmp_request_record{0, 0, {}, 1});
            EXPECT_EQ(zel::gpios[0].input_mode, 0u) << "a request whose answer is lost is carried out";
        });
    }
}

// ---- Requests

struct range {
    uint8_t first, last;
    int32_t lowest, highest;   // indexes that exist
};

// Of the unit above, as the agent counts. GPI requests reach all physical ports by their own index.
const range ranges[] = {{15, 17, 0, 3}, {19, 20, 0, 3}, {21, 22, 0, 1}, {23, 25, 0, 1},
                        {27, 28, 0, 1}, {29, 32, 1, 2}, {34, 34, 1, 2}, {35, 35, 0, 1}};

const int32_t far_out[] = {
    -1, -2, 4, 5, 7, 199, 200, 1000, INT32_MAX, INT32_MIN, INT32_MAX / 2, INT32_MAX / 2 + 1, INT32_MIN / 2, 1 << 30};

TEST(a_request, for_an_index_outside_its_kind_is_refused_and_changes_nothing)
{
    unit u;
    start(u);
    const std::string before = u.json("gpio");
    for (const range &r : ranges) {
        for (int type = r.first; type <= r.last; ++type) {
            for (const int32_t index : far_out) {
                if (index >= r.lowest && index <= r.highest) continue;
                u.take();
                EXPECT_EQ(ask(u, static_cast<uint8_t>(type), index, 0, ""), -1) << type << " " << index;
                EXPECT_EQ(fake::only(u.take(), {"log"}).size(), 1u) << type << " " << index;
                EXPECT_EQ(u.json("gpio"), before) << type << " " << index;
            }
        }
    }
    EXPECT_EQ(ask(u, 29, 0), -1) << "buttons count from 1";
    EXPECT_EQ(ask(u, 34, 0, 1), -1);
}

TEST(a_request, reaches_the_ports_of_its_kind)
{
    unit u;
    start(u);
    const std::tuple<uint8_t, int32_t, int32_t> reached[] = {{15, 0, 0}, {15, 1, 1}, {21, 0, 2}, {21, 1, 3},
                                                             {23, 0, 4}, {23, 1, 5}, {29, 1, 7}, {31, 2, 9}};
    for (const auto &[type, index, port_index] : reached) {
        u.take();
        EXPECT_EQ(ask(u, type, index, 0), 0) << int{type} << " " << index;
        EXPECT_TRUE(u.logged("2 snmp_ipc_cb: Setting phys_type for gpio index " + std::to_string(port_index) + " to 0"))
            << port_index;
        EXPECT_EQ(zel::gpios[port_index].type, 0u) << port_index;
    }
    EXPECT_EQ(zel::gpios[6].type, 1u) << "no request reaches a button";
}

TEST(a_request, that_is_refused_by_its_port_is_answered_with_that)
{
    unit u;
    start(u);
    EXPECT_EQ(ask(u, 21, 0, 2), -1) << "a cough port is no output";
    EXPECT_EQ(ask(u, 29, 1, 1), -1) << "an LED is no input";
    EXPECT_EQ(ask(u, 15, 0, 3), -1);
    EXPECT_EQ(ask(u, 15, 0, -1), -1);
    EXPECT_EQ(ask(u, 15, 0, INT32_MAX), -1);
    EXPECT_EQ(ask(u, 19, 0, 2), -1);
    EXPECT_EQ(ask(u, 19, 0, -1), -1);
    EXPECT_EQ(ask(u, 19, 1, 1), -1) << "an output has no mode";
    EXPECT_EQ(ask(u, 20, 0, 1), -1) << "an input's level is not set";
    EXPECT_EQ(ask(u, 17, 1, 0, "Nobody"), -1);
    EXPECT_EQ(ask(u, 27, 0, 0, "Nobody"), -1);
    EXPECT_EQ(ask(u, 27, 1, 0, near), -1) << "an output has no source";
    EXPECT_EQ(ask(u, 35, 0, 0, "!AC Power Off"), -1) << "relays take no marks";
    EXPECT_EQ(grid_test::relay_list(0), "Eth Link Down#0");
}

TEST(a_request, for_a_level_means_any_number_but_zero)
{
    unit u;
    start(u);
    for (const int32_t value : {1, -1, 256, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(ask(u, 20, 1, value), 0);
        EXPECT_EQ(u.level(102), 1) << value;
        EXPECT_EQ(ask(u, 20, 1, 0), 0);
        EXPECT_EQ(u.level(102), 0);
    }
    EXPECT_EQ(ask(u, 28, 1, 256), 0);
    EXPECT_EQ(zel::gpios[5].state, 1);
}

TEST(a_request, for_an_empty_text_empties_what_it_names)
{
    unit u;
    start(u);
    EXPECT_EQ(ask(u, 35, 0, 0, ""), 0);
    EXPECT_EQ(grid_test::relay_list(0), "");
    EXPECT_EQ(ask(u, 27, 0, 0, ""), 0);
    EXPECT_STREQ(zel::gpios[4].vgpo_src, "");
    EXPECT_TRUE(u.consumers().empty());
}

TEST(a_request, is_answered_with_any_tag_byte_by_byte)
{
    unit u;
    start(u);
    for (const int32_t tag : {0, 1, -1, INT32_MAX, INT32_MIN, 0x01020304}) {
        u.forget_sent();
        u.deliver_record("snmp", 19, snmp_request_record{0, 7, {}, tag});
        const zel::snmp_reply_record expected{19, -1, tag};
        fake::bytes payload(12);
        std::memcpy(payload.data(), &expected, 12);
        EXPECT_EQ(u.sent("snmp", 36).at(0).payload, payload);
        EXPECT_EQ(u.sent("snmp").back().type, 36) << "after all else";
    }
}

TEST(a_request, is_answered_after_what_it_changed_was_told)
{
    unit u;
    start(u);
    EXPECT_EQ(ask(u, 15, 0, 2), 0);
    const fake::lines messages = told(u);
    ASSERT_GE(messages.size(), 2u);
    EXPECT_EQ(messages.front(), "7 0");
    EXPECT_EQ(messages.back(), "36 15");
}

const int idle_types[] = {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 18, 26, 33, 36, 37, 100, 255};

TEST(a_request, of_a_type_without_an_action_is_answered_and_no_more)
{
    unit u;
    start(u);
    for (const int type : idle_types) {
        for (const int32_t index : {0, -1, INT32_MAX}) {
            EXPECT_EQ(ask(u, static_cast<uint8_t>(type), index, 1, "x"), -1) << type;
            EXPECT_LINES(u.take(), "ipc snmp send 36 (12 bytes)");
        }
    }
}

TEST(a_request, of_any_other_length_is_refused_without_an_answer)
{
    unit u;
    start(u);
    for (int type = 2; type < 64; ++type) {
        for (const size_t length : {1u, 4u, 12u, 75u, 77u, 152u, 1024u}) {
            u.deliver("snmp", static_cast<uint8_t>(type), fake::bytes(length, 0xFF));
            EXPECT_EQ(fake::only(u.take(), {"log 1 snmp_ipc_cb:"}).size() + u.sent("snmp").size(), 1u) << type << " " << length;
        }
        u.deliver("snmp", static_cast<uint8_t>(type), {});
        u.deliver_without_payload("snmp", static_cast<uint8_t>(type), 76);
        EXPECT_TRUE(u.take().empty()) << type;
    }
}

TEST(a_request, of_garbage_is_survived)
{
    unit u;
    start(u);
    uint32_t random = 20261121;
    const auto byte = [&] { return static_cast<uint8_t>((random = random * 1664525 + 1013904223) >> 24); };
    for (int round = 0; round < 3000; ++round) {
        fake::bytes payload(76);
        for (uint8_t &b : payload) b = byte();
        if (round % 2 == 0) {
            const int32_t index = round % 11 - 1, value = round / 11 % 4;
            std::memcpy(&payload[0], &index, 4);
            std::memcpy(&payload[4], &value, 4);
        }
        if (round % 3 == 0) strcpy(reinterpret_cast<char *>(&payload[8]), round % 2 == 0 ? "Eth Link Down,!AC Power Off" : near);
        u.deliver("snmp", static_cast<uint8_t>(round % 40), payload);
    }
    u.deliver("snmp", 1, {1});
    EXPECT_FALSE(u.request("/cgi/gpioGrid.cgi", "all", nullptr).text.empty());
}

}  // namespace
