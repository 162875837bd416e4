// The unit and its agent come and go in any order, and too much comes at once.
#include "running_agent.h"

#include "common/unique_fd.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <random>

using namespace zel::test;

namespace {

struct pair {
    unit_root root;
    std::unique_ptr<unit_process> unit;
    std::unique_ptr<agent_process> agent;
    manager reader;

    pair() { write_small_unit(root); }
    void end_unit(bool kindly) { end(unit, kindly); }
    void end_agent(bool kindly) { end(agent, kindly); }
    void start_unit()
    {
        if (!unit) unit = std::make_unique<unit_process>(root);
        ASSERT_TRUE(unit->ready());
    }
    void start_agent()
    {
        if (!agent) agent = std::make_unique<agent_process>(root);
        ASSERT_TRUE(agent->ready()) << agent->process().err.rest();
    }

private:
    template <typename process>
    static void end(std::unique_ptr<process> &which, bool kindly)
    {
        if (which && kindly) { EXPECT_EQ(which->stop(), 0); }
        which.reset();
    }
};

// Everything that is told in the present link is so marked, and nothing else is there.
void expect_all_fresh(const manager &reader)
{
    for (const char *const column : {"zelGpiStale", "zelCoughStale", "zelVirtualStale", "zelButtonStale", "zelLedStale",
                                     "zelRelayStale", "zelTriggerStale", "zelHandlerStale"}) {
        const std::string all = reader.run("snmpbulkwalk", {column}, {"-Oqv"}).out;
        EXPECT_NE(all.find("false"), std::string::npos) << column;
        EXPECT_EQ(all.find("true"), std::string::npos) << column;
    }
}

}  // namespace

TEST(snmp_restarts, in_any_order_leave_both_right)
{
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    pair p;
    int events = 0;
    for (int round = 0; round < 50; ++round) {
        const unsigned which = random() % 3, kindly = random() % 2, order = random() % 2;
        if (which != 1) p.end_unit(kindly != 0);
        if (which != 0) p.end_agent(kindly != 0);
        for (int step = 0; step < 2; ++step) (step == 0) == (order == 0) ? p.start_unit() : p.start_agent();
        const bool on = random() % 2 != 0;
        ASSERT_EQ(zelctl(p.root, {"event", "On Air", on ? "on" : "off"}).status, 0);
        ASSERT_TRUE(p.reader.await("zelUnitState.0", "present")) << "round " << round << " seed " << seed;
        ASSERT_TRUE(p.reader.await("zelRelayState.2", on ? "on" : "off")) << "round " << round << " seed " << seed;
        EXPECT_EQ(p.reader.get("zelRelayTriggers.2"), "On Air");
        EXPECT_EQ(p.reader.get("zelGpiName.4"), "GPO 4");
        events += on;
        if (round % 10 == 9) expect_all_fresh(p.reader);
    }
    EXPECT_GT(events, 5);
}

TEST(snmp_restarts, with_fewer_ports_take_the_others_away)
{
    pair p;
    p.start_unit();
    p.start_agent();
    ASSERT_TRUE(p.reader.await("zelUnitState.0", "present"));
    EXPECT_EQ(p.reader.get("zelRelayCount.0"), "2");
    p.end_unit(true);
    ASSERT_TRUE(p.reader.await("zelUnitState.0", "away"));
    EXPECT_EQ(p.reader.get("zelRelayName.2"), "Relay 2");
    EXPECT_EQ(p.reader.get("zelRelayStale.2"), "true");
    std::string fewer = small_unit_settings();
    fewer.replace(fewer.find("\"count\": 2"), 10, "\"count\": 1");
    fewer.replace(fewer.find(", \"Door\""), 8, "");
    p.root.write_settings(agent_settings() + fewer);
    p.start_unit();
    ASSERT_TRUE(p.reader.await("zelUnitState.0", "present"));
    EXPECT_EQ(p.reader.get("zelRelayCount.0"), "1");
    EXPECT_EQ(p.reader.get("zelRelayName.2"), "No Such Instance currently exists at this OID");
    EXPECT_EQ(p.reader.run("snmpwalk", {"zelTriggerName"}).out.find("Door"), std::string::npos);
    expect_all_fresh(p.reader);
}

namespace {

constexpr const char *flooded = ", \"udp_commands\": {\"enabled\": true, \"address\": \"";
constexpr int command_port = 5010;

// GPI ports driven by datagrams, which is the fastest way to change them.
class command_socket {
public:
    command_socket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        to_.sin_family = AF_INET;
        to_.sin_port = htons(command_port);
        inet_pton(AF_INET, own_address().c_str(), &to_.sin_addr);
        EXPECT_EQ(connect(fd_.get(), reinterpret_cast<const sockaddr *>(&to_), sizeof to_), 0);
    }
    // Sends the lines and waits for their answers.
    void send(const std::string &lines)
    {
        ASSERT_GT(::send(fd_.get(), lines.data(), lines.size(), 0), 0);
        pollfd waited{fd_.get(), POLLIN, 0};
        ASSERT_EQ(poll(&waited, 1, static_cast<int>(patience.count()) * 1000), 1);
        char answer[512];
        ASSERT_GT(recv(fd_.get(), answer, sizeof answer, 0), 0);
    }
    // So many changes of ports 1 and 2; at the end port 1 is on and port 2 is off.
    void flood(int changes)
    {
        for (int sent = 0; sent < changes; sent += 16) {
            std::string lines;
            for (int k = 0; k < 4; ++k) lines += "pin 1 0\npin 2 1\npin 1 1\npin 2 0\n";
            lines.pop_back();
            send(lines);
        }
    }

private:
    zel::unique_fd fd_;
    sockaddr_in to_{};
};

struct flooded_pair : pair {
    flooded_pair()
    {
        root.write_settings(agent_settings(with_sink()) + small_unit_settings() + flooded + own_address() + "\"}");
        start_unit();
        // So that freed memory goes back when the program is instrumented.
        agent = std::make_unique<agent_process>(root, environment{{"ASAN_OPTIONS", "quarantine_size_mb=1"}});
        EXPECT_TRUE(agent->ready() && reader.await("zelUnitState.0", "present"));
    }
};

}  // namespace

TEST(snmp_flood, of_ten_thousand_changes_grows_no_memory_and_loses_no_last_state)
{
    flooded_pair p;
    command_socket commands;
    commands.flood(10000);
    EXPECT_TRUE(p.reader.await("zelGpiState.1", "on"));
    const long before = memory_of(p.agent->process().pid());
    for (int round = 0; round < 2; ++round) commands.flood(10000);
    commands.send("pin 1 0\npin 2 1");
    EXPECT_TRUE(p.reader.await("zelGpiState.1", "off"));
    EXPECT_TRUE(p.reader.await("zelGpiState.2", "on"));
    EXPECT_TRUE(p.reader.await("zelUnitState.0", "present"));
    EXPECT_GT(std::stol(p.reader.get("zelUnitMessages.0")), 30000);
    EXPECT_LT(memory_of(p.agent->process().pid()) - before, 2048) << "KiB; 20000 messages have 14 MB";
}

TEST(snmp_flood, that_an_agent_sleeps_through_loses_no_last_state)
{
    flooded_pair p;
    command_socket commands;
    const long before = memory_of(p.unit->process().pid());
    p.agent->process().signal(SIGSTOP);
    commands.flood(10000);
    EXPECT_LT(memory_of(p.unit->process().pid()) - before, 16384) << "KiB; the unit keeps what the link has room for";
    p.agent->process().signal(SIGCONT);
    // What the unit had to drop is told when the agent asks again.
    EXPECT_TRUE(p.agent->process().err.await("asking the unit to tell everything again"));
    EXPECT_TRUE(p.reader.await("zelUnitState.0", "present"));
    EXPECT_EQ(p.reader.get("zelGpiState.1"), "on");
    EXPECT_EQ(p.reader.get("zelGpiState.2"), "off");
    EXPECT_EQ(p.reader.get("zelGpiStale.1"), "false");
}
