#include "ember_consumer_fixture.h"
#include "ember_scripted_provider.h"

using namespace ember_test;

namespace {

class ember_consumer : public consumer_fixture {
protected:
    ember_consumer()
    {
        provider_.answers["root"] = {build::directory({}, {node(1, "unit")})};
        provider_.answers["1"] = {build::directory({1}, {node(1, "gpio 1"), node(2, "empty")})};
        provider_.answers["1.1"] = {build::directory({1, 1}, {type(2), boolean(2, "status", true)})};
        provider_.answers["1.1.1"] = {build::flat({1, 1}, {type(2)})};
        provider_.answers["1.1.2"] = {build::flat({1, 1}, {boolean(2, "status", true)})};
        provider_.answers["1.2"] = {build::bare_node({1, 2})};
        also_ = [this] { provider_.serve(); };
    }
    // Members of the base are still used by the session's last callbacks.
    ~ember_consumer() override { end(); }

    static shown type(int64_t value)
    {
        shown e = integer(1, "type", value);
        e.entries = "disabled\ninput\noutput";
        e.type = 6;
        return e;
    }
    void started() { start(provider_.address()); }
    // The consumer has read everything that was sent so far: it answers a keep-alive sent after it.
    void say(const bytes &message)
    {
        provider_.peer.send(message);
        settle();
    }
    void settle()
    {
        provider_.peer.write(peer_frames::keep_alive_request);
        EXPECT_TRUE(sessions_.until([&] {
            const auto &stream = provider_.peer.stream();
            const auto &response = peer_frames::keep_alive_response;
            return std::search(stream.begin(), stream.end(), response.begin(), response.end()) != stream.end() ||
                   provider_.peer.is_closed();
        }));
        provider_.serve();
    }
    // Up, and the status known.
    void followed()
    {
        started();
        ASSERT_EQ(follow("unit/gpio 1/status"), 0);
        ASSERT_TRUE(until_told({"up", "unit/gpio 1/status = 1 (4)"}));
        told_.clear();
        provider_.asked.clear();
    }

    // The system takes nothing more that the consumer writes to a provider that does not read.
    void fill_connection()
    {
        for (int fd = 3; fd < 1024; ++fd) {
            sockaddr_in to{};
            socklen_t length = sizeof(to);
            if (getpeername(fd, reinterpret_cast<sockaddr *>(&to), &length) != 0 || ntohs(to.sin_port) != provider_.port())
                continue;
            const bytes noise(4096, 0x00);
            for (const size_t piece : {noise.size(), size_t{1}})
                while (::send(fd, noise.data(), piece, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {}
        }
    }
    bool serve_if_ready(int wait_ms)
    {
        pollfd session{session_->fd(), POLLIN, 0};
        if (poll(&session, 1, wait_ms) != 1)
            return false;
        zel_ember_process_fds(session_, nullptr);
        return true;
    }

    scripted_provider provider_;
};

const std::string status = "unit/gpio 1/status";

}  // namespace

// Finding

TEST_F(ember_consumer, walks_to_a_parameter_and_asks_every_node_and_the_parameter_once)
{
    started();
    EXPECT_EQ(follow("/unit/gpio 1/type"), 0);
    EXPECT_EQ(follow("unit/gpio 1/status"), 0);
    ASSERT_TRUE(until_told({"up", "/unit/gpio 1/type = 2 (6)", "unit/gpio 1/status = 1 (4)"}));
    EXPECT_EQ(provider_.asked, (lines{"root", "1", "1.1", "1.1.1", "1.1.2"}));
    EXPECT_EQ(peer_, provider_.address());
}

TEST_F(ember_consumer, sends_one_command_in_a_message_and_one_message_at_a_time)
{
    provider_.answers.clear();
    started();
    (void)follow("unit/a");
    (void)follow("other/b");
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 1; }));
    pass(2000);
    EXPECT_EQ(provider_.asked, lines{"root"});
    say(build::directory({}, {node(1, "unit"), node(2, "other")}));
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 2; }));
    pass(2000);
    EXPECT_EQ(provider_.asked, (lines{"root", "1"}));
}

TEST_F(ember_consumer, understands_flat_directories)
{
    provider_.answers["1"] = {build::flat({1}, {node(1, "gpio 1")})};
    provider_.answers["1.1"] = {build::flat({1, 1}, {type(1), boolean(2, "status", false)})};
    started();
    (void)follow("unit/gpio 1/type");
    ASSERT_TRUE(until_told({"up", "unit/gpio 1/type = 2 (6)"}));
}

TEST_F(ember_consumer, understands_directories_spread_over_messages)
{
    provider_.answers["1.1"] = {build::flat({1, 1}, {type(1)}), build::flat({1, 1}, {boolean(2, "status", false)})};
    started();
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until_told({"up", "unit/gpio 1/status = 1 (4)"}));
}

TEST_F(ember_consumer, understands_directories_nested_from_the_root)
{
    provider_.answers["1"] = {build::nested_directory({1}, {node(1, "gpio 1")})};
    provider_.answers["1.1"] = {build::nested_directory({1, 1}, {boolean(2, "status", false)})};
    provider_.answers["1.1.2"] = {build::nested_directory({1, 1}, {boolean(2, "status", false)})};
    started();
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until_told({"up", "unit/gpio 1/status = 0 (4)"}));
}

TEST_F(ember_consumer, understands_indefinite_lengths)
{
    provider_.answers["root"] = {};
    started();
    (void)follow("unit/user buttons/type");
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 1; }));
    say(build::directory({}, {node(1, "unit")}));
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 2; }));
    provider_.answers["1.1"] = {build::directory({1, 1}, {integer(300, "type", 0)})};
    provider_.peer.write(peer_frames::indefinite_first + peer_frames::indefinite_second);
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 4; }));
    provider_.peer.send(build::flat({1, 1}, {integer(300, "type", 0)}));
    EXPECT_TRUE(until_told({"up", "unit/user buttons/type = 0 (1)"}));
}

TEST_F(ember_consumer, takes_the_value_of_the_directory_when_a_parameter_does_not_answer)
{
    provider_.answers["1.1.2"] = {};
    started();
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 4; }));
    EXPECT_EQ(told_, lines{"up"});
    pass(3100);
    EXPECT_TRUE(until_told({"up", "unit/gpio 1/status = 1 (4)"}));
}

TEST_F(ember_consumer, tells_no_value_of_a_path_that_is_not_there)
{
    started();
    for (const char *path : {"unit/nothing", "nothing", "unit/empty/x", "unit/gpio 1", "unit/gpio 1/status/x"})
        EXPECT_EQ(follow(path), 0);
    pass(50);
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 6; }));
    std::sort(told_.begin() + 1, told_.end());
    EXPECT_EQ(told_, (lines{"up", "nothing = none", "unit/empty/x = none", "unit/gpio 1 = none", "unit/gpio 1/status/x = none",
                            "unit/nothing = none"}));
}

TEST_F(ember_consumer, an_empty_message_answers_that_there_is_nothing)
{
    provider_.answers["1.2"] = {from_hex("60 00")};
    started();
    (void)follow("unit/empty/x");
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 5; }));     // without waiting for three seconds
    pass(400);
    EXPECT_TRUE(until_told({"up", "unit/gpio 1/status = 1 (4)", "unit/empty/x = none"}));
}

TEST_F(ember_consumer, a_node_without_children_may_answer_with_its_contents)
{
    provider_.answers["1.2"] = {build::flat({1}, {node(2, "empty")})};
    started();
    (void)follow("unit/empty/x");
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 3; }));
    settle();
    pass(400);
    EXPECT_TRUE(until_told({"up", "unit/empty/x = none"}));
}

TEST_F(ember_consumer, asks_again_after_silence_and_tells_once_that_there_is_nothing)
{
    provider_.answers["1.1"] = {};
    started();
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 3; }));
    pass(3100);
    EXPECT_EQ(told_, (lines{"up", "unit/gpio 1/status = none"}));
    pass(3100);
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 4; }));
    provider_.answers["1.1"] = {build::directory({1, 1}, {boolean(2, "status", true)})};
    pass(6200);
    EXPECT_TRUE(until_told({"up", "unit/gpio 1/status = none", "unit/gpio 1/status = 1 (4)"}));
}

TEST_F(ember_consumer, finds_a_path_that_is_announced_later)
{
    started();
    (void)follow("unit/gpio 1/name");
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 2; }));
    provider_.answers["1.1.7"] = {build::flat({1, 1}, {string(7, "name", "Door")})};
    say(build::flat({1, 1}, {string(7, "name", "Door")}));
    EXPECT_TRUE(until_told({"up", "unit/gpio 1/name = none", "unit/gpio 1/name = 'Door'"}));
}

TEST_F(ember_consumer, asks_anew_when_the_application_asks_again_for_what_was_not_there)
{
    started();
    (void)follow("unit/gpio 1/name");
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 2; }));
    provider_.asked.clear();
    (void)follow("unit/gpio 1/name");
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 3; }));
    EXPECT_EQ(told_.back(), "unit/gpio 1/name = none");
    EXPECT_EQ(provider_.asked, lines{"1.1"});
}

TEST_F(ember_consumer, foreign_kinds_of_elements_are_no_obstacle)
{
    // A matrix and a function beside the node that is looked for.
    provider_.answers["root"] = {from_hex("60 80 6b 80 a0 05 6d 03 02 01 03 a0 05 73 03 02 01 04 a0 80 63 80 a0 03 02 01 01 "
                                          "a1 80 31 80 a0 06 0c 04 75 6e 69 74 00 00 00 00 00 00 00 00 00 00 00 00")};
    started();
    (void)follow("unit/gpio 1/status");
    EXPECT_TRUE(until_told({"up", "unit/gpio 1/status = 1 (4)"}));
}

// Values

TEST_F(ember_consumer, every_type_of_value_arrives_as_integer_or_text)
{
    shown one_by_type = integer(3, "c", 1), map = integer(4, "d", 3);
    one_by_type.type = 4;
    map.type = 6;
    const std::vector<shown> all{integer(1, "a", -5), string(2, "b", ""), one_by_type, map, integer(5, "e", int64_t{1} << 40)};
    provider_.answers["1.2"] = {build::directory({1, 2}, all)};
    for (const auto &e : all)
        provider_.answers["1.2." + std::to_string(e.number)] = {build::flat({1, 2}, {e})};
    started();
    for (const char *name : {"unit/empty/a", "unit/empty/b", "unit/empty/c", "unit/empty/d", "unit/empty/e"})
        (void)follow(name);
    EXPECT_TRUE(until_told({"up", "unit/empty/a = -5 (1)", "unit/empty/b = ''", "unit/empty/c = 1 (4)", "unit/empty/d = 3 (6)",
                            "unit/empty/e = 1099511627776 (1)"}));
}

TEST_F(ember_consumer, values_that_are_neither_are_none)
{
    const std::vector<shown> all{{1, true, "a", [](auto &w) { w.real(1.5); }, 2, "", -1},
                                 {2, true, "b", [](auto &w) { w.null(); }, 0, "", -1},
                                 {3, true, "c", nullptr, 1, "", -1},
                                 {4, true, "d", [](auto &w) { w.utf8("1"); }, 6, "off\non", -1}};   // no index
    provider_.answers["1.2"] = {build::directory({1, 2}, all)};
    for (const auto &e : all)
        provider_.answers["1.2." + std::to_string(e.number)] = {build::flat({1, 2}, {e})};
    started();
    for (const char *name : {"unit/empty/a", "unit/empty/b", "unit/empty/c", "unit/empty/d"})
        (void)follow(name);
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 5; }));
    EXPECT_EQ(told_, (lines{"up", "unit/empty/a = none", "unit/empty/b = none", "unit/empty/c = none", "unit/empty/d = none"}));
}

TEST_F(ember_consumer, every_change_is_told_once_in_whatever_form_and_however_often_it_comes)
{
    followed();
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    say(build::flat({1, 1}, {boolean(2, "status", false)}));
    say(build::nested_directory({1, 1}, {boolean(2, "status", false)}));
    say(build::nested_directory({1, 1}, {bare(boolean(2, "", true))}));
    say(build::flat({1, 1}, {bare(boolean(2, "", true))}));
    EXPECT_EQ(told_, (lines{status + " = 0 (4)", status + " = 1 (4)"}));
    EXPECT_EQ(provider_.asked, lines{});
}

TEST_F(ember_consumer, a_short_pulse_is_told_as_two_changes_even_from_one_message)
{
    followed();
    say(build::flat({1, 1}, {bare(boolean(2, "", false)), bare(boolean(2, "", true))}));
    provider_.peer.write(framed(build::flat({1, 1}, {bare(boolean(2, "", false))})) +
                         framed(build::flat({1, 1}, {bare(boolean(2, "", true))})));
    settle();
    EXPECT_EQ(told_, (lines{status + " = 0 (4)", status + " = 1 (4)", status + " = 0 (4)", status + " = 1 (4)"}));
}

TEST_F(ember_consumer, an_update_without_type_or_entries_leaves_them_as_they_were)
{
    started();
    (void)follow("unit/gpio 1/type");
    ASSERT_TRUE(until_told({"up", "unit/gpio 1/type = 2 (6)"}));
    say(build::flat({1, 1}, {bare(integer(1, "", 1))}));
    EXPECT_EQ(told_.back(), "unit/gpio 1/type = 1 (6)");
}

TEST_F(ember_consumer, updates_of_what_was_never_asked_for_are_ignored)
{
    followed();
    say(build::flat({7, 7, 7}, {bare(boolean(2, "", false))}));
    say(build::flat({7}, {node(2, "x")}));
    say(build::flat({1, 1}, {bare(boolean(9, "", false))}));
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    EXPECT_EQ(told_, lines{status + " = 0 (4)"});
}

TEST_F(ember_consumer, no_value_while_the_parameter_is_offline)
{
    followed();
    say(build::flat({1, 1}, {offline(boolean(2, "status", true))}));
    EXPECT_EQ(told_, lines{status + " = none"});
    say(build::flat({1, 1}, {online(boolean(2, "status", true))}));
    ASSERT_TRUE(until_told({status + " = none", status + " = 1 (4)"}));
}

TEST_F(ember_consumer, no_value_while_a_node_above_is_offline_and_its_directory_is_asked_again_then)
{
    followed();
    say(build::flat({1}, {offline(node(1, "gpio 1"))}));
    EXPECT_EQ(told_, lines{status + " = none"});
    say(build::flat({1}, {online(node(1, "gpio 1"))}));
    ASSERT_TRUE(until_told({status + " = none", status + " = 1 (4)"}));
    EXPECT_EQ(provider_.asked.at(0), "1.1");
}

TEST_F(ember_consumer, a_value_implies_that_the_parameter_is_online)
{
    followed();
    say(build::flat({1, 1}, {offline(boolean(2, "status", true))}));
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    ASSERT_TRUE(until([&] { return told_.size() == 2; }));
    EXPECT_EQ(told_.back().substr(0, status.size() + 3), status + " = ");
    EXPECT_NE(told_.back(), status + " = none");
}

TEST_F(ember_consumer, a_number_that_comes_to_mean_something_else_does_not_pass_its_value_on)
{
    followed();
    say(build::flat({1, 1}, {boolean(2, "other", false)}));
    ASSERT_TRUE(until([&] { pass(50); return !told_.empty(); }));
    EXPECT_EQ(told_, lines{status + " = none"});
}

TEST_F(ember_consumer, a_null_value_is_told_as_none)
{
    followed();
    shown none = boolean(2, "status", true);
    none.value = [](auto &w) { w.null(); };
    say(build::flat({1, 1}, {none}));
    EXPECT_EQ(told_, lines{status + " = none"});
}

// Callbacks

TEST_F(ember_consumer, asking_again_replaces_the_callback_and_tells_the_present_value)
{
    followed();
    lines second;
    const auto other = [](void *to, const char *path, uint32_t, const void *) { static_cast<lines *>(to)->push_back(path); };
    EXPECT_EQ(zel_ember_get_param(session_, ("/" + status).c_str(), &second, other), 0);
    ASSERT_TRUE(until([&] { return second.size() == 1; }));
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    EXPECT_EQ(second, (lines{"/" + status, "/" + status}));
    EXPECT_EQ(told_, lines{});
    EXPECT_EQ(provider_.asked, lines{});
}

TEST_F(ember_consumer, a_cleared_path_is_told_no_more)
{
    followed();
    EXPECT_EQ(clear("unit/gpio 1/type"), -1);
    EXPECT_EQ(clear(("/" + status).c_str()), 0);
    EXPECT_EQ(clear(status.c_str()), -1);
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    EXPECT_EQ(told_, lines{});
    EXPECT_EQ(follow(status.c_str()), 0);
    EXPECT_TRUE(until_told({status + " = 0 (4)"}));
}

TEST_F(ember_consumer, refuses_paths_and_addresses_that_are_none)
{
    started();
    for (const char *path : {"", "/", "unit//x", "unit/", "//unit"})
        EXPECT_EQ(follow(path), -1) << path;
    EXPECT_EQ(follow(nullptr), -1);
    EXPECT_EQ(zel_ember_get_param(session_, "x", nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_get_param(nullptr, "x", nullptr, on_value), -1);
    EXPECT_EQ(zel_ember_clear_param_cb(nullptr, "x"), -1);
    EXPECT_EQ(zel_ember_add_node(session_, "x", nullptr, 0, nullptr), nullptr);
    for (const char *address : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:0", "127.0.0.1:65536", "127.0.0.1:90x",
                                "name:9000", ":9000"}) {
        zel_ember_session_config_t config{};
        config.provider_addr = address;
        EXPECT_EQ(zel_ember_session_init(&config), nullptr) << address;
    }
}

TEST_F(ember_consumer, a_callback_may_clear_follow_and_follow_again)
{
    started();
    reaction_ = [&](const std::string &line) {
        if (line == "up") {
            (void)follow("unit/gpio 1/type");
        } else if (line == "unit/gpio 1/type = 2 (6)") {
            EXPECT_EQ(follow("unit/gpio 1/status"), 0);
            EXPECT_EQ(clear("unit/gpio 1/type"), 0);
        }
    };
    ASSERT_TRUE(until_told({"up", "unit/gpio 1/type = 2 (6)", "unit/gpio 1/status = 1 (4)"}));
    say(build::flat({1, 1}, {type(0)}));
    EXPECT_EQ(told_.size(), 3u);
}

TEST_F(ember_consumer, a_callback_that_asks_for_its_own_path_each_time_does_not_hold_up_the_session)
{
    started();
    int64_t rounds = 0;
    reaction_ = [&](const std::string &line) { if (line != "up") (void)follow("unit/gpio 1/status"), ++rounds; };
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until([&] { return rounds >= 5; }));
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    EXPECT_EQ(told_.back(), "unit/gpio 1/status = 0 (4)");
    reaction_ = nullptr;
}

TEST_F(ember_consumer, a_value_callback_may_end_the_session)
{
    started();
    reaction_ = [&](const std::string &line) { if (line != "up") end(); };
    (void)follow("unit/gpio 1/type");
    (void)follow("unit/gpio 1/status");
    ASSERT_TRUE(until([&] { return session_ == nullptr; }));
    EXPECT_EQ(told_, (lines{"up", "unit/gpio 1/type = 2 (6)"}));
}

TEST_F(ember_consumer, a_connect_callback_may_end_the_session_on_both_occasions)
{
    for (const std::string occasion : {"up", "down"}) {
        started();
        told_.clear();
        reaction_ = [&](const std::string &line) { if (line == occasion) end(); };
        (void)follow("unit/gpio 1/status");
        if (occasion == "down") {
            ASSERT_TRUE(until([&] { return told_.size() == 2; }));
            provider_.peer.close();
        }
        ASSERT_TRUE(until([&] { return session_ == nullptr; }));
        EXPECT_EQ(told_.back(), occasion);
    }
}

// The link

TEST_F(ember_consumer, what_was_asked_for_before_the_connection_is_remembered)
{
    started();
    EXPECT_EQ(follow("unit/gpio 1/status"), 0);
    EXPECT_EQ(told_, lines{});
    EXPECT_TRUE(until_told({"up", "unit/gpio 1/status = 1 (4)"}));
}

TEST_F(ember_consumer, after_a_lost_connection_everything_is_found_anew_by_name)
{
    followed();
    provider_.answers.clear();
    provider_.answers["root"] = {build::directory({}, {node(3, "unit")})};
    provider_.answers["3"] = {build::directory({3}, {node(9, "gpio 1")})};
    provider_.answers["3.9"] = {build::directory({3, 9}, {boolean(300, "status", true)})};
    provider_.answers["3.9.300"] = {build::flat({3, 9}, {boolean(300, "status", true)})};
    provider_.peer.close();
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 3; }));
    EXPECT_EQ(told_, (lines{"down", "up", status + " = 1 (4)"}));
}

TEST_F(ember_consumer, is_back_within_a_second_and_a_quarter_however_long_the_provider_was_gone)
{
    followed();
    for (const int64_t outage : {100, 1000, 60000, 700}) {
        told_.clear();
        provider_.close_down();
        pass(outage);
        EXPECT_EQ(told_, lines{"down"});
        provider_.open();
        const int64_t open_at = fake_now;
        ASSERT_TRUE(until([&] { pass(50); return told_.size() == 3; }));
        EXPECT_EQ(told_, (lines{"down", "up", status + " = 1 (4)"}));
        EXPECT_LE(fake_now - open_at, 1250);
    }
}

TEST_F(ember_consumer, waits_for_a_provider_that_was_never_there)
{
    provider_.close_down();
    started();
    (void)follow(status.c_str());
    pass(5000);
    EXPECT_EQ(told_, lines{});
    provider_.open();
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 2; }));
    EXPECT_EQ(told_, (lines{"up", status + " = 1 (4)"}));
}

TEST_F(ember_consumer, answers_a_keep_alive_request)
{
    followed();
    settle();
    EXPECT_FALSE(provider_.peer.is_closed());
}

TEST_F(ember_consumer, asks_for_signs_of_life_and_keeps_a_quiet_link_that_answers)
{
    followed();
    for (int i = 0; i < 60; ++i) {
        const size_t before = provider_.keep_alives;
        pass(1000);
        ASSERT_TRUE(until([&] { return provider_.keep_alives > before; }));
        settle();
    }
    EXPECT_EQ(told_, lines{});
    EXPECT_EQ(provider_.connections, 1u);
}

TEST_F(ember_consumer, is_never_silent_even_while_the_provider_talks)
{
    followed();
    provider_.answers_keep_alive = false;
    const size_t before = provider_.keep_alives;
    for (int i = 0; i < 30; ++i) {
        pass(500);
        provider_.peer.send(build::flat({1, 1}, {bare(boolean(2, "", i % 2))}));
        ASSERT_TRUE(until([&] { return told_.size() == static_cast<size_t>(i) + 1; }));
    }
    EXPECT_GE(provider_.keep_alives - before, 3u);
    EXPECT_EQ(provider_.connections, 1u);
}

TEST_F(ember_consumer, a_silent_link_is_dead_after_the_configured_time)
{
    followed();
    also_ = nullptr;            // from now on nobody answers, though the system still takes connections
    pass(9900);
    EXPECT_EQ(told_, lines{});
    pass(200);
    EXPECT_EQ(told_, lines{"down"});
}

TEST_F(ember_consumer, a_link_that_is_doubtful_is_replaced_as_soon_as_another_answers)
{
    followed();
    provider_.answers_keep_alive = false;
    also_ = nullptr;
    pass(2500);                 // doubtful by now
    EXPECT_EQ(told_, lines{});
    also_ = [this] { provider_.serve(); };
    provider_.answers_keep_alive = true;      // only the newest connection is served
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 3; }));
    EXPECT_EQ(told_, (lines{"down", "up", status + " = 1 (4)"}));
    EXPECT_LT(fake_now, 1000 + 6000);
}

TEST_F(ember_consumer, a_doubtful_link_that_answers_after_all_is_kept)
{
    followed();
    raw_peer &first = provider_.peer;
    also_ = nullptr;
    pass(2500);
    first.write(peer_frames::keep_alive_response);
    for (int i = 0; i < 5; ++i)
        sessions_.turn(0);
    pass(100);
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    EXPECT_EQ(told_, lines{status + " = 0 (4)"});
}

TEST_F(ember_consumer, noise_and_states_of_the_provider_do_no_harm)
{
    followed();
    provider_.peer.write(from_hex("00 11 22 fe 00 0e 03 01 01 2c 3d ff f8 01 02 fe 00 ff"));
    say(from_hex("60 05 02"));
    say(build::flat({1, 1}, {bare(boolean(2, "", false))}));
    EXPECT_EQ(told_, lines{status + " = 0 (4)"});
}

TEST_F(ember_consumer, a_provider_that_says_too_much_is_left_and_tried_again)
{
    followed();
    const bytes endless(100000, 0x11);
    provider_.peer.write(bytes{0xFE});
    raw_peer &peer = provider_.peer;
    size_t sent = 0;
    ASSERT_TRUE(sessions_.until([&] {
        const ssize_t now = send(peer.fd(), endless.data(), endless.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        sent += now > 0 ? static_cast<size_t>(now) : 0;
        return peer.is_closed();
    }));
    EXPECT_GT(sent, 4000000u);
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 3; }));
    EXPECT_EQ(told_, (lines{"down", "up", status + " = 1 (4)"}));
}

TEST_F(ember_consumer, a_provider_that_reads_nothing_is_left_and_tried_again)
{
    start(provider_.address(), 2000000000);      // as good as for ever: silence is not what ends this
    ASSERT_EQ(follow(status.c_str()), 0);
    ASSERT_TRUE(until_told({"up", status + " = 1 (4)"}));
    told_.clear();
    const raw_peer stuck = std::exchange(provider_.peer, raw_peer());
    fill_connection();
    // The consumer's own signs of life pile up until there is room for none.
    const size_t room = size_t{64} << 10;
    for (size_t waiting = 0; waiting < room; waiting += peer_frames::keep_alive_request.size()) {
        fake_now += 5000;
        zel_ember_process_fds(session_, nullptr);
    }
    EXPECT_EQ(told_, lines{});
    // From here on as by a host, which serves a session only when its descriptor is ready.
    fake_now += 5000;
    EXPECT_TRUE(serve_if_ready(20000));
    EXPECT_TRUE(serve_if_ready(100));
    EXPECT_EQ(told_, lines{"down"});
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 3; }));
    EXPECT_EQ(told_, (lines{"down", "up", status + " = 1 (4)"}));
}
