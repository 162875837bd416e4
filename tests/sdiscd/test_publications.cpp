// What clients announce, and what becomes of it.
#include "discovery_world.h"

#include <cstdint>

using namespace zel::sdiscd;
using namespace zel::sdiscd::test;

using discovery_publications = world;

TEST_F(discovery_publications, what_a_client_publishes_is_announced_until_it_takes_it_back)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A", 9000, "\"path=/a/b\"");
    ASSERT_EQ(net.published_names(), lines{"vGPO1@A"});
    const announcement &what = net.published.begin()->second;
    EXPECT_EQ(what, (announcement{{"eth0", {vgpo, "vGPO1@A"}}, 9000, {"path=/a/b"}}));
    unpublish(unit, "vGPO1@A");
    EXPECT_TRUE(net.published.empty());
}

TEST_F(discovery_publications, publishing_the_same_again_changes_nothing)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A");
    publish(unit, "vGPO1@A");
    EXPECT_EQ(net.publish_calls, 1);
    EXPECT_EQ(net.withdraw_calls, 0);
}

TEST_F(discovery_publications, another_port_or_path_changes_the_announcement_in_place)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    const uint32_t number = net.number_of("vGPO1@A");
    publish(unit, "vGPO1@A", 9001);
    publish(unit, "vGPO1@A", 9001, "\"path=/c\"");
    EXPECT_EQ(net.withdraw_calls, 0);
    EXPECT_EQ(net.published.at(number).port, 9001);
    EXPECT_EQ(net.published.at(number).txt, lines{"path=/c"});
}

TEST_F(discovery_publications, another_interface_moves_the_announcement)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    publish(unit, "vGPO1@A", 9000, "\"path=/a/b\"", 3);
    ASSERT_EQ(net.published.size(), 1u);
    EXPECT_EQ(net.published.begin()->second.place.interface, "eth1");
    EXPECT_EQ(net.withdraw_calls, 1);
}

TEST_F(discovery_publications, an_index_that_does_not_exist_is_kept_for_when_it_does)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A", 9000, "\"path=/a/b\"", 77);
    EXPECT_EQ(net.published.begin()->second.place.interface, "#77");
    publish(unit, "vGPO2@A", 9000, "\"path=/a/b\"", 0);
    EXPECT_EQ(net.published.at(net.number_of("vGPO2@A")).place.interface, "eth0");
}

TEST_F(discovery_publications, a_client_cannot_take_back_what_another_one_published)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    publish(unit, "vGPO1@A");
    unpublish(other, "vGPO1@A");
    unpublish(unit, "vGPO9@A");
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
}

TEST_F(discovery_publications, a_name_that_is_taken_is_told_once_and_asked_for_again_when_it_is_given_up)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A", publish_outcome::collision);
    EXPECT_EQ(told(unit), lines{"collision vGPO1@A"});
    ASSERT_NE(net.browser_on("eth0"), 0u) << "nobody else looks, so the daemon has to";
    found("vGPO1@A");
    EXPECT_EQ(net.publish_calls, 1);
    lost("vGPO1@A");
    EXPECT_EQ(net.publish_calls, 2);
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
    settle("vGPO1@A", publish_outcome::collision);   // a third one was faster
    EXPECT_EQ(told(unit), lines{});
    found("vGPO1@A");
    lost("vGPO1@A");
    settle("vGPO1@A");
    EXPECT_TRUE(net.browsed.empty());
    EXPECT_EQ(told(unit), lines{});
}

TEST_F(discovery_publications, a_taken_name_is_also_asked_for_again_when_nobody_answers_for_it)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    publish(unit, "vGPO1@A");
    settle("vGPO1@A", publish_outcome::collision);
    found("vGPO1@A");
    resolve("vGPO1@A", at("10.0.0.2"));
    fail_to_resolve("vGPO1@A");
    EXPECT_EQ(net.publish_calls, 2);
}

TEST_F(discovery_publications, a_taken_name_is_asked_for_again_after_a_time_in_any_case)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A", publish_outcome::collision);
    pass(publications::collision_retry_ms - 1);
    EXPECT_EQ(net.publish_calls, 1);
    pass(1);
    EXPECT_EQ(net.publish_calls, 2);
}

TEST_F(discovery_publications, the_service_that_has_the_name_is_another_units_and_is_told)
{
    const uint32_t unit = connect("zel_gpio");
    look(unit);
    publish(unit, "vGPO1@A");
    found("vGPO1@A", true);
    settle("vGPO1@A", publish_outcome::collision);
    EXPECT_EQ(told(unit), (lines{"collision vGPO1@A", "found vGPO1@A"}));
    lost("vGPO1@A");
    settle("vGPO1@A");
    found("vGPO1@A", true);
    EXPECT_EQ(told(unit), lines{"gone vGPO1@A"});
}

TEST_F(discovery_publications, two_clients_of_one_unit_with_one_name_get_it_one_after_the_other)
{
    const uint32_t unit = connect("zel_gpio"), other = connect("other", 101);
    publish(unit, "vGPO1@A");
    settle("vGPO1@A");
    publish(other, "vGPO1@A", 9100);
    logic->published(net.published.rbegin()->first, publish_outcome::collision);
    EXPECT_EQ(told(other), lines{"collision vGPO1@A"});
    const int before = net.publish_calls;
    unpublish(unit, "vGPO1@A");
    EXPECT_EQ(net.publish_calls, before + 1);
    ASSERT_EQ(net.published.size(), 1u);
    EXPECT_EQ(net.published.begin()->second.port, 9100);
}

TEST_F(discovery_publications, a_client_that_asks_again_for_a_taken_name_is_told_again)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A", publish_outcome::collision);
    (void)told(unit);
    publish(unit, "vGPO1@A");
    EXPECT_EQ(told(unit), lines{"collision vGPO1@A"});
}

TEST_F(discovery_publications, what_the_responder_refused_is_tried_again_later)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, "vGPO1@A");
    settle("vGPO1@A", publish_outcome::failed);
    EXPECT_EQ(told(unit), lines{});
    pass(publications::failure_retry_ms);
    EXPECT_EQ(net.publish_calls, 2);
}

TEST_F(discovery_publications, the_number_of_publications_of_a_client_is_bounded)
{
    const uint32_t unit = connect("zel_gpio");
    for (size_t i = 0; i < publications::most_per_client + 5; ++i) publish(unit, "vGPO" + std::to_string(i) + "@A");
    EXPECT_EQ(net.published.size(), publications::most_per_client);
    publish(unit, "vGPO1@A", 9001);   // one that is there may still change
    EXPECT_EQ(net.published.at(net.number_of("vGPO1@A")).port, 9001);
}

TEST_F(discovery_publications, requests_that_make_no_sense_change_nothing)
{
    const uint32_t unit = connect("zel_gpio");
    publish(unit, std::string(64, 'x'));
    publish(unit, "bad \xff name");
    publish(unit, "vGPO1@A", 0);
    publish(unit, "vGPO1@A", 9000, "\"path=/open");
    publish(unit, "vGPO1@A", 9000, ("\"path=" + std::string(251, 'x') + "\"").c_str());
    for (const int type : {0, 1, 2, 5, 11, 255}) logic->message(unit, static_cast<uint8_t>(type), "whatever", now);
    for (const int type : {7, 8, 9, 10}) logic->message(unit, static_cast<uint8_t>(type), "", now);
    logic->message(99, publish_request, std::string(1224, 'x'), now);
    logic->tick(now);
    EXPECT_TRUE(net.published.empty());
    EXPECT_TRUE(net.browsed.empty());
    publish(unit, "vGPO1@A", 9000, ("\"path=" + std::string(250, 'x') + "\"").c_str());
    EXPECT_EQ(net.published_names(), lines{"vGPO1@A"});
}
