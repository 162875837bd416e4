// What arrives, in which order, and when the link comes up or is lost: both ends in one process, on real sockets.
#include "ipc_ends.h"

namespace {

constexpr size_t sizes[] = {0, 1, 2, 3, 4, 68, 255, 256, 696, 1024, 1084, 1224, 4095, 4096, 4097, 16384,
                            65535, ZEL_IPC_MAX_PAYLOAD};

}  // namespace

TEST(ipc, messages_of_every_size_arrive_whole_in_both_directions)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    for (const size_t size : sizes) {
        const std::string text(size, static_cast<char>(size * 7));
        ASSERT_EQ(client.send(2, text), 0);
        ASSERT_EQ(server.send(server.id_of("client"), 255, text), 0);
        ASSERT_TRUE(loop.until([&] { return !server.messages().empty() && !client.messages().empty(); }));
        EXPECT_EQ(server.messages(), (std::vector<event>{{2, text}}));
        EXPECT_EQ(client.messages(), (std::vector<event>{{255, text}}));
        server.entries.erase(server.entries.begin() + 1, server.entries.end());
        client.events.clear();
    }
}

TEST(ipc, a_dump_of_hundreds_of_messages_arrives_in_order_and_unmixed)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    std::vector<event> dump;
    for (int i = 0; i < 2000; ++i) dump.push_back({2 + i % 254, numbered(i, static_cast<size_t>(i * 13 % 1500))});
    for (const event &one : dump) ASSERT_EQ(client.send(one.type, one.payload), 0);
    ASSERT_TRUE(loop.until([&] { return server.messages().size() >= dump.size(); }));
    EXPECT_EQ(server.messages(), dump);
}

TEST(ipc, what_is_sent_while_older_messages_wait_does_not_overtake_them)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    ASSERT_EQ(send_numbered(client, 0, 1000), 1000);   // more than the socket takes when the link comes up
    test_loop both(client, server), server_alone(server);
    ASSERT_TRUE(both.until([&] { return client.up(); }));
    const auto let_the_server_read = [&] {
        while (server_alone.turn(0)) {
        }
    };
    let_the_server_read();
    ASSERT_LT(server.messages().size(), 1000u);
    ASSERT_EQ(send_numbered(client, 1000, 1000), 1000);   // there is room in the socket, but others wait
    ASSERT_TRUE(both.until([&] { return server.messages().size() == 2000; }));
    ASSERT_EQ(send_numbered(client, 2000, 1000), 1000);   // the same with a link that is up
    let_the_server_read();
    ASSERT_LT(server.messages().size(), 3000u);
    ASSERT_EQ(send_numbered(client, 3000, 10), 10);
    ASSERT_TRUE(both.until([&] { return server.messages().size() == 3010; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 3010));

    const uint32_t id = server.id_of("client");
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(server.send(id, 2, std::to_string(i)), 0);
    test_loop client_alone(client);
    while (client_alone.turn(0)) {
    }
    ASSERT_LT(client.count(2), 1000u);
    ASSERT_EQ(server.send(id, 2, "1000"), 0);
    ASSERT_TRUE(both.until([&] { return client.count(2) == 1001; }));
    for (int i = 0; i <= 1000; ++i) ASSERT_EQ(client.messages()[static_cast<size_t>(i)].payload, std::to_string(i));
}

TEST(ipc, messages_that_cannot_be_sent_are_refused_on_both_sides)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const uint32_t id = server.id_of("client");
    const std::string too_long(ZEL_IPC_MAX_PAYLOAD + 1, 'x');
    EXPECT_EQ(client.send(2, too_long), -1);
    EXPECT_EQ(server.send(id, 2, too_long), -1);
    for (const int type : {0, 1}) {
        EXPECT_EQ(client.send(type, "a"), -1);
        EXPECT_EQ(server.send(id, type, "a"), -1);
    }
    EXPECT_EQ(zel_ipc_client_send(client.handle, 2, nullptr, 1), -1);
    EXPECT_EQ(zel_ipc_server_send(server.handle, id, 2, nullptr, 1), -1);
    EXPECT_EQ(zel_ipc_client_send(client.handle, 2, nullptr, 0), 0);
    EXPECT_EQ(zel_ipc_server_send(server.handle, id, 2, nullptr, 0), 0);
    ASSERT_TRUE(loop.until([&] { return !server.messages().empty() && !client.messages().empty(); }));
    EXPECT_EQ(server.messages(), (std::vector<event>{{2, ""}}));
    EXPECT_EQ(client.messages(), (std::vector<event>{{2, ""}}));
}

TEST(ipc, what_is_sent_before_the_server_runs_is_delivered_in_order_when_it_does)
{
    const unit_folder unit;
    test_client client;
    EXPECT_EQ(send_numbered(client, 0, 1000), 1000);
    test_loop loop(client);
    loop.turn(1000);   // the first attempt fails
    EXPECT_EQ(send_numbered(client, 1000, 500), 500);
    test_server server;
    loop.add(server);
    ASSERT_TRUE(loop.until([&] { return server.messages().size() >= 1500; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 1500));
    EXPECT_EQ(client.events, (std::vector<event>{{1, std::string("server\0", 7)}}));
}

TEST(ipc, a_full_early_queue_refuses_and_leaves_a_dump_sent_from_the_link_event_its_room)
{
    const unit_folder unit;
    test_client client;
    EXPECT_EQ(send_numbered(client, 0, 4096), 4096);
    EXPECT_EQ(client.send(2, "one too many"), -1);
    EXPECT_EQ(client.send(2, "again"), -1);
    EXPECT_EQ(times_logged("no room or memory for more"), 1u);
    client.on_event = [&](const event &one) {
        if (one.type == ZEL_IPC_LINK_MADE) {
            EXPECT_EQ(send_numbered(client, 4096, 2000), 2000);
        }
    };
    test_server server;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return server.messages().size() >= 6096; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 6096));
}

TEST(ipc, the_early_queue_is_bounded_in_bytes_too)
{
    const unit_folder unit;
    test_client client;
    const std::string longest(ZEL_IPC_MAX_PAYLOAD, 'x');
    size_t bytes = 0;
    while (client.send(2, longest) == 0) ASSERT_LE(bytes += longest.size(), size_t{4} << 20);
    EXPECT_GE(bytes, (size_t{4} << 20) - 2 * longest.size());
}

TEST(ipc, what_waits_for_the_first_link_outlives_one_that_took_only_a_part_of_it)
{
    const unit_folder unit;
    test_client client;
    std::vector<event> all;
    for (int i = 0; i < 60; ++i) all.push_back({2, numbered(i, 60000)});
    for (const event &one : all) ASSERT_EQ(client.send(one.type, one.payload), 0);
    size_t taken = 0;
    {
        test_server first;
        test_loop loop(client, first);
        ASSERT_TRUE(loop.until([&] { return first.messages().size() >= 3; }));
        taken = first.messages().size();
        EXPECT_EQ(first.messages(), std::vector<event>(all.begin(), all.begin() + static_cast<ptrdiff_t>(taken)));
    }
    test_server second;
    test_loop loop(client, second);
    ASSERT_TRUE(loop.until([&] { return !second.messages().empty() && second.messages().back() == all.back(); }));
    // What the first server's socket had taken went with it; the rest is here, in order, each once.
    const std::vector<event> got = second.messages();
    EXPECT_EQ(got, std::vector<event>(all.end() - static_cast<ptrdiff_t>(got.size()), all.end()));
    EXPECT_GT(got.size(), 20u);
}

TEST(ipc, the_callback_is_called_from_inside_process_fds_only)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    EXPECT_EQ(client.send(2, "a"), 0);
    zel_ipc_server_process_fds(server.handle, nullptr);
    EXPECT_TRUE(client.events.empty());
    bool inside = false;
    client.on_event = [&](const event &) { EXPECT_TRUE(inside); };
    for (int i = 0; i < 1000 && !client.up(); ++i) {
        inside = true;
        zel_ipc_client_process_fds(client.handle, nullptr);
        inside = false;
        zel_ipc_server_process_fds(server.handle, nullptr);
    }
    ASSERT_TRUE(client.up());
    server.end();
    while (client.send(2, "a") == 0) {
    }
    EXPECT_EQ(client.count(ZEL_IPC_LINK_LOST), 0u);
    inside = true;
    zel_ipc_client_process_fds(client.handle, nullptr);
    inside = false;
    EXPECT_EQ(client.count(ZEL_IPC_LINK_LOST), 1u);
    client.end();
    EXPECT_EQ(client.count(ZEL_IPC_LINK_LOST), 1u);
}

TEST(ipc, the_link_event_comes_before_anything_the_server_sent)
{
    const unit_folder unit;
    test_server server;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "connected") {
            EXPECT_EQ(server.send(one.id, 7, "welcome"), 0);
        }
    };
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.events.size() >= 2; }));
    EXPECT_EQ(client.events, (std::vector<event>{{1, std::string("server\0", 7)}, {7, "welcome"}}));
}

TEST(ipc, what_was_sent_early_is_delivered_before_what_the_link_event_sends)
{
    const unit_folder unit;
    test_client client;
    ASSERT_EQ(send_numbered(client, 0, 600), 600);
    client.on_event = [&](const event &one) {
        if (one.type == ZEL_IPC_LINK_MADE) {
            EXPECT_EQ(send_numbered(client, 600, 600), 600);
        }
    };
    test_server server;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return server.messages().size() >= 1200; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 1200));
}

TEST(ipc, a_client_survives_the_restart_of_its_server_again_and_again)
{
    const unit_folder unit;
    test_client client;
    for (int round = 0; round < 5; ++round) {
        test_server server;
        test_loop loop(client, server);
        ASSERT_TRUE(loop.until([&] { return client.up(); }));
        ASSERT_EQ(send_numbered(client, round, 1), 1);
        ASSERT_TRUE(loop.until([&] { return server.messages().size() == 1; }));
        EXPECT_EQ(server.messages(), numbered_events(round, 1));
        ASSERT_EQ(server.send(server.id_of("client"), 9, "answer"), 0);
        ASSERT_TRUE(loop.until([&] { return client.count(9) == static_cast<size_t>(round) + 1; }));
        server.end();
        ASSERT_TRUE(loop.until([&] { return !client.up(); }));
        EXPECT_EQ(client.events.back(), (event{0, std::string("server\0", 7)}));
        EXPECT_EQ(client.send(2, "nobody is there"), -1);
    }
    EXPECT_EQ(client.count(1), 5u);
    EXPECT_EQ(client.count(0), 5u);
}

TEST(ipc, what_the_server_sent_before_it_ended_is_delivered_before_the_loss)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    for (int i = 0; i < 20; ++i) ASSERT_EQ(client.send(2, "unread by the server"), 0);
    for (int i = 0; i < 20; ++i) ASSERT_EQ(server.send(server.id_of("client"), 3, std::to_string(i)), 0);
    server.end();
    ASSERT_TRUE(loop.until([&] { return !client.up(); }));
    EXPECT_EQ(client.count(3), 20u);
    EXPECT_EQ(client.events.back().type, 0);
}

TEST(ipc, what_a_client_sent_before_it_ended_is_delivered_before_its_disconnection)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    for (int i = 0; i < 20; ++i) ASSERT_EQ(server.send(server.id_of("client"), 2, "unread by the client"), 0);
    // More than a server reads in one turn, and answers on the way that cannot be delivered.
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message") (void)server.send(one.id, 2, "answer");
    };
    ASSERT_EQ(send_numbered(client, 0, 150), 150);
    client.end();
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 1; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 150));
    EXPECT_EQ(server.entries.back().what, "disconnected");
}

TEST(ipc, what_a_client_still_keeps_when_it_ends_is_sent_as_far_as_the_socket_takes_it)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop both(client, server), server_alone(server);
    ASSERT_TRUE(both.until([&] { return client.up(); }));
    ASSERT_EQ(send_numbered(client, 0, 400), 400);
    while (server_alone.turn(0)) {
    }
    ASSERT_LT(server.messages().size(), 400u);
    client.end();
    ASSERT_TRUE(both.until([&] { return server.count("disconnected") == 1; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 400));
}

TEST(ipc, what_a_lost_link_did_not_take_is_not_sent_over_the_next_one)
{
    const unit_folder unit;
    test_server first;
    test_client client;
    test_loop loop(client, first);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    ASSERT_EQ(send_numbered(client, 0, 2000), 2000);
    first.end();
    client.on_event = [&](const event &one) {
        if (one.type == ZEL_IPC_LINK_MADE) (void)client.send(2, "fresh");
    };
    test_server second;
    loop.add(second);
    ASSERT_TRUE(loop.until([&] { return !second.messages().empty(); }));
    EXPECT_EQ(second.messages()[0], (event{2, "fresh"}));
}

TEST(ipc, answers_to_a_client_that_has_gone_are_refused_and_its_remaining_requests_heard)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.pause_slow_clients = 1;
    test_server server(config);
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const uint32_t id = server.id_of("client");
    const std::string block(60000, 'x');
    for (int i = 0; i < 16; ++i) ASSERT_EQ(server.send(id, 2, block), 0);   // its queue is more than half full: not read from
    ASSERT_EQ(send_numbered(client, 0, 100), 100);
    test_loop server_alone(server);
    while (server_alone.turn(0)) {
    }
    ASSERT_TRUE(server.messages().empty());
    client.end();
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 1; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 100));
    EXPECT_EQ(server.send(id, 2, "late"), -1);
}
