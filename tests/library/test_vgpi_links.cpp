// Virtual inputs following virtual outputs of other units.
#include <gtest/gtest.h>

#include <climits>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpi_links.h"

using namespace vgpo_units;
using fake::unit;

namespace {

void resolve_beside(unit &u) { resolve(u, beside, "10.0.0.2", 9000, "\"path=/beside\""); }

/// The text with the name in place of its "%s".
std::string said(std::string text, const char *name) { return text.replace(text.find("%s"), 2, name); }

TEST(a_virtual_input, with_a_saved_source_waits_for_it_to_be_found)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    ASSERT_NE(record(near), nullptr);
    EXPECT_TRUE(u.consumers().empty());
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-0"), near);
    u.take();
    resolve(u, near);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 connect 10.0.0.2:9000 (timeout 10)", "consumer 1 get /near/type",
                 "consumer 1 get /near/status");
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
    EXPECT_EQ(u.consumer_user_data(1), &port(0));
    EXPECT_STREQ(static_cast<const char *>(u.requests(1).at(0).user_data), near);
}

TEST(a_virtual_input, takes_the_sources_level_to_its_handlers_tree_trigger_and_agent_in_this_order)
{
    unit u;
    describe(u, {near});
    u.set("virtual/vgpio_0/handler", "Record").set("virtual/vgpio_0/handler_invert", "0");
    u.relays(1).set("relay/relay_0/triggers", "vGPI 1").set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    resolve(u, near);
    u.take();
    u.value(1, "/near/status", 1);
    EXPECT_LINES(fake::without(u.take(), {"ember set gpio/physical", "ipc snmp send 11"}), "callback Record source 0 state 1 context 0",
                 "ember set gpio/virtual/vgpio 1/status 1 (8 bytes)",
                 "log 2 zel_gpio_notify_trigger_event: event 'vGPI 1' has occurred", "pin 201 write 1", "ipc snmp send 8 (696 bytes)");
    u.value(1, "/near/status", 0);
    EXPECT_EQ(u.level(201), 0);
}

struct level_case {
    int64_t value;
    int level;
};

TEST(a_virtual_input, looks_at_the_low_32_bits_of_a_level)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    for (const level_case &c : {level_case{0x100000001, 1}, {2, 0}, {1, 1}, {0x100000000, 0}, {1, 1}, {-1, 0}, {INT64_MIN, 0}}) {
        u.value(1, "/near/status", c.value);
        EXPECT_EQ(port(0).state, c.level) << c.value;
    }
}

TEST(a_source, that_stops_being_an_output_drops_the_input_until_it_is_one_again)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    for (const int64_t stopped : {0, 1}) {
        u.value(1, "/near/status", 1);
        u.take();
        u.value(1, "/near/type", stopped);
        EXPECT_LINES(u.take(), "log 2 vgpo_type_cb: The vGPO assigned to our vGPI 0 is no longer in output mode...",
                     "consumer 1 clear /near/status", "ember set gpio/virtual/vgpio 1/status 0 (8 bytes)",
                     "log 2 zel_gpio_notify_trigger_event: event 'vGPI 1' has ended", "ipc snmp send 8 (696 bytes)");
        EXPECT_EQ(port(0).vgpo_src_valid, 0);
        u.value(1, "/near/type", 2);
        EXPECT_LINES(u.take(), "log 2 vgpo_type_cb: The vGPO assigned to our vGPI 0 is now in output mode...",
                     "consumer 1 get /near/status", "ipc snmp send 8 (696 bytes)");
        EXPECT_EQ(port(0).vgpo_src_valid, 1);
    }
    u.value(1, "/near/type", 3);
    EXPECT_LINES(u.take(), "ipc snmp send 8 (696 bytes)");
}

TEST(an_empty_answer, is_asked_again_three_times)
{
    for (const char *const path : {"/near/type", "/near/status"}) {
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            describe(u, {near});
            u.start();
            resolve(u, near);
            const std::string function = std::string(path) == "/near/type" ? "vgpo_type_cb" : "vgpo_state_cb";
            for (int round = 0; round < 2; ++round) {
                for (int i = 0; i < 3; ++i) {
                    u.take();
                    u.no_value(1, path);
                    EXPECT_LINES(u.take(), "log 0 " + function + ": Value received is NULL - will retry fetch....",
                                 std::string("consumer 1 get ") + path);
                    EXPECT_EQ(port(0).vgpo_src_valid, 0);
                }
                u.no_value(1, path);
                EXPECT_LINES(u.take(), "log 0 " + function + ": Value received is NULL after 4 attempts.");
                u.no_value(1, path);
                EXPECT_LINES(u.take(), "log 0 " + function + ": Value received is NULL after 5 attempts.");
                u.value(1, path, 2);
            }
            u.take();
            u.fail(std::string("consumer 1 get ") + path);
            u.no_value(1, path);
            EXPECT_TRUE(u.logged("0 " + function + ": Get vGPO type param failed (src addr = '10.0.0.2:9000')"));
        });
    }
}

TEST(a_link, that_is_lost_keeps_the_level_and_asks_for_the_type_when_it_is_back)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.value(1, "/near/status", 1);
    u.take();
    u.connected(1, false);
    EXPECT_LINES(u.take(), "log 2 vgpi_connect_cb: Device at 10.0.0.2:9000 has disconnected",
                 said("log 2 vgpi_connect_cb: vGPO_src: '%s' no longer valid", near));
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
    EXPECT_EQ(port(0).state, 1);
    u.connected(1, true);
    EXPECT_LINES(u.take(), "log 2 vgpi_connect_cb: Device at 10.0.0.2:9000 has connected",
                 said("log 2 vgpi_connect_cb: vGPO_src: '%s' now valid", near), "consumer 1 get /near/type");
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
    u.fail("consumer 1 get");
    u.connected(1, true);
    EXPECT_TRUE(u.logged("0 vgpi_connect_cb: Get vGPO type param failed (src addr = '10.0.0.2:9000')"));
}

TEST(a_link, whose_record_is_gone_says_so_when_it_is_back)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    remove_vgpo(&zel::remote_vgpos, near);
    u.connected(1, true);
    EXPECT_TRUE(u.logged(said("0 vgpi_connect_cb: Failed to find vGPO named '%s' in list", near)));
    u.value(1, "/near/type", 2);
    EXPECT_TRUE(u.logged(said("0 vgpo_type_cb: Failed to find vGPO named '%s' in list", near)));
    u.value(1, "/near/status", 1);
    EXPECT_TRUE(u.logged(said("0 vgpo_state_cb: Failed to find vGPO named '%s' in list", near)));
}

TEST(a_link, that_cannot_be_made_or_asked_is_reported)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    u.fail("consumer 1 connect", 1);
    resolve(u, near);
    EXPECT_TRUE(u.logged("0 connect_vgpi_to_vgpo: Failed to set up vgpi ember consumer session"));
    EXPECT_EQ(port(0).vgpi_session, nullptr);
    u.heal();
    u.fail("consumer");
    EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), -1);
    u.heal();
    resolve(u, near);
    const int session = u.consumers().at(0);
    u.fail("consumer " + std::to_string(session + 1) + " get");
    EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), -1);
    EXPECT_TRUE(u.logged("0 connect_vgpi_to_vgpo: Get vGPO type param failed (src addr = '10.0.0.2:9000')"));
    EXPECT_TRUE(u.logged("0 connect_vgpi_to_vgpo: Get vGPO state param failed (src addr = '10.0.0.2:9000')"));
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
}

TEST(two_inputs, of_two_sources_on_one_unit_share_a_session_until_the_last_leaves)
{
    unit u;
    describe(u, {near, beside});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.take();
    resolve_beside(u);
    EXPECT_TRUE(u.logged("2 connect_vgpi_to_vgpo: Found existing vgpi_session for provider address: '10.0.0.2:9000'"));
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 get /beside/type", "consumer 1 get /beside/status");
    EXPECT_EQ(u.consumers().size(), 1u);

    fd_set readfds, exceptfds;
    FD_ZERO(&readfds);
    FD_ZERO(&exceptfds);
    int maxfd = -1;
    u.take();
    zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 set_fds", "consumer 1 set_fds");
    zel_gpio_process_fds(&readfds, &exceptfds);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 process_fds");

    zel::close_vgpi_session(0);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 clear /near/type", "consumer 1 clear /near/status");
    zel::close_vgpi_session(0);
    zel::close_vgpi_session(1);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 end");
}

TEST(two_inputs, of_one_source_keep_its_callbacks_while_one_follows)
{
    unit u;
    describe(u, {near, near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.value(1, "/near/status", 1);
    EXPECT_EQ(port(0).state + port(1).state, 2);
    u.take();
    zel::close_vgpi_session(0);
    EXPECT_TRUE(u.take_of("consumer").empty());
}

TEST(a_source, resolved_at_another_address_moves_all_its_followers)
{
    unit u;
    describe(u, {near, near, beside});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    resolve_beside(u);
    for (const char *const address : {"10.0.0.7", "10.0.0.7", "10.0.0.8"}) {
        resolve(u, near, address);
        EXPECT_EQ(port(0).vgpi_session, port(1).vgpi_session);
        EXPECT_NE(port(0).vgpi_session, port(2).vgpi_session);
        EXPECT_EQ(port(0).vgpi_provider_addr, std::string(address) + ":9000");
        EXPECT_EQ(port(1).vgpo_src_valid, 1);
    }
    EXPECT_EQ(u.consumers().size(), 2u);
}

TEST(a_changed_source, on_a_shared_session_leaves_late_values_harmless)
{
    unit u;
    describe(u, {near, beside});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    resolve_beside(u);
    resolve(u, far, "10.0.0.3", 9000, "\"path=/far\"");
    ASSERT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", far), 0);
    const int64_t level = 1;
    remove(u, near);
    EXPECT_EQ(record(near), nullptr);
    for (size_t nth = 0; nth < u.requests_ever(1); ++nth) u.late_value(1, nth, &level);
    EXPECT_EQ(port(0).state, 0);
    EXPECT_EQ(port(1).state, 1);
    resolve(u, near);
    for (size_t nth = 0; nth < u.requests_ever(1); ++nth) u.late_value(1, nth, nullptr);
}

TEST(choosing, the_same_unreachable_source_again_keeps_it)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", near), 0);
    EXPECT_STREQ(port(0).vgpo_src, near);
    EXPECT_NE(record(near), nullptr);
    resolve(u, near);
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
}

TEST(dropping, an_unreachable_source_takes_it_out_of_the_list_unless_another_input_follows)
{
    unit u;
    describe(u, {near, near});
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", ""), 0);
    EXPECT_NE(record(near), nullptr);
    u.take();
    u.forget_sent();
    ASSERT_EQ(u.write("gpio/virtual/vgpio 2/vgpio source", ""), 0);
    EXPECT_EQ(record(near), nullptr);
    EXPECT_TRUE(u.logged(said("2 disconnect_vgpi_from_vgpo: Removing vgpo_src '%s' from the list as it is no longer discoverable or selected", near)));
    EXPECT_EQ(u.journal_of("ember remove").size(), 1u);
    EXPECT_EQ(u.sent("snmp", 14).size(), 1u);
}

TEST(dropping, a_reachable_source_leaves_it_in_the_list)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    ASSERT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", ""), 0);
    EXPECT_NE(record(near), nullptr);
    EXPECT_TRUE(u.consumers().empty());
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo("never heard of", 0), 0);
}

TEST(many_inputs, follow_many_units)
{
    unit u;
    std::vector<std::string> names;
    for (int i = 0; i < 64; ++i) names.push_back("vGPO" + std::to_string(i / 8) + "@unit " + std::to_string(i % 8));
    u.virtuals(64).ember();
    for (int i = 0; i < 64; ++i) {
        const std::string key = "virtual/vgpio_" + std::to_string(i);
        u.set(key + "/type", 1).set(key + "/vgpo_src", names[static_cast<size_t>(i)].c_str());
    }
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 64; ++i)
        resolve(u, names[static_cast<size_t>(i)].c_str(), ("10.0.0." + std::to_string(i % 8)).c_str(), 9000, "path=/p" + std::to_string(i / 8));
    EXPECT_EQ(u.consumers().size(), 8u);
    for (int i = 0; i < 64; ++i) EXPECT_EQ(port(i).vgpo_src_valid, 1) << i;
}

TEST(a_callback, that_turns_the_input_off_during_a_value_does_no_harm)
{
    unit u;
    describe(u, {near, near});
    u.set("virtual/vgpio_0/handler", "Record").set("virtual/vgpio_0/handler_invert", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record", [&](int32_t, uint8_t state, uintptr_t) {
        if (state != 0) u.request("/cgi/gpioGrid.cgi", nullptr, "gpioType=virtual&gpioPort=0,1&newState=0");
    });
    resolve(u, near);
    u.value(1, "/near/status", 1);
    EXPECT_EQ(port(0).type, 0u);
    EXPECT_EQ(port(1).type, 0u);
    EXPECT_TRUE(u.consumers().empty());
}

TEST(a_connection, asks_for_a_source_and_an_index)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), -1);
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo(nullptr, 0), 0);
    EXPECT_EQ(zel::disconnect_vgpi_from_vgpo("", 0), 0);
    ASSERT_TRUE(zel::set_source_name(port(0), near));
    EXPECT_EQ(zel::connect_vgpi_to_vgpo(0), -1);
    EXPECT_TRUE(u.logged(said("0 connect_vgpi_to_vgpo: Failed to find vGPO named '%s' in list", near)));
    const fake::child_result child = fake::in_child([] { zel::connect_vgpi_to_vgpo(1); });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_NE(child.output.find("`index < total_gpio_count'"), std::string::npos);
}

}  // namespace
