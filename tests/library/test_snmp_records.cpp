// Every byte of the records that the agent is sent.
#include <gtest/gtest.h>

#include <algorithm>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_info.h"

using namespace vgpo_units;
using fake::bytes;
using fake::unit;

namespace {

void put_int(bytes &record, size_t at, int32_t value) { std::memcpy(&record[at], &value, sizeof value); }

using ints = std::vector<int32_t>;

void put_ints(bytes &record, size_t at, const ints &values)
{
    for (const int32_t value : values) put_int(record, at, value), at += 4;
}

void put_text(bytes &record, size_t at, const std::string &text) { std::memcpy(&record[at], text.data(), text.size()); }

struct port_fields {
    uint8_t message;
    int32_t index, type, cough = 0;
    ints handlers = {}, triggers = {}, active = {};
    int32_t active_count = 0;
    std::string source = "";
    int32_t mode = 0, state = 0;
};

bytes port_record(const port_fields &f)
{
    bytes record(696);
    put_ints(record, 0, {f.index, f.type, f.cough});
    put_ints(record, 12, f.handlers);
    put_int(record, 212, static_cast<int32_t>(f.handlers.size()));
    put_ints(record, 216, f.triggers);
    put_int(record, 416, static_cast<int32_t>(f.triggers.size()));
    put_ints(record, 420, f.active);
    put_int(record, 620, f.active_count);
    put_text(record, 624, f.source);
    put_ints(record, 688, {f.mode, f.state});
    return record;
}

bytes relay_record(int32_t index, const ints &triggers, const ints &active, int32_t count, int32_t state)
{
    bytes record(416);
    put_int(record, 0, index);
    put_ints(record, 4, triggers);
    put_int(record, 204, static_cast<int32_t>(triggers.size()));
    put_ints(record, 208, active);
    put_ints(record, 408, {count, state});
    return record;
}

bytes name_record(int32_t id, const std::string &name)
{
    bytes record(68);
    put_int(record, 0, id);
    put_text(record, 4, name.substr(0, 64));
    return record;
}

bytes number(uint32_t value)
{
    bytes record(4);
    std::memcpy(record.data(), &value, 4);
    return record;
}

/// 0 and 1 GPI, 2 and 3 cough, 4 vGPI, 5 vGPO, 6 and 8 buttons, 7 and 9 LEDs; relays 0 and 1. Triggers 5 to 12 are the ports' and
/// buttons' own, 13 is Door, 14 Fire. Handlers 0 Record, 1 Play, 2 that of LED 1.
void start(unit &u)
{
    u.gpis(2).coughs(2).virtuals(2).buttons(2).relays(2);
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_0/handler", "Play, Nobody, Record");
    u.set("physical/gpio_0/handler_invert", "0, 0, 1");
    u.set("physical/gpio_1/type", 2)
        .set("physical/gpio_1/trigger", "Door, Nobody, Fire, GPI 1")
        .set("physical/gpio_1/invert_trigger", "0, 1, 1, 0");
    u.set("physical/gpio_3/type", 1).set("physical/gpio_3/handler", "Record").set("physical/gpio_3/handler_invert", "0");
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_0/handler", "Play");
    u.set("virtual/vgpio_0/handler_invert", "0").set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/trigger", "Fire");
    u.set("virtual/vgpio_1/invert_trigger", "1").set("user_buttons/btn_2/type", 1).set("user_buttons/btn_2/handler", "Record");
    u.set("user_buttons/btn_2/handler_invert", "0").set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Door");
    u.set("user_buttons/led_1/invert_trigger", "0")
        .set("relay/relay_1/triggers", "Fire, Nobody, Door")
        .set("relay/relay_1/trigger_invert", "1, 1, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play"), u.led_handler(0);
    u.trigger("Door"), u.trigger("Fire");
    ASSERT_EQ(unit::trigger_id("Door"), 13);
    ASSERT_EQ(unit::trigger_id("Fire"), 14);
}

std::vector<port_fields> ports_at_rest()
{
    return {{.message = 7, .index = 0, .type = 1, .handlers = {1, -1, 0}, .mode = 1},
            {.message = 7, .index = 1, .type = 2, .triggers = {13, -1, 14, 5}, .active = {14}, .active_count = 1, .state = 1},
            {.message = 7, .index = 0, .type = 0, .cough = 1},
            {.message = 7, .index = 1, .type = 1, .cough = 1, .handlers = {0}, .mode = 1},
            {.message = 8, .index = 0, .type = 1, .handlers = {1}, .source = near},
            {.message = 8, .index = 1, .type = 2, .triggers = {14}, .active = {14}, .active_count = 1, .state = 1},
            {.message = 9, .index = 0, .type = 0},
            {.message = 10, .index = 0, .type = 2, .triggers = {13}},
            {.message = 9, .index = 1, .type = 1, .handlers = {0}},
            {.message = 10, .index = 1, .type = 0}};
}

void expect_port(unit &u, int32_t index, const port_fields &expected, const char *when)
{
    u.forget_sent();
    zel::snmp_send_gpio_info(index);
    const auto sent = u.sent("snmp");
    ASSERT_EQ(sent.size(), 1u) << index;
    EXPECT_EQ(sent[0].type, expected.message) << index;
    const bytes got = sent[0].payload, wanted = port_record(expected);
    ASSERT_EQ(got.size(), 696u);
    const auto differs = std::mismatch(got.begin(), got.end(), wanted.begin()).first;
    EXPECT_EQ(got, wanted) << "port " << index << " " << when << ", from byte " << differs - got.begin();
}

TEST(a_port, is_described_byte_by_byte)
{
    unit u;
    start(u);
    const std::vector<port_fields> expected = ports_at_rest();
    for (int32_t i = 0; i < 10; ++i) expect_port(u, i, expected[static_cast<size_t>(i)], "at rest");
}

TEST(a_port, is_described_with_all_its_levels)
{
    unit u;
    start(u);
    resolve(u, near);
    u.edge(1, 1), u.edge(4, 1);
    u.raise("Door"), u.raise("Fire");
    u.value(1, "/near/status", 1);
    zel_gpio_notify_user_button_event(1);
    std::vector<port_fields> expected = ports_at_rest();
    expected[0].state = expected[3].state = expected[4].state = expected[8].state = 1;
    expected[1] = {
        .message = 7, .index = 1, .type = 2, .triggers = {13, -1, 14, 5}, .active = {13, 5}, .active_count = 2, .state = 1};
    expected[5] = {.message = 8, .index = 1, .type = 2, .triggers = {14}};
    expected[7] = {.message = 10, .index = 0, .type = 2, .triggers = {13}, .active = {13}, .active_count = 1, .state = 1};
    for (int32_t i = 0; i < 10; ++i) expect_port(u, i, expected[static_cast<size_t>(i)], "active");
}

TEST(a_relay, is_described_byte_by_byte)
{
    unit u;
    start(u);
    const auto described = [&] {
        u.forget_sent();
        zel::snmp_send_relay_info(-1);
        const auto sent = u.sent("snmp", 11);
        EXPECT_EQ(sent.size(), 2u);
        EXPECT_EQ(sent.at(0).payload, relay_record(0, {}, {}, 0, 0));
        return sent.at(1).payload;
    };
    EXPECT_EQ(described(), relay_record(1, {14, -1, 13}, {14}, 1, 1));
    u.raise("Fire");
    EXPECT_EQ(described(), relay_record(1, {14, -1, 13}, {}, 0, 0));
    u.raise("Door");
    EXPECT_EQ(described(), relay_record(1, {14, -1, 13}, {13}, 1, 1));
    u.clear("Fire");
    EXPECT_EQ(described(), relay_record(1, {14, -1, 13}, {14, 13}, 2, 1));
    zel::relays[1].active_trigs = 0;
    EXPECT_EQ(described(), relay_record(1, {14, -1, 13}, {14, 13}, 0, 1)) << "the state is counted afresh";
    u.raise("Fire"), u.clear("Door");
    zel::relays[1].active_trigs = 77;
    EXPECT_EQ(described(), relay_record(1, {14, -1, 13}, {}, 77, 0));
}

TEST(everything, is_sent_in_one_order)
{
    unit u;
    start(u);
    resolve(u, near), resolve(u, far, "10.0.0.3");
    u.forget_sent();
    zel::snmp_send_all_info();
    fake::lines types;
    for (const fake::message &m : u.sent("snmp")) types.push_back(std::to_string(m.type));
    fake::lines expected = {"2", "3", "4", "5", "6", "7", "7", "7", "7", "8", "8", "9", "10", "9", "10", "11", "11"};
    for (int i = 0; i < 15; ++i) expected.push_back("12");
    for (int i = 0; i < 3; ++i) expected.push_back("13");
    expected.insert(expected.end(), {"14", "14"});
    EXPECT_EQ(types, expected);
    const uint32_t counts[] = {2, 2, 2, 2, 2};
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(u.sent("snmp")[i].payload, number(counts[i])) << i;
}

TEST(everything, names_every_taken_slot_with_its_number)
{
    unit u;
    start(u);
    zel_gpio_deregister_trigger("Door");
    zel_gpio_deregister_handler("Play");
    resolve(u, near), resolve(u, far, "10.0.0.3"), resolve(u, beside, "10.0.0.2");
    remove(u, far);
    u.forget_sent();
    u.deliver("snmp", 1, {0});
    const char *const triggers[] = {"Eth Link Down", "AoIP Link Down", "AC Power Off",  "DC Power Off", "PTP Sync Lost",
                                    "GPI 1",         "GPI 2",          "COUGH 1",       "COUGH 2",      "vGPI 1",
                                    "vGPI 2",        "User Button 1",  "User Button 2", nullptr,        "Fire"};
    std::vector<bytes> expected, got;
    for (int32_t id = 0; id < 15; ++id)
        if (triggers[id] != nullptr) expected.push_back(name_record(id, triggers[id]));
    expected.push_back(name_record(0, "Record"));
    expected.push_back(name_record(2, "User LED 1"));
    expected.push_back(name_record(0, near));
    expected.push_back(name_record(2, beside));
    for (const fake::message &m : u.sent("snmp"))
        if (m.type >= 12 && m.type <= 14) got.push_back(m.payload);
    EXPECT_EQ(got, expected);
}

TEST(the_counts, are_those_of_each_kind)
{
    struct unit_case {
        int gpis, coughs, relays, virtuals, buttons;
    };
    for (const unit_case &c : {unit_case{0, 0, 0, 0, 0}, {20, 0, 1, 0, 0}, {0, 20, 0, 3, 0}, {3, 2, 4, 5, 6}, {0, 0, 0, 0, 1}}) {
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            u.gpis(c.gpis).coughs(c.coughs).relays(c.relays).virtuals(c.virtuals).buttons(c.buttons);
            u.start();
            const int expected[] = {c.gpis, c.coughs, c.relays, c.virtuals, c.buttons};
            for (size_t i = 0; i < 5; ++i) {
                EXPECT_EQ(u.sent("snmp").at(i).type, 2 + i);
                EXPECT_EQ(u.sent("snmp").at(i).payload, number(static_cast<uint32_t>(expected[i]))) << i;
            }
            EXPECT_EQ(u.sent("snmp", 8).size(), static_cast<size_t>(c.virtuals));
            EXPECT_EQ(u.sent("snmp", 10).size(), static_cast<size_t>(c.buttons));
        });
    }
}

TEST(a_name, fills_its_field_and_no_more)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.forget_sent();
    for (const size_t length : {1u, 63u, 64u, 65u, 70u, 500u}) {
        const std::string name(length, static_cast<char>('a' + length % 26));
        const int32_t handler = u.handler(name), trigger = u.trigger(name);
        EXPECT_EQ(u.sent("snmp", 13).back().payload, name_record(handler, name)) << length;
        EXPECT_EQ(u.sent("snmp", 12).back().payload, name_record(trigger, name)) << length;
    }
}

TEST(a_list, of_any_length_sends_its_first_fifty_entries)
{
    unit u;
    std::string names, inverts;
    for (int i = 0; i < 120; ++i) names += (i > 0 ? ", T" : "T") + std::to_string(i), inverts += i > 0 ? ", 0" : "0";
    u.relays(1).set("relay/relay_0/triggers", names.c_str()).set("relay/relay_0/trigger_invert", inverts.c_str());
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 120; ++i) u.trigger("T" + std::to_string(i));
    for (int i = 60; i < 120; ++i) u.raise("T" + std::to_string(i));
    u.forget_sent();
    zel::snmp_send_relay_info(0);
    const fake::message m = u.sent("snmp", 11).at(0);
    ASSERT_EQ(m.payload.size(), 416u);
    for (size_t slot = 0; slot < 50; ++slot) {
        EXPECT_EQ(m.int_at(4 + 4 * slot), 5 + static_cast<int32_t>(slot));
        EXPECT_EQ(m.int_at(208 + 4 * slot), 65 + static_cast<int32_t>(slot))
            << "the first fifty active ones, wherever they are listed";
    }
    EXPECT_EQ(m.int_at(204), 120);
    EXPECT_EQ(m.int_at(408), 60);
    EXPECT_EQ(m.int_at(412), 1);
}

TEST(a_led, shows_the_handler_of_its_first_entry)
{
    unit u;
    start(u);
    u.raise("Door");
    expect_port(u, 7, {.message = 10, .index = 0, .type = 2, .triggers = {13}, .active = {13}, .active_count = 1, .state = 1},
                "on");
    zel_gpio_deregister_handler("User LED 1");
    expect_port(u, 7, {.message = 10, .index = 0, .type = 2, .triggers = {13}, .active = {13}, .active_count = 1},
                "without its handler");
}

TEST(a_button, shows_its_trigger_or_nothing)
{
    unit u;
    start(u);
    zel_gpio_notify_user_button_event(1);
    expect_port(u, 8, {.message = 9, .index = 1, .type = 1, .handlers = {0}, .state = 1}, "pressed");
    zel_gpio_deregister_trigger("User Button 2");
    expect_port(u, 8, {.message = 9, .index = 1, .type = 1, .handlers = {0}}, "without its trigger");
}

}  // namespace
