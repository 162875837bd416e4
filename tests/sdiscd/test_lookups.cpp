// What clients are told of the services that others announce.
#include "discovery_world.h"

#include <cstdint>

using namespace zel::sdiscd;
using namespace zel::sdiscd::test;

using discovery_lookups = world;

TEST_F(discovery_lookups, a_client_that_looks_is_told_of_what_comes_and_goes)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    ASSERT_EQ(net.browsed.size(), 1u);
    EXPECT_EQ(net.browsed.begin()->second, (question{"eth0", vgpo}));
    found("vGPO1@B");
    EXPECT_EQ(told(unit), lines{"found vGPO1@B"});
    lost("vGPO1@B");
    EXPECT_EQ(told(unit), lines{"gone vGPO1@B"});
    lost("vGPO1@B");
    EXPECT_EQ(told(unit), lines{});
}

TEST_F(discovery_lookups, a_client_that_does_not_look_is_told_nothing)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    look(unit);
    found("vGPO1@B");
    EXPECT_EQ(told(other), lines{});
}

TEST_F(discovery_lookups, a_client_that_looks_later_is_told_of_what_is_there_already)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    look(unit);
    found("vGPO1@B");
    look(other);
    EXPECT_EQ(net.browsed.size(), 1u);
    EXPECT_EQ(told(other), lines{"found vGPO1@B"});
}

TEST_F(discovery_lookups, the_details_are_told_when_they_are_asked_for_and_known)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    ask_back(unit);
    EXPECT_EQ(told(unit), lines{"found vGPO1@B"});
    resolve("vGPO1@B", at("10.0.0.2"));
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.2:9000 \"path=/a/b\" on 2"});
}

TEST_F(discovery_lookups, details_that_are_known_already_are_told_at_once_and_each_time_they_are_asked_for)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    resolve("vGPO1@B", at("10.0.0.2"));
    for (int i = 0; i < 2; ++i) {
        const browse_record record = make_browse_record(2, {vgpo, "vGPO1@B"});
        send(unit, resolve_request, record);
    }
    EXPECT_EQ(told(unit), (lines{"found vGPO1@B", "vGPO1@B at 10.0.0.2:9000 \"path=/a/b\" on 2",
                                 "vGPO1@B at 10.0.0.2:9000 \"path=/a/b\" on 2"}));
}

TEST_F(discovery_lookups, details_of_a_service_that_nobody_announced_cannot_be_had)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    send(unit, resolve_request, make_browse_record(2, {vgpo, "vGPO1@Nobody"}));
    EXPECT_EQ(told(unit), lines{"failed"});
}

TEST_F(discovery_lookups, each_change_of_address_port_or_path_is_told_and_what_stays_the_same_is_not)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    ask_back(unit);
    resolve("vGPO1@B", at("10.0.0.2"));
    (void)told(unit);
    resolve("vGPO1@B", at("10.0.0.2"));
    EXPECT_EQ(told(unit), lines{});
    resolve("vGPO1@B", at("10.0.0.3"));
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.3:9000 \"path=/a/b\" on 2"});
    resolve("vGPO1@B", at("10.0.0.3", 9001));
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.3:9001 \"path=/a/b\" on 2"});
    resolve("vGPO1@B", at("10.0.0.3", 9001, "/c"));
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.3:9001 \"path=/c\" on 2"});
}

TEST_F(discovery_lookups, a_change_that_comes_in_two_steps_is_told_once)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    ask_back(unit);
    resolve("vGPO1@B", at("10.0.0.2"));
    (void)told(unit);
    const uint32_t resolver = net.resolver_of("vGPO1@B");
    logic->resolved(resolver, at("10.0.0.2", 9000, "/new"));
    pass(lookups::settle_ms - 25);
    logic->resolved(resolver, at("10.0.0.2", 9100, "/new"));
    pass(lookups::settle_ms - 1);
    EXPECT_EQ(told(unit), lines{});
    EXPECT_EQ(logic->next_due(), now + 1);
    pass(1);
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.2:9100 \"path=/new\" on 2"});
}

TEST_F(discovery_lookups, a_service_that_nobody_answers_for_any_more_is_gone_and_is_new_when_it_answers_again)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    ask_back(unit);
    resolve("vGPO1@B", at("10.0.0.2"));
    (void)told(unit);
    fail_to_resolve("vGPO1@B");
    EXPECT_EQ(told(unit), lines{"gone vGPO1@B"});
    EXPECT_EQ(net.resolver_of("vGPO1@B"), 0u);
    pass(lookups::first_retry_ms);
    fail_to_resolve("vGPO1@B");
    pass(2 * lookups::first_retry_ms);
    EXPECT_EQ(told(unit), lines{});
    resolve("vGPO1@B", at("10.0.0.9"));
    EXPECT_EQ(told(unit), lines{"found vGPO1@B"});
    send(unit, resolve_request, make_browse_record(2, {vgpo, "vGPO1@B"}));
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.9:9000 \"path=/a/b\" on 2"});
}

TEST_F(discovery_lookups, a_service_that_cannot_be_resolved_at_first_is_told_as_failed_and_is_tried_again)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    ask_back(unit);
    fail_to_resolve("vGPO1@B");
    EXPECT_EQ(told(unit), (lines{"found vGPO1@B", "failed", "gone vGPO1@B"}));
    pass(lookups::first_retry_ms);
    resolve("vGPO1@B", at("10.0.0.2"));
    EXPECT_EQ(told(unit), lines{"found vGPO1@B"});
}

TEST_F(discovery_lookups, attempts_to_resolve_become_rarer_within_a_bound)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    int64_t longest = 0;
    for (int i = 0; i < 8; ++i) {
        fail_to_resolve("vGPO1@B");
        const int64_t wait = *logic->next_due() - now;
        EXPECT_GE(wait, longest);
        longest = wait;
        pass(wait);
    }
    EXPECT_GE(longest, lookups::longest_retry_ms);
    EXPECT_LE(longest, 2 * lookups::longest_retry_ms);
}

TEST_F(discovery_lookups, the_resolver_of_a_service_stays_open_while_it_is_there_and_not_longer)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    resolve("vGPO1@B", at("10.0.0.2"));
    EXPECT_NE(net.resolver_of("vGPO1@B"), 0u);
    lost("vGPO1@B");
    EXPECT_TRUE(net.resolved.empty());
    found("vGPO1@B");
    EXPECT_NE(net.resolver_of("vGPO1@B"), 0u);
}

TEST_F(discovery_lookups, what_a_resolver_that_was_ended_still_says_concerns_nobody)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    const uint32_t resolver = net.resolver_of("vGPO1@B");
    lost("vGPO1@B");
    (void)told(unit);
    logic->resolved(resolver, at("10.0.0.2"));
    logic->unresolved(resolver);
    pass(1000);
    EXPECT_EQ(told(unit), lines{});
    EXPECT_TRUE(net.resolved.empty());
}

TEST_F(discovery_lookups, a_service_on_two_interfaces_is_one_service)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit, 2);
    look(unit, 3);
    found("vGPO1@B", false, "eth0");
    found("vGPO1@B", false, "eth1");
    EXPECT_EQ(told(unit), lines{"found vGPO1@B"});
    send(unit, resolve_request, make_browse_record(2, {vgpo, "vGPO1@B"}));
    resolve("vGPO1@B", at("10.0.0.2"), "eth0");
    resolve("vGPO1@B", at("10.1.0.2"), "eth1");
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.0.0.2:9000 \"path=/a/b\" on 2"});
    lost("vGPO1@B", "eth0");
    EXPECT_EQ(told(unit), lines{"vGPO1@B at 10.1.0.2:9000 \"path=/a/b\" on 3"});
    lost("vGPO1@B", "eth1");
    EXPECT_EQ(told(unit), lines{"gone vGPO1@B"});
}

TEST_F(discovery_lookups, a_client_is_not_told_of_its_own_services_but_others_on_the_unit_are)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    look(unit);
    look(other);
    publish(unit, "vGPO1@A");
    settle("vGPO1@A");
    found("vGPO1@A", true);
    EXPECT_EQ(told(unit), lines{});
    EXPECT_EQ(told(other), lines{"found vGPO1@A"});
    unpublish(unit, "vGPO1@A");   // still in the network's memory for a second
    lost("vGPO1@A");
    EXPECT_EQ(told(unit), lines{});
    EXPECT_EQ(told(other), lines{"gone vGPO1@A"});
}

TEST_F(discovery_lookups, own_services_that_are_seen_before_they_are_settled_are_not_told_either)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    publish(unit, "vGPO1@A");
    found("vGPO1@A", true);
    settle("vGPO1@A");
    EXPECT_EQ(told(unit), lines{});
    EXPECT_TRUE(net.resolved.empty());
}

TEST_F(discovery_lookups, services_of_a_type_or_interface_that_was_not_asked_for_are_not_told)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    look(unit, 2);
    look(other, 2, "_http._tcp");
    look(other, 3);
    found("vGPO1@B", false, "eth1");
    EXPECT_EQ(told(unit), lines{});
    EXPECT_EQ(told(other), lines{"found vGPO1@B"});
}

TEST_F(discovery_lookups, the_same_question_twice_is_one_question)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    look(unit);
    EXPECT_EQ(net.browsed.size(), 1u);
    EXPECT_EQ(told(unit), lines{"found vGPO1@B"});
}

TEST_F(discovery_lookups, the_number_of_questions_of_a_client_is_bounded)
{
    const uint32_t unit = connect("zel_gpio");
    for (size_t i = 0; i < lookups::most_questions_per_client + 5; ++i) {
        look(unit, 2, ("_t" + std::to_string(i) + "._tcp").c_str());
    }
    EXPECT_EQ(net.browsed.size(), lookups::most_questions_per_client);
}

TEST_F(discovery_lookups, a_flood_of_names_is_bounded_and_those_known_before_it_are_kept)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    for (size_t i = 0; i < lookups::most_services + 100; ++i) found("flood " + std::to_string(i));
    EXPECT_EQ(told(unit).size(), lookups::most_services);
    EXPECT_EQ(net.resolved.size(), lookups::most_services);
    found("one more");
    EXPECT_EQ(told(unit), lines{});
    lost("flood 0");
    found("one more");
    EXPECT_EQ(told(unit), (lines{"gone flood 0", "found one more"}));
    lost("vGPO1@B");
    EXPECT_EQ(told(unit), lines{"gone vGPO1@B"});
}

TEST_F(discovery_lookups, names_that_are_no_service_names_are_left_out)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    for (const std::string &name : {std::string(), std::string(64, 'x'), std::string("bad \xff"), std::string("a\0b", 3)}) found(name);
    EXPECT_EQ(told(unit), lines{});
    found(std::string(63, 'x'));
    EXPECT_EQ(told(unit).size(), 1u);
}

TEST_F(discovery_lookups, a_browser_that_begins_anew_takes_nothing_away_that_is_still_there)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    found("vGPO2@B");
    (void)told(unit);
    logic->browsing_anew(net.browser_on("eth0"));
    found("vGPO1@B");
    EXPECT_EQ(told(unit), lines{});
    pass(lookups::doubt_ms - 1);
    EXPECT_EQ(told(unit), lines{});
    pass(1);
    EXPECT_EQ(told(unit), lines{"gone vGPO2@B"});
}

TEST_F(discovery_lookups, a_client_that_could_not_be_told_is_told_when_it_returns)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    found("vGPO2@B");
    ask_back(unit);
    resolve("vGPO1@B", at("10.0.0.2"));
    (void)told(unit);
    machine.broken_links.insert(unit);
    found("vGPO3@B");
    lost("vGPO2@B");
    disconnect(unit);
    const uint32_t again = connect("zel_gpio");
    EXPECT_EQ(told(again), (lines{"found vGPO1@B", "vGPO1@B at 10.0.0.2:9000 \"path=/a/b\" on 2", "gone vGPO2@B", "found vGPO3@B"}));
}

TEST_F(discovery_lookups, nothing_is_due_when_nothing_is_in_doubt)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    found("vGPO1@B");
    resolve("vGPO1@B", at("10.0.0.2"));
    EXPECT_EQ(logic->next_due(), std::nullopt);
}
