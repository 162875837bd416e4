// A running unit seen through Debian's tools, every object by its name.
#include "running_agent.h"
#include "scripted_discovery.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

using namespace zel::test;

namespace {

// "zelGpiName.1" -> "GPI 1", in the tool's order.
std::vector<std::pair<std::string, std::string>> objects_in(const std::string &text)
{
    std::vector<std::pair<std::string, std::string>> objects;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const size_t equals = line.find(" = "), colon = line.find(": ", equals);
        if (equals == std::string::npos) continue;
        const size_t value = colon == std::string::npos ? equals + 3 : colon + 2;
        objects.emplace_back(line.substr(0, equals), line.substr(value));
    }
    return objects;
}

std::map<std::string, std::string> as_map(const std::string &text)
{
    const auto objects = objects_in(text);
    return {objects.begin(), objects.end()};
}

// Names of the objects that can be read, as the MIB module declares them.
std::set<std::string> readable_objects()
{
    const std::string text = read_file(std::string(ZEL_MIBS) + "/ZEL-GPIO-MIB.txt");
    const std::regex object("(zel\\w+) OBJECT-TYPE\\s+SYNTAX\\s+[^;]*?MAX-ACCESS\\s+(read-only|read-write)");
    std::set<std::string> names;
    size_t from = 0;
    std::smatch found;
    while ((from = text.find(" OBJECT-TYPE\n", from)) != std::string::npos) {
        const size_t begin = text.rfind('\n', from) + 1, end = text.find("::= {", from);
        const std::string one = text.substr(begin, end - begin);
        if (std::regex_search(one, found, object)) names.insert(found[1]);
        from = end;
    }
    return names;
}

struct running {
    unit_root root;
    std::unique_ptr<scripted_discovery> discovery;
    std::unique_ptr<unit_process> unit;
    std::unique_ptr<agent_process> agent;
    manager reader{{"-v2c", "-c", "public"}};

    running()
    {
        write_small_unit(root);
        discovery = std::make_unique<scripted_discovery>(root);
        unit = std::make_unique<unit_process>(root);
        agent = std::make_unique<agent_process>(root);
        EXPECT_TRUE(unit->ready() && agent->ready() && discovery->await_unit());
        discovery->announce("vGPO1@Studio 2");
        EXPECT_TRUE(reader.await("zelUnitState.0", "present")) << agent->process().err.seen();
        EXPECT_TRUE(reader.await("zelSourceName.1", "vGPO1@Studio 2"));
    }
};

const char *const expected_rows[] = {
    "zelGpiName.1 GPI 1", "zelGpiName.3 Physical Port 3", "zelGpiName.4 GPO 4", "zelGpiType.1 input(1)",
    "zelGpiType.3 disabled(0)", "zelGpiType.4 output(2)", "zelGpiMode.1 momentary(1)", "zelGpiMode.4 latching(0)",
    "zelGpiFunctions.1 Record",
    "zelGpiFunctionCount.1 1", "zelGpiTriggers.4 On Air", "zelGpiTriggerCount.4 1", "zelGpiActiveTriggers.4 ",
    "zelGpiActiveTriggerCount.4 0", "zelGpiState.4 off(0)", "zelGpiStale.1 false(2)",
    "zelCoughName.1 COUGH 1", "zelCoughType.1 input(1)", "zelCoughMode.1 momentary(1)", "zelCoughFunctions.1 Mute",
    "zelCoughFunctionCount.1 1", "zelCoughState.1 off(0)", "zelCoughStale.1 false(2)",
    "zelVirtualName.1 vGPI 1", "zelVirtualName.2 vGPO 2", "zelVirtualType.2 output(2)", "zelVirtualMode.1 latching(0)",
    "zelVirtualFunctions.1 ", "zelVirtualFunctionCount.1 0", "zelVirtualTriggers.2 GPI 1", "zelVirtualTriggerCount.2 1",
    "zelVirtualActiveTriggers.2 ", "zelVirtualActiveTriggerCount.2 0", "zelVirtualSource.1 ", "zelVirtualSourceValid.1 false(2)",
    "zelVirtualState.2 off(0)", "zelVirtualStale.2 false(2)",
    "zelButtonName.1 User Button 1", "zelButtonType.2 input(1)", "zelButtonMode.1 latching(0)", "zelButtonFunctions.1 ",
    "zelButtonFunctionCount.1 0", "zelButtonState.1 off(0)", "zelButtonStale.1 false(2)",
    "zelLedName.2 User LED 2", "zelLedType.1 output(2)", "zelLedTriggers.1 User Button 1", "zelLedTriggerCount.1 1",
    "zelLedActiveTriggers.1 ", "zelLedActiveTriggerCount.1 0", "zelLedState.1 off(0)", "zelLedStale.1 false(2)",
    "zelRelayName.1 Relay 1", "zelRelayTriggers.1 GPI 1", "zelRelayTriggers.2 On Air", "zelRelayTriggerCount.1 1",
    "zelRelayActiveTriggers.1 ", "zelRelayActiveTriggerCount.1 0", "zelRelayState.1 off(0)", "zelRelayStale.1 false(2)",
    "zelTriggerName.1 Eth Link Down", "zelTriggerId.1 0", "zelTriggerOutputs.6 2", "zelTriggerActiveOutputs.6 0",
    "zelTriggerName.6 GPI 1", "zelTriggerStale.1 false(2)", "zelHandlerId.1 0", "zelHandlerStale.1 false(2)",
    "zelSourceName.1 vGPO1@Studio 2",
    "zelSourceId.1 0", "zelSourceFollowers.1 0", "zelSourceStale.1 false(2)",
    "zelUnitState.0 present(3)", "zelUnitLinks.0 1", "zelUnitRefusedMessages.0 0", "zelUnitRequests.0 0",
    "zelUnitFailedRequests.0 0", "zelGpiCount.0 4", "zelCoughCount.0 1", "zelVirtualCount.0 2",
    "zelButtonCount.0 2", "zelLedCount.0 2", "zelRelayCount.0 2",
    "zelSourceCount.0 1",
};

}  // namespace

TEST(snmp_reading, shows_every_object_by_its_name)
{
    const running r;
    const auto shown = as_map(r.reader.run("snmpwalk", {"zelObjects"}).out);
    std::set<std::string> names;
    for (const auto &[name, value] : shown) names.insert(name.substr(0, name.find('.')));
    EXPECT_EQ(names, readable_objects());
    EXPECT_GT(names.size(), 80u);
    for (const std::string row : expected_rows) {
        const size_t blank = row.find(' ');
        const auto place = shown.find(row.substr(0, blank));
        ASSERT_NE(place, shown.end()) << row;
        EXPECT_EQ(place->second, row.substr(blank + 1)) << row;
    }
}

TEST(snmp_reading, is_the_same_in_bulk_and_one_by_one)
{
    const running r;
    // Counters of the agent itself move; the tables do not.
    for (const char *const table : {"zelGpiTable", "zelVirtualTable", "zelLedTable", "zelTriggerTable", "zelSourceTable"}) {
        const auto walked = objects_in(r.reader.run("snmpwalk", {table}).out);
        EXPECT_FALSE(walked.empty()) << table;
        EXPECT_EQ(walked, objects_in(r.reader.run("snmpbulkwalk", {table}, {"-Cr50"}).out)) << table;
        EXPECT_EQ(walked, objects_in(r.reader.run("snmpbulkwalk", {table}, {"-Cr3"}).out)) << table;
    }
    const auto bulk = objects_in(r.reader.run("snmpbulkget", {"zelUnitStateSince.0", "zelGpiName"}, {"-Cn1", "-Cr3"}).out);
    ASSERT_EQ(bulk.size(), 4u);
    EXPECT_EQ(bulk[0].first, "zelUnitLinks.0");
    EXPECT_EQ(bulk[3].first, "zelGpiName.3");
}

TEST(snmp_reading, of_what_does_not_exist_says_so)
{
    const running r;
    // By numbers: the tool itself refuses most names of what cannot be.
    const std::string none = "No Such Instance currently exists at this OID", name = ".1.3.6.1.4.1.32473.1.1.2.1.2";
    EXPECT_EQ(r.reader.get(name + ".1"), "GPI 1");
    for (const char *const index : {".5", ".99", ".1.1", ""}) EXPECT_EQ(r.reader.get(name + index), none) << index;
    EXPECT_EQ(r.reader.get(".1.3.6.1.4.1.32473.1.1.1.1.1"), none);
    const std::string no_object = "No Such Object available on this agent at this OID";
    EXPECT_EQ(r.reader.get(".1.3.6.1.4.1.32473.1.1.2.1.13.1"), no_object);
    EXPECT_EQ(r.reader.get(".1.3.6.1.4.1.32473.1.1.2.1.1.1"), no_object) << "the index";
}

TEST(snmp_reading, follows_the_unit)
{
    const running r;
    ASSERT_EQ(zelctl(r.root, {"event", "On Air", "on"}).status, 0);
    EXPECT_TRUE(r.reader.await("zelRelayState.2", "on"));
    EXPECT_EQ(r.reader.get("zelRelayActiveTriggers.2"), "On Air");
    EXPECT_EQ(r.reader.get("zelGpiState.4"), "on");
    EXPECT_EQ(r.reader.get("zelLedState.2"), "on");
    ASSERT_EQ(zelctl(r.root, {"press", "1"}).status, 0);
    EXPECT_TRUE(r.reader.await("zelGpiState.1", "on"));
    EXPECT_TRUE(r.reader.await("zelVirtualState.2", "on"));
    EXPECT_TRUE(r.reader.await("zelTriggerActiveOutputs.6", "2")) << "relay 1 and vGPO 2 follow GPI 1";
    ASSERT_EQ(zelctl(r.root, {"button", "1"}).status, 0);
    EXPECT_TRUE(r.reader.await("zelButtonState.1", "on"));
    EXPECT_TRUE(r.reader.await("zelLedState.1", "on"));
    ASSERT_EQ(zelctl(r.root, {"event", "On Air", "off"}).status, 0);
    EXPECT_TRUE(r.reader.await("zelRelayState.2", "off"));
    r.discovery->announce("vGPO7@Studio 3");
    EXPECT_TRUE(r.reader.await("zelSourceName.2", "vGPO7@Studio 3"));
    r.discovery->withdraw("vGPO7@Studio 3");
    EXPECT_TRUE(r.reader.await("zelSourceCount.0", "1"));
}

TEST(snmp_reading, identifies_the_agent)
{
    const running r;
    EXPECT_EQ(r.reader.run("snmpget", {".1.3.6.1.2.1.1.1.0"}, {"-Oqv"}).status, 0);
    const std::string engine = manager({"-v2c", "-c", "private"}).run("snmpget", {".1.3.6.1.6.3.10.2.1.1.0"}, {"-Oqvx"}).out;
    std::string hex;
    for (const char c : engine) {
        if (isxdigit(static_cast<unsigned char>(c))) hex += static_cast<char>(tolower(c));
    }
    std::string expected = "80007ed904";
    char digits[3];
    std::string serial = read_file(r.root.path() + "/etc/zel/serial");
    serial.resize(12);
    for (const char c : serial) {
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        expected += digits;
    }
    EXPECT_EQ(hex, expected);
}
