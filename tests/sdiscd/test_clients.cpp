// Clients that go and return, and a daemon that does.
#include "discovery_world.h"

#include <cstdint>

using namespace zel::sdiscd;
using namespace zel::sdiscd::test;

using discovery_clients = world;

TEST_F(discovery_clients, what_a_client_that_went_had_published_is_withdrawn_after_the_grace_period)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A");
    machine.running.clear();
    disconnect(unit);
    pass(discovery::grace_ms - 1);
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    EXPECT_EQ(logic->next_due(), now + 1);
    pass(1);
    EXPECT_TRUE(net.published.empty());
    EXPECT_EQ(logic->client_count(), 0u);
    EXPECT_EQ(logic->next_due(), std::nullopt);
}

TEST_F(discovery_clients, nothing_happens_to_what_a_client_published_when_it_returns_in_time)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A");
    disconnect(unit);
    pass(discovery::grace_ms - 1);
    connect("zel_gpio");
    pass(60'000);
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    EXPECT_EQ(net.publish_calls, 1);
    EXPECT_EQ(net.withdraw_calls, 0);
}

TEST_F(discovery_clients, a_process_that_was_held_up_for_long_has_all_that_it_asked_for_again)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    look(unit);
    disconnect(unit);
    pass(discovery::grace_ms);
    EXPECT_TRUE(net.published.empty());
    pass(3'600'000);
    const uint32_t again = connect("zel_gpio");
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    found("vGPO1@B");
    EXPECT_EQ(told(again), lines{"found vGPO1@B"});
}

TEST_F(discovery_clients, a_process_that_stayed_away_is_forgotten_once_it_has_ended)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    disconnect(unit);
    pass(discovery::grace_ms);
    pass(discovery::look_again_ms);
    EXPECT_EQ(logic->client_count(), 1u);
    machine.running.clear();
    pass(discovery::look_again_ms);
    EXPECT_EQ(logic->client_count(), 0u);
    EXPECT_TRUE(net.browsed.empty());
}

TEST_F(discovery_clients, a_new_process_of_the_name_keeps_without_interruption_what_it_asks_for_again)
{
    const uint32_t unit = connect("zel_gpio", 100);
    publish(unit, "vGPO1@A");
    publish(unit, "vGPO2@A");
    disconnect(unit);
    const uint32_t again = connect("zel_gpio", 200);
    publish(again, "vGPO1@A");
    EXPECT_EQ(net.published.size(), 2u);
    pass(discovery::renewal_ms);
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    EXPECT_EQ(net.publish_calls, 2);
    EXPECT_EQ(net.withdraw_calls, 1);
}

TEST_F(discovery_clients, a_new_process_is_told_everything_anew_once_it_looks)
{
    const uint32_t unit = connect("zel_gpio", 100);
    look(unit);
    found("vGPO1@B");
    disconnect(unit);
    const uint32_t again = connect("zel_gpio", 200);
    EXPECT_EQ(told(again), lines{});
    look(again);
    found("vGPO1@B");
    EXPECT_EQ(told(again), lines{"found vGPO1@B"});
}

TEST_F(discovery_clients, after_a_restart_of_the_daemon_nothing_is_announced_before_its_client_is_back)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    restart();
    EXPECT_TRUE(net.published.empty());
    connect("zel_gpio");
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    pass(60'000);
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
}

TEST_F(discovery_clients, what_a_client_that_died_with_the_daemon_had_asked_for_is_forgotten)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    look(unit);
    machine.running.clear();
    restart();
    EXPECT_EQ(net.browsed.size(), 1u);
    pass(discovery::return_ms);
    EXPECT_TRUE(net.published.empty());
    EXPECT_TRUE(net.browsed.empty());
    EXPECT_EQ(logic->client_count(), 0u);
    EXPECT_TRUE(logic->kept().empty());
}

TEST_F(discovery_clients, a_new_process_after_a_restart_of_the_daemon_has_only_what_it_asks_for)
{
    const uint32_t unit = connect("zel_gpio", 100);
    publish(unit, "vGPO1@A");
    publish(unit, "vGPO2@A");
    restart();
    const uint32_t again = connect("zel_gpio", 200);
    EXPECT_TRUE(net.published.empty());
    publish(again, "vGPO2@A");
    EXPECT_EQ(net.published_names(), lines{"vGPO2@A"});
    pass(discovery::renewal_ms);
    EXPECT_EQ(net.published_names(), lines{"vGPO2@A"});
    EXPECT_EQ(logic->kept().front().announcements.size(), 1u);
}

TEST_F(discovery_clients, a_restart_of_the_daemon_is_not_noticed_where_nothing_has_changed)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    ask_back(unit);
    resolve("vGPO1@B", at("10.0.0.2"));
    (void)told(unit);
    restart();
    const uint32_t again = connect("zel_gpio");
    found("vGPO1@B");
    resolve("vGPO1@B", at("10.0.0.2"));
    pass(60'000);
    EXPECT_EQ(told(again), lines{});
}

TEST_F(discovery_clients, what_changed_while_there_was_no_daemon_is_told_by_the_next_one)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    for (const char *name : {"moved", "gone", "late"}) {
        found(name);
        resolve(name, at("10.0.0.2"));
    }
    ask_back(unit);
    (void)told(unit);
    restart();
    const uint32_t again = connect("zel_gpio");
    found("moved");
    found("new");
    resolve("moved", at("10.0.0.3"));
    EXPECT_EQ(told(again), (lines{"found new", "moved at 10.0.0.3:9000 \"path=/a/b\" on 2"}));
    pass(lookups::doubt_ms);
    EXPECT_EQ(told(again), (lines{"gone gone", "gone late"}));
    found("late");
    EXPECT_EQ(told(again), lines{"found late"});
}

TEST_F(discovery_clients, what_was_not_answered_before_a_restart_of_the_daemon_is_answered_after_it)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    restart();
    const uint32_t again = connect("zel_gpio");
    (void)told(again);
    found("vGPO1@B");
    resolve("vGPO1@B", at("10.0.0.2"));
    EXPECT_EQ(told(again), lines{"vGPO1@B at 10.0.0.2:9000 \"path=/a/b\" on 2"});
}

TEST_F(discovery_clients, a_second_restart_right_behind_the_first_loses_nothing)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    look(unit);
    found("vGPO1@B");
    (void)told(unit);
    restart();
    restart();
    const uint32_t again = connect("zel_gpio");
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    pass(lookups::doubt_ms);
    EXPECT_EQ(told(again), lines{"gone vGPO1@B"});
}

TEST_F(discovery_clients, the_browsers_of_clients_that_are_gone_are_ended)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    look(unit);
    look(other, 3);
    found("vGPO1@B", false, "eth1");
    machine.running.clear();
    disconnect(other);
    pass(discovery::grace_ms);
    ASSERT_EQ(net.browsed.size(), 1u);
    EXPECT_EQ(net.browsed.begin()->second.interface, "eth0");
    EXPECT_TRUE(net.resolved.empty());
}

TEST_F(discovery_clients, clients_that_come_and_go_do_not_add_up)
{
    for (int i = 0; i < 1000; ++i) {
        const uint32_t link = connect("client-" + std::to_string(i), 1000 + i);
        publish(link, "vGPO" + std::to_string(i));
        look(link);
        disconnect(link);
        logic->tick(now);
        EXPECT_LE(logic->client_count(), discovery::most_clients);
    }
    EXPECT_LE(net.published.size(), discovery::most_clients);
    machine.running.clear();
    pass(discovery::grace_ms);
    EXPECT_EQ(logic->client_count(), 0u);
    EXPECT_TRUE(net.published.empty() && net.browsed.empty());
}

TEST_F(discovery_clients, changes_are_counted_for_whoever_keeps_them)
{
    const uint32_t unit = connect("zel_gpio");
    const uint64_t requests = logic->request_changes();
    publish(unit, "vGPO1@A");
    EXPECT_GT(logic->request_changes(), requests);
    look(unit);
    const uint64_t reports = logic->report_changes(), asked = logic->request_changes();
    found("vGPO1@B");
    EXPECT_GT(logic->report_changes(), reports);
    EXPECT_EQ(logic->request_changes(), asked);
}
