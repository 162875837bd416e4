// Finding and losing virtual outputs of other units, step by step: what is done in which order, and again when it failed before.
#include <gtest/gtest.h>

#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpi_links.h"
#include "zel_gpio/vgpo_discovery.h"

using namespace vgpo_units;
using fake::unit;

namespace {

constexpr char leaf[] = "gpio/vgpio sources/v-0";

class followed : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        describe(u, {near, "", near});
        ASSERT_EQ(u.start(), 0);
        u.take();
        u.forget_sent();
    }
};

TEST_F(followed, a_found_service_is_connected_first_and_told_then)
{
    resolve(u, near);
    EXPECT_LINES(fake::without(u.take(), {"log 4", "log 2"}), "consumer 1 connect 10.0.0.2:9000 (timeout 10)",
                 "consumer 1 get /near/type", "consumer 1 get /near/status", "consumer 1 get /near/type",
                 "consumer 1 get /near/status", "ipc snmp send 14 (68 bytes)");
    EXPECT_EQ(u.value_of(leaf), near);
}

TEST_F(followed, a_service_found_again_at_its_old_place_is_connected_anew)
{
    resolve(u, near);
    const fake::lines tree = u.tree();
    u.take();
    resolve(u, near);
    EXPECT_LINES(fake::only(u.take(), {"consumer", "ember", "ipc"}), "consumer 1 get /near/type", "consumer 1 get /near/status",
                 "consumer 1 get /near/type", "consumer 1 get /near/status", "ipc snmp send 14 (68 bytes)");
    EXPECT_EQ(u.tree(), tree) << "one leaf for one service";
    EXPECT_EQ(zel::remote_vgpos.count, 1u);
}

TEST_F(followed, a_path_alone_or_an_address_alone_waits_for_the_other)
{
    EXPECT_EQ(zel::add_remote_vgpo(near, nullptr, 9000, "path=/near"), record(near));
    EXPECT_EQ(record(near)->addr_port, nullptr);
    EXPECT_TRUE(u.consumers().empty());
    EXPECT_EQ(zel::add_remote_vgpo(near, "10.0.0.2", 9000, nullptr), record(near));
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
    EXPECT_STREQ(port(0).vgpi_provider_addr, "10.0.0.2:9000");
}

TEST_F(followed, news_without_address_and_path_connect_nothing)
{
    resolve(u, near);
    u.take();
    EXPECT_EQ(zel::add_remote_vgpo(near, nullptr, 0, nullptr), record(near));
    EXPECT_EQ(zel::add_remote_vgpo(near, nullptr, 0, "path=/near"), record(near)) << "the path is the same";
    EXPECT_LINES(u.take(), "ipc snmp send 14 (68 bytes)", "ipc snmp send 14 (68 bytes)");
    EXPECT_EQ(zel::add_remote_vgpo("", "10.0.0.2", 9000, "path=/near"), nullptr);
    EXPECT_TRUE(u.take().empty());
}

TEST_F(followed, a_leaf_that_could_not_be_added_is_added_with_the_next_news)
{
    u.fail("ember add gpio/vgpio sources");
    resolve(u, far, "10.0.0.3");
    ASSERT_NE(record(far), nullptr);
    EXPECT_EQ(record(far)->ember_param, nullptr);
    u.heal();
    resolve(u, far, "10.0.0.3");
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-1"), far);
    remove(u, far);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-1"), "absent");
}

TEST_F(followed, a_leaf_that_cannot_be_removed_does_not_keep_the_record)
{
    resolve(u, far, "10.0.0.3");
    u.fail("ember remove");
    remove(u, far);
    EXPECT_EQ(record(far), nullptr);
    u.heal();
    resolve(u, beside, "10.0.0.2");
    EXPECT_EQ(record(beside)->id, 1u);
}

TEST_F(followed, a_reset_names_those_that_follow)
{
    resolve(u, near);
    port(0).state = port(1).state = port(2).state = 1;
    EXPECT_EQ(zel::reset_vgpis_following(far), 0);
    EXPECT_EQ(zel::reset_vgpis_following(""), 0) << "an input without a source follows nothing";
    EXPECT_EQ(port(0).state + port(2).state, 2);
    EXPECT_EQ(zel::reset_vgpis_following(near), 1);
    EXPECT_EQ(port(0).state + port(2).state, 0);
    EXPECT_TRUE(u.consumers().empty());
}

TEST_F(followed, a_reset_is_published_only_where_level_and_source_are_shown)
{
    zel_ember_element_t *const level = std::exchange(port(0).ember_state, nullptr);
    zel_ember_element_t *const source = std::exchange(port(2).ember_vgpo_src, nullptr);
    u.take();
    EXPECT_EQ(zel::reset_vgpis_following(near), 1);
    EXPECT_EQ(u.count_of("ember set"), 0);
    u.take();
    port(0).ember_state = level;
    port(2).ember_vgpo_src = source;
    EXPECT_EQ(zel::reset_vgpis_following(near), 1);
    EXPECT_LINES(u.take(), "ember set gpio/virtual/vgpio 1/status 0 (8 bytes)",
                 "ember set gpio/virtual/vgpio 3/status 0 (8 bytes)");
}

TEST_F(followed, a_service_whose_record_is_gone_still_drops_the_levels)
{
    resolve(u, near);
    u.value(1, "/near/status", 1);
    remove_vgpo(&zel::remote_vgpos, near);
    u.take();
    remove(u, near);
    EXPECT_EQ(port(0).state + port(2).state, 0);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 end");
    EXPECT_EQ(zel::remote_vgpos.count, 0u);
    resolve(u, near);
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
}

TEST_F(followed, a_name_like_another_is_another)
{
    for (const char *const name : {"vGPO1@Studio 20", "vGPO1@Studio", "vgpo1@studio 2", "vGPO1@Studio 2 "}) {
        resolve(u, name);
        EXPECT_TRUE(u.consumers().empty()) << name;
        remove(u, name);
        EXPECT_NE(record(near), nullptr);
    }
}

TEST_F(followed, an_address_is_any_text_of_its_field)
{
    for (const char *const address :
         {"fe80::0123:4567:89ab:cdef%eth0", "2001:db8::1", "studio-2.local", "", "10.0.0.2:1", "%s"}) {
        resolve(u, near, address, 65535);
        EXPECT_EQ(record(near)->addr_port, std::string(address) + ":65535");
        EXPECT_EQ(u.consumer_address(u.consumers().at(0)), std::string(address) + ":65535");
        EXPECT_EQ(u.consumers().size(), 1u);
    }
}

TEST(a_saved_source, is_in_the_list_before_it_is_found_and_once_only)
{
    unit u;
    describe(u, {near, far, near});
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(zel::remote_vgpos.count, 2u);
    EXPECT_EQ(u.value_of(leaf) + u.value_of("gpio/vgpio sources/v-1"), std::string(near) + far);
    EXPECT_EQ(record(near)->addr_port, nullptr);
    EXPECT_EQ(u.sent("snmp", 14).size(), 2u);
    EXPECT_EQ(u.journal_of("log 2 add_remote_vgpo: Adding").size(), 2u);
    EXPECT_TRUE(u.logged(std::string("2 add_remote_vgpo: Adding newly discovered remote vgpo '") + far + "' to list..."));
    EXPECT_TRUE(u.logged("4 add_remote_vgpo: 2 Remote vGPOs currently in list"));
}

}  // namespace
