// What the discovery daemon is told of this unit's virtual outputs, byte by byte, and when.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpo_publishing.h"

using namespace vgpo_units;
using fake::bytes;
using fake::unit;

namespace {

void put(bytes &record, size_t at, const std::string &text) { std::memcpy(&record[at], text.data(), text.size()); }

void put_int(bytes &record, size_t at, int32_t value) { std::memcpy(&record[at], &value, sizeof value); }

/// One physical port before the virtual ones; the first of these is an output.
unit &one_output(unit &u)
{
    return u.gpis(1)
        .virtuals(2)
        .set("virtual/vgpio_0/type", 2)
        .set("virtual/vgpio_0/trigger", "")
        .set("virtual/vgpio_0/invert_trigger", "");
}

TEST(the_lookup, is_1084_bytes_that_are_zero_but_for_interface_and_type)
{
    unit u;
    u.interface_index(-2);
    ASSERT_EQ(u.start(), 0);
    bytes expected(1084);
    put_int(expected, 0, -2);
    put(expected, 4, our_type);
    EXPECT_EQ(u.sent("sdisc", 7).at(0).payload, expected);
    EXPECT_EQ(u.sent("sdisc").size(), 1u);
}

TEST(the_announcement, is_1224_bytes_that_are_zero_behind_every_text)
{
    unit u;
    one_output(u).ember(65535, "the unit").friendly_name("K\xC3\xB6ln").interface_index(2);
    ASSERT_EQ(u.start(), 0);
    bytes expected(1224);
    put_int(expected, 0, 2);
    put(expected, 4, "vGPO1@K\xC3\xB6ln");
    put(expected, 68, our_type);
    expected[196] = expected[197] = 0xFF;
    put(expected, 198, "\"path=/the unit/gpio/virtual/vgpio 1\"");
    ASSERT_EQ(u.sent("sdisc", 9).size(), 1u);
    EXPECT_EQ(u.sent("sdisc", 9)[0].payload, expected);
}

TEST(the_announcement, follows_the_type_of_the_port)
{
    unit u;
    one_output(u).ember();
    ASSERT_EQ(u.start(), 0);
    const auto told = [&](const char *path, int type) {
        u.forget_sent();
        EXPECT_EQ(u.write(path, type), 0);
        std::string text;
        for (const fake::message &m : u.sent("sdisc")) text += std::to_string(m.type) + m.text_at(m.type == 9 ? 4 : 0, 64) + " ";
        return text;
    };
    EXPECT_EQ(told("gpio/virtual/vgpio 2/type", 2), "9vGPO2@Studio 1 ");
    EXPECT_EQ(told("gpio/virtual/vgpio 2/type", 1), "10vGPO2@Studio 1 ");
    EXPECT_EQ(told("gpio/virtual/vgpio 2/type", 2), "9vGPO2@Studio 1 ");
    EXPECT_EQ(told("gpio/virtual/vgpio 2/type", 0), "10vGPO2@Studio 1 ");
    EXPECT_EQ(told("gpio/virtual/vgpio 2/type", 1), "");
    EXPECT_EQ(told("gpio/virtual/vgpio 2/type", 0), "");
    EXPECT_EQ(told("gpio/physical/gpio 1/type", 2), "") << "only virtual outputs are announced";
}

TEST(the_announcement, is_withdrawn_at_the_end_before_the_link_ends)
{
    unit u;
    one_output(u).ember();
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.stop();
    EXPECT_LINES(u.take_of("ipc sdisc"), "ipc sdisc send 10 (15 bytes)", "ipc sdisc end");
    bytes name(15);
    put(name, 0, "vGPO1@Studio 1");
    EXPECT_EQ(u.sent("sdisc", 10).at(0).payload, name);
}

TEST(the_withdrawal, that_cannot_be_sent_is_not_reported)
{
    unit u;
    one_output(u).ember();
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.fail("ipc sdisc send 10");
    zel::unpublish_vgpo(1);
    EXPECT_LINES(u.take(), "ipc sdisc send 10 (15 bytes) failed");
}

/// A name for the host's node with which the path of the first virtual port is `length` characters long.
std::string parent_for_path(size_t length) { return std::string(length - std::strlen("//gpio/virtual/vgpio 1"), 'p'); }

struct long_path {
    size_t length;
    const char *message;   // null: announced
};

TEST(the_path, may_be_as_long_as_its_field)
{
    for (const long_path &c : {long_path{1000, nullptr},
                               {1016, nullptr},
                               {1017, "0 get_vgpo_strlist: Ran out of space for strlist"},
                               {1023, "0 get_vgpo_strlist: Ran out of space for strlist"},
                               {1024, "0 get_vgpo_strlist: Failed to get path for gpio index 1"},
                               {3000, "0 get_vgpo_strlist: Failed to get path for gpio index 1"}}) {
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            one_output(u).ember(9000, parent_for_path(c.length).c_str());
            u.start();
            const auto sent = u.sent("sdisc", 9);
            ASSERT_EQ(sent.size(), c.message == nullptr ? 1u : 0u) << c.length;
            if (c.message == nullptr) {
                EXPECT_EQ(sent[0].text_at(198, 1026).size(), c.length + 7);
                EXPECT_EQ(sent[0].text_at(198, 1026).back(), '"');
            } else {
                EXPECT_TRUE(u.logged(c.message)) << c.length;
                EXPECT_TRUE(u.logged("0 publish_vgpo: Failed to get vgpo service path for index 1"));
            }
        });
    }
}

TEST(the_path, that_the_provider_does_not_give_leaves_the_port_unannounced)
{
    unit u;
    one_output(u).ember().fail("ember path");
    ASSERT_EQ(u.start(), 0);
    EXPECT_TRUE(u.sent("sdisc", 9).empty());
    EXPECT_TRUE(u.logged("0 get_vgpo_strlist: Failed to get path for gpio index 1"));
    EXPECT_EQ(port(1).type, 2u) << "which works all the same";
}

TEST(the_service_name, is_cut_at_its_buffer)
{
    unit u;
    one_output(u).ember();
    ASSERT_EQ(u.start(), 0);
    const std::string whole = "vGPO1@Studio 1";
    for (size_t size = 1; size < 20; ++size) {
        const std::unique_ptr<char[]> buffer(new char[size]);
        EXPECT_EQ(zel::get_vgpo_service_name(1, buffer.get(), size), 0);
        EXPECT_EQ(std::string(buffer.get()), whole.substr(0, size - 1));
    }
}

TEST(the_service_name, and_the_path_exist_for_virtual_outputs_only)
{
    unit u;
    one_output(u).ember();
    ASSERT_EQ(u.start(), 0);
    char text[64];
    for (const int32_t index : {0, 2}) {
        u.take();
        EXPECT_EQ(zel::get_vgpo_service_name(index, text, sizeof text), -1);
        EXPECT_EQ(zel::get_vgpo_strlist(index, text, sizeof text), -1);
        const std::string message =
            ": Gpio at index " + std::to_string(index) + " is invalid (either not virtual or not an output)";
        EXPECT_LINES(u.take(), "log 0 get_vgpo_service_name" + message, "log 0 get_vgpo_strlist" + message);
    }
    EXPECT_EQ(zel::get_vgpo_strlist(1, text, sizeof text), 0);
    EXPECT_STREQ(text, "\"path=/unit/gpio/virtual/vgpio 1\"");
}

TEST(the_service_name, and_the_path_need_a_buffer)
{
    const unit u;
    const fake::child_result name = fake::in_child([] { zel::get_vgpo_service_name(0, nullptr, 64); });
    const fake::child_result path = fake::in_child([] { zel::get_vgpo_strlist(0, nullptr, 64); });
    EXPECT_EQ(name.signal, SIGABRT);
    EXPECT_EQ(path.signal, SIGABRT);
    EXPECT_NE(name.output.find("`name != NULL'"), std::string::npos) << name.output;
    EXPECT_NE(path.output.find("`strlist != NULL'"), std::string::npos) << path.output;
}

TEST(a_unit, without_a_provider_announces_nothing)
{
    unit u;
    one_output(u);
    ASSERT_EQ(u.start(), 0);
    EXPECT_TRUE(u.sent("sdisc", 9).empty());
    zel::publish_vgpo(1);
    EXPECT_TRUE(u.logged("0 get_vgpo_strlist: zel_ember node for gpio index 1 is NULL"));
}

TEST(a_unit, without_a_network_configuration_says_why_it_announces_nothing)
{
    unit u;
    one_output(u).ember().without_udp_config();
    ASSERT_EQ(u.start(), 0);
    EXPECT_TRUE(u.logged("0 publish_vgpo: Failed to get vgpo service name for index 1"));
    u.take();
    // Index 2 is no output, which is not looked at any more.
    for (const int32_t index : {1, 2}) {
        zel::unpublish_vgpo(index);
        EXPECT_LINES(u.take(),
                     "log 0 get_vgpo_service_name: Unable to fetch friendly name for vGPO service name (net_cfg is NULL)",
                     "log 0 unpublish_vgpo: Failed to get vgpo service name for index " + std::to_string(index));
    }
}

}  // namespace
