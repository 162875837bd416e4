// Clients and servers in processes of their own, which are killed, stopped and started again.
#include "ipc_ends.h"

#include "child_process.h"

namespace {

// Answers every message with the same under type 3, until it is killed.
int serve_echoes()
{
    test_server server;
    if (server.handle == nullptr) return 1;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message") (void)server.send(one.id, 3, one.message.payload);
    };
    test_loop loop(server);
    while (loop.until([&] { return server.entries.size() > 1000000; })) {
    }
    return 0;
}

std::vector<event> echoes_of(int first, int count)
{
    std::vector<event> expected;
    for (int i = first; i < first + count; ++i) expected.push_back({3, std::to_string(i)});
    return expected;
}

}  // namespace

TEST(ipc_processes, a_client_survives_a_server_that_is_killed_and_started_again)
{
    const unit_folder unit;
    test_client client;
    test_loop loop(client);
    ASSERT_EQ(send_numbered(client, 0, 500), 500);
    for (size_t round = 1; round <= 3; ++round) {
        child_process server(serve_echoes);
        ASSERT_TRUE(loop.until([&] { return client.count(ZEL_IPC_LINK_MADE) == round; }));
        if (round > 1) {
            ASSERT_EQ(send_numbered(client, 0, 500), 500);
        }
        ASSERT_TRUE(loop.until([&] { return client.count(3) == 500; }));
        EXPECT_EQ(client.messages(), echoes_of(0, 500));
        server.kill(SIGKILL);
        ASSERT_TRUE(loop.until([&] { return client.count(ZEL_IPC_LINK_LOST) == round; }));
        EXPECT_EQ(client.send(2, "nobody is there"), -1);
        EXPECT_TRUE(std::filesystem::exists(unit.run("server"))) << "the killed one could not clean up";
        std::erase_if(client.events, [](const event &one) { return one.type == 3; });
    }
}

TEST(ipc_processes, a_second_server_process_of_one_name_does_not_start)
{
    const unit_folder unit;
    child_process first(serve_echoes);
    test_client client;
    test_loop loop(client);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    child_process second(serve_echoes);
    EXPECT_EQ(second.wait(), 1);
    ASSERT_EQ(client.send(2, "0"), 0);
    ASSERT_TRUE(loop.until([&] { return client.count(3) == 1; }));
    EXPECT_EQ(client.count(ZEL_IPC_LINK_LOST), 0u);
}

TEST(ipc_processes, of_servers_that_start_at_the_same_moment_exactly_one_runs)
{
    for (int round = 0; round < 10; ++round) {
        const unit_folder unit;
        int go[2], result[2];
        ASSERT_EQ(pipe(go), 0);
        ASSERT_EQ(pipe(result), 0);
        const auto compete = [&] {
            char byte;
            close(go[1]);
            (void)!read(go[0], &byte, 1);   // ends when the test closes its end
            const test_server server;
            byte = server.handle != nullptr ? 'y' : 'n';
            (void)!write(result[1], &byte, 1);
            pause();
            return 0;
        };
        child_process one(compete), two(compete), three(compete), four(compete);
        close(go[0]);
        close(go[1]);
        std::string results;
        for (char byte; results.size() < 4 && read(result[0], &byte, 1) == 1;) results.push_back(byte);
        EXPECT_EQ(std::count(results.begin(), results.end(), 'y'), 1) << results;
        close(result[0]);
        close(result[1]);
    }
}

TEST(ipc_processes, a_stopped_server_neither_blocks_its_client_nor_loses_what_was_accepted)
{
    const unit_folder unit;
    child_process server(serve_echoes);
    test_client client;
    test_loop loop(client);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    server.kill(SIGSTOP);
    int accepted = 0;
    while (client.send(2, std::to_string(accepted)) == 0) ASSERT_LT(++accepted, 20000);
    EXPECT_GE(accepted, 4096);
    EXPECT_EQ(loop.wakeups_in(50), 0);
    server.kill(SIGCONT);
    ASSERT_TRUE(loop.until([&] { return client.count(3) == static_cast<size_t>(accepted); }));
    EXPECT_EQ(client.messages(), echoes_of(0, accepted));
}

TEST(ipc_processes, a_client_waits_for_a_server_that_is_stopped_before_it_greets)
{
    const unit_folder unit;
    child_process server(serve_echoes);
    test_client probe;
    test_loop probing(probe);
    ASSERT_TRUE(probing.until([&] { return probe.up(); }));   // it listens
    server.kill(SIGSTOP);
    test_client client("server", "late");
    test_loop loop(client);
    ASSERT_EQ(send_numbered(client, 0, 100), 100);
    EXPECT_LE(loop.wakeups_in(100), 2);
    EXPECT_TRUE(client.events.empty());
    server.kill(SIGCONT);
    ASSERT_TRUE(loop.until([&] { return client.count(3) == 100; }));
    EXPECT_EQ(client.messages(), echoes_of(0, 100));
}

TEST(ipc_processes, a_killed_client_is_disconnected_after_its_last_message_and_may_come_back)
{
    const unit_folder unit;
    test_server server;
    test_loop loop(server);
    for (size_t round = 1; round <= 3; ++round) {
        child_process process([] {
            test_client client;
            test_loop own(client);
            (void)own.until([&] { return client.up(); });
            (void)send_numbered(client, 0, 100);
            raise(SIGKILL);
            return 0;
        });
        const pid_t id = process.id();
        server.entries.clear();
        ASSERT_TRUE(loop.until([&] { return server.count("connected") == 1; }));
        zel_ipc_peer_t peer{};
        uint32_t cursor = 0;
        if (zel_ipc_server_next_client(server.handle, &cursor, &peer) == 1) {
            EXPECT_EQ(peer.pid, id);
        }
        ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 1; }));
        EXPECT_EQ(server.messages(), numbered_events(0, 100));
    }
}

TEST(ipc_processes, a_link_ends_although_a_child_process_still_holds_its_socket)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const child_process first_holder([] { return pause(); });   // forked with copies of every descriptor
    client.end();
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 1; }));
    test_client again;
    loop.add(again);
    ASSERT_TRUE(loop.until([&] { return again.up(); }));
    const child_process second_holder([] { return pause(); });
    ASSERT_EQ(zel_ipc_server_disconnect(server.handle, server.id_of("client")), 0);
    ASSERT_TRUE(loop.until([&] { return again.count(ZEL_IPC_LINK_MADE) == 2; }));
    const child_process third_holder([] { return pause(); });
    EXPECT_EQ(loop.wakeups_in(50), 0) << "the copies do not keep the loop awake";
    server.end();
    ASSERT_TRUE(loop.until([&] { return again.count(ZEL_IPC_LINK_LOST) == 2; }));
}

TEST(ipc_processes, a_client_that_is_not_read_from_may_leave_although_a_child_process_still_holds_its_socket)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.pause_slow_clients = 1;
    test_server server(config);
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const child_process holder([] { return pause(); });
    for (int i = 0; i < 16; ++i) ASSERT_EQ(server.send(server.id_of("client"), 2, std::string(60000, 'x')), 0);
    ASSERT_EQ(send_numbered(client, 0, 10), 10);
    test_loop server_alone(server);
    while (server_alone.turn(0)) {
    }
    ASSERT_TRUE(server.messages().empty());
    client.end();   // what the server sent stays unread in the socket that the child holds
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 1; }));
    EXPECT_EQ(server.messages(), numbered_events(0, 10));
}
