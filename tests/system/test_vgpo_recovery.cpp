// Two units on two hosts: whatever happens between them, the level is right again by itself once the fault is gone.
#include "following_pair.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <random>

using namespace zel::test;

namespace {

class two_units : public testing::Test {
protected:
    void SetUp() override
    {
        hosts_ = two_hosts::make();
        if (!hosts_) GTEST_SKIP() << "no network namespaces, bridge or veth interfaces here";
        pair_ = std::make_unique<following_pair>(*hosts_);
        ASSERT_TRUE(pair_->start_source());
        ASSERT_TRUE(pair_->start_follower());
        pair_->press(true);
        expect_level(true);
    }
    // The time goes into the test's report; no test fails for it.
    void expect_level(bool level, const std::string &what = "found")
    {
        const auto took = pair_->await_level(level);
        ASSERT_TRUE(took) << what << ": wanted " << level << ", has " << pair_->follower_report();
        longest_ = std::max(longest_, *took);
        std::cout << what << " after " << took->count() << " ms\n";
    }
    // Both levels arrive: the link is not only right by chance.
    void expect_following()
    {
        for (const bool level : {false, true}) {
            pair_->press(level);
            expect_level(level, "followed");
        }
    }

    std::unique_ptr<two_hosts> hosts_;
    std::unique_ptr<following_pair> pair_;
    std::chrono::milliseconds longest_{0};
};

TEST_F(two_units, follow_each_press)
{
    expect_following();
    expect_following();
}

TEST_F(two_units, find_each_other_again_after_the_source_was_killed)
{
    pair_->end_source();
    ASSERT_TRUE(pair_->await_loss());
    ASSERT_TRUE(pair_->start_source());
    expect_level(false, "source back");
    expect_following();
}

TEST_F(two_units, find_each_other_again_after_the_follower_was_killed)
{
    pair_->end_follower();
    ASSERT_TRUE(pair_->start_follower());
    expect_level(true, "follower back");
    expect_following();
}

TEST_F(two_units, find_each_other_again_when_the_source_has_a_new_address)
{
    ASSERT_TRUE(hosts_->change_address(two_hosts::a, "10.9.0.7/24"));
    pair_->press(false);
    expect_level(false, "new address");
    expect_following();
}

// The announcement is then still being made.
TEST_F(two_units, find_each_other_when_the_source_has_a_new_address_right_after_its_start)
{
    for (const char *const address : {"10.9.0.7/24", "10.9.0.8/24", "10.9.0.9/24"}) {
        pair_->end_source();
        ASSERT_TRUE(pair_->await_loss());
        ASSERT_TRUE(pair_->start_source());
        ASSERT_TRUE(hosts_->change_address(two_hosts::a, address));
        pair_->press(true);
        expect_level(true, "new address");
        expect_following();
    }
}

TEST_F(two_units, need_no_discovery_for_what_they_follow_and_have_it_back_when_it_was_killed)
{
    ASSERT_TRUE(pair_->kill_discovery_of_source());
    ASSERT_TRUE(pair_->kill_discovery_of_follower());
    expect_level(true, "discovery killed");
    expect_following();
    pair_->end_source();
    ASSERT_TRUE(pair_->await_loss());
    ASSERT_TRUE(pair_->start_source());
    expect_level(false, "source back");
    ASSERT_TRUE(hosts_->change_address(two_hosts::a, "10.9.0.8/24"));
    expect_following();
}

TEST_F(two_units, find_each_other_again_when_a_cable_was_out)
{
    for (const auto host : {two_hosts::a, two_hosts::b}) {
        ASSERT_TRUE(hosts_->plug(host, false));
        pair_->press(false);
        ASSERT_TRUE(pair_->await_loss());
        ASSERT_TRUE(hosts_->plug(host, true));
        expect_level(false, "cable in again");
        expect_following();
    }
}

TEST_F(two_units, notice_a_path_that_carries_nothing_and_its_return)
{
    ASSERT_TRUE(hosts_->forward(two_hosts::a, false));
    pair_->press(false);
    ASSERT_TRUE(pair_->await_loss());
    ASSERT_TRUE(hosts_->forward(two_hosts::a, true));
    expect_level(false, "path back");
    expect_following();
}

TEST_F(two_units, see_the_source_disabled_and_offered_again)
{
    pair_->offer(false);
    ASSERT_TRUE(pair_->await_loss());
    pair_->offer(true);
    expect_level(true, "offered again");
    expect_following();
}

TEST_F(two_units, notice_a_source_that_is_connected_but_says_nothing)
{
    pair_->source_process().signal(SIGSTOP);
    EXPECT_TRUE(pair_->await_loss());
    pair_->source_process().signal(SIGCONT);
    expect_level(true, "source speaks again");
    expect_following();
}

// Short and long cuts at either end, with or without the carrier's loss, the level changed before, meanwhile or not at all.
TEST_F(two_units, have_the_right_level_after_each_of_200_cuts)
{
    std::mt19937 random(20);
    const auto pick = [&random](int end) { return std::uniform_int_distribution<int>(0, end - 1)(random); };
    bool level = true;
    for (int cut = 0; cut < 200; ++cut) {
        const auto host = pick(2) == 0 ? two_hosts::a : two_hosts::b;
        const bool with_carrier = pick(2) == 0;
        const auto carry = [&](bool on) { return with_carrier ? hosts_->forward(host, on) : hosts_->plug(host, on); };
        ASSERT_TRUE(carry(false));
        for (int change = pick(3); change > 0; --change) pair_->press(level = !level);
        ASSERT_TRUE(carry(true));
        if (pick(2) == 0) pair_->press(level = !level);
        ASSERT_NO_FATAL_FAILURE(expect_level(level, "cut " + std::to_string(cut)));
    }
    std::cout << "the longest time to the right level was " << longest_.count() << " ms\n";
}

}  // namespace
