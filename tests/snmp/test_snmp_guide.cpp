// The examples of the guide give what it says they give.
#include "running_agent.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

using namespace zel::test;

namespace {

struct example {
    std::string command, output;
};

// Indented lines with "$ " are commands; the indented lines behind them are what they print.
std::vector<example> examples_in(const std::string &text)
{
    std::vector<example> all;
    std::istringstream lines(text);
    bool behind_command = false;
    for (std::string line; std::getline(lines, line);) {
        const bool indented = line.starts_with("    ");
        if (indented && line.substr(4).starts_with("$ ")) all.push_back({line.substr(6), ""});
        else if (indented && behind_command) all.back().output += line.substr(4) + "\n";
        behind_command = indented && (behind_command || line.substr(4).starts_with("$ "));
    }
    return all;
}

// The block behind a line that holds `mark`, without its indentation.
std::string block_behind(const std::string &text, const std::string &mark)
{
    std::istringstream lines(text.substr(text.find(mark)));
    std::string block, line;
    while (std::getline(lines, line)) {
        if (line.starts_with("    ")) block += line.substr(4) + "\n";
        else if (!block.empty()) break;
    }
    return block;
}

void replace_all(std::string &text, const std::string &from, const std::string &to)
{
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) text.replace(at, from.size(), to);
}

struct studio {
    unit_root root;
    std::unique_ptr<unit_process> unit;
    std::unique_ptr<agent_process> agent;
    temp_folder scratch;

    explicit studio(const std::string &configuration)
    {
        root.write_settings(agent_settings() + studio_settings());
        write_file(root.config(), studio_config());
        if (!configuration.empty()) write_agent_configuration(root, configuration);
        unit = std::make_unique<unit_process>(root);
        agent = std::make_unique<agent_process>(root);
        EXPECT_TRUE(unit->ready() && agent->ready());
        EXPECT_TRUE(manager({"-v2c", "-c", "public"}).await("zelUnitState.0", "present"));
    }
    run_result run_example(std::string command) const
    {
        replace_all(command, "/tmp/studio", root.path());
        replace_all(command, "127.0.0.1:1161", own_address() + ":" + std::to_string(agent_port));
        replace_all(command, "zelctl", ZEL_CTL);
        return run({"/bin/sh", "-c", command}, tool_environment(scratch.path()));
    }
};

void run_all(const studio &unit, const std::string &text, size_t at_least)
{
    const auto examples = examples_in(text);
    EXPECT_GE(examples.size(), at_least);
    for (const example &each : examples) {
        const run_result result = unit.run_example(each.command);
        EXPECT_EQ(result.out, each.output) << each.command << "\n" << result.err;
    }
}

}  // namespace

TEST(snmp_guide, has_examples_that_work_out_of_the_box)
{
    const std::string guide = read_file(ZEL_DOCS "/snmp.md");
    run_all(studio(""), guide.substr(0, guide.find("## Who may do what")), 5);
}

TEST(snmp_guide, has_a_configuration_and_examples_that_work_with_it)
{
    const std::string guide = read_file(ZEL_DOCS "/snmp.md");
    run_all(studio(block_behind(guide, "## Who may do what")), guide.substr(guide.find("## Changing")), 4);
}

// No writable object, no notification and no setting is left out.
TEST(snmp_guide, speaks_of_everything_that_the_mib_offers)
{
    const std::string guide = read_file(ZEL_DOCS "/snmp.md"), mib = read_file(ZEL_MIBS "/ZEL-GPIO-MIB.txt");
    size_t writable = 0, notified = 0;
    for (size_t at = 0; (at = mib.find("MAX-ACCESS  read-write", at)) != std::string::npos; ++at, ++writable) {
        const size_t end = mib.rfind(" OBJECT-TYPE", at), begin = mib.rfind('\n', end) + 1;
        EXPECT_NE(guide.find("`" + mib.substr(begin, end - begin) + "`"), std::string::npos) << mib.substr(begin, end - begin);
    }
    for (size_t at = 0; (at = mib.find(" NOTIFICATION-TYPE\n", at)) != std::string::npos; ++at, ++notified) {
        const size_t begin = mib.rfind('\n', at) + 1;
        EXPECT_NE(guide.find("`" + mib.substr(begin, at - begin) + "`"), std::string::npos) << mib.substr(begin, at - begin);
    }
    EXPECT_EQ(writable, 18u);
    EXPECT_EQ(notified, 10u);
}
