// What callbacks may do, and ends that do not read.
#include "ipc_ends.h"

#include <algorithm>
#include <map>

TEST(ipc, a_callback_may_send_and_send_again)
{
    const unit_folder unit;
    test_server server;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message") {
            EXPECT_EQ(server.send(one.id, 3, one.message.payload + "!"), 0);
        }
    };
    test_client client;
    client.on_event = [&](const event &one) {
        if (one.type == ZEL_IPC_LINK_MADE) {
            EXPECT_EQ(client.send(2, "a"), 0);
        }
        if (one.type == 3 && one.payload.size() < 50) {
            EXPECT_EQ(client.send(2, one.payload), 0);
        }
    };
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return !client.events.empty() && client.events.back().payload.size() >= 50; }));
    EXPECT_EQ(client.events.back().payload, "a" + std::string(49, '!'));
}

TEST(ipc, a_callback_may_end_its_own_client)
{
    const unit_folder unit;
    test_server server;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what != "connected") return;
        for (int i = 0; i < 50; ++i) (void)server.send(one.id, 5, "burst");
        if (one.name == "lost") (void)zel_ipc_server_disconnect(server.handle, one.id);
    };
    const size_t descriptors = open_descriptors();
    const std::map<std::string, int> places = {{"made", ZEL_IPC_LINK_MADE}, {"lost", ZEL_IPC_LINK_LOST}, {"message", 5}};
    for (const auto &place : places) {
        const std::string &name = place.first;
        const int at = place.second;
        test_client client("server", name.c_str());
        int calls_after = 0;
        client.on_event = [&](const event &one) {
            if (client.handle == nullptr) ++calls_after;
            if (one.type != at) return;
            zel_ipc_client_t *const own = client.handle;
            EXPECT_EQ(client.send(2, "last words"), at == ZEL_IPC_LINK_LOST ? -1 : 0);
            client.end();
            EXPECT_EQ(zel_ipc_client_send(own, 2, "a", 1), -1);
            zel_ipc_client_process_fds(own, nullptr);
            zel_ipc_client_term(own);   // a second time changes nothing
        };
        test_loop loop(client, server);
        ASSERT_TRUE(loop.until([&] { return client.handle == nullptr; })) << name;
        ASSERT_TRUE(loop.until([&] { return server.count("connected") == server.count("disconnected"); }));
        EXPECT_EQ(calls_after, 0) << name;
        EXPECT_EQ(client.count(5), at == ZEL_IPC_LINK_MADE ? 0u : at == ZEL_IPC_LINK_LOST ? 50u : 1u) << name;
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(server.messages(), (std::vector<event>{{2, "last words"}, {2, "last words"}}));
}

TEST(ipc, process_fds_from_inside_a_callback_does_nothing)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    int depth = 0, deepest = 0;
    const auto call_back_in = [&](auto process, auto handle) {
        deepest = std::max(deepest, ++depth);
        process(handle, nullptr);
        --depth;
    };
    client.on_event = [&](const event &) { call_back_in(zel_ipc_client_process_fds, client.handle); };
    server.on_entry = [&](const test_server::entry &one) {
        call_back_in(zel_ipc_server_process_fds, server.handle);
        if (one.what == "connected") {
            for (int i = 0; i < 20; ++i) EXPECT_EQ(server.send(one.id, 2, "burst"), 0);
        }
    };
    ASSERT_EQ(send_numbered(client, 0, 20), 20);
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.count(2) == 20 && server.messages().size() == 20; }));
    EXPECT_EQ(deepest, 1);
}

TEST(ipc, a_callback_of_the_server_may_end_the_server)
{
    for (const std::string at : {"connected", "message", "disconnected"}) {
        const unit_folder unit;
        const size_t descriptors = open_descriptors();
        {
            test_server server;
            std::vector<std::unique_ptr<test_client>> clients;
            test_loop loop(server);
            for (int i = 0; i < 5; ++i) {
                clients.push_back(std::make_unique<test_client>("server", ("c" + std::to_string(i)).c_str()));
                loop.add(*clients.back());
                for (int count = 0; count < 10; ++count) ASSERT_EQ(clients.back()->send(2, "early"), 0);
            }
            if (at == "disconnected") {
                ASSERT_TRUE(loop.until([&] { return server.messages().size() == 50; }));
                ASSERT_EQ(zel_ipc_server_disconnect(server.handle, server.id_of("c3")), 0);
            }
            bool ended = false;
            server.on_entry = [&](const test_server::entry &one) {
                EXPECT_FALSE(ended) << "a call after the end";
                if (one.what != at) return;
                ended = true;
                zel_ipc_server_t *const own = server.handle;
                server.end();
                EXPECT_EQ(zel_ipc_server_send(own, one.id, 2, "a", 1), -1);
                EXPECT_EQ(zel_ipc_server_disconnect(own, one.id), -1);
                zel_ipc_server_process_fds(own, nullptr);
            };
            ASSERT_TRUE(loop.until([&] { return ended; })) << at;
            EXPECT_FALSE(std::filesystem::exists(unit.run("server")));
        }
        EXPECT_EQ(open_descriptors(), descriptors) << at;
    }
}

TEST(ipc, a_callback_may_disconnect_its_own_client_and_any_other)
{
    const unit_folder unit;
    test_server server;
    std::vector<std::unique_ptr<test_client>> clients;
    test_loop loop(server);
    for (int i = 0; i < 10; ++i) {
        clients.push_back(std::make_unique<test_client>("server", ("c" + std::to_string(i)).c_str()));
        loop.add(*clients.back());
    }
    ASSERT_TRUE(loop.until([&] { return server.count("connected") == 10; }));
    const auto id = [&](int i) { return server.id_of("c" + std::to_string(i)); };
    int heard_after = 0;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message" && one.name == "c4") {
            if (server.messages().size() > 1) ++heard_after;
            for (const int i : {2, 4, 7}) EXPECT_EQ(zel_ipc_server_disconnect(server.handle, id(i)), 0);
            EXPECT_EQ(zel_ipc_server_disconnect(server.handle, one.id), -1) << "it is leaving already";
            EXPECT_EQ(server.send(one.id, 2, "a"), -1);
        }
        if (one.what == "disconnected" && one.name == "c7") (void)zel_ipc_server_disconnect(server.handle, id(9));
    };
    for (int i = 0; i < 20; ++i) ASSERT_EQ(clients[4]->send(2, "go"), 0);
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") >= 4 && server.count("connected") >= 14; }));
    EXPECT_EQ(heard_after, 0);
    EXPECT_EQ(server.messages().size(), 1u);
    for (const int i : {2, 4, 7, 9}) EXPECT_EQ(clients[static_cast<size_t>(i)]->count(ZEL_IPC_LINK_LOST), 1u) << i;
    for (const int i : {0, 1, 3, 5, 6, 8}) EXPECT_EQ(clients[static_cast<size_t>(i)]->count(ZEL_IPC_LINK_LOST), 0u) << i;
}

TEST(ipc, a_server_that_does_not_read_neither_blocks_its_client_nor_lets_it_grow)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop both(client, server), alone(client);
    ASSERT_TRUE(both.until([&] { return client.up(); }));
    int accepted = 0;
    while (client.send(2, numbered(accepted, 1000)) == 0) ASSERT_LT(++accepted, 20000);
    EXPECT_EQ(client.send(2, "no room"), -1);
    EXPECT_GE(accepted, 4000);
    EXPECT_FALSE(alone.turn(0)) << "a full socket is nothing that is due";
    EXPECT_TRUE(client.up());
    ASSERT_TRUE(both.until([&] { return server.messages().size() >= static_cast<size_t>(accepted); }));
    const std::vector<event> got = server.messages();
    ASSERT_EQ(got.size(), static_cast<size_t>(accepted));
    for (int i = 0; i < accepted; ++i) ASSERT_EQ(got[static_cast<size_t>(i)].payload, numbered(i, 1000));
    EXPECT_EQ(client.send(2, "room again"), 0);
}

TEST(ipc, a_client_that_does_not_read_is_dropped_and_the_others_are_not_disturbed)
{
    const unit_folder unit;
    test_server server;
    test_client slow("server", "slow"), good("server", "good");
    test_loop all(server, slow, good), rest(server, good);
    ASSERT_TRUE(all.until([&] { return slow.up() && good.up(); }));
    const uint32_t slow_id = server.id_of("slow"), good_id = server.id_of("good");
    const std::string block(1000, 'x');
    int accepted = 0;
    while (server.send(slow_id, 2, block) == 0) ASSERT_LT(++accepted, 5000);
    EXPECT_GE(accepted, 1000);
    EXPECT_EQ(server.count("disconnected"), 0u) << "not from inside the send";
    EXPECT_EQ(server.send(good_id, 2, "still here"), 0);
    ASSERT_TRUE(rest.until([&] { return server.count("disconnected") == 1 && good.count(2) == 1; }));
    EXPECT_EQ(server.entries.back().name, "slow");
    EXPECT_EQ(server.send(slow_id, 2, "gone"), -1);
    EXPECT_EQ(good.count(ZEL_IPC_LINK_LOST), 0u);
    EXPECT_EQ(times_logged("does not read"), 1u);
    ASSERT_TRUE(all.until([&] { return slow.count(ZEL_IPC_LINK_MADE) == 2; })) << "when it reads again, it is back";
    EXPECT_NE(server.id_of("slow"), slow_id);
}

TEST(ipc, a_client_that_reads_slowly_but_does_gets_everything)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(server, client);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const uint32_t id = server.id_of("client");
    for (int i = 0; i < 900; ++i) ASSERT_EQ(server.send(id, 2, numbered(i, 1000)), 0);
    ASSERT_TRUE(loop.until([&] { return client.count(2) == 900; }));
    for (int i = 0; i < 900; ++i) ASSERT_EQ(client.messages()[static_cast<size_t>(i)].payload, numbered(i, 1000));
}

TEST(ipc, nothing_is_read_from_a_client_that_does_not_take_its_answers_where_the_server_asks_for_that)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.pause_slow_clients = 1;
    config.max_queue_messages = 100;
    test_server server(config);
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message") {
            EXPECT_EQ(server.send(one.id, 3, std::string(4000, 'x')), 0);
        }
    };
    test_client client;
    test_loop loop(server, client), server_alone(server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    int asked = 0;
    while (client.send(2, "ask") == 0) ASSERT_LT(++asked, 10000);   // it does not read meanwhile
    while (server_alone.turn(0)) {
    }
    const size_t heard = server.messages().size();
    EXPECT_LT(heard, static_cast<size_t>(asked));
    EXPECT_EQ(server.count("disconnected"), 0u);
    ASSERT_TRUE(loop.until([&] { return client.count(3) == static_cast<size_t>(asked); })) << "when it reads, it goes on";
    EXPECT_EQ(server.count("disconnected"), 0u);
}

TEST(ipc, a_client_that_asks_and_does_not_take_its_answers_is_dropped_where_the_server_does_not_pause_it)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.max_queue_messages = 100;
    test_server server(config);
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message") (void)server.send(one.id, 3, std::string(4000, 'x'));
    };
    test_client client;
    test_loop loop(server, client), server_alone(server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    ASSERT_TRUE(server_alone.until([&] {
        (void)client.send(2, "ask");
        return server.count("disconnected") == 1;
    }));
}
