// The one descriptor: readable exactly when something is due.
#include "ipc_ends.h"

#include <fcntl.h>
#include <sys/resource.h>

TEST(ipc, select_sleeps_while_nothing_is_due)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    ASSERT_EQ(client.send(2, "a"), 0);
    ASSERT_TRUE(loop.until([&] { return server.messages().size() == 1; }));
    EXPECT_EQ(loop.wakeups_in(200), 0);
    EXPECT_FALSE(is_readable(zel_ipc_client_fd(client.handle)));
    EXPECT_FALSE(is_readable(zel_ipc_server_fd(server.handle)));
}

TEST(ipc, a_client_without_server_wakes_its_host_a_few_times_only)
{
    const unit_folder unit;
    test_client client;
    test_loop loop(client);
    const int wakeups = loop.wakeups_in(600);   // at once and after 20, 40, 80, 160 ... ms
    EXPECT_GE(wakeups, 1);
    EXPECT_LE(wakeups, 6);
    EXPECT_EQ(times_logged("tries again until it is"), 1u);
}

TEST(ipc, a_server_that_drops_its_clients_at_once_is_not_stormed)
{
    const unit_folder unit;
    test_server server;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "connected") (void)zel_ipc_server_disconnect(server.handle, one.id);
    };
    test_client client;
    test_loop loop(client, server);
    (void)loop.wakeups_in(600);
    EXPECT_GE(client.count(1), 1u);
    EXPECT_LE(client.count(1), 6u);
    EXPECT_LE(client.count(1) - client.count(0), 1u);
}

TEST(ipc, the_appearance_of_its_server_wakes_a_waiting_client_and_nothing_else_does)
{
    const unit_folder unit;
    test_client client;
    test_loop loop(client);
    for (int round = 0; round < 2; ++round) {
        for (int turn = 0; turn < 5; ++turn) loop.turn(2000);   // from now on its timer is far away
        EXPECT_FALSE(is_readable(zel_ipc_client_fd(client.handle)));
        test_server server;
        EXPECT_TRUE(is_readable(zel_ipc_client_fd(client.handle)));
        test_loop both(client, server);
        ASSERT_TRUE(both.until([&] { return client.up(); }));
        std::ofstream(unit.run("server.other")) << round;
        EXPECT_FALSE(is_readable(zel_ipc_client_fd(client.handle))) << "a client with a link does not watch";
        std::filesystem::remove(unit.run("server.other"));
        server.end();
        ASSERT_TRUE(loop.until([&] { return !client.up(); }));
    }
}

TEST(ipc, a_client_with_growing_delays_is_woken_by_each_appearance_of_its_server)
{
    const unit_folder unit;
    test_client client;
    test_loop loop(client);
    for (int round = 0; round < 7; ++round) {
        test_server server;
        EXPECT_TRUE(is_readable(zel_ipc_client_fd(client.handle))) << "its next attempt may be most of a second away";
        test_loop both(client, server);
        ASSERT_TRUE(both.until([&] { return client.up(); }));
        server.end();
        while (client.up()) zel_ipc_client_process_fds(client.handle, nullptr);
    }
}

TEST(ipc, a_socket_that_comes_and_goes_does_not_keep_a_client_busy)
{
    const unit_folder unit;
    test_client client;
    test_loop loop(client);
    loop.turn(1000);
    for (int i = 0; i < 1000; ++i) {
        std::ofstream(unit.run("server")) << "x";
        std::filesystem::remove(unit.run("server"));
    }
    const int wakeups = loop.wakeups_in(300);
    EXPECT_LE(wakeups, 8);
}

TEST(ipc, process_fds_does_nothing_when_the_descriptor_is_not_set)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    fd_set none;
    FD_ZERO(&none);
    const int attempt_due = zel_ipc_client_fd(client.handle);
    pollfd asked{attempt_due, POLLIN, 0};
    ASSERT_EQ(poll(&asked, 1, 10000), 1);
    zel_ipc_client_process_fds(client.handle, &none);
    EXPECT_TRUE(is_readable(attempt_due)) << "the first attempt is still due";
    EXPECT_FALSE(is_readable(zel_ipc_server_fd(server.handle)));
    zel_ipc_client_process_fds(client.handle, nullptr);
    EXPECT_TRUE(is_readable(zel_ipc_server_fd(server.handle)));
    zel_ipc_server_process_fds(server.handle, &none);
    EXPECT_EQ(server.count("connected"), 0u);
    while (is_readable(zel_ipc_server_fd(server.handle))) zel_ipc_server_process_fds(server.handle, nullptr);
    EXPECT_EQ(server.count("connected"), 1u);
}

TEST(ipc, null_handles_and_null_sets_are_harmless)
{
    zel_ipc_client_set_fds(nullptr, nullptr, nullptr);
    zel_ipc_client_process_fds(nullptr, nullptr);
    zel_ipc_client_term(nullptr);
    EXPECT_EQ(zel_ipc_client_send(nullptr, 2, "a", 1), -1);
    EXPECT_EQ(zel_ipc_client_fd(nullptr), -1);
    EXPECT_EQ(zel_ipc_client_user_data(nullptr), nullptr);
    zel_ipc_server_set_fds(nullptr, nullptr, nullptr);
    zel_ipc_server_process_fds(nullptr, nullptr);
    zel_ipc_server_term(nullptr);
    EXPECT_EQ(zel_ipc_server_send(nullptr, 1, 2, "a", 1), -1);
    EXPECT_EQ(zel_ipc_server_disconnect(nullptr, 1), -1);
    EXPECT_EQ(zel_ipc_server_fd(nullptr), -1);
    uint32_t cursor = 0;
    zel_ipc_peer_t peer;
    EXPECT_EQ(zel_ipc_server_next_client(nullptr, &cursor, &peer), 0);
    const unit_folder unit;
    test_client client;
    zel_ipc_client_set_fds(client.handle, nullptr, nullptr);
    fd_set set;
    FD_ZERO(&set);
    zel_ipc_client_set_fds(client.handle, &set, nullptr);
    EXPECT_TRUE(FD_ISSET(zel_ipc_client_fd(client.handle), &set));
}

TEST(ipc, a_descriptor_beyond_an_fd_set_is_left_out_of_it_and_served_all_the_same)
{
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2 * FD_SETSIZE);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    ASSERT_GE(limit.rlim_cur, static_cast<rlim_t>(FD_SETSIZE + 100));
    std::vector<int> fillers;
    while (fillers.empty() || fillers.back() < FD_SETSIZE) {
        fillers.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_GE(fillers.back(), 0);
    }

    const unit_folder unit;
    test_server server;
    test_client client;
    ASSERT_GE(zel_ipc_client_fd(client.handle), FD_SETSIZE);
    fd_set set;
    FD_ZERO(&set);
    int maxfd = 3;
    for (int i = 0; i < 3; ++i) {
        zel_ipc_client_set_fds(client.handle, &set, &maxfd);
        zel_ipc_server_set_fds(server.handle, &set, &maxfd);
    }
    EXPECT_EQ(maxfd, 3);
    EXPECT_EQ(times_logged("does not fit a descriptor set"), 2u);
    for (int i = 0; i < 1000 && !client.up(); ++i) {
        zel_ipc_client_process_fds(client.handle, &set);
        zel_ipc_server_process_fds(server.handle, &set);
    }
    EXPECT_TRUE(client.up());
    for (const int filler : fillers) close(filler);
}

namespace {

void ignore(zel_ipc_client_t *, uint8_t, const void *, uint32_t) {}

// Serves both until the client is connected, at most so many times; waits between them where there is something to wait for.
void pump(zel_ipc_client_t *client, test_server &server, int most)
{
    for (int turn = 0; turn < most && server.count("connected") == 0; ++turn) {
        pollfd due[2] = {{zel_ipc_client_fd(client), POLLIN, 0}, {zel_ipc_server_fd(server.handle), POLLIN, 0}};
        (void)poll(due, 2, 1000);
        zel_ipc_client_process_fds(client, nullptr);
        zel_ipc_server_process_fds(server.handle, nullptr);
    }
}

}  // namespace

TEST(ipc, ends_that_run_out_of_descriptors_fail_cleanly_or_go_on_when_there_are_some)
{
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    bool went_well = false;
    for (rlim_t room = 0; !went_well; ++room) {
        ASSERT_LT(room, 30u);
        const unit_folder unit;
        const size_t descriptors = open_descriptors();
        const int next_free = dup(0);
        close(next_free);
        const rlimit few = {static_cast<rlim_t>(next_free) + room, before.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
        {
            test_server server;
            zel_ipc_client_t *const probe = zel_ipc_client_init("server", "probe", ignore, nullptr);
            const bool both = probe != nullptr && server.handle != nullptr;
            EXPECT_EQ(times_logged("Failed to make the descriptors for server"), probe == nullptr ? 1u : 0u) << room;
            EXPECT_TRUE(server.handle != nullptr || times_logged("0 ") >= 1) << room;
            pump(probe, server, 3);
            went_well = both && server.count("connected") == 1;
            ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
            if (both) pump(probe, server, 1000);
            EXPECT_EQ(server.count("connected"), both ? 1u : 0u) << room;
            zel_ipc_client_term(probe);
        }
        EXPECT_EQ(open_descriptors(), descriptors) << room;
    }
}
