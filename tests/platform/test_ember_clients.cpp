// Many clients of one provider, among them silent, slow and hostile ones.

#include "ember_provider_fixture.h"

#include <sys/resource.h>

#include <random>

using namespace ember_test;

namespace {

class ember_clients : public provider_fixture {
protected:
    void pass(int64_t milliseconds)
    {
        fake_now += milliseconds;
        zel_ember_process_fds(session_, nullptr);
    }
    bool all_served(size_t count)
    {
        return sessions_.until([&] { return provider().client_count() == count; });
    }
    // A parameter whose notices are large, so that few of them fill a socket.
    zel_ember_element_t *large_ = nullptr;
    void add_large()
    {
        large_ = zel_ember_add_string_param(session_, "large", nullptr, 0, 1, "", nullptr, nullptr, port_);
    }
    void change_large(int round) { set_text(large_, std::to_string(round) + ":" + std::string(3000, 'x')); }
};

const std::string status_path = "parameter 1.1.1.1.7";

}  // namespace

TEST_F(ember_clients, a_keep_alive_request_is_answered_at_once)
{
    auto peer = connected();
    peer.write(peer_frames::keep_alive_request);
    ASSERT_TRUE(sessions_.until([&] { return !peer.stream().empty(); }));
    EXPECT_EQ(to_hex(peer.stream()), to_hex(peer_frames::keep_alive_response));
}

TEST_F(ember_clients, a_silent_client_is_asked_after_ten_seconds_and_dropped_after_ten_more)
{
    auto peer = connected();
    ASSERT_TRUE(all_served(1));
    pass(9999);
    EXPECT_EQ(peer.stream(), bytes{});
    pass(1001);
    EXPECT_EQ(to_hex(peer.stream()), to_hex(peer_frames::keep_alive_request));
    pass(9000);
    EXPECT_FALSE(peer.is_closed());
    pass(2000);
    EXPECT_TRUE(peer.is_closed());
    EXPECT_EQ(provider().client_count(), 0u);
}

TEST_F(ember_clients, any_byte_is_a_sign_of_life)
{
    auto peer = connected();
    ASSERT_TRUE(all_served(1));
    for (int i = 0; i < 6; ++i) {
        pass(11000);
        peer.write(bytes{0x00});
        fake_now += 1;
        zel_ember_process_fds(session_, nullptr);
    }
    EXPECT_FALSE(peer.is_closed());
    pass(11000);
    pass(11000);
    EXPECT_TRUE(peer.is_closed());
}

TEST_F(ember_clients, the_configured_silence_is_used)
{
    const int32_t seconds = 2;
    zel_ember_session_config_t config{};
    config.timeout_s = &seconds;
    auto *quick = ember::provider::create(config, fake_clock).release();
    auto peer = raw_peer::connected_to(zel_ember_get_port(quick));
    loop quick_loop;
    quick_loop.add(quick);
    ASSERT_TRUE(quick_loop.until([&] { return static_cast<ember::provider *>(quick)->client_count() == 1; }));
    for (int i = 0; i < 3; ++i) {
        fake_now += 1001;
        zel_ember_process_fds(quick, nullptr);
    }
    EXPECT_TRUE(peer.is_closed());
    zel_ember_session_term(quick);
}

TEST_F(ember_clients, a_client_that_goes_is_forgotten)
{
    auto staying = connected(), going = connected();
    look(going, {1, 1, 1, 1});
    look(staying, {1, 1, 1, 1});
    going.close();
    ASSERT_TRUE(all_served(1));
    set_integer(status_, 0);
    EXPECT_EQ(heard(staying), lines{status_path + " value=false type=4"});
}

TEST_F(ember_clients, a_client_that_resets_its_connection_in_the_middle_of_a_change_does_no_harm)
{
    auto staying = connected();
    look(staying, {1, 1, 1, 1});
    for (int i = 0; i < 20; ++i) {
        auto going = connected();
        look(going, {1, 1, 1, 1});
        const linger reset{1, 0};
        setsockopt(going.fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
        going.close();
        set_integer(status_, i % 2);
        EXPECT_EQ(heard(staying), i == 0 ? (lines{status_path + " value=false type=4"})
                                         : (lines{status_path + (i % 2 ? " value=true" : " value=false") + " type=4"}));
    }
}

TEST_F(ember_clients, a_client_that_reads_slowly_hears_the_newest_values_only)
{
    add_large();
    auto slow = connected(4096);
    look(slow, {1, 1, 1, 1});
    auto &session = provider();
    constexpr int rounds = 2000;
    for (int i = 1; i <= rounds; ++i) {
        change_large(i);
        set_integer(status_, i % 2);
        session.process();
    }
    const lines said = heard(slow);
    ASSERT_FALSE(said.empty());
    EXPECT_LT(said.size(), 2u * rounds / 4) << "nothing was left out";
    // The last that was said of each parameter is what stands.
    std::string large, status;
    for (const auto &line : said)
        (line.find("1.1.1.1.7") != line.npos ? status : large) = line;
    EXPECT_EQ(status, status_path + " value=false type=4");
    EXPECT_EQ(large.substr(0, 40), "parameter 1.1.1.1.8 value='2000:xxxxxxxx");
}

TEST_F(ember_clients, a_slow_client_hears_of_elements_that_came_and_went_meanwhile)
{
    add_large();
    auto slow = connected(4096);
    look(slow, {1, 1, 1, 1});
    look(slow, {1, 1, 6});
    for (int i = 1; i <= 1000; ++i) {
        change_large(i);
        provider().process();
    }
    auto *gone = text("gone", sources_, "1");
    auto *stays = text("stays", sources_, "2");
    set_text(stays, "3");
    zel_ember_remove_element(session_, gone);
    set_text(stays, "4");
    lines about_sources;
    for (auto &line : heard(slow))
        if (line.find("1.1.6.") != line.npos)
            about_sources.push_back(line);
    EXPECT_EQ(about_sources, (lines{"parameter 1.1.6.1 id=gone value='1' access=1 offline type=3",
                                    "parameter 1.1.6.2 id=stays value='4' access=1 type=3"}));
}

TEST_F(ember_clients, a_client_that_asks_and_never_reads_is_held_back_and_dropped_in_the_end)
{
    auto greedy = connected(4096), other = connected();
    const bytes requests = framed(build::get_directory({1, 1, 1, 1}));
    bytes burst;
    for (int i = 0; i < 500; ++i)
        burst.insert(burst.end(), requests.begin(), requests.end());
    for (int i = 0; i < 40; ++i) {
        (void)!send(greedy.fd(), burst.data(), burst.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        provider().process();
    }
    EXPECT_EQ(answer(other, build::get_directory({1})).size(), 2u);
    EXPECT_EQ(provider().client_count(), 2u);
    // It takes nothing, so nothing is taken from it, and it is as good as silent.
    for (int i = 0; i < 30; ++i) {
        pass(1001);
        (void)heard(other);
    }
    EXPECT_EQ(provider().client_count(), 1u);
}

TEST_F(ember_clients, one_message_that_asks_for_too_much_costs_its_client_the_connection)
{
    ember::ber::writer w;
    for (int i = 0; i < 11000; ++i) {
        const uint32_t where[] = {1, 1, 1, 1};
        const size_t mark = w.mark();
        ember::glow::put_integer(w, 0, 32);
        w.header(ember::ber::application(2), mark);
        ember::glow::close_entry(w, mark);
        ember::glow::close_children(w, mark);
        ember::glow::close_qualified(w, false, where, mark);
    }
    ember::glow::close_root(w, 0);
    auto peer = connected(4096), other = connected();
    const bytes request = framed(w.message());
    size_t sent = 0;
    ASSERT_TRUE(sessions_.until([&] {
        const ssize_t now = send(peer.fd(), request.data() + sent, request.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        sent += now > 0 ? static_cast<size_t>(now) : 0;
        return sent == request.size();
    }));
    ASSERT_TRUE(sessions_.until([&] { return provider().client_count() == 1; }));
    EXPECT_EQ(answer(other, build::get_directory({1})).size(), 2u);
}

TEST_F(ember_clients, a_message_that_is_too_long_or_too_deep_costs_its_client_the_connection)
{
    auto other = connected();
    bytes deep;
    for (int i = 0; i < 500; ++i)
        deep.insert(deep.end(), {0x30, 0x80});
    deep.resize(2 * deep.size());
    const bytes hostile[] = {framed(deep), framed(bytes(300000, 0x05)), bytes{0xFE} + bytes(400000, 0x11)};
    for (const auto &stream : hostile) {
        auto peer = connected();
        size_t sent = 0;
        ASSERT_TRUE(sessions_.until([&] {
            const ssize_t now = send(peer.fd(), stream.data() + sent, std::min<size_t>(stream.size() - sent, 50000),
                                     MSG_DONTWAIT | MSG_NOSIGNAL);
            sent += now > 0 ? static_cast<size_t>(now) : 0;
            return peer.is_closed();
        }));
    }
    EXPECT_EQ(answer(other, build::get_directory({1})).size(), 2u);
}

TEST_F(ember_clients, broken_messages_and_noise_are_ignored_and_nothing_of_them_is_done)
{
    auto peer = connected();
    bytes broken = build::set_boolean({1, 1, 1, 1, 7}, false);
    broken.insert(broken.end(), {0x30, 0x05});
    peer.send(broken);
    std::mt19937 random(5);
    bytes noise(100000);
    for (auto &byte : noise)
        byte = static_cast<uint8_t>(random());
    peer.write(std::span(noise).first(20000));
    settle(peer);
    EXPECT_EQ(calls_, lines{});
    EXPECT_EQ(answer(peer, build::get_directory({1})).size(), 2u);
}

// The provider's end of a connection is in this process too.
TEST_F(ember_clients, frames_do_not_wait_for_acknowledgements_of_earlier_ones)
{
    auto peer = connected();
    settle(peer);
    sockaddr_in own{}, other{};
    socklen_t length = sizeof(own);
    ASSERT_EQ(getsockname(peer.fd(), reinterpret_cast<sockaddr *>(&own), &length), 0);
    int found = 0;
    for (int fd = 3; fd < 256; ++fd) {
        length = sizeof(other);
        if (getpeername(fd, reinterpret_cast<sockaddr *>(&other), &length) != 0 || other.sin_port != own.sin_port)
            continue;
        int no_delay = 0;
        length = sizeof(no_delay);
        EXPECT_EQ(getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &no_delay, &length), 0);
        EXPECT_EQ(no_delay, 1);
        ++found;
    }
    EXPECT_EQ(found, 1);
}

TEST_F(ember_clients, sixty_four_that_never_read_and_sixty_four_that_dribble_do_not_disturb_the_next)
{
    add_large();
    std::vector<raw_peer> deaf, dribbling;
    const bytes look_request = framed(build::get_directory({1, 1, 1, 1}));
    for (int i = 0; i < 64; ++i) {
        deaf.push_back(connected(4096));
        deaf.back().write(look_request);
        dribbling.push_back(connected());
        provider().process();
    }
    auto watcher = connected(), writer = connected();
    ASSERT_TRUE(all_served(130));
    look(watcher, {1, 1, 1, 1, 7});
    const bytes dribble = framed(build::get_directory({1, 1, 1, 1}));
    for (size_t i = 0; i < 200; ++i) {
        change_large(static_cast<int>(i));
        for (auto &peer : dribbling)
            peer.write(std::span(dribble).subspan(i % dribble.size(), 1));
        const bool value = i % 2;
        EXPECT_EQ(answer(writer, build::set_boolean({1, 1, 1, 1, 7}, value)).size(), 1u);
        EXPECT_EQ(heard(watcher), lines{status_path + (value ? " value=true" : " value=false") + " type=4"});
    }
    EXPECT_EQ(provider().client_count(), 130u);
    for (auto &peer : deaf)
        EXPECT_LT(peer.messages().size(), 150u) << "all of it has found room on the way: nothing was in anybody's way";
}

TEST_F(ember_clients, more_clients_than_there_is_room_for_are_turned_away)
{
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 2048);
    setrlimit(RLIMIT_NOFILE, &files);
    std::vector<raw_peer> peers;
    for (size_t i = 0; i < ember::max_clients + 4; ++i) {
        peers.push_back(connected());
        if (i % 32 == 0)
            provider().process();
    }
    ASSERT_TRUE(sessions_.until([&] { return peers.back().is_closed(); }));
    EXPECT_EQ(provider().client_count(), ember::max_clients);
    EXPECT_EQ(answer(peers.front(), build::get_directory({1})).size(), 2u);
    peers.pop_back();
    peers.erase(peers.begin() + 1);
    ASSERT_TRUE(all_served(ember::max_clients - 1));
    auto late = connected();
    EXPECT_EQ(answer(late, build::get_directory({1})).size(), 2u);
}

TEST_F(ember_clients, without_descriptors_connections_wait_and_are_taken_later)
{
    rlimit files{}, few{};
    getrlimit(RLIMIT_NOFILE, &files);
    auto first = connected();
    settle(first);
    auto waiting = connected();
    few = files;
    few.rlim_cur = 0;     // nothing can be opened
    setrlimit(RLIMIT_NOFILE, &few);
    provider().process();
    EXPECT_EQ(provider().client_count(), 1u);
    setrlimit(RLIMIT_NOFILE, &files);
    pass(2000);
    EXPECT_EQ(answer(waiting, build::get_directory({1})).size(), 2u);
}

TEST_F(ember_clients, a_port_in_use_is_reported)
{
    zel_ember_session_config_t config{};
    config.listen_port = port();
    EXPECT_EQ(zel_ember_session_init(&config), nullptr);
    config.bind_addr = "no address";
    EXPECT_EQ(zel_ember_session_init(&config), nullptr);
    EXPECT_EQ(zel_ember_session_init(nullptr), nullptr);
}

TEST_F(ember_clients, ipv6_is_served_too)
{
    zel_ember_session_config_t config{};
    config.bind_addr = "::1";
    auto *v6 = zel_ember_session_init(&config);
    ASSERT_NE(v6, nullptr);
    zel::unique_fd socket(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in6 at{};
    at.sin6_family = AF_INET6;
    at.sin6_port = htons(zel_ember_get_port(v6));
    at.sin6_addr = in6addr_loopback;
    ASSERT_EQ(connect(socket.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)), 0);
    raw_peer peer(std::move(socket));
    peer.write(peer_frames::keep_alive_request);
    loop v6_loop;
    v6_loop.add(v6);
    EXPECT_TRUE(v6_loop.until([&] { return peer.stream() == peer_frames::keep_alive_response; }));
    zel_ember_session_term(v6);
}

TEST_F(ember_clients, what_was_set_last_is_still_told_when_the_session_ends)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    set_integer(status_, 0);
    sessions_.remove(session_);
    zel_ember_session_term(std::exchange(session_, nullptr));
    ASSERT_TRUE(sessions_.until([&] { return peer.is_closed(); }));
    EXPECT_EQ(peer.said(), lines{status_path + " value=false type=4"});
}

TEST_F(ember_clients, one_encoding_of_a_change_serves_all_and_memory_is_used_again)
{
    std::vector<raw_peer> peers;
    for (int i = 0; i < 10; ++i) {
        peers.push_back(connected());
        look(peers.back(), {1, 1, 1, 1});
    }
    ember::message_pool pool;
    ember::shared_message *first = pool.take();
    const uint8_t *memory = nullptr;
    {
        ember::message_ref one(first), two = one;
        one.bytes().assign(100, 1);
        memory = one.bytes().data();
        EXPECT_EQ(two.bytes().data(), memory);
        one = {};
        EXPECT_EQ(two.bytes().size(), 100u);
    }
    ember::message_ref again(pool.take());
    again.bytes().assign(50, 2);
    EXPECT_EQ(again.bytes().data(), memory);
    set_integer(status_, 0);
    for (auto &peer : peers)
        EXPECT_EQ(heard(peer), lines{status_path + " value=false type=4"});
}

TEST_F(ember_clients, a_client_that_was_asked_for_life_and_then_reads_slowly_is_kept)
{
    auto slow = connected(4096);
    look(slow, {1, 1, 1, 1});
    for (int i = 1; i <= 300; ++i) {
        (void)text(("t" + std::to_string(i)).c_str(), port_, std::string(3000, 'x').c_str());
        provider().process();
    }
    pass(11000);
    // The question waits behind all that it has not read yet.
    uint8_t buffer[16384];
    for (int i = 0; i < 64; ++i) {
        fake_now += 250;
        (void)!recv(slow.fd(), buffer, sizeof(buffer), MSG_DONTWAIT);
        sessions_.turn();
    }
    EXPECT_EQ(provider().client_count(), 1u);
}
