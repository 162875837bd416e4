// Which changes are told, and how fast.
#include "notification_queue.h"

#include <gtest/gtest.h>

#include <map>

using namespace zel::snmpd;

namespace {

struct world {
    notification_queue queue;
    std::map<notification_key, notification_state> rows;

    void change(uint32_t index, int32_t value)
    {
        rows[{subject::gpi, index}] = {value, "GPI " + std::to_string(index)};
        queue.touch({subject::gpi, index});
    }
    std::optional<notification_state> look(notification_key key) const
    {
        const auto place = rows.find(key);
        return place == rows.end() ? std::nullopt : std::optional(place->second);
    }
    // All that may be told at this time, as "index=value".
    std::vector<std::string> told(int64_t now_ms)
    {
        std::vector<std::string> all;
        while (const auto due = queue.next(now_ms, [this](notification_key key) { return look(key); })) {
            all.push_back(std::to_string(due->key.index) + "=" + std::to_string(due->state.value));
        }
        return all;
    }
};
using told = std::vector<std::string>;

}  // namespace

TEST(notification_queue, tells_each_change_in_order)
{
    world w;
    w.change(3, 1);
    w.change(1, 1);
    EXPECT_EQ(w.told(1000), (told{"3=1", "1=1"}));
    EXPECT_EQ(w.told(1000), told{});
    w.change(3, 0);
    EXPECT_EQ(w.told(1000), told{"3=0"});
}

TEST(notification_queue, tells_nothing_of_what_is_as_it_was)
{
    world w;
    w.change(1, 0);
    EXPECT_EQ(w.told(1000), told{}) << "new, and off";
    w.queue.set_known({subject::gpi, 2}, {1, ""});
    w.change(2, 1);
    EXPECT_EQ(w.told(1000), told{});
    w.change(2, 0);
    w.change(2, 1);
    EXPECT_EQ(w.told(1000), told{});
    EXPECT_EQ(w.queue.merged(), 1u);
}

TEST(notification_queue, limits_the_rate_and_loses_no_last_state)
{
    world w;
    for (uint32_t index = 0; index < 100; ++index) w.change(index, 1);
    EXPECT_EQ(w.told(1000).size(), static_cast<size_t>(notification_queue::burst));
    EXPECT_EQ(w.told(1000), told{});
    EXPECT_EQ(w.queue.next_due(1000), 1000 + notification_queue::interval_ms);
    for (uint32_t index = 40; index < 99; ++index) w.change(index, 0);
    EXPECT_EQ(w.told(1000 + notification_queue::interval_ms), told{"99=1"}) << "the others are off again, as they were";
    EXPECT_EQ(w.queue.next_due(2000), std::nullopt);
}

TEST(notification_queue, holds_each_row_once_in_a_flood)
{
    world w;
    for (int round = 0; round < 10000; ++round) w.change(static_cast<uint32_t>(round % 16), round / 16 % 2);
    EXPECT_EQ(w.queue.waiting(), 16u);
    EXPECT_EQ(w.queue.merged(), 10000u - 16u);
    for (uint32_t index = 0; index < 16; ++index) w.change(index, 1);
    EXPECT_EQ(w.told(1000).size(), 16u);
}

TEST(notification_queue, fills_its_burst_again_with_time)
{
    world w;
    for (uint32_t index = 0; index < 200; ++index) w.change(index, 1);
    EXPECT_EQ(w.told(1000).size(), 40u);
    EXPECT_EQ(w.told(1000 + 10 * notification_queue::interval_ms).size(), 10u);
    EXPECT_EQ(w.told(1000 + 1000 * notification_queue::interval_ms).size(), 40u);
}

TEST(notification_queue, passes_over_rows_that_are_gone)
{
    world w;
    w.change(1, 1);
    w.change(2, 1);
    w.rows.erase({subject::gpi, 1});
    EXPECT_EQ(w.told(1000), told{"2=1"});
}

TEST(notification_queue, tells_what_is_gone_by_the_name_that_it_had)
{
    world w;
    w.change(1, 1);
    EXPECT_EQ(w.told(1000), told{"1=1"});
    w.rows[{subject::gpi, 1}] = {0, ""};
    w.queue.touch({subject::gpi, 1});
    const auto due = w.queue.next(1000, [&](notification_key key) { return w.look(key); });
    ASSERT_TRUE(due);
    EXPECT_EQ(due->state.name, "GPI 1");
}
