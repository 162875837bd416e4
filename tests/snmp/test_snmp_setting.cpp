// SETs: what each does in the unit, what the agent refuses, and a unit that refuses, is late or goes away.
#include "running_agent.h"
#include "scripted_discovery.h"
#include "scripted_unit.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>

using namespace zel::test;
using zel::json_handle;

namespace {

struct running {
    unit_root root;
    std::unique_ptr<scripted_discovery> discovery;
    std::unique_ptr<unit_process> unit;
    std::unique_ptr<agent_process> agent;
    manager writer;

    running()
    {
        write_small_unit(root);
        discovery = std::make_unique<scripted_discovery>(root);
        unit = std::make_unique<unit_process>(root);
        agent = std::make_unique<agent_process>(root);
        EXPECT_TRUE(unit->ready() && agent->ready() && discovery->await_unit());
        discovery->announce("vGPO1@Studio 2");
        EXPECT_TRUE(writer.await("zelUnitState.0", "present")) << agent->process().err.seen();
        EXPECT_TRUE(writer.await("zelSourceName.1", "vGPO1@Studio 2"));
    }
    // The unit's own log says what was asked of it.
    bool unit_says(const std::string &text) { return unit->process().err.await("snmp_ipc_cb: " + text).has_value(); }
    json_handle member(const char *list, size_t index) const
    {
        control_link link(root);
        const json_handle answer = link.ask(std::string("{\"request\": \"") + list + "\"}");
        return json_handle(json_incref(json_array_get(json_object_get(answer.get(), list), index)));
    }
};

}  // namespace

TEST(snmp_setting, changes_the_type_of_a_port)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelGpiType.3", "i", "output"}), "");
    EXPECT_TRUE(r.unit_says("Setting phys_type for gpio index 2 to 2"));
    EXPECT_EQ(r.writer.get("zelGpiType.3"), "output");
    EXPECT_EQ(r.writer.get("zelGpiName.3"), "GPO 3");
    EXPECT_EQ(text_of(r.member("ports", 2), "type"), "output");
    EXPECT_EQ(r.writer.set({"zelCoughType.1", "i", "disabled"}), "");
    EXPECT_TRUE(r.unit_says("Setting phys_type for gpio index 4 to 0"));
    EXPECT_EQ(text_of(r.member("ports", 4), "type"), "disabled");
    EXPECT_EQ(r.writer.set({"zelVirtualType.2", "i", "input"}), "");
    EXPECT_TRUE(r.unit_says("Setting phys_type for gpio index 6 to 1"));
    EXPECT_EQ(text_of(r.member("ports", 6), "type"), "input");
}

TEST(snmp_setting, of_a_button_s_type_reaches_the_led_beside_it)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelButtonType.2", "i", "disabled"}), "");
    EXPECT_TRUE(r.unit_says("Setting phys_type for gpio index 10 to 0"));
    EXPECT_EQ(r.writer.get("zelButtonType.2"), "input");
    EXPECT_EQ(r.writer.get("zelLedType.2"), "disabled");
    EXPECT_EQ(r.writer.set({"zelLedType.2", "i", "output"}), "");
    EXPECT_TRUE(r.unit_says("Setting phys_type for gpio index 10 to 2"));
    EXPECT_EQ(r.writer.get("zelLedType.2"), "output");
}

TEST(snmp_setting, of_a_button_s_functions_empties_the_led_s_triggers)
{
    running r;
    EXPECT_EQ(r.writer.get("zelLedTriggers.1"), "User Button 1");
    EXPECT_EQ(r.writer.set({"zelButtonFunctions.1", "s", "Record"}), "");
    EXPECT_TRUE(r.unit_says("Setting input function for gpio index 8 to 'Record'"));
    EXPECT_EQ(r.writer.get("zelLedTriggers.1"), "");
    EXPECT_EQ(r.writer.get("zelButtonFunctions.1"), "");
}

TEST(snmp_setting, changes_lists_of_triggers)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelGpiTriggers.4", "s", "Door,!GPI 1"}), "");
    EXPECT_TRUE(r.unit_says("Setting trigger for gpio index 3 to 'Door,!GPI 1'"));
    EXPECT_EQ(r.writer.get("zelGpiTriggers.4"), "Door,GPI 1");
    EXPECT_EQ(r.writer.get("zelGpiActiveTriggers.4"), "GPI 1") << "inverted, and the contact is open";
    EXPECT_EQ(r.writer.get("zelGpiState.4"), "on");
    EXPECT_EQ(r.writer.set({"zelVirtualTriggers.2", "s", "Door"}), "");
    EXPECT_TRUE(r.unit_says("Setting trigger for gpio index 6 to 'Door'"));
    EXPECT_EQ(r.writer.set({"zelLedTriggers.2", "s", "Door,On Air"}), "");
    EXPECT_TRUE(r.unit_says("Setting trigger for gpio index 10 to 'Door,On Air'"));
    EXPECT_EQ(r.writer.set({"zelRelayTriggers.2", "s", "Door"}), "");
    EXPECT_TRUE(r.unit_says("Setting triggers for relay index 1 to 'Door'"));
    ASSERT_EQ(zelctl(r.root, {"event", "Door", "on"}).status, 0);
    for (const char *const state : {"zelVirtualState.2", "zelLedState.2", "zelRelayState.2"}) {
        EXPECT_TRUE(r.writer.await(state, "on"));
    }
    EXPECT_EQ(r.writer.set({"zelRelayTriggers.2", "s", ""}), "");
    EXPECT_EQ(r.writer.get("zelRelayState.2"), "off");
    EXPECT_EQ(r.writer.get("zelRelayTriggerCount.2"), "0");
}

TEST(snmp_setting, of_an_input_s_functions_takes_its_own_trigger_away)
{
    running r;
    const std::pair<const char *, int> rows[] = {
        {"zelGpiFunctions.1", 0}, {"zelCoughFunctions.1", 4}, {"zelVirtualFunctions.1", 5}};
    for (const auto &[object, index] : rows) {
        EXPECT_EQ(r.writer.set({object, "s", "Record"}), "");
        EXPECT_TRUE(r.unit_says("Setting input function for gpio index " + std::to_string(index) + " to 'Record'"));
    }
    EXPECT_EQ(r.writer.get("zelCoughFunctions.1"), "Mute") << "the functions stay";
    ASSERT_EQ(zelctl(r.root, {"press", "1"}).status, 0);
    EXPECT_TRUE(r.writer.await("zelGpiState.1", "on"));
    EXPECT_EQ(r.writer.get("zelRelayState.1"), "off") << "its trigger is not there to drive the relay";
}

TEST(snmp_setting, changes_the_mode_of_a_port)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelGpiMode.1", "i", "latching"}), "");
    EXPECT_TRUE(r.unit_says("Setting input mode for gpio index 0 to 0"));
    EXPECT_EQ(r.writer.get("zelGpiMode.1"), "latching");
    EXPECT_EQ(text_of(r.member("ports", 0), "mode"), "latching");
}

TEST(snmp_setting, switches_outputs)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelGpiState.4", "i", "on", "zelVirtualState.2", "i", "on"}), "");
    EXPECT_TRUE(r.unit_says("Setting status for gpio index 3 to 1"));
    EXPECT_TRUE(r.unit_says("Setting status for gpio index 6 to 1"));
    EXPECT_EQ(r.writer.get("zelGpiState.4"), "on");
    EXPECT_EQ(r.writer.get("zelVirtualState.2"), "on");
    EXPECT_NE(zelctl(r.root, {"pins"}).out.find("104"), std::string::npos);
    EXPECT_EQ(number_of(r.member("ports", 3), "state"), 1);
}

TEST(snmp_setting, of_a_led_s_state_evaluates_it_again)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelLedState.2", "i", "on"}), "");
    EXPECT_TRUE(r.unit_says("Setting status for user led index 10 to 1"));
    EXPECT_EQ(r.writer.get("zelLedState.2"), "off");
}

TEST(snmp_setting, chooses_a_source)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelVirtualSource.1", "s", "vGPO9@Nowhere"}), "inconsistentValue");
    EXPECT_EQ(r.writer.set({"zelVirtualSource.1", "s", "vGPO1@Studio 2"}), "");
    EXPECT_TRUE(r.unit_says("Setting source for vGPO index 5 to 'vGPO1@Studio 2'"));
    EXPECT_EQ(r.writer.get("zelVirtualSource.1"), "vGPO1@Studio 2");
    EXPECT_EQ(r.writer.get("zelVirtualSourceValid.1"), "true");
    EXPECT_EQ(r.writer.get("zelSourceFollowers.1"), "1");
    EXPECT_EQ(r.writer.set({"zelVirtualSource.1", "s", ""}), "");
    EXPECT_EQ(r.writer.get("zelVirtualSource.1"), "");
}

TEST(snmp_setting, is_kept_over_restarts_of_the_unit)
{
    running r;
    EXPECT_EQ(r.writer.set({"zelVirtualSource.1", "s", "vGPO1@Studio 2"}), "");
    EXPECT_EQ(r.writer.set({"zelGpiType.3", "i", "output"}), "");
    EXPECT_EQ(r.writer.set({"zelRelayTriggers.2", "s", "Door,GPI 2"}), "");
    ASSERT_EQ(r.unit->stop(), 0);
    EXPECT_TRUE(r.writer.await("zelUnitState.0", "away"));
    r.unit = std::make_unique<unit_process>(r.root);
    EXPECT_TRUE(r.writer.await("zelUnitState.0", "present"));
    EXPECT_EQ(r.writer.get("zelVirtualSource.1"), "vGPO1@Studio 2");
    EXPECT_EQ(r.writer.get("zelGpiType.3"), "output");
    EXPECT_EQ(r.writer.get("zelRelayTriggers.2"), "Door,GPI 2");
}

struct refusal {
    std::vector<std::string> words;
    const char *reason;
};
const refusal refusals[] = {
    {{"zelGpiType.1", "i", "3"}, "wrongValue"},
    {{"zelGpiTriggers.4", "s", "0123456789012345678901234567890123456789012345678901234567890123"}, "wrongLength"},
    {{"zelGpiName.1", "s", "x"}, "notWritable"},
    {{"zelUnitState.0", "i", "1"}, "notWritable"},
    {{"zelGpiType.9", "i", "1"}, "noCreation"},
    {{"zelCoughType.1", "i", "output"}, "wrongValue"},
    {{"zelLedType.1", "i", "input"}, "wrongValue"},
    {{"zelButtonType.1", "i", "input"}, "wrongValue"},
    {{"zelGpiMode.4", "i", "latching"}, "inconsistentValue"},
    {{"zelGpiState.1", "i", "on"}, "inconsistentValue"},
    {{"zelGpiState.3", "i", "on"}, "inconsistentValue"},
    {{"zelVirtualState.1", "i", "on"}, "inconsistentValue"},
    {{"zelGpiTriggers.1", "s", "On Air"}, "inconsistentValue"},
    {{"zelGpiTriggers.4", "s", "Nobody"}, "inconsistentValue"},
    {{"zelRelayTriggers.1", "s", "!On Air"}, "inconsistentValue"},
    {{"zelGpiFunctions.4", "s", "Record"}, "inconsistentValue"},
    {{"zelGpiFunctions.1", "s", "On Air"}, "inconsistentValue"},
    {{"zelVirtualSource.2", "s", "vGPO1@Studio 2"}, "inconsistentValue"},
    {{"zelGpiMode.1", "i", "latching", "zelGpiType.2", "i", "disabled"}, "inconsistentValue"},
    {{"zelGpiState.4", "i", "on", "zelGpiMode.4", "i", "latching"}, "inconsistentValue"},
};

TEST(snmp_setting, refuses_before_anything_is_asked_of_the_unit)
{
    running r;
    for (const refusal &each : refusals) {
        EXPECT_EQ(r.writer.set(each.words), each.reason) << each.words[0] << " " << each.words[2];
    }
    // Without the MIB the tool itself lets the wrong type pass.
    const std::vector<std::string> blind{"-m", ""};
    EXPECT_EQ(r.writer.set({".1.3.6.1.4.1.32473.1.1.2.1.3.1", "s", "1"}, blind), "wrongType");
    EXPECT_EQ(r.writer.set({".1.3.6.1.4.1.32473.1.1.2.1.7.4", "i", "1"}, blind), "wrongType");
    EXPECT_EQ(r.writer.set({".1.3.6.1.4.1.32473.1.1.2.1.7.4", "u", "1"}, blind), "wrongType");
    EXPECT_EQ(r.writer.get("zelUnitRequests.0"), "0");
    EXPECT_EQ(r.writer.get("zelGpiMode.1"), "momentary");
    EXPECT_EQ(r.writer.get("zelGpiState.4"), "off");
}

TEST(snmp_setting, leaves_ports_alone_that_datagrams_drive)
{
    unit_root root;
    write_small_unit(root);
    root.write_settings(agent_settings() + small_unit_settings() + ", \"udp_commands\": {\"enabled\": true, \"address\": \"" +
                        own_address() + "\"}");
    const unit_process unit(root);
    const agent_process agent(root);
    const manager writer;
    ASSERT_TRUE(unit.ready() && agent.ready() && writer.await("zelUnitState.0", "present"));
    EXPECT_EQ(writer.set({"zelGpiState.4", "i", "on"}), "inconsistentValue");
    EXPECT_EQ(writer.set({"zelVirtualState.2", "i", "on"}), "");
}

namespace {

// The agent with a unit that does as the test says.
struct played {
    unit_root root;
    std::unique_ptr<agent_process> agent;
    std::unique_ptr<scripted_unit> unit;
    manager writer;

    played()
    {
        write_small_unit(root);
        agent = std::make_unique<agent_process>(root);
        unit = std::make_unique<scripted_unit>(root);
        EXPECT_TRUE(agent->ready() && unit->await_link());
        unit->settle();
        EXPECT_EQ(writer.get("zelUnitState.0"), "present");
    }
    std::future<std::string> start(std::vector<std::string> words)
    {
        return std::async(std::launch::async, [this, words = std::move(words)] { return writer.set(words); });
    }
};

}  // namespace

TEST(snmp_setting, waits_for_the_unit_s_answer)
{
    played p;
    auto done = p.start({"zelGpiState.1", "i", "on"});
    const auto request = p.unit->next_request();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->type, 20);
    EXPECT_EQ(request->record.index, 0);
    EXPECT_EQ(request->record.value, 1);
    EXPECT_NE(request->record.tag, 0);
    EXPECT_EQ(done.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    p.unit->answer(*request, 0);
    p.unit->settle();
    EXPECT_EQ(done.get(), "");
    EXPECT_EQ(p.writer.get("zelGpiState.1"), "on") << "the unit tells nothing of it; the agent knows what it asked for";
}

TEST(snmp_setting, reports_what_the_unit_refuses)
{
    played p;
    auto done = p.start({"zelGpiMode.2", "i", "momentary"});
    const auto request = p.unit->next_request();
    ASSERT_TRUE(request);
    p.unit->answer(*request, -1);
    p.unit->settle();
    EXPECT_EQ(done.get(), "commitFailed");
    EXPECT_EQ(p.writer.get("zelGpiMode.2"), "latching");
    EXPECT_EQ(p.writer.get("zelUnitFailedRequests.0"), "1");
}

TEST(snmp_setting, puts_back_what_was_done_when_a_part_fails)
{
    played p;
    auto done = p.start({"zelGpiState.1", "i", "on", "zelGpiMode.2", "i", "momentary"});
    const auto first = p.unit->next_request(), second = p.unit->next_request();
    ASSERT_TRUE(first && second);
    p.unit->answer(*first, 0);
    p.unit->answer(*second, -1);
    const auto undo = p.unit->next_request();
    ASSERT_TRUE(undo);
    EXPECT_EQ(undo->type, first->type);
    EXPECT_EQ(undo->record.index, first->record.index);
    EXPECT_EQ(undo->record.value, 0);
    p.unit->answer(*undo, 0);
    p.unit->settle();
    EXPECT_EQ(done.get(), "commitFailed");
    EXPECT_EQ(p.writer.get("zelGpiState.1"), "off");
}

TEST(snmp_setting, says_when_it_could_not_put_back)
{
    played p;
    auto done = p.start({"zelGpiState.1", "i", "on", "zelGpiMode.2", "i", "momentary"});
    const auto first = p.unit->next_request(), second = p.unit->next_request();
    ASSERT_TRUE(first && second);
    p.unit->answer(*first, 0);
    p.unit->answer(*second, -1);
    const auto undo = p.unit->next_request();
    ASSERT_TRUE(undo);
    p.unit->answer(*undo, -1);
    p.unit->settle();
    EXPECT_EQ(done.get(), "undoFailed");
    EXPECT_EQ(p.writer.get("zelGpiState.1"), "on");
}

TEST(snmp_setting, ends_in_an_error_when_no_answer_comes_and_drops_a_late_one)
{
    played p;
    auto done = p.start({"zelGpiState.1", "i", "on"});
    const auto request = p.unit->next_request();
    ASSERT_TRUE(request);
    EXPECT_EQ(done.get(), "(genError)");
    EXPECT_EQ(p.writer.get("zelGpiState.1"), "off") << "the agent serves while the unit is silent";
    p.unit->answer(*request, 0);
    p.unit->settle();
    EXPECT_TRUE(p.writer.await("zelGpiState.1", "on")) << "what was done late is known all the same";
    auto next = p.start({"zelGpiState.1", "i", "off"});
    const auto second = p.unit->next_request();
    ASSERT_TRUE(second);
    EXPECT_NE(second->record.tag, request->record.tag);
    p.unit->answer(*request, 0);
    p.unit->answer(*second, 0);
    p.unit->settle();
    EXPECT_EQ(next.get(), "");
    EXPECT_EQ(p.writer.get("zelGpiState.1"), "off");
}

TEST(snmp_setting, ends_in_an_error_when_the_unit_goes_meanwhile)
{
    played p;
    auto done = p.start({"zelGpiState.1", "i", "on"});
    ASSERT_TRUE(p.unit->next_request());
    p.unit.reset();
    EXPECT_EQ(done.get(), "(genError)");
    EXPECT_EQ(p.writer.get("zelUnitState.0"), "away");
    EXPECT_EQ(p.writer.set({"zelGpiState.1", "i", "on"}), "resourceUnavailable");
    EXPECT_EQ(p.writer.get("zelGpiName.1"), "GPO 1");
    EXPECT_EQ(p.writer.get("zelGpiStale.1"), "true");
}

TEST(snmp_setting, survives_answers_that_nobody_asked_for_and_messages_of_any_size)
{
    played p;
    p.unit->send(36, zel::snmpd::wire_reply{20, 0, 12345});
    const std::string bytes(65536, 'x');
    for (const size_t length : {1u, 11u, 13u, 67u, 69u, 695u, 697u, 4000u, 65536u}) {
        for (const uint8_t type : {2, 7, 11, 12, 36, 40, 255}) p.unit->send(type, bytes.data(), length);
    }
    p.unit->settle();
    EXPECT_TRUE(p.agent->process().err.await("Refusing a message of type 7 with 697 bytes instead of 696"));
    EXPECT_TRUE(p.writer.await("zelUnitRefusedMessages.0", "63"));
    EXPECT_EQ(p.writer.get("zelGpiName.1"), "GPO 1");
}

TEST(snmp_setting, lets_no_stranger_play_the_unit)
{
    played p;
    scripted_unit stranger(p.root, "stranger");
    ASSERT_TRUE(stranger.await_link());
    EXPECT_TRUE(p.agent->process().err.await("Ending the link of 'stranger'"));
    EXPECT_EQ(p.writer.get("zelUnitState.0"), "present");
    EXPECT_EQ(p.writer.get("zelUnitLinks.0"), "1");
}
