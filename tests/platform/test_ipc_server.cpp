// Where servers live, and many clients of one server.
#include "ipc_ends.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>

namespace {

mode_t mode_of(const std::string &path)
{
    struct stat found{};
    EXPECT_EQ(stat(path.c_str(), &found), 0) << path;
    return found.st_mode & 07777;
}

bool exists(const std::string &path)
{
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

}  // namespace

TEST(ipc, bad_names_and_a_missing_callback_are_refused_with_a_clear_line)
{
    const unit_folder unit;
    const auto callback = [](zel_ipc_client_t *, uint8_t, const void *, uint32_t) {};
    const std::string too_long(ZEL_IPC_MAX_NAME + 1, 'x');
    for (const char *bad : {static_cast<const char *>(nullptr), "", "a/b", "..", too_long.c_str()}) {
        EXPECT_EQ(zel_ipc_client_init(bad, "client", callback, nullptr), nullptr);
        EXPECT_EQ(zel_ipc_client_init("server", bad, callback, nullptr), nullptr);
        EXPECT_EQ(zel_ipc_server_init(bad, nullptr), nullptr);
    }
    EXPECT_EQ(times_logged("is no name for a"), 15u);
    EXPECT_EQ(zel_ipc_client_init("server", "client", nullptr, nullptr), nullptr);
    zel_ipc_server_config_t config{};
    config.max_clients = 1025;
    EXPECT_EQ(zel_ipc_server_init("server", &config), nullptr);
    EXPECT_EQ(times_logged("cannot have 1025 clients"), 1u);
}

TEST(ipc, folder_and_socket_belong_to_the_owner_alone_whatever_the_umask)
{
    for (const mode_t mask : {0000, 0777, 0022}) {
        const unit_folder unit;
        const mode_t before = umask(mask & 0077);   // a mask over the owner's own bits would keep him out of his folder
        umask(mask == 0777 ? 0077 : mask);
        test_server server;
        umask(before);
        ASSERT_NE(server.handle, nullptr);
        EXPECT_EQ(mode_of(unit.run()), 0700u);
        EXPECT_EQ(mode_of(unit.run("server")), 0600u);
    }
}

TEST(ipc, a_unit_in_a_deep_folder_works)
{
    const unit_folder unit("/" + std::string(100, 'd') + "/" + std::string(100, 'e') + "/" + std::string(100, 'f'));
    test_client client("server", std::string(ZEL_IPC_MAX_NAME, 'c').c_str());
    const std::string longest_name(ZEL_IPC_MAX_NAME, 's');
    test_client other(longest_name.c_str());
    test_server server;
    test_server longest({}, longest_name.c_str());
    ASSERT_NE(server.handle, nullptr);
    ASSERT_NE(longest.handle, nullptr);
    test_loop loop(client, other, server, longest);
    ASSERT_TRUE(loop.until([&] { return client.up() && other.up(); }));
    EXPECT_NE(server.id_of(std::string(ZEL_IPC_MAX_NAME, 'c')), 0u);
    EXPECT_TRUE(exists(unit.run("server")));
    server.end();
    longest.end();
    EXPECT_TRUE(std::filesystem::is_empty(unit.run()));
}

TEST(ipc, a_server_that_ends_leaves_nothing_behind)
{
    const unit_folder unit;
    const size_t descriptors = open_descriptors();
    {
        test_server server, other({}, "other");
        EXPECT_TRUE(exists(unit.run("server")));
    }
    EXPECT_TRUE(std::filesystem::is_empty(unit.run()));
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(ipc, a_living_server_is_not_replaced)
{
    const unit_folder unit;
    test_server first;
    test_client client;
    {
        const test_server second;
        EXPECT_EQ(second.handle, nullptr);
    }
    EXPECT_EQ(times_logged("A server named server is running already"), 1u);
    test_loop loop(first, client);
    ASSERT_TRUE(loop.until([&] { return client.up(); })) << "the first one is not disturbed";
}

TEST(ipc, a_stale_socket_is_replaced_and_anything_else_in_its_place_is_not)
{
    const unit_folder unit;
    std::filesystem::create_directories(unit.run());
    const int socket_fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s", unit.run("server").c_str());
    ASSERT_EQ(bind(socket_fd, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    close(socket_fd);
    ASSERT_TRUE(exists(unit.run("server")));
    {
        const test_server server;
        EXPECT_NE(server.handle, nullptr);
    }
    write_text(unit.run("server"), "somebody's notes");
    const test_server server;
    EXPECT_EQ(server.handle, nullptr);
    EXPECT_EQ(text_of(unit.run("server")), "somebody's notes");
    EXPECT_EQ(times_logged("is in the way"), 1u);
    std::filesystem::remove(unit.run("server"));
    EXPECT_TRUE(std::filesystem::is_empty(unit.run())) << "the failed one left no lock";
}

TEST(ipc, a_unit_whose_folder_cannot_be_made_is_told_so_and_works_when_it_can)
{
    const unit_folder unit;
    write_text(unit.top() + "/run", "a file where the folder should be");
    test_client client;
    EXPECT_EQ(times_logged("1 open: Failed to make folder"), 1u);
    {
        const test_server server;
        EXPECT_EQ(server.handle, nullptr);
        EXPECT_EQ(times_logged("0 open: Failed to make folder"), 1u);
    }
    test_loop loop(client);
    loop.turn(1000);
    std::filesystem::remove(unit.top() + "/run");
    test_server server;
    loop.add(server);
    EXPECT_TRUE(loop.until([&] { return client.up(); }));
}

TEST(ipc, a_unit_whose_folder_is_removed_while_its_client_waits_gets_its_server_back)
{
    const unit_folder unit;
    test_client client;
    test_loop loop(client);
    loop.turn(1000);
    std::filesystem::remove_all(unit.run());
    loop.turn(1000);
    test_server server;
    loop.add(server);
    EXPECT_TRUE(loop.until([&] { return client.up(); }));
}

TEST(ipc, a_hundred_clients_get_their_own_messages)
{
    const unit_folder unit;
    test_server server;
    server.on_entry = [&](const test_server::entry &one) {
        if (one.what == "message") {
            EXPECT_EQ(server.send(one.id, 3, "to " + one.name + ": " + one.message.payload), 0);
        }
    };
    std::vector<std::unique_ptr<test_client>> clients;
    test_loop loop(server);
    const auto name = [](size_t i) { return "client-" + std::to_string(i); };
    for (size_t i = 0; i < 100; ++i) {
        clients.push_back(std::make_unique<test_client>("server", name(i).c_str()));
        loop.add(*clients.back());
        for (int count = 0; count < 20; ++count) ASSERT_EQ(clients[i]->send(2, std::to_string(count)), 0);
    }
    const auto all_answered = [&] {
        return std::all_of(clients.begin(), clients.end(), [](const auto &one) { return one->count(3) >= 20; });
    };
    ASSERT_TRUE(loop.until(all_answered));
    for (size_t i = 0; i < 100; ++i) {
        std::vector<event> expected;
        for (int count = 0; count < 20; ++count) expected.push_back({3, "to " + name(i) + ": " + std::to_string(count)});
        EXPECT_EQ(clients[i]->messages(), expected);
    }
    std::vector<uint32_t> ids = server.walk();
    EXPECT_EQ(ids.size(), 100u);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
    for (const auto &one : clients) one->end();
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 100; }));
    EXPECT_TRUE(server.walk().empty());
    EXPECT_EQ(loop.wakeups_in(50), 0);
}

TEST(ipc, a_client_too_many_waits_until_there_is_room)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.max_clients = 2;
    test_server server(config);
    test_client first("server", "first"), second("server", "second");
    test_loop loop(server, first, second);
    ASSERT_TRUE(loop.until([&] { return first.up() && second.up(); }));
    test_client third("server", "third");
    ASSERT_EQ(third.send(2, "patience"), 0);
    loop.add(third);
    ASSERT_TRUE(loop.until([&] { return times_logged("too many clients") > 0; }));
    (void)loop.wakeups_in(200);
    EXPECT_EQ(times_logged("too many clients"), 1u) << "not once per attempt";
    EXPECT_TRUE(third.events.empty());
    EXPECT_TRUE(first.up() && second.up());
    first.end();
    ASSERT_TRUE(loop.until([&] { return third.up() && server.messages().size() == 1; }));
    EXPECT_EQ(server.messages()[0].payload, "patience");
}

TEST(ipc, the_server_knows_who_its_clients_are)
{
    const unit_folder unit;
    test_server server;
    test_client client("server", "zel_gpio");
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    uint32_t cursor = 0;
    zel_ipc_peer_t peer{};
    ASSERT_EQ(zel_ipc_server_next_client(server.handle, &cursor, &peer), 1);
    EXPECT_STREQ(peer.name, "zel_gpio");
    EXPECT_EQ(peer.pid, getpid());
    EXPECT_EQ(peer.uid, geteuid());
    EXPECT_EQ(peer.id, server.id_of("zel_gpio"));
    EXPECT_EQ(zel_ipc_server_next_client(server.handle, &cursor, &peer), 0);
}

TEST(ipc, a_walk_may_disconnect_on_its_way)
{
    const unit_folder unit;
    test_server server;
    std::vector<std::unique_ptr<test_client>> clients;
    test_loop loop(server);
    for (int i = 0; i < 6; ++i) {
        clients.push_back(std::make_unique<test_client>("server", ("c" + std::to_string(i)).c_str()));
        loop.add(*clients.back());
    }
    ASSERT_TRUE(loop.until([&] { return server.count("connected") == 6; }));
    zel_ipc_peer_t peer;
    int seen = 0;
    for (uint32_t cursor = 0; zel_ipc_server_next_client(server.handle, &cursor, &peer) == 1; ++seen) {
        EXPECT_EQ(zel_ipc_server_disconnect(server.handle, peer.id), 0);
    }
    EXPECT_EQ(seen, 6);
    EXPECT_TRUE(server.walk().empty());
    EXPECT_EQ(server.count("disconnected"), 0u) << "not from inside the call";
    ASSERT_TRUE(loop.until([&] { return server.count("disconnected") == 6; }));
}

TEST(ipc, a_disconnected_client_gets_what_was_sent_to_it_before)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const uint32_t id = server.id_of("client");
    ASSERT_EQ(server.send(id, 4, "goodbye"), 0);
    ASSERT_EQ(zel_ipc_server_disconnect(server.handle, id), 0);
    ASSERT_TRUE(loop.until([&] { return client.count(ZEL_IPC_LINK_LOST) == 1; }));
    EXPECT_EQ(client.events[1], (event{4, "goodbye"}));
}

TEST(ipc, a_disconnected_client_gets_what_waited_for_it_as_far_as_the_socket_takes_it)
{
    const unit_folder unit;
    test_server server;
    test_client client;
    test_loop loop(client, server), client_alone(client);
    ASSERT_TRUE(loop.until([&] { return client.up(); }));
    const uint32_t id = server.id_of("client");
    for (int i = 0; i < 400; ++i) ASSERT_EQ(server.send(id, 4, "news"), 0);
    while (client_alone.turn(0)) {
    }
    ASSERT_LT(client.count(4), 400u);
    ASSERT_EQ(zel_ipc_server_disconnect(server.handle, id), 0);
    ASSERT_TRUE(loop.until([&] { return client.count(ZEL_IPC_LINK_LOST) == 1; }));
    EXPECT_EQ(client.count(4), 400u);
}

TEST(ipc, several_clients_may_have_one_name)
{
    const unit_folder unit;
    test_server server;
    test_client first, second;
    test_loop loop(first, second, server);
    ASSERT_TRUE(loop.until([&] { return first.up() && second.up(); }));
    EXPECT_EQ(server.walk().size(), 2u);
    EXPECT_EQ(server.count("disconnected"), 0u);
}

TEST(ipc, where_names_are_unique_the_newer_client_replaces_the_older_after_its_last_messages)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.unique_names = 1;
    test_server server(config);
    test_client older, bystander("server", "bystander");
    test_loop all(older, bystander, server);
    ASSERT_TRUE(all.until([&] { return older.up() && bystander.up(); }));
    const uint32_t older_id = server.id_of("client");
    server.entries.clear();
    test_client newer;
    test_loop without_older(newer, bystander, server);
    ASSERT_EQ(send_numbered(older, 0, 100), 100);
    older.end();   // as if its process had died; the newer one is its restart
    ASSERT_TRUE(without_older.until([&] { return newer.up(); }));
    EXPECT_EQ(server.messages(), numbered_events(0, 100));
    ASSERT_EQ(server.entries.size(), 102u);
    EXPECT_EQ(server.entries[100].what, "disconnected");
    EXPECT_EQ(server.entries[100].id, older_id);
    EXPECT_EQ(server.entries[101].what, "connected");
    EXPECT_NE(server.entries[101].id, older_id);
}

TEST(ipc, where_names_are_unique_a_newer_client_ends_the_link_of_a_living_older_one)
{
    const unit_folder unit;
    zel_ipc_server_config_t config{};
    config.unique_names = 1;
    test_server server(config);
    test_client older;
    test_loop loop(older, server);
    ASSERT_TRUE(loop.until([&] { return older.up(); }));
    test_client newer;
    test_loop without_older(newer, server);
    ASSERT_TRUE(without_older.until([&] { return newer.up(); }));
    EXPECT_EQ(server.walk().size(), 1u);
    EXPECT_EQ(server.count("disconnected"), 1u);
    zel_ipc_client_process_fds(older.handle, nullptr);
    EXPECT_EQ(older.count(ZEL_IPC_LINK_LOST), 1u);
}
