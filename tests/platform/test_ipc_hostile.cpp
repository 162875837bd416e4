// Peers that do not keep to the rules: raw sockets against a server and against a client.
#include "ipc_ends.h"

#include "child_process.h"
#include "common/unique_fd.h"

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstring>

namespace {

using zel::unique_fd;

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.size(), sizeof address.sun_path);
    memcpy(address.sun_path, path.c_str(), path.size());
    return address;
}

unique_fd connect_raw(const std::string &path, int kind = SOCK_SEQPACKET)
{
    unique_fd made(socket(AF_UNIX, kind | SOCK_CLOEXEC, 0));
    const sockaddr_un address = address_of(path);
    if (connect(made.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) made.reset();
    return made;
}

unique_fd listen_raw(const std::string &path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    unique_fd made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const sockaddr_un address = address_of(path);
    EXPECT_EQ(bind(made.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(listen(made.get(), 100), 0);
    return made;
}

bool send_raw(const unique_fd &to, const std::string &bytes)
{
    return send(to.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(bytes.size());
}

// The packet as it crosses the socket, from the protocol's description and not from the library's code.
std::string greeting(const std::string &name, uint16_t version = 1, const std::string &magic = "zipc")
{
    std::string bytes = "\1" + magic;
    bytes.append(reinterpret_cast<const char *>(&version), sizeof version);
    bytes.append(name);
    bytes.resize(71, '\0');
    return bytes;
}

bool is_closed(const unique_fd &socket_fd)
{
    char byte;
    const ssize_t got = recv(socket_fd.get(), &byte, 1, MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN);
}

bool greets_back(const unique_fd &socket_fd)
{
    char bytes[200];
    return recv(socket_fd.get(), bytes, sizeof bytes, MSG_DONTWAIT) == 71 && std::string(bytes, 5) == "\1zipc";
}

// A client in good standing beside the hostile one: it must not notice anything.
struct watched_server {
    explicit watched_server(zel_ipc_server_config_t config = {}) : server(config), good("server", "good"), loop(server, good)
    {
        EXPECT_TRUE(loop.until([&] { return good.up(); }));
    }
    ~watched_server()
    {
        const size_t before = server.messages().size();
        EXPECT_EQ(good.send(2, "still here"), 0);
        EXPECT_TRUE(loop.until([&] { return server.messages().size() == before + 1; }));
        EXPECT_EQ(good.count(ZEL_IPC_LINK_LOST), 0u);
    }
    unique_fd greeted(const std::string &name)
    {
        unique_fd peer = connect_raw(unit.run("server"));
        EXPECT_TRUE(send_raw(peer, greeting(name)));
        EXPECT_TRUE(loop.until([&] { return greets_back(peer); }));
        return peer;
    }

    unit_folder unit;
    test_server server;
    test_client good;
    test_loop loop;
};

bool is_root()
{
    return geteuid() == 0;
}

constexpr uid_t nobody = 65534;

// Opens every door of the file system, so that only the check of the user is left.
void open_to_all(const unit_folder &unit)
{
    using std::filesystem::perms;
    for (const std::string &path : {unit.top(), unit.top() + "/run", unit.run()}) std::filesystem::permissions(path, perms::all);
    if (std::filesystem::exists(unit.run("server"))) std::filesystem::permissions(unit.run("server"), perms::all);
}

}  // namespace

// Against a server

TEST(ipc_hostile, a_first_packet_that_is_no_greeting_ends_that_connection_alone)
{
    watched_server one;
    const std::string good = greeting("x");
    const std::string bad[] = {
        std::string("\0", 1),    "\1",           "garbage",           std::string(5000, 'g'),
        "\2message first",       good + "x",     good.substr(0, 70),  good.substr(0, 6),
        greeting("x", 0),        greeting("x", 2), greeting("x", 1, "ZIPC"), greeting(""),
        greeting("a/b"),         greeting("../x"), greeting(std::string(64, 'x')), greeting("a\nb"),
    };
    for (const std::string &bytes : bad) {
        const unique_fd peer = connect_raw(one.unit.run("server"));
        ASSERT_TRUE(send_raw(peer, bytes));
        EXPECT_TRUE(one.loop.until([&] { return is_closed(peer); })) << bytes.substr(0, 40);
    }
    EXPECT_EQ(times_logged("does not speak the protocol"), std::size(bad));
    EXPECT_EQ(one.server.count("connected"), 1u);
    EXPECT_EQ(one.server.count("disconnected"), 0u) << "who was not announced does not leave";
}

TEST(ipc_hostile, an_empty_packet_ends_the_connection)
{
    watched_server one;
    const unique_fd stranger = connect_raw(one.unit.run("server"));
    ASSERT_TRUE(send_raw(stranger, ""));
    EXPECT_TRUE(one.loop.until([&] { return is_closed(stranger); }));
    const unique_fd known = one.greeted("known");
    ASSERT_TRUE(send_raw(known, ""));
    EXPECT_TRUE(one.loop.until([&] { return is_closed(known); }));
    EXPECT_EQ(one.server.count("disconnected"), 1u);
}

TEST(ipc_hostile, a_message_that_is_too_long_ends_the_connection_and_is_not_delivered)
{
    watched_server one;
    const unique_fd longest = one.greeted("longest"), too_long = one.greeted("too_long");
    ASSERT_TRUE(send_raw(longest, std::string(1 + ZEL_IPC_MAX_PAYLOAD, 'x')));
    ASSERT_TRUE(send_raw(too_long, std::string(2 + ZEL_IPC_MAX_PAYLOAD, 'x')));
    EXPECT_TRUE(one.loop.until([&] { return is_closed(too_long) && one.server.count("message") == 1; }));
    EXPECT_FALSE(is_closed(longest));
    EXPECT_EQ(one.server.messages()[0].payload.size(), size_t{ZEL_IPC_MAX_PAYLOAD});
    EXPECT_EQ(times_logged("too long"), 1u);
}

TEST(ipc_hostile, a_client_that_sends_the_types_of_link_events_is_disconnected)
{
    watched_server one;
    for (const std::string &bytes : {std::string("\0lost", 5), std::string("\1made"), greeting("twice")}) {
        const unique_fd peer = one.greeted("peer");
        ASSERT_TRUE(send_raw(peer, bytes));
        ASSERT_TRUE(send_raw(peer, "\2more"));
        EXPECT_TRUE(one.loop.until([&] { return is_closed(peer); }));
    }
    EXPECT_EQ(one.server.count("disconnected"), 3u);
    EXPECT_EQ(one.server.count("message"), 0u);
}

TEST(ipc_hostile, a_connection_that_does_not_greet_is_closed_in_time)
{
    zel_ipc_server_config_t config{};
    config.greeting_timeout_ms = 50;
    watched_server one(config);
    const unique_fd silent = connect_raw(one.unit.run("server")), polite = one.greeted("polite");
    EXPECT_TRUE(one.loop.until([&] { return is_closed(silent); }));
    EXPECT_EQ(times_logged("does not greet"), 1u);
    EXPECT_EQ(one.loop.wakeups_in(150), 0) << "nothing is left to be timed";
    EXPECT_FALSE(is_closed(polite));
}

TEST(ipc_hostile, a_greeting_that_came_while_the_server_was_held_up_counts)
{
    zel_ipc_server_config_t config{};
    config.greeting_timeout_ms = 10;
    watched_server one(config);
    std::vector<unique_fd> peers;
    for (int i = 0; i < 20; ++i) peers.push_back(connect_raw(one.unit.run("server")));
    one.loop.turn(1000);
    ASSERT_EQ(poll(nullptr, 0, 50), 0);   // the hold-up itself
    for (const unique_fd &peer : peers) ASSERT_TRUE(send_raw(peer, greeting("peer")));
    EXPECT_TRUE(one.loop.until([&] { return one.server.count("connected") == 21; }));
    EXPECT_EQ(times_logged("does not greet"), 0u);
}

TEST(ipc_hostile, a_greeting_that_came_is_not_waited_for_any_more)
{
    zel_ipc_server_config_t config{};
    config.greeting_timeout_ms = 100;
    watched_server one(config);
    const unique_fd peer = one.greeted("peer");
    EXPECT_EQ(one.loop.wakeups_in(200), 0);
    EXPECT_FALSE(is_closed(peer));
}

TEST(ipc_hostile, silent_connections_cannot_keep_all_places_for_long)
{
    zel_ipc_server_config_t config{};
    config.greeting_timeout_ms = 100;
    config.max_clients = 5;
    watched_server one(config);
    std::vector<unique_fd> silent;
    for (int i = 0; i < 50; ++i) silent.push_back(connect_raw(one.unit.run("server")));
    test_client late("server", "late");
    one.loop.add(late);
    EXPECT_TRUE(one.loop.until([&] { return late.up(); }));
}

TEST(ipc_hostile, connections_that_come_and_go_leave_nothing_behind)
{
    watched_server one;
    const size_t descriptors = open_descriptors();
    for (int i = 0; i < 1000; ++i) {
        const unique_fd peer = connect_raw(one.unit.run("server"));
        if (i % 2 == 0) (void)send_raw(peer, i % 4 == 0 ? greeting("passing") : "garbage");
        while (i % 50 == 0 && one.loop.turn(0)) {   // before the listening socket holds no more of them
        }
    }
    EXPECT_TRUE(one.loop.until([&] { return one.server.count("disconnected") + 1 == one.server.count("connected"); }));
    while (one.loop.turn(0)) {
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(ipc_hostile, descriptors_that_come_with_a_message_are_not_kept)
{
    watched_server one;
    const unique_fd peer = one.greeted("peer");
    const size_t descriptors = open_descriptors();
    char bytes[] = "\2with a descriptor";
    iovec part{bytes, sizeof bytes - 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    cmsghdr *const header = CMSG_FIRSTHDR(&message);
    *header = {CMSG_LEN(sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
    const int sent = peer.get();
    memcpy(CMSG_DATA(header), &sent, sizeof sent);
    for (int i = 0; i < 10; ++i) ASSERT_GT(sendmsg(peer.get(), &message, 0), 0);
    EXPECT_TRUE(one.loop.until([&] { return one.server.count("message") == 10; }));
    EXPECT_EQ(one.server.messages()[0], (event{2, "with a descriptor"}));
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST(ipc_hostile, a_flood_of_one_client_leaves_the_others_their_turn)
{
    watched_server one;
    const unique_fd peer = one.greeted("flood");
    while (send_raw(peer, "\2flood")) {
    }
    ASSERT_EQ(one.good.send(3, "through"), 0);
    one.loop.turn(1000);   // one turn, in which the flood is not read to its end
    size_t flood = 0, through = 0;
    for (const event &got : one.server.messages()) ++(got.type == 2 ? flood : through);
    EXPECT_EQ(through, 1u);
    EXPECT_GE(flood, 1u);
    EXPECT_LE(flood, 64u);
    while (one.loop.turn(0)) {
    }
}

TEST(ipc_hostile, the_last_messages_of_a_client_that_is_replaced_are_heard_before_it_goes)
{
    zel_ipc_server_config_t config{};
    config.unique_names = 1;
    watched_server one(config);
    const unique_fd older = one.greeted("twin"), newer = connect_raw(one.unit.run("server"));
    while (one.loop.turn(0)) {
    }
    one.server.entries.clear();
    ASSERT_TRUE(send_raw(newer, greeting("twin")));   // due before the other's messages
    for (int i = 0; i < 100; ++i) ASSERT_TRUE(send_raw(older, "\2" + std::to_string(i)));
    ASSERT_TRUE(one.loop.until([&] { return greets_back(newer); }));
    ASSERT_EQ(one.server.entries.size(), 102u);
    for (size_t i = 0; i < 100; ++i) EXPECT_EQ(one.server.entries[i].message, (event{2, std::to_string(i)}));
    EXPECT_EQ(one.server.entries[100].what, "disconnected");
    EXPECT_EQ(one.server.entries[101].what, "connected");
    EXPECT_TRUE(is_closed(older));
}

TEST(ipc_hostile, another_kind_of_socket_cannot_connect)
{
    watched_server one;
    EXPECT_FALSE(connect_raw(one.unit.run("server"), SOCK_STREAM));
    EXPECT_FALSE(connect_raw(one.unit.run("server"), SOCK_DGRAM));
}

TEST(ipc_hostile, without_descriptors_a_server_waits_without_spinning_and_goes_on_when_there_are_some)
{
    watched_server one;
    const unique_fd peer = connect_raw(one.unit.run("server"));
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const unique_fd next_free(dup(peer.get()));
    const rlimit none_left = {static_cast<rlim_t>(next_free.get()) + 1, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none_left), 0);
    EXPECT_LE(one.loop.wakeups_in(450), 12);   // twice per tenth of a second: the timer, then the connection
    EXPECT_EQ(times_logged("cannot accept clients"), 1u);
    EXPECT_EQ(one.good.send(2, "meanwhile"), 0);
    EXPECT_TRUE(one.loop.until([&] { return one.server.count("message") == 1; }));
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    ASSERT_TRUE(send_raw(peer, greeting("patient")));
    EXPECT_TRUE(one.loop.until([&] { return one.server.id_of("patient") != 0; }));
}

TEST(ipc_hostile, a_process_of_another_user_is_turned_away)
{
    if (!is_root()) GTEST_SKIP() << "needs root to become another user";
    watched_server one;
    open_to_all(one.unit);
    child_process stranger([&] {
        if (setresuid(nobody, nobody, nobody) != 0) return 1;
        const unique_fd peer = connect_raw(one.unit.run("server"));
        if (!peer) return 2;
        (void)send_raw(peer, greeting("stranger"));
        char byte;
        return recv(peer.get(), &byte, 1, 0) <= 0 ? 0 : 3;   // waits for the end of the link
    });
    ASSERT_TRUE(one.loop.until([&] { return times_logged("runs as another user") == 1; }));
    EXPECT_EQ(stranger.wait(), 0);
    EXPECT_EQ(one.server.count("connected"), 1u);
}

// Against a client

TEST(ipc_hostile, a_client_does_not_talk_to_a_server_of_another_user)
{
    if (!is_root()) GTEST_SKIP() << "needs root to become another user";
    const unit_folder unit;
    test_client client;
    ASSERT_EQ(client.send(2, "secret"), 0);
    open_to_all(unit);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    child_process impostor([&] {
        if (setresuid(nobody, nobody, nobody) != 0) return 1;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const unique_fd listening = listen_raw(unit.run("server"));
        (void)!write(ready[1], "", 1);
        pollfd waiting{listening.get(), POLLIN, 0};
        if (poll(&waiting, 1, 60000) != 1) return 2;
        const unique_fd peer(accept(listening.get(), nullptr, nullptr));
        char byte;
        return recv(peer.get(), &byte, 1, 0) <= 0 ? 0 : 3;   // not even a greeting
    });
    char byte;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    test_loop loop(client);
    ASSERT_TRUE(loop.until([&] { return times_logged("Operation not permitted") == 1; }));
    EXPECT_EQ(impostor.wait(), 0);
    EXPECT_TRUE(client.events.empty());
    close(ready[0]);
    close(ready[1]);
}

namespace {

// A server made of a raw socket; accepts when the client has come.
struct raw_server {
    raw_server() : listening(listen_raw(unit.run("server"))), loop(client) {}
    unique_fd accepted()
    {
        unique_fd peer;
        EXPECT_TRUE(loop.until([&] {
            peer.reset(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            return static_cast<bool>(peer);
        }));
        char bytes[200];
        EXPECT_TRUE(loop.until([&] { return recv(peer.get(), bytes, sizeof bytes, 0) == 71; }));
        EXPECT_EQ(std::string(bytes, 71), greeting("client"));
        return peer;
    }

    unit_folder unit;
    unique_fd listening;
    test_client client;
    test_loop loop;
};

}  // namespace

TEST(ipc_hostile, a_client_greets_as_described_and_sends_nothing_before_it_is_greeted)
{
    raw_server one;
    ASSERT_EQ(one.client.send(2, "early"), 0);
    const unique_fd peer = one.accepted();
    while (one.loop.turn(0)) {
    }
    char bytes[200];
    EXPECT_EQ(recv(peer.get(), bytes, sizeof bytes, 0), -1);
    ASSERT_TRUE(send_raw(peer, greeting("server")));
    ASSERT_TRUE(one.loop.until([&] { return one.client.up(); }));
    ASSERT_EQ(recv(peer.get(), bytes, sizeof bytes, 0), 6);
    EXPECT_EQ(std::string(bytes, 6), "\2early");
}

TEST(ipc_hostile, a_socket_that_comes_and_goes_all_the_time_does_not_put_off_the_attempt)
{
    raw_server one;
    const std::string place = one.unit.run("server"), aside = one.unit.run("aside");
    std::filesystem::rename(place, aside);
    one.loop.turn(1000);
    const unique_fd peer = [&] {
        unique_fd accepted;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!accepted && std::chrono::steady_clock::now() < end) {
            std::filesystem::rename(aside, place);
            one.loop.turn(0);
            accepted.reset(accept4(one.listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            std::filesystem::rename(place, aside);
        }
        return accepted;
    }();
    EXPECT_TRUE(peer);
}

TEST(ipc_hostile, a_server_that_does_not_greet_properly_is_left_and_tried_again)
{
    raw_server one;
    const std::string bad[] = {"garbage", greeting("server", 2), "\3message", std::string(70000, 'x')};
    for (const std::string &bytes : bad) {
        const unique_fd peer = one.accepted();
        ASSERT_TRUE(send_raw(peer, bytes));
        EXPECT_TRUE(one.loop.until([&] { return is_closed(peer); }));
    }
    { const unique_fd closed_at_once = one.accepted(); }
    EXPECT_TRUE(one.client.events.empty());
    const unique_fd peer = one.accepted();
    ASSERT_TRUE(send_raw(peer, greeting("server")));
    EXPECT_TRUE(one.loop.until([&] { return one.client.up(); }));
}

TEST(ipc_hostile, messages_with_the_types_of_link_events_are_not_taken_for_them)
{
    raw_server one;
    const unique_fd peer = one.accepted();
    ASSERT_TRUE(send_raw(peer, greeting("server")));
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(send_raw(peer, std::string("\0lost", 5)));
        ASSERT_TRUE(send_raw(peer, "\1made"));
        ASSERT_TRUE(send_raw(peer, greeting("server")));
    }
    ASSERT_TRUE(send_raw(peer, "\2message"));
    ASSERT_TRUE(one.loop.until([&] { return one.client.count(2) == 1; }));
    EXPECT_EQ(one.client.events.size(), 2u);
    EXPECT_EQ(one.client.events[1], (event{2, "message"}));
    EXPECT_EQ(times_logged("Ignoring messages of type"), 1u);
}

TEST(ipc_hostile, a_message_that_is_too_long_loses_the_link_of_a_client)
{
    raw_server one;
    const unique_fd peer = one.accepted();
    ASSERT_TRUE(send_raw(peer, greeting("server")));
    ASSERT_TRUE(send_raw(peer, "\2good"));
    ASSERT_TRUE(send_raw(peer, std::string(70000, 'x')));
    ASSERT_TRUE(one.loop.until([&] { return one.client.count(ZEL_IPC_LINK_LOST) == 1; }));
    EXPECT_EQ(one.client.messages(), (std::vector<event>{{2, "good"}}));
}

TEST(ipc_hostile, a_flooding_server_leaves_the_host_its_turn)
{
    raw_server one;
    const unique_fd peer = one.accepted();
    ASSERT_TRUE(send_raw(peer, greeting("server")));
    size_t sent = 0;
    while (send_raw(peer, "\2f")) ++sent;
    ASSERT_GT(sent, 260u);
    one.loop.turn(1000);
    EXPECT_LE(one.client.count(2), 256u);
    EXPECT_TRUE(one.loop.until([&] { return one.client.count(2) == sent; }));
}
