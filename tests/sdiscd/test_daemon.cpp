// The daemon as it is delivered, on the loopback interface of a network of the test's own.
#include "running_daemon.h"
#include "two_hosts.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>
#include <regex>

using namespace zel::test;

namespace {

// Until a responder has announced its records for the last time: it defends none that it announced within the last second.
constexpr std::chrono::seconds announcing{3};

const std::string details_of_b = "vGPO1@B at 127.0.0.3:9000 \"path=/a/b\"";

class own_network : public testing::Test {
protected:
    void SetUp() override
    {
        if (!enter_own_network()) GTEST_SKIP() << "no network namespace or no veth interfaces here";
    }
};

// Two units' daemons, each with a client that looks.
class two_daemons : public own_network {
protected:
    void SetUp() override
    {
        own_network::SetUp();
        if (IsSkipped()) return;
        daemon_a = std::make_unique<running_daemon>(root_a);
        daemon_b = std::make_unique<running_daemon>(root_b);
        ASSERT_TRUE(daemon_a->ready() && daemon_b->ready());
        a.look();
        b.look();
        a.answer_reports();
        ASSERT_TRUE(a.await("made") && b.await("made"));
    }
    // Turns both clients until `a` was told that line so often.
    bool await_a(const std::string &line, size_t times = 1)
    {
        return raw_client::await({&a, &b}, [&] { return a.count(line) >= times; });
    }

    daemon_root root_a{"127.0.0.2", "lo", "unit-a"}, root_b{"127.0.0.3", "lo", "unit-b"};
    std::unique_ptr<running_daemon> daemon_a, daemon_b;
    raw_client a{root_a}, b{root_b};
};

long resident_kib(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; file >> word;) {
        long kib = 0;
        if (word == "VmRSS:" && file >> kib) return kib;
    }
    return -1;
}

}  // namespace

TEST_F(two_daemons, find_each_others_services_with_address_port_and_path)
{
    b.publish("vGPO1@B");
    ASSERT_TRUE(await_a("found vGPO1@B"));
    ASSERT_TRUE(await_a(details_of_b));
    b.unpublish("vGPO1@B");
    ASSERT_TRUE(await_a("gone vGPO1@B"));
    EXPECT_EQ(a.told(), (std::vector<std::string>{"made", "found vGPO1@B", details_of_b, "gone vGPO1@B"}));
    EXPECT_EQ(b.told(), std::vector<std::string>{"made"}) << "told of its own";
}

TEST_F(two_daemons, withdraw_what_they_announced_when_they_are_ended)
{
    b.publish("vGPO1@B");
    ASSERT_TRUE(await_a(details_of_b));
    EXPECT_EQ(daemon_b->stop(), 0) << daemon_b->process().err.rest();
    EXPECT_TRUE(await_a("gone vGPO1@B"));
}

TEST_F(two_daemons, tell_of_another_port_and_another_path_of_a_known_service)
{
    b.publish("vGPO1@B");
    ASSERT_TRUE(await_a(details_of_b));
    b.publish("vGPO1@B", 9100);
    ASSERT_TRUE(await_a("vGPO1@B at 127.0.0.3:9100 \"path=/a/b\""));
    b.publish("vGPO1@B", 9200, "\"path=/c\"");
    ASSERT_TRUE(await_a("vGPO1@B at 127.0.0.3:9200 \"path=/c\""));
    EXPECT_EQ(a.count("gone vGPO1@B"), 0u);
    EXPECT_EQ(a.told().size(), 5u) << "each change is told once";
}

TEST_F(two_daemons, keep_what_was_asked_for_when_one_is_killed_and_started_again)
{
    b.publish("vGPO1@B");
    ASSERT_TRUE(await_a(details_of_b));
    daemon_b->kill();
    ASSERT_TRUE(b.await("lost"));
    daemon_b = std::make_unique<running_daemon>(root_b);
    ASSERT_TRUE(b.await("made", 2));
    b.forget();
    // That it is announced again shows once it is taken back.
    a.serve_for(std::chrono::milliseconds(1500));
    b.unpublish("vGPO1@B");
    ASSERT_TRUE(await_a("gone vGPO1@B"));
    EXPECT_EQ(a.told(), (std::vector<std::string>{"made", "found vGPO1@B", details_of_b, "gone vGPO1@B"}));
    EXPECT_TRUE(b.told().empty()) << b.told().front();
}

TEST_F(two_daemons, tell_a_client_after_a_restart_only_what_has_changed)
{
    b.publish("stays");
    b.publish("goes");
    ASSERT_TRUE(raw_client::await({&a, &b}, [&] { return a.told().size() == 5; }));
    a.serve_for(std::chrono::milliseconds(500));   // until the reports are kept
    daemon_a->kill();
    ASSERT_TRUE(a.await("lost"));
    a.forget();
    b.unpublish("goes");
    b.publish("comes");
    b.serve_for(std::chrono::milliseconds(1500));
    daemon_a = std::make_unique<running_daemon>(root_a);
    ASSERT_TRUE(await_a("found comes") && await_a("gone goes"));
    EXPECT_EQ(a.told(), (std::vector<std::string>{"made", "found comes", "comes at 127.0.0.3:9000 \"path=/a/b\"", "gone goes"}));
}

TEST_F(two_daemons, withdraw_the_services_of_a_process_that_was_killed)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        raw_client doomed(root_b, "doomed");
        doomed.publish("vGPO9@B");
        doomed.serve_for(std::chrono::minutes(1));
        _exit(0);
    }
    EXPECT_TRUE(await_a("found vGPO9@B"));
    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    EXPECT_TRUE(await_a("gone vGPO9@B"));
}

TEST_F(two_daemons, keep_the_services_of_a_client_that_reconnects)
{
    b.publish("vGPO1@B");
    ASSERT_TRUE(await_a(details_of_b));
    {
        raw_client other(root_b, "zel_gpio");   // takes the name over, so the daemon ends the first one's link
        ASSERT_TRUE(other.await("made"));
        ASSERT_TRUE(b.await("lost"));
    }
    ASSERT_TRUE(b.await("made", 2));
    a.serve_for(std::chrono::milliseconds(4500));
    EXPECT_EQ(a.told(), (std::vector<std::string>{"made", "found vGPO1@B", details_of_b}));
}

TEST_F(two_daemons, let_one_have_a_name_and_the_other_one_wait_for_it)
{
    b.publish("shared name");
    ASSERT_TRUE(await_a("shared name at 127.0.0.3:9000 \"path=/a/b\""));
    b.serve_for(announcing);
    a.publish("shared name", 9500);
    ASSERT_TRUE(await_a("collision shared name"));
    b.unpublish("shared name");
    ASSERT_TRUE(raw_client::await({&a, &b}, [&] { return b.count("found shared name") == 1; })) << "the one that waited has it now";
    EXPECT_EQ(a.count("gone shared name"), 1u);
    EXPECT_EQ(a.count("found shared name"), 1u);
    EXPECT_EQ(b.count("collision shared name"), 0u);
}

TEST_F(two_daemons, do_not_give_one_name_to_two_that_start_at_once)
{
    a.publish("both", 9001);
    b.publish("both", 9002);
    ASSERT_TRUE(raw_client::await({&a, &b}, [&] { return a.count("collision both") + b.count("collision both") == 1; }));
}

TEST_F(two_daemons, refuse_malformed_requests_and_serve_on)
{
    const std::string lookup(1084, 'x');
    for (const int type : {2, 7, 8, 9, 10, 200}) {
        for (const size_t length : {size_t{0}, size_t{1}, size_t{4}, size_t{100}, size_t{1223}, size_t{60000}}) {
            ASSERT_TRUE(b.send(static_cast<uint8_t>(type), std::string(length, '\xff')));
            ASSERT_TRUE(b.send(static_cast<uint8_t>(type), std::string(length, '\0')));
        }
    }
    b.publish(std::string("bad \xff"));
    b.publish("long path", 9000, "\"path=" + std::string(251, 'p') + "\"");
    b.publish("vGPO1@B");
    ASSERT_TRUE(await_a(details_of_b));
    EXPECT_EQ(a.told().size(), 3u);
    EXPECT_TRUE(daemon_b->process().err.await("Ignoring a "));
}

TEST_F(two_daemons, announce_names_and_paths_of_any_kind)
{
    const std::string longest(63, 'n'), path = "\"path=" + std::string(250, 'p') + "\"";
    b.publish(longest, 1, path);
    b.publish("St\xc3\xbc"  "dio 1.2 @ \"home\" \\ \xe2\x82\xac", 65535, "\"path=/a\" \"altport=9001\"");
    ASSERT_TRUE(await_a(longest + " at 127.0.0.3:1 " + path));
    ASSERT_TRUE(await_a("St\xc3\xbc"  "dio 1.2 @ \"home\" \\ \xe2\x82\xac at 127.0.0.3:65535 \"path=/a\" \"altport=9001\""));
}

// What is measured must not grow with the number of rounds.
TEST_F(two_daemons, announce_a_hundred_services_again_and_again_without_growing)
{
    long after_first = 0, after_last = 0;
    constexpr size_t services = 100;
    constexpr int rounds = 4;
    for (int round = 0; round < rounds; ++round) {
        a.forget();
        for (size_t i = 0; i < services; ++i) b.publish("vGPO" + std::to_string(i) + "@B");
        ASSERT_TRUE(raw_client::await({&a, &b}, [&] { return a.told().size() == 2 * services; })) << a.told().size();
        for (size_t i = 0; i < services; ++i) b.unpublish("vGPO" + std::to_string(i) + "@B");
        ASSERT_TRUE(raw_client::await({&a, &b}, [&] { return a.told().size() == 3 * services; })) << a.told().size();
        (round == 0 ? after_first : after_last) = resident_kib(daemon_a->process().pid());
    }
    ASSERT_GT(after_first, 0);
    EXPECT_LT(after_last, after_first + ZEL_MEMORY_MARGIN_KIB);
}

TEST_F(own_network, a_second_daemon_on_the_root_refuses_to_start)
{
    const daemon_root root;
    running_daemon first(root);
    ASSERT_TRUE(first.ready());
    const run_result second = run({ZEL_SDISCD, "--root", root.path()});
    EXPECT_EQ(second.status, 1) << second.err;
    EXPECT_EQ(first.stop(), 0);
}

TEST_F(own_network, a_client_can_ask_before_the_daemon_runs)
{
    const daemon_root root_a("127.0.0.2"), root_b("127.0.0.3");
    raw_client a(root_a), b(root_b);
    a.look();
    a.answer_reports();
    b.publish("vGPO1@B");
    running_daemon daemon_a(root_a), daemon_b(root_b);
    EXPECT_TRUE(raw_client::await({&a, &b}, [&] { return a.count(details_of_b) == 1; }));
}

TEST_F(own_network, a_unit_of_the_same_serial_number_takes_another_host_name)
{
    const daemon_root root_a("127.0.0.2", "lo", "same"), root_b("127.0.0.3", "lo", "same");
    running_daemon daemon_a(root_a), daemon_b(root_b);
    raw_client a(root_a), b(root_b);
    for (raw_client *const each : {&a, &b}) {
        each->look();
        each->answer_reports();
    }
    a.publish("vGPO1@A");
    ASSERT_TRUE(raw_client::await({&a, &b}, [&] { return b.count("vGPO1@A at 127.0.0.2:9000 \"path=/a/b\"") == 1; }));
    a.serve_for(announcing);
    b.publish("vGPO1@B");
    EXPECT_TRUE(raw_client::await({&a, &b}, [&] { return a.count(details_of_b) == 1; })) << a.told().back();
    EXPECT_TRUE(daemon_b.process().err.await("taking 'zel-same-2'"));
}

TEST_F(own_network, an_index_that_does_not_exist_is_waited_for)
{
    const daemon_root root;
    running_daemon daemon(root);
    raw_client client(root);
    client.publish("vGPO1@A", 9000, "\"path=/a/b\"", 4711);
    ASSERT_TRUE(client.await("made"));
    EXPECT_TRUE(daemon.process().err.await("There is no interface of index 4711"));
    EXPECT_EQ(daemon.stop(), 0);
}

namespace {

class two_hosts_with_daemons : public testing::Test {
protected:
    void SetUp() override
    {
        hosts = two_hosts::make();
        if (!hosts) GTEST_SKIP() << "no network namespaces, bridge or veth interfaces here";
    }
    void start(const daemon_root &root_a, const daemon_root &root_b)
    {
        hosts->stand_on(two_hosts::a);
        daemon_a = std::make_unique<running_daemon>(root_a);
        hosts->stand_on(two_hosts::b);
        daemon_b = std::make_unique<running_daemon>(root_b);
        a = std::make_unique<raw_client>(root_a);
        b = std::make_unique<raw_client>(root_b);
        a->look(0);
        a->answer_reports();
    }
    void start_and_find()
    {
        start(usual_a, usual_b);
        b->publish("vGPO1@B", 9000, "\"path=/a/b\"", 0);
        ASSERT_TRUE(await_a(b_at_first));
    }
    bool await_a(const std::string &line, size_t times = 1)
    {
        return raw_client::await({a.get(), b.get()}, [&] { return a->count(line) >= times; });
    }

    std::unique_ptr<two_hosts> hosts;
    daemon_root usual_a{"0.0.0.0", "zel0"}, usual_b{"0.0.0.0", "zel0"};
    std::unique_ptr<running_daemon> daemon_a, daemon_b;
    std::unique_ptr<raw_client> a, b;
    const std::string b_at_first = "vGPO1@B at 10.9.0.2:9000 \"path=/a/b\"";
};

}  // namespace

TEST_F(two_hosts_with_daemons, tell_of_another_address_of_the_interface)
{
    start_and_find();
    ASSERT_TRUE(hosts->change_address(two_hosts::b, "10.9.0.77/24"));
    EXPECT_TRUE(await_a("vGPO1@B at 10.9.0.77:9000 \"path=/a/b\""));
}

TEST_F(two_hosts_with_daemons, lose_each_other_with_the_own_cable_and_find_each_other_when_it_is_back)
{
    start_and_find();
    ASSERT_TRUE(hosts->plug(two_hosts::a, false));
    ASSERT_TRUE(await_a("gone vGPO1@B"));
    ASSERT_TRUE(hosts->plug(two_hosts::a, true));
    EXPECT_TRUE(await_a(b_at_first, 2));
}

TEST_F(two_hosts_with_daemons, say_nothing_of_a_cable_that_was_out_for_a_moment)
{
    start_and_find();
    a->forget();
    ASSERT_TRUE(hosts->plug(two_hosts::a, false));
    a->serve_for(std::chrono::milliseconds(1000));
    ASSERT_TRUE(hosts->plug(two_hosts::a, true));
    b->publish("vGPO2@B", 9000, "\"path=/a/b\"", 0);
    ASSERT_TRUE(await_a("found vGPO2@B"));
    a->serve_for(std::chrono::seconds(11));   // as long as anything may be in doubt
    EXPECT_EQ(a->told(), (std::vector<std::string>{"found vGPO2@B", "vGPO2@B at 10.9.0.2:9000 \"path=/a/b\""}));
}

TEST_F(two_hosts_with_daemons, find_a_killed_publisher_announced_anew_under_another_port)
{
    start_and_find();
    daemon_b->kill();
    b.reset();
    hosts->stand_on(two_hosts::b);
    daemon_b = std::make_unique<running_daemon>(usual_b);
    b = std::make_unique<raw_client>(usual_b, "another");
    b->publish("vGPO1@B", 9300, "\"path=/a/b\"", 0);
    EXPECT_TRUE(await_a("vGPO1@B at 10.9.0.2:9300 \"path=/a/b\"")) << "within the lifetime of the old records";
}

// A power cut: no goodbye, and nobody who would answer. The records live for ten seconds here.
TEST_F(two_hosts_with_daemons, lose_a_publisher_that_fell_silent_when_its_records_have_run_out)
{
    hosts->stand_on(two_hosts::b);
    running_daemon brief(usual_b, {"--ttl", "10"});
    b = std::make_unique<raw_client>(usual_b);
    b->publish("vGPO1@B", 9000, "\"path=/a/b\"", 0);
    hosts->stand_on(two_hosts::a);
    daemon_a = std::make_unique<running_daemon>(usual_a);
    a = std::make_unique<raw_client>(usual_a);
    a->look(0);
    a->answer_reports();
    ASSERT_TRUE(await_a(b_at_first));
    ASSERT_TRUE(hosts->forward(two_hosts::b, false));
    ASSERT_TRUE(await_a("gone vGPO1@B"));
    ASSERT_TRUE(hosts->forward(two_hosts::b, true));
    EXPECT_TRUE(await_a(b_at_first, 2));
}

TEST_F(two_hosts_with_daemons, use_an_interface_that_comes_later)
{
    const daemon_root late("0.0.0.0", "late0");
    start(late, usual_b);
    b->publish("vGPO1@B", 9000, "\"path=/a/b\"", 0);
    ASSERT_TRUE(raw_client::await({a.get(), b.get()}, [&] { return a->count("made") == 1 && b->count("made") == 1; }));
    hosts->stand_on(two_hosts::a);
    ASSERT_TRUE(ip({"link", "set", "zel0", "down"}) && ip({"link", "set", "zel0", "name", "late0"}));
    ASSERT_TRUE(ip({"link", "set", "late0", "up"}));
    EXPECT_TRUE(await_a(b_at_first));
}

TEST_F(two_hosts_with_daemons, use_an_interface_that_only_a_request_names)
{
    const daemon_root elsewhere("0.0.0.0", "lo");
    start(usual_a, elsewhere);
    hosts->stand_on(two_hosts::b);
    b->publish("vGPO1@B", 9000, "\"path=/a/b\"", static_cast<int32_t>(if_nametoindex("zel0")));
    EXPECT_TRUE(await_a(b_at_first));
}
