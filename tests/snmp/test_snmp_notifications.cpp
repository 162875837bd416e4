// Notifications as snmptrapd shows them.
#include "running_agent.h"
#include "scripted_discovery.h"
#include "scripted_unit.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <cstring>
#include <map>
#include <regex>

using namespace zel::test;
using zel::snmpd::wire_name;
using zel::snmpd::wire_port;

namespace {

struct running {
    unit_root root;
    trap_receiver receiver;
    std::unique_ptr<scripted_discovery> discovery;
    std::unique_ptr<unit_process> unit;
    std::unique_ptr<agent_process> agent;

    running()
    {
        write_small_unit(root);
        discovery = std::make_unique<scripted_discovery>(root);
        unit = std::make_unique<unit_process>(root);
        agent = std::make_unique<agent_process>(root);
        EXPECT_TRUE(receiver.ready() && unit->ready() && agent->ready() && discovery->await_unit());
        EXPECT_TRUE(receiver.await({"zelUnitStateChange", "zelUnitState.0 = INTEGER: present(3)"})) << receiver.seen();
    }
    void act(std::vector<std::string> words) const { EXPECT_EQ(zelctl(root, std::move(words)).status, 0); }
};

}  // namespace

TEST(snmp_notifications, tell_of_every_kind_of_change)
{
    running r;
    r.act({"press", "1"});
    EXPECT_TRUE(r.receiver.await({"zelGpiStateChange", "zelGpiName.1 = STRING: GPI 1", "zelGpiType.1 = INTEGER: input(1)",
                                  "zelGpiState.1 = INTEGER: on(1)"})) << r.receiver.seen();
    EXPECT_TRUE(r.receiver.await({"zelVirtualStateChange", "zelVirtualName.2 = STRING: vGPO 2",
                                  "zelVirtualState.2 = INTEGER: on(1)"}));
    // One or two outputs, as far as the unit had come.
    EXPECT_TRUE(r.receiver.await({"zelTriggerActivityChange", "zelTriggerName.6 = STRING: GPI 1",
                                  "zelTriggerActiveOutputs.6 = Gauge32: "})) << r.receiver.seen();
    EXPECT_TRUE(r.receiver.await({"zelRelayStateChange", "zelRelayName.1 = STRING: Relay 1",
                                  "zelRelayState.1 = INTEGER: on(1)"}));
    r.act({"press", "17"});
    EXPECT_TRUE(r.receiver.await({"zelCoughStateChange", "zelCoughName.1 = STRING: COUGH 1",
                                  "zelCoughState.1 = INTEGER: on(1)"}));
    r.act({"button", "1"});
    EXPECT_TRUE(r.receiver.await({"zelButtonStateChange", "zelButtonName.1 = STRING: User Button 1",
                                  "zelButtonState.1 = INTEGER: on(1)"})) << r.receiver.seen();
    EXPECT_TRUE(r.receiver.await({"zelLedStateChange", "zelLedName.1 = STRING: User LED 1", "zelLedState.1 = INTEGER: on(1)"}));
    r.discovery->announce("vGPO1@Studio 2");
    EXPECT_TRUE(r.receiver.await({"zelSourceValidityChange", "zelSourceName.1 = STRING: vGPO1@Studio 2",
                                  "zelValidity.0 = INTEGER: true(1)"})) << r.receiver.seen();
    r.discovery->withdraw("vGPO1@Studio 2");
    EXPECT_TRUE(r.receiver.await({"zelSourceValidityChange", "zelSourceName.1 = STRING: vGPO1@Studio 2",
                                  "zelValidity.0 = INTEGER: false(2)"})) << r.receiver.seen();
    r.act({"release", "1"});
    EXPECT_TRUE(r.receiver.await({"zelGpiStateChange", "zelGpiState.1 = INTEGER: off(0)"}));
    r.unit->process().signal(SIGKILL);
    EXPECT_TRUE(r.receiver.await({"zelUnitStateChange", "zelUnitState.0 = INTEGER: away(1)"})) << r.receiver.seen();
}

TEST(snmp_notifications, tell_what_changed_while_the_unit_was_away)
{
    running r;
    r.act({"press", "1"});
    EXPECT_TRUE(r.receiver.await({"zelRelayState.1 = INTEGER: on(1)"}));
    r.unit.reset();
    EXPECT_TRUE(r.receiver.await({"zelUnitState.0 = INTEGER: away(1)"}));
    r.unit = std::make_unique<unit_process>(r.root);
    EXPECT_TRUE(r.receiver.await({"zelUnitState.0 = INTEGER: present(3)"})) << r.receiver.seen();
    EXPECT_TRUE(r.receiver.await({"zelRelayState.1 = INTEGER: off(0)"})) << r.receiver.seen();
}

namespace {

struct played {
    unit_root root;
    trap_receiver receiver;
    std::unique_ptr<agent_process> agent;
    std::unique_ptr<scripted_unit> unit;

    played()
    {
        write_small_unit(root);
        agent = std::make_unique<agent_process>(root);
        unit = std::make_unique<scripted_unit>(root);
        EXPECT_TRUE(receiver.ready() && agent->ready() && unit->await_link());
        unit->settle();
        EXPECT_TRUE(receiver.await({"zelUnitState.0 = INTEGER: present(3)"}));
    }
    void set_state(int32_t index, int32_t state)
    {
        wire_port port{};
        port.index = index;
        port.type = 1;
        port.state = state;
        unit->send(7, port);
    }
};

}  // namespace

TEST(snmp_notifications, tell_of_triggers_that_come_and_go)
{
    played p;
    p.unit->send(12, wire_name{9, "Door"});
    p.unit->settle();
    EXPECT_TRUE(p.receiver.await({"zelTriggerValidityChange", "zelTriggerName.10 = STRING: Door",
                                  "zelValidity.0 = INTEGER: true(1)"}));
    p.unit->send(12, wire_name{9, ""});
    p.unit->settle();
    EXPECT_TRUE(p.receiver.await({"zelTriggerValidityChange", "zelTriggerName.10 = STRING: Door",
                                  "zelValidity.0 = INTEGER: false(2)"})) << p.receiver.seen();
}

TEST(snmp_notifications, are_silent_about_what_is_found_at_the_start)
{
    played p;
    p.set_state(0, 1);
    p.unit->settle();
    EXPECT_TRUE(p.receiver.await({"zelGpiStateChange", "zelGpiState.1"}));
    EXPECT_EQ(p.receiver.seen().find("zelTriggerValidityChange"), std::string::npos) << p.receiver.seen();
    EXPECT_EQ(p.receiver.seen().find("zelRelayStateChange"), std::string::npos);
}

TEST(snmp_notifications, are_limited_in_a_flood_whose_last_state_is_told)
{
    played p;
    for (int round = 0; round < 1000; ++round) p.set_state(round % 2, (round / 2 + 1) % 2);
    p.set_state(0, 1);
    p.set_state(1, 1);
    p.unit->settle();
    std::map<std::string, std::string> last;
    const std::regex state("zelGpiState\\.(\\d) = INTEGER: (\\w+)");
    const manager reader;
    const auto sent = std::stoi(reader.get("zelNotificationsSent.0"));
    EXPECT_LT(sent, 200);
    EXPECT_GT(std::stoi(reader.get("zelNotificationsMerged.0")), 500);
    // The end of the stream is not in sight; what must come at last is awaited.
    while (last["1"] != "on" || last["2"] != "on") {
        const auto line = p.receiver.process().out.next();
        ASSERT_TRUE(line) << p.receiver.seen();
        std::smatch found;
        if (std::regex_search(*line, found, state)) last[found[1]] = found[2];
    }
    EXPECT_EQ(reader.get("zelGpiState.1"), "on");
    EXPECT_EQ(reader.get("zelGpiState.2"), "on");
}

namespace {

// The receiver's address comes behind it.
constexpr const char *version_3_sink =
    "trapsess -v 3 -u operator -a SHA-256 -A \"operator pass\" -x AES -X \"private pass\" -l authPriv ";

}  // namespace

TEST(snmp_notifications, of_version_3_reach_a_receiver_that_knows_the_user)
{
    const unit_root root;
    write_small_unit(root);
    root.write_settings(agent_settings() + small_unit_settings());
    write_file(root.path() + "/etc/zel/serial", "0123456789ab\n");
    const std::string user = "SHA-256 \"operator pass\" AES \"private pass\"\n";
    write_agent_configuration(root, open_configuration() + version_3_sink + own_address() + ":" +
                                        std::to_string(sink_port) + "\n");
    // The engine id is the enterprise's number and the serial number as text.
    trap_receiver receiver("createUser -e 0x80007ed904303132333435363738396162 operator " + user +
                           "authUser log operator priv\n");
    const unit_process unit(root);
    const agent_process agent(root);
    ASSERT_TRUE(receiver.ready() && unit.ready() && agent.ready());
    EXPECT_TRUE(receiver.await({"zelUnitStateChange", "zelUnitState.0 = INTEGER: present(3)"})) << receiver.seen();
    ASSERT_EQ(zelctl(root, {"press", "1"}).status, 0);
    EXPECT_TRUE(receiver.await({"zelGpiStateChange", "zelGpiState.1 = INTEGER: on(1)"})) << receiver.seen();
}

TEST(snmp_notifications, to_nobody_do_not_hold_up_the_agent)
{
    unit_root root;
    write_small_unit(root);
    write_agent_configuration(root, open_configuration() + version_3_sink + own_address() + ":9\n");
    const agent_process agent(root);
    scripted_unit unit(root);
    ASSERT_TRUE(agent.ready() && unit.await_link());
    unit.settle();
    const manager reader;
    for (int round = 0; round < 20; ++round) {
        wire_port port{};
        port.type = 1;
        port.state = round % 2;
        unit.send(7, port);
        unit.settle();
        ASSERT_EQ(reader.get("zelGpiState.1"), round % 2 != 0 ? "on" : "off") << "one question, and no second attempt";
    }
}
