// As a part of the machine's snmpd.
#include "running_agent.h"
#include "scripted_unit.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <filesystem>

#include <future>
#include <memory>

using namespace zel::test;

namespace {

constexpr int master_port = 2161;

struct part_of_master {
    unit_root root;
    temp_folder scratch;
    trap_receiver receiver;
    std::unique_ptr<child_process> master;
    std::unique_ptr<unit_process> unit;
    std::unique_ptr<agent_process> agent;
    manager writer{{"-v2c", "-c", "private"}, master_port};

    part_of_master()
    {
        write_small_unit(root);
        root.write_settings(", \"snmp_agent\": {\"agentx\": \"" + socket() + "\"}" + small_unit_settings());
        write_file(scratch.path() + "/snmpd.conf", "rwcommunity private 127.0.0.0/8\nmaster agentx\nagentXSocket " + socket() +
                                                       "\ntrap2sink " + own_address() + ":" + std::to_string(sink_port) +
                                                       " public\n");
        start_master();
    }
    std::string socket() const { return scratch.path() + "/master"; }
    void start_master()
    {
        master = std::make_unique<child_process>(
            std::vector<std::string>{"/usr/sbin/snmpd", "-f", "-Lo", "-C", "-c", scratch.path() + "/snmpd.conf", "-I",
                                     "system_mib,snmp_mib,sysORTable,agentx",
                                     "udp:" + own_address() + ":" + std::to_string(master_port)},
            environment{{"SNMP_PERSISTENT_DIR", scratch.path() + "/persistent"}, {"SNMPCONFPATH", scratch.path()}, {"MIBS", ""}});
        ASSERT_TRUE(master->out.await("NET-SNMP version"));
    }
    void start_both()
    {
        unit = std::make_unique<unit_process>(root);
        agent = std::make_unique<agent_process>(root);
        ASSERT_TRUE(unit->ready() && agent->ready());
        ASSERT_TRUE(writer.await("zelUnitState.0", "present")) << agent->process().err.seen();
    }
};

}  // namespace

TEST(snmp_agentx, reads_sets_and_notifies_as_by_itself)
{
    part_of_master p;
    p.start_both();
    EXPECT_EQ(p.writer.get("zelGpiName.4"), "GPO 4");
    EXPECT_EQ(p.writer.set({"zelGpiState.4", "i", "on"}), "");
    EXPECT_EQ(p.writer.get("zelGpiState.4"), "on");
    EXPECT_EQ(p.writer.set({"zelRelayTriggers.1", "s", "Door"}), "");
    EXPECT_EQ(p.writer.get("zelRelayTriggers.1"), "Door");
    EXPECT_EQ(p.writer.set({"zelRelayTriggers.1", "s", "Nobody"}), "inconsistentValue");
    EXPECT_EQ(p.writer.set({"zelGpiMode.1", "i", "latching", "zelGpiState.1", "i", "on"}), "inconsistentValue");
    EXPECT_EQ(p.writer.set({"zelGpiType.1", "i", "input", "zelGpiMode.2", "i", "latching"}), "inconsistentValue");
    ASSERT_EQ(zelctl(p.root, {"event", "Door", "on"}).status, 0);
    EXPECT_TRUE(p.receiver.await({"zelRelayStateChange", "zelRelayName.1 = STRING: Relay 1",
                                  "zelRelayState.1 = INTEGER: on(1)"}));
    const std::string all = p.writer.run("snmpbulkwalk", {"zelObjects"}).out;
    EXPECT_NE(all.find("zelTriggerName.1 = STRING: Eth Link Down"), std::string::npos);
}

TEST(snmp_agentx, answers_within_its_time_when_the_unit_is_silent)
{
    part_of_master p;
    p.agent = std::make_unique<agent_process>(p.root);
    scripted_unit unit(p.root);
    ASSERT_TRUE(p.agent->ready() && unit.await_link());
    unit.settle();
    ASSERT_TRUE(p.writer.await("zelUnitState.0", "present"));
    auto done = std::async(std::launch::async, [&] { return p.writer.set({"zelGpiState.1", "i", "on"}); });
    ASSERT_TRUE(unit.next_request());
    EXPECT_EQ(done.get(), "(genError)");
    EXPECT_EQ(p.writer.get("zelGpiState.1"), "off");
}

TEST(snmp_agentx, comes_back_when_the_master_does)
{
    part_of_master p;
    p.start_both();
    p.master->signal(SIGTERM);
    EXPECT_EQ(p.master->wait(), 0);
    p.start_master();
    EXPECT_TRUE(p.writer.await("zelUnitState.0", "present"));
    EXPECT_EQ(p.writer.get("zelGpiName.4"), "GPO 4");
}

TEST(snmp_agentx, starts_before_its_master)
{
    part_of_master p;
    p.master.reset();
    std::filesystem::remove(p.socket());
    p.unit = std::make_unique<unit_process>(p.root);
    p.agent = std::make_unique<agent_process>(p.root);
    ASSERT_TRUE(p.unit->ready() && p.agent->ready()) << p.agent->process().err.rest();
    p.start_master();
    EXPECT_TRUE(p.writer.await("zelUnitState.0", "present"));
}
