// The parts below client and server, each alone.
#include "ipc_ends.h"

#include "event_sources.h"
#include "message_queue.h"
#include "peer_table.h"
#include "reconnection.h"
#include "socket_watch.h"
#include "wire.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

using namespace zel::ipc;
using zel::unique_fd;

namespace {

struct socket_pair {
    socket_pair()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK, 0, ends), 0);
        near.reset(ends[0]);
        far.reset(ends[1]);
    }
    unique_fd near, far;
};

packet packet_of(uint8_t type, const void *payload, size_t length)
{
    packet made{};
    made.type = type;
    made.length = static_cast<uint32_t>(length);
    std::memcpy(made.payload, payload, length);
    return made;
}

std::string text_of(const packet &from)
{
    return {reinterpret_cast<const char *>(from.payload), from.length};
}

bool push_text(message_queue &queue, uint8_t type, const std::string &text)
{
    return queue.push(type, text.data(), static_cast<uint32_t>(text.size()));
}

}  // namespace

TEST(ipc_name, letters_digits_and_a_few_signs_make_a_name)
{
    for (const char *good : {"zel_sdiscd", "snmp_gpio", "a", "A-1.b", "0"}) EXPECT_TRUE(is_valid_name(good)) << good;
    for (const char *bad : {"", ".", ".hidden", "a/b", "../a", "a b", "a\n", "caf\xc3\xa9", "a%s\x7f"}) {
        EXPECT_FALSE(is_valid_name(bad)) << bad;
    }
    EXPECT_TRUE(is_valid_name(std::string(63, 'x')));
    EXPECT_FALSE(is_valid_name(std::string(64, 'x')));
    EXPECT_FALSE(is_valid_name(std::string_view("a\0b", 3)));
}

TEST(ipc_greeting, what_was_made_is_read_back)
{
    for (const std::string &name : {std::string("zel_gpio"), std::string(63, 'n')}) {
        const greeting_record record = make_greeting(name);
        const packet sent = packet_of(greeting_type, &record, sizeof record);
        ASSERT_TRUE(read_greeting(sent));
        EXPECT_EQ(*read_greeting(sent), name);
    }
}

TEST(ipc_greeting, every_deviation_is_refused)
{
    const greeting_record good = make_greeting("zel_gpio");
    EXPECT_FALSE(read_greeting(packet_of(2, &good, sizeof good)));
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, &good, sizeof good - 1)));
    char longer[sizeof good + 1] = {};
    std::memcpy(longer, &good, sizeof good);
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, longer, sizeof longer)));
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, "", 0)));

    greeting_record other = good;
    other.magic[0] = 'Z';
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, &other, sizeof other)));
    other = good;
    other.version = protocol_version + 1;
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, &other, sizeof other)));
    other = good;
    other.name[0] = 0;
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, &other, sizeof other)));
    other = good;
    other.name[1] = '\n';
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, &other, sizeof other)));
    other = good;
    std::memset(other.name, 'x', sizeof other.name);
    EXPECT_FALSE(read_greeting(packet_of(greeting_type, &other, sizeof other))) << "a name without an end";
}

TEST(ipc_wire, a_packet_arrives_with_its_type_and_its_length)
{
    const socket_pair pair;
    packet got{};
    EXPECT_EQ(receive_packet(pair.far.get(), got), receipt::nothing_yet);
    const std::string longest(ZEL_IPC_MAX_PAYLOAD, 'x');
    for (const std::string &text : {std::string(), std::string("a"), longest}) {
        ASSERT_EQ(send_packet(pair.near.get(), 200, text.data(), static_cast<uint32_t>(text.size())), sending::done);
        ASSERT_EQ(receive_packet(pair.far.get(), got), receipt::message);
        EXPECT_EQ(got.type, 200);
        EXPECT_EQ(text_of(got), text);
    }
}

TEST(ipc_wire, a_packet_that_is_too_long_is_malformed)
{
    const socket_pair pair;
    const std::string bytes(ZEL_IPC_MAX_PAYLOAD + 2, 'x');
    ASSERT_EQ(send(pair.near.get(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
    packet got;
    EXPECT_EQ(receive_packet(pair.far.get(), got), receipt::malformed);
}

TEST(ipc_wire, what_a_peer_sent_before_it_closed_is_read_also_when_it_left_something_unread)
{
    socket_pair pair;
    ASSERT_EQ(send_packet(pair.far.get(), 2, "unread", 6), sending::done);
    ASSERT_EQ(send_packet(pair.near.get(), 3, "last", 4), sending::done);
    pair.near.reset();
    packet got;
    ASSERT_EQ(receive_packet(pair.far.get(), got), receipt::message);
    EXPECT_EQ(text_of(got), "last");
    EXPECT_EQ(receive_packet(pair.far.get(), got), receipt::closed);
}

TEST(ipc_wire, sending_to_a_closed_peer_fails_without_a_signal)
{
    socket_pair pair;
    pair.far.reset();
    EXPECT_EQ(send_packet(pair.near.get(), 2, "a", 1), sending::failed);
}

TEST(ipc_queue, messages_leave_in_order_and_wait_when_the_socket_is_full)
{
    const socket_pair pair;
    message_queue queue({100000, 64u << 20});
    const std::string filling(1000, 'x');
    for (int i = 0; i < 5000; ++i) ASSERT_TRUE(push_text(queue, static_cast<uint8_t>(2 + i % 250), std::to_string(i) + filling));
    int next = 0;
    for (sending result = sending::would_block; result == sending::would_block;) {
        result = queue.flush(pair.near.get());
        ASSERT_NE(result, sending::failed);
        packet got;
        while (receive_packet(pair.far.get(), got) == receipt::message) {
            EXPECT_EQ(got.type, 2 + next % 250);
            EXPECT_EQ(text_of(got), std::to_string(next) + filling);
            ++next;
        }
    }
    EXPECT_EQ(next, 5000);
    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(queue.bytes(), 0u);
    EXPECT_EQ(queue.messages(), 0u);
}

TEST(ipc_queue, neither_limit_is_exceeded_and_a_refused_message_leaves_no_trace)
{
    message_queue few({3, 1u << 20});
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(push_text(few, 2, "a"));
    EXPECT_FALSE(push_text(few, 2, "a"));
    EXPECT_EQ(few.messages(), 3u);
    few.clear();
    EXPECT_TRUE(few.empty());
    EXPECT_TRUE(push_text(few, 2, "a")) << "emptied, it takes messages again";

    message_queue small({1000, 1000});
    const std::string text(100, 'x');
    while (push_text(small, 2, text)) EXPECT_LE(small.bytes(), 1000u);
    EXPECT_GT(small.messages(), 5u);
    EXPECT_LE(small.bytes(), 1000u);
    EXPECT_FALSE(push_text(small, 2, std::string(1001, 'x')));
    EXPECT_TRUE(small.more_than_half_full());
}

TEST(ipc_queue, what_a_failed_link_did_not_take_is_still_there)
{
    socket_pair pair;
    message_queue queue({10, 1000});
    ASSERT_TRUE(push_text(queue, 2, "a"));
    ASSERT_TRUE(push_text(queue, 3, ""));
    pair.far.reset();
    EXPECT_EQ(queue.flush(pair.near.get()), sending::failed);
    EXPECT_EQ(queue.messages(), 2u);
    const socket_pair next;
    EXPECT_EQ(queue.flush(next.near.get()), sending::done);
    packet got;
    ASSERT_EQ(receive_packet(next.far.get(), got), receipt::message);
    EXPECT_EQ(text_of(got), "a");
    ASSERT_EQ(receive_packet(next.far.get(), got), receipt::message);
    EXPECT_EQ(got.type, 3);
}

TEST(ipc_reconnection, delays_grow_to_one_second)
{
    reconnection plan;
    std::vector<uint32_t> delays;
    for (int i = 0; i < 8; ++i) delays.push_back(plan.next_delay_ms());
    EXPECT_EQ(delays, (std::vector<uint32_t>{20, 40, 80, 160, 320, 640, 1000, 1000}));
    plan.hurry();
    EXPECT_EQ(plan.next_delay_ms(), 20u);
}

TEST(ipc_reconnection, only_a_link_that_held_makes_the_next_attempt_a_quick_one)
{
    reconnection plan;
    for (int i = 0; i < 3; ++i) (void)plan.next_delay_ms();
    plan.link_made(5000);
    plan.link_lost(5999);
    EXPECT_EQ(plan.next_delay_ms(), 160u);
    plan.link_made(10000);
    plan.link_lost(11000);
    EXPECT_EQ(plan.next_delay_ms(), 20u);
}

TEST(ipc_peer_table, an_id_is_not_given_again_soon_and_finds_nobody_after_its_peer_has_left)
{
    peer_table table(2);
    const auto new_peer = [] { return std::make_unique<peer>(unique_fd(), queue_limits{1, 1}); };
    std::vector<uint32_t> ids;
    for (int i = 0; i < 1000; ++i) {
        peer *const added = table.add(new_peer());
        ASSERT_NE(added, nullptr);
        ASSERT_GE(added->id, 1024u);
        EXPECT_EQ(table.find(added->id), added);
        for (const uint32_t earlier : ids) ASSERT_EQ(table.find(earlier), nullptr);
        ids.push_back(added->id);
        (void)table.take(*added);
    }
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
    EXPECT_EQ(table.find(0), nullptr);
    EXPECT_EQ(table.find(UINT32_MAX), nullptr);
}

TEST(ipc_peer_table, running_numbers_begin_again_without_ever_giving_an_id_of_a_present_peer)
{
    constexpr uint32_t before_the_end = (1u << 22) - 5;
    peer_table table(2, before_the_end);
    const auto add = [&table] { return table.add(std::make_unique<peer>(unique_fd(), queue_limits{1, 1})); };
    const uint32_t stays = add()->id;
    std::vector<uint32_t> ids;
    for (uint32_t i = 0; i < 100; ++i) {
        const peer *const added = add();
        ASSERT_GE(added->id, 1024u);
        ids.push_back(added->id);
        (void)table.take(*added);
    }
    EXPECT_GT(ids.front(), ids.back()) << "they began again";
    EXPECT_EQ(std::count(ids.begin(), ids.end(), stays), 0);
    EXPECT_NE(table.find(stays), nullptr);
}

TEST(ipc_peer_table, a_full_table_refuses)
{
    peer_table table(3);
    const auto add = [&table] { return table.add(std::make_unique<peer>(unique_fd(), queue_limits{1, 1})); };
    peer *const first = add();
    ASSERT_NE(first, nullptr);
    EXPECT_NE(add(), nullptr);
    EXPECT_NE(add(), nullptr);
    EXPECT_EQ(add(), nullptr);
    (void)table.take(*first);
    EXPECT_NE(add(), nullptr);
}

TEST(ipc_event_sources, the_descriptor_is_readable_exactly_while_something_is_due)
{
    event_sources sources;
    ASSERT_TRUE(sources.open(7));
    EXPECT_FALSE(is_readable(sources.fd()));
    sources.arm_timer(0);
    pollfd asked{sources.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&asked, 1, 60000), 1);
    epoll_event room[2];
    ASSERT_EQ(sources.due(room).size(), 1u);
    EXPECT_EQ(room[0].data.u64, 7u);
    sources.stop_timer();
    EXPECT_FALSE(is_readable(sources.fd()));

    socket_pair pair;
    ASSERT_TRUE(sources.add(pair.near.get(), EPOLLIN, 9));
    EXPECT_FALSE(is_readable(sources.fd()));
    ASSERT_EQ(send(pair.far.get(), "x", 1, 0), 1);
    EXPECT_TRUE(is_readable(sources.fd()));
    sources.remove_and_close(pair.near);
    EXPECT_FALSE(is_readable(sources.fd()));
}

TEST(ipc_event_sources, a_closed_descriptor_is_silent_although_another_process_holds_a_copy)
{
    event_sources sources;
    ASSERT_TRUE(sources.open(7));
    socket_pair pair;
    const unique_fd copy(dup(pair.near.get()));   // as a forked child would hold it
    ASSERT_TRUE(sources.add(pair.near.get(), EPOLLIN, 9));
    pair.far.reset();
    EXPECT_TRUE(is_readable(sources.fd()));
    sources.remove_and_close(pair.near);
    EXPECT_FALSE(is_readable(sources.fd()));
}

TEST(ipc_socket_watch, sees_the_socket_appear_and_nothing_else)
{
    const unit_folder unit;
    std::filesystem::create_directories(unit.run());
    event_sources sources;
    ASSERT_TRUE(sources.open(0));
    socket_watch watch;
    watch.start(unit.run().c_str(), sources, 5);
    EXPECT_FALSE(is_readable(sources.fd()));
    std::ofstream(unit.run("other")) << "x";
    EXPECT_TRUE(is_readable(sources.fd()));
    EXPECT_FALSE(watch.saw("server"));
    EXPECT_FALSE(is_readable(sources.fd()));
    std::ofstream(unit.run("server")) << "x";
    EXPECT_TRUE(watch.saw("server"));
    std::filesystem::remove(unit.run("server"));
    EXPECT_FALSE(is_readable(sources.fd()));
    std::filesystem::rename(unit.run("other"), unit.run("server"));
    EXPECT_TRUE(watch.saw("server"));
    watch.stop();
    std::ofstream(unit.run("server.2")) << "x";
    EXPECT_FALSE(is_readable(sources.fd()));
    watch.start(unit.run().c_str(), sources, 5);
    std::filesystem::remove(unit.run("server"));
    std::ofstream(unit.run("server")) << "x";
    watch.stop();
    EXPECT_FALSE(is_readable(sources.fd())) << "what it had not told yet is forgotten";
}

TEST(ipc_socket_watch, a_folder_that_is_removed_ends_the_watch_and_one_that_is_made_anew_can_be_watched)
{
    const unit_folder unit;
    event_sources sources;
    ASSERT_TRUE(sources.open(0));
    socket_watch watch;
    watch.start(unit.run().c_str(), sources, 5);   // no folder yet: nothing to watch, no error either
    EXPECT_FALSE(is_readable(sources.fd()));
    std::filesystem::create_directories(unit.run());
    watch.start(unit.run().c_str(), sources, 5);
    std::filesystem::remove(unit.run());
    EXPECT_FALSE(watch.saw("server"));
    EXPECT_FALSE(is_readable(sources.fd()));
    std::filesystem::create_directories(unit.run());
    watch.start(unit.run().c_str(), sources, 5);
    std::ofstream(unit.run("server")) << "x";
    EXPECT_TRUE(watch.saw("server"));
}
