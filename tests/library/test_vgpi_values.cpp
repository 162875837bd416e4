// What a virtual input does with each answer of the unit that it follows, and how it asks.
#include <gtest/gtest.h>

#include <climits>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpi_links.h"

using namespace vgpo_units;
using fake::unit;

namespace {

const std::string source = near;

/// One physical port, then an input that follows `near` and drives "Record", and the relay that its trigger drives.
class following : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        u.gpis(1).relays(1).set("relay/relay_0/triggers", "vGPI 1").set("relay/relay_0/trigger_invert", "0");
        describe(u, {near});
        u.set("virtual/vgpio_0/handler", "Record").set("virtual/vgpio_0/handler_invert", "0");
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        resolve(u, near);
        u.take();
        u.forget_sent();
    }

    /// All but what the relay and its own messages do.
    fake::lines took() { return fake::without(u.take(), {"ember set gpio/physical", "ipc snmp send 11", "pin"}); }
};

TEST_F(following, a_level_reaches_handlers_tree_trigger_and_agent_in_this_order)
{
    for (const char *const level : {"1", "0"}) {
        u.value(1, "/near/status", level[0] - '0');
        EXPECT_LINES(took(), std::string("callback Record source 1 state ") + level + " context 0",
                     std::string("ember set gpio/virtual/vgpio 1/status ") + level + " (8 bytes)",
                     std::string("log 2 zel_gpio_notify_trigger_event: event 'vGPI 1' has ") +
                         (level[0] == '1' ? "occurred" : "ended"),
                     "ipc snmp send 8 (696 bytes)");
        EXPECT_EQ(u.level(201), level[0] - '0');
        EXPECT_EQ(u.sent("snmp", 8).back().int_at(692), level[0] - '0');
    }
}

TEST_F(following, the_same_level_again_is_told_again_but_no_event)
{
    u.value(1, "/near/status", 1);
    u.take();
    u.value(1, "/near/status", 1);
    EXPECT_LINES(took(), "callback Record source 1 state 1 context 0", "ember set gpio/virtual/vgpio 1/status 1 (8 bytes)",
                 "ipc snmp send 8 (696 bytes)");
}

TEST_F(following, a_source_that_is_no_output_any_more_ends_everything_in_this_order)
{
    for (const int64_t type : {0, 1}) {
        u.value(1, "/near/status", 1);
        u.take();
        u.value(1, "/near/type", type);
        EXPECT_LINES(took(), "log 2 vgpo_type_cb: The vGPO assigned to our vGPI 0 is no longer in output mode...",
                     "consumer 1 clear /near/status", "callback Record source 1 state 0 context 0",
                     "ember set gpio/virtual/vgpio 1/status 0 (8 bytes)",
                     "log 2 zel_gpio_notify_trigger_event: event 'vGPI 1' has ended", "ipc snmp send 8 (696 bytes)");
        EXPECT_EQ(u.level(201), 0);
        EXPECT_EQ(port(1).vgpo_src_valid, 0);
        EXPECT_TRUE(u.follows(1, "/near/type")) << "it may become an output again";
        EXPECT_FALSE(u.follows(1, "/near/status"));
        u.value(1, "/near/type", 2);
        EXPECT_TRUE(u.follows(1, "/near/status"));
    }
}

TEST_F(following, a_type_of_no_meaning_only_ends_the_count_of_empty_answers)
{
    for (const int64_t type :
         {int64_t{3}, int64_t{-1}, int64_t{0x100000000}, int64_t{0x100000001}, int64_t{0x100000002}, INT64_MIN, INT64_MAX}) {
        u.value(1, "/near/status", 1);
        u.no_value(1, "/near/type");
        port(1).vgpo_src_valid = 1;
        EXPECT_EQ(record(near)->type_retries, 1);
        u.take();
        u.value(1, "/near/type", type);
        EXPECT_LINES(took(), "ipc snmp send 8 (696 bytes)");
        EXPECT_EQ(record(near)->type_retries, 0);
        EXPECT_EQ(port(1).state, 1);
        EXPECT_EQ(port(1).vgpo_src_valid, 1);
    }
}

TEST_F(following, a_level_makes_an_invalid_source_valid)
{
    u.no_value(1, "/near/status");
    EXPECT_EQ(port(1).vgpo_src_valid, 0);
    u.value(1, "/near/status", 0);
    EXPECT_EQ(port(1).vgpo_src_valid, 1);
}

TEST_F(following, empty_answers_about_type_and_level_are_counted_apart)
{
    for (int i = 0; i < 3; ++i) u.no_value(1, "/near/type");
    EXPECT_EQ(record(near)->type_retries, 3);
    EXPECT_EQ(record(near)->state_retries, 0);
    u.no_value(1, "/near/status");
    EXPECT_EQ(record(near)->state_retries, 1);
    u.value(1, "/near/status", 1);
    EXPECT_EQ(record(near)->type_retries, 3);
    EXPECT_EQ(record(near)->state_retries, 0);
    EXPECT_EQ(port(1).state, 1) << "an empty answer leaves the level";
}

TEST_F(following, an_empty_answer_is_asked_again_with_the_name_and_no_more_is_done)
{
    u.value(1, "/near/status", 1);
    u.take();
    u.no_value(1, "/near/status");
    EXPECT_LINES(took(), "log 0 vgpo_state_cb: Value received is NULL - will retry fetch....", "consumer 1 get /near/status");
    EXPECT_STREQ(static_cast<const char *>(u.requests(1).at(1).user_data), near);
    EXPECT_EQ(u.level(201), 1);
}

TEST_F(following, a_failed_request_after_an_empty_answer_counts_all_the_same)
{
    u.fail("consumer 1 get");
    for (int i = 0; i < 3; ++i) {
        u.no_value(1, "/near/type");
        EXPECT_LINES(took(), "log 0 vgpo_type_cb: Value received is NULL - will retry fetch....",
                     "consumer 1 get /near/type failed",
                     "log 0 vgpo_type_cb: Get vGPO type param failed (src addr = '10.0.0.2:9000')");
    }
    u.no_value(1, "/near/type");
    EXPECT_LINES(took(), "log 0 vgpo_type_cb: Value received is NULL after 4 attempts.");
}

TEST_F(following, a_port_that_is_no_input_or_follows_another_takes_nothing)
{
    for (const uint32_t type : {0u, 2u}) {
        port(1).type = type;
        u.value(1, "/near/status", 1);
        u.value(1, "/near/type", 1);
        u.no_value(1, "/near/status");
        EXPECT_TRUE(took().empty());
        EXPECT_EQ(port(1).vgpo_src_valid, 1);
    }
    port(1).type = 1;
    EXPECT_EQ(record(near)->state_retries, 0);
}

TEST_F(following, an_answer_without_a_name_is_nothing)
{
    const int64_t value = 1;
    for (const fake::consumer_request &request : u.requests(1)) {
        request.callback(nullptr, request.path.c_str(), 0, &value);
        request.callback(nullptr, request.path.c_str(), 0, nullptr);
    }
    EXPECT_TRUE(u.take().empty());
    EXPECT_EQ(port(1).state, 0);
}

TEST_F(following, without_a_trigger_of_its_own_raises_none)
{
    zel_gpio_deregister_trigger("vGPI 1");
    ASSERT_EQ(port(1).trig_ids[0], -1);
    u.take();
    u.value(1, "/near/status", 1);
    EXPECT_LINES(took(), "callback Record source 1 state 1 context 0", "ember set gpio/virtual/vgpio 1/status 1 (8 bytes)",
                 "ipc snmp send 8 (696 bytes)");
    u.value(1, "/near/type", 1);
    EXPECT_EQ(u.journal_of("log 2 zel_gpio_notify").size(), 0u);
}

TEST_F(following, an_inverted_handler_hears_the_opposite)
{
    u.request("/cgi/gpioConn.cgi", nullptr, "action=1&inputClass=virtual&inputID=1&outputClass=event&outputID=0&gpioInvert=1");
    u.take();
    u.value(1, "/near/status", 1);
    EXPECT_EQ(u.count_of("callback Record source 1 state 0"), 1);
}

TEST(a_follower, without_a_tree_works_all_the_same)
{
    unit u;
    describe(u, {near}, false);
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.take();
    u.value(1, "/near/status", 1);
    u.value(1, "/near/type", 0);
    EXPECT_EQ(u.count_of("ember"), 0);
    EXPECT_EQ(port(0).state, 0);
    remove(u, near);
    EXPECT_EQ(u.count_of("ember"), 0);
}

TEST(two_followers, of_one_source_share_its_count_of_empty_answers)
{
    unit u;
    describe(u, {near, near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.take();
    u.no_value(1, "/near/status");
    EXPECT_LINES(u.take(), "log 0 vgpo_state_cb: Value received is NULL - will retry fetch....", "consumer 1 get /near/status");
    EXPECT_EQ(record(near)->state_retries, 1);
    EXPECT_EQ(port(0).vgpo_src_valid + port(1).vgpo_src_valid, 0);
}

TEST(two_followers, of_one_source_are_served_in_index_order)
{
    unit u;
    describe(u, {near, near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.take();
    u.value(1, "/near/type", 2);
    EXPECT_LINES(u.take(), "log 2 vgpo_type_cb: The vGPO assigned to our vGPI 0 is now in output mode...",
                 "consumer 1 get /near/status", "ipc snmp send 8 (696 bytes)",
                 "log 2 vgpo_type_cb: The vGPO assigned to our vGPI 1 is now in output mode...", "consumer 1 get /near/status",
                 "ipc snmp send 8 (696 bytes)");
}

// ---- Asking

using text_of_record = char *vGPO_t::*;

TEST(a_source, that_lacks_address_or_path_is_waited_for_without_a_word)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    for (const text_of_record part : {&vGPO_t::addr_port, &vGPO_t::type_path, &vGPO_t::status_path}) {
        resolve(u, near);
        char *const text = std::exchange(record(near)->*part, nullptr);
        EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), -1);
        EXPECT_EQ(port(0).vgpi_session, nullptr) << "the old session is given up first";
        u.take();
        EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), -1);
        EXPECT_TRUE(u.take().empty());
        record(near)->*part = text;
    }
    EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), 0);
}

TEST(a_source, whose_type_cannot_be_asked_for_is_followed_all_the_same)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.fail("consumer 1 get /near/type");
    resolve(u, near);
    EXPECT_LINES(fake::only(u.take(), {"consumer", "log 0"}), "consumer 1 connect 10.0.0.2:9000 (timeout 10)",
                 "consumer 1 get /near/type failed",
                 "log 0 connect_vgpi_to_vgpo: Get vGPO type param failed (src addr = '10.0.0.2:9000')",
                 "consumer 1 get /near/status");
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
    EXPECT_STREQ(port(0).vgpi_provider_addr, "10.0.0.2:9000");
}

TEST(a_source, whose_level_cannot_be_asked_for_is_not_valid_and_its_session_is_not_shared)
{
    unit u;
    describe(u, {near, beside});
    ASSERT_EQ(u.start(), 0);
    u.fail("consumer 1 get /near/status");
    resolve(u, near);
    EXPECT_TRUE(u.logged("0 connect_vgpi_to_vgpo: Get vGPO state param failed (src addr = '10.0.0.2:9000')"));
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
    EXPECT_EQ(port(0).vgpi_provider_addr, nullptr);
    resolve(u, beside, "10.0.0.2", 9000, "path=/beside");
    EXPECT_EQ(u.consumers().size(), 2u);
    u.heal();
    EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), 0);
    EXPECT_EQ(u.consumers().size(), 1u) << "asked again, it joins the neighbour";
}

TEST(a_session, is_shared_between_equal_addresses_only)
{
    unit u;
    describe(u, {near, beside, far, "vGPO4@Studio 2"});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near, "10.0.0.2", 9000);
    resolve(u, beside, "10.0.0.2", 9001, "path=/beside");
    resolve(u, far, "10.0.0.20", 900, "path=/far");
    EXPECT_EQ(u.consumers().size(), 3u);
    EXPECT_EQ(u.consumer_address(2), "10.0.0.2:9001");
    resolve(u, "vGPO4@Studio 2", "10.0.0.3", 1, "path=/four,altport=9001");
    EXPECT_EQ(u.consumer_address(4), "10.0.0.3:9001");
    resolve(u, "vGPO4@Studio 2", "10.0.0.2", 1, "path=/four,altport=9001");
    EXPECT_EQ(port(3).vgpi_session, port(1).vgpi_session);
}

TEST(a_session, is_made_by_the_lowest_follower_and_joined_by_the_others)
{
    unit u;
    describe(u, {near, near, near});
    ASSERT_EQ(u.start(), 0);
    u.take();
    resolve(u, near);
    const std::string found = "log 2 connect_vgpi_to_vgpo: Found existing vgpi_session for provider address: '10.0.0.2:9000'";
    EXPECT_LINES(fake::without(u.take(), {"log 4", "ipc"}), "consumer 1 connect 10.0.0.2:9000 (timeout 10)",
                 "consumer 1 get /near/type", "consumer 1 get /near/status", found, "consumer 1 get /near/type",
                 "consumer 1 get /near/status", found, "consumer 1 get /near/type", "consumer 1 get /near/status");
    EXPECT_EQ(u.consumer_user_data(1), &port(0));
    EXPECT_EQ(u.requests(1).size(), 2u);
}

TEST(a_session, ends_with_its_last_user_and_callbacks_with_the_last_of_their_source)
{
    unit u;
    describe(u, {near, beside, near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    resolve(u, beside, "10.0.0.2", 9000, "path=/beside");
    const std::pair<int, fake::lines> steps[] = {{0, {}},
                                                 {0, {}},
                                                 {2, {"consumer 1 clear /near/type", "consumer 1 clear /near/status"}},
                                                 {1, {"consumer 1 end"}},
                                                 {1, {}}};
    for (const auto &[input, expected] : steps) {
        u.take();
        zel::close_vgpi_session(input);
        EXPECT_EQ(fake::joined(u.take()), fake::joined(expected)) << input;
        EXPECT_EQ(port(input).vgpi_session, nullptr);
        EXPECT_EQ(port(input).vgpi_provider_addr, nullptr);
        EXPECT_EQ(port(input).vgpo_src_valid, 0);
    }
}

TEST(a_session, tells_all_its_users_and_nobody_else_of_its_link)
{
    unit u;
    describe(u, {near, far, beside});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    resolve(u, beside, "10.0.0.2", 9000, "path=/beside");
    resolve(u, far, "10.0.0.3", 9000, "path=/far");
    u.take();
    u.connected(1, false);
    EXPECT_LINES(u.take(), "log 2 vgpi_connect_cb: Device at 10.0.0.2:9000 has disconnected",
                 "log 2 vgpi_connect_cb: vGPO_src: '" + source + "' no longer valid",
                 std::string("log 2 vgpi_connect_cb: vGPO_src: '") + beside + "' no longer valid");
    EXPECT_EQ(port(1).vgpo_src_valid, 1);
    u.connected(1, true);
    EXPECT_LINES(u.take(), "log 2 vgpi_connect_cb: Device at 10.0.0.2:9000 has connected",
                 "log 2 vgpi_connect_cb: vGPO_src: '" + source + "' now valid", "consumer 1 get /near/type",
                 std::string("log 2 vgpi_connect_cb: vGPO_src: '") + beside + "' now valid", "consumer 1 get /beside/type");
}

// ---- Letting go

TEST(a_source, is_let_go_only_when_unreachable_and_wanted_by_no_port_at_all)
{
    unit u;
    u.gpis(1).buttons(1);
    describe(u, {near, "", near});
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(near, 1), 0);
    EXPECT_NE(record(near), nullptr) << "another input wants it";
    ASSERT_TRUE(zel::set_source_name(port(3), ""));
    port(1).vgpo_src_valid = 1;
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(near, 1), 0);
    EXPECT_NE(record(near), nullptr) << "it is reachable";
    port(1).vgpo_src_valid = 0;
    ASSERT_TRUE(zel::set_source_name(port(4), near));
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(near, 1), 0);
    EXPECT_NE(record(near), nullptr) << "a port of another class wants it";
    ASSERT_TRUE(zel::set_source_name(port(4), ""));
    u.take();
    u.forget_sent();
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(near, 1), 0);
    EXPECT_LINES(u.take(),
                 "log 2 disconnect_vgpi_from_vgpo: Removing vgpo_src '" + source +
                     "' from the list as it is no longer discoverable or selected",
                 "ember remove gpio/vgpio sources/v-0", "ipc snmp send 14 (68 bytes)",
                 "log 2 remove_vgpo: Removing vgpo '" + source + "'");
    EXPECT_EQ(u.sent("snmp", 14).at(0).payload, fake::bytes(68)) << "number 0 and no name";
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(near, 1), 0) << "no longer there";
    EXPECT_TRUE(u.take().empty());
}

TEST(a_source, is_let_go_without_agent_and_tree_too)
{
    unit u;
    describe(u, {near}, false);
    u.fail("ipc snmp init");
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(near, 0), 0);
    EXPECT_EQ(record(near), nullptr);
    EXPECT_EQ(u.count_of("ipc") + u.count_of("ember"), 0);
}

TEST(a_link, needs_an_index_of_a_port)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    for (const int32_t index : {1, -1, INT32_MAX, INT32_MIN}) {
        const fake::child_result child = fake::in_child([index] { zel::connect_vgpi_to_vgpo(index); });
        EXPECT_EQ(child.signal, SIGABRT) << index;
        EXPECT_NE(child.output.find("`index < total_gpio_count'"), std::string::npos) << child.output;
    }
}

}  // namespace
