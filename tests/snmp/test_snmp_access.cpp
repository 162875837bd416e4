// Who may do what, which sockets are open, and where files go.
#include "running_agent.h"
#include "scripted_unit.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>

using namespace zel::test;

namespace {

struct alone {
    unit_root root;
    std::unique_ptr<agent_process> agent;

    explicit alone(const std::string &configuration = open_configuration(), const environment &variables = {})
    {
        write_small_unit(root);
        if (configuration.empty()) std::filesystem::remove_all(root.path() + "/etc/zel/snmp");
        else write_agent_configuration(root, configuration);
        agent = std::make_unique<agent_process>(root, variables);
        EXPECT_TRUE(agent->ready());
    }
};

std::vector<std::string> user(const std::string &name, const std::string &level, const std::string &pass,
                              const std::string &privacy = "")
{
    std::vector<std::string> words{"-v3", "-u", name, "-l", level, "-a", "SHA-256", "-A", pass};
    if (!privacy.empty()) words.insert(words.end(), {"-x", "AES", "-X", privacy});
    return words;
}

bool may_read(const manager &by) { return by.get("zelUnitState.0") == "away"; }

// What every process may open: addresses of the process's own internet sockets.
std::multiset<std::string> open_sockets(pid_t pid)
{
    std::set<std::string> own;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        std::error_code gone;
        own.insert(std::filesystem::read_symlink(entry.path(), gone).string());
    }
    std::multiset<std::string> open;
    for (const char *const table : {"udp", "udp6", "tcp", "tcp6"}) {
        std::istringstream lines(read_file("/proc/" + std::to_string(pid) + "/net/" + table));
        std::string line;
        std::getline(lines, line);
        while (std::getline(lines, line)) {
            std::istringstream words(line);
            std::vector<std::string> all{std::istream_iterator<std::string>(words), {}};
            if (all.size() > 9 && own.contains("socket:[" + all[9] + "]")) open.insert(std::string(table) + " " + all[1]);
        }
    }
    return open;
}

}  // namespace

TEST(snmp_access, without_a_configuration_lets_this_machine_read_and_nobody_write)
{
    const alone a("");
    EXPECT_TRUE(may_read(manager({"-v2c", "-c", "public"})));
    EXPECT_TRUE(may_read(manager({"-v1", "-c", "public"})));
    EXPECT_FALSE(may_read(manager({"-v2c", "-c", "private"})));
    EXPECT_EQ(manager({"-v2c", "-c", "public"}).set({"zelGpiType.1", "i", "1"}), "noAccess");
    EXPECT_EQ(manager({"-v2c", "-c", "public"}).run("snmpwalk", {".1.3.6.1.6.3.15"}).out.find("usm"), std::string::npos);
}

TEST(snmp_access, with_a_configuration_is_as_that_says)
{
    const alone a("rocommunity studio 127.0.0.0/8\ncreateUser operator SHA-256 \"operator pass\" AES \"private pass\"\n"
                  "createUser viewer SHA-256 \"viewer pass\"\nrwuser operator priv\nrouser viewer auth\n");
    EXPECT_FALSE(may_read(manager({"-v2c", "-c", "public"})));
    EXPECT_TRUE(may_read(manager({"-v2c", "-c", "studio"})));
    EXPECT_TRUE(may_read(manager(user("operator", "authPriv", "operator pass", "private pass"))));
    EXPECT_TRUE(may_read(manager(user("viewer", "authNoPriv", "viewer pass"))));
    EXPECT_FALSE(may_read(manager(user("operator", "authNoPriv", "operator pass"))));
    EXPECT_FALSE(may_read(manager(user("operator", "authPriv", "wrong pass", "private pass"))));
    EXPECT_FALSE(may_read(manager(user("nobody", "authNoPriv", "viewer pass"))));
    EXPECT_EQ(manager(user("viewer", "authNoPriv", "viewer pass")).set({"zelGpiType.1", "i", "1"}), "noAccess");
}

TEST(snmp_access, of_a_user_of_version_3_changes_the_unit)
{
    const alone a;
    scripted_unit unit(a.root);
    ASSERT_TRUE(unit.await_link());
    unit.settle();
    const manager by(user("operator", "authPriv", "operator pass", "private pass"));
    EXPECT_EQ(by.get("zelUnitState.0"), "present");
    EXPECT_EQ(by.set({"zelGpiMode.1", "i", "latching"}), "inconsistentValue");
}

TEST(snmp_access, opens_nothing_but_what_is_configured)
{
    const alone a;
    const auto open = open_sockets(a.agent->process().pid());
    ASSERT_EQ(open.size(), 2u) << "the agent's, and the one that notifications leave by";
    std::istringstream parts(own_address());
    unsigned bytes[4];
    char dot;
    parts >> bytes[0] >> dot >> bytes[1] >> dot >> bytes[2] >> dot >> bytes[3];
    char address[64];
    snprintf(address, sizeof address, "udp %02X%02X%02X%02X:", bytes[3], bytes[2], bytes[1], bytes[0]);
    for (const std::string &each : open) EXPECT_TRUE(each.starts_with(address)) << each;
    snprintf(address + strlen(address), 8, "%04X", agent_port);
    EXPECT_EQ(open.count(address), 1u);
}

TEST(snmp_access, keeps_to_the_unit_s_folders_whatever_the_environment_says)
{
    const temp_folder elsewhere;
    write_file(elsewhere.path() + "/zel_snmpd.conf", "rocommunity stranger 127.0.0.0/8\n");
    const alone a(open_configuration(), {{"SNMPCONFPATH", elsewhere.path()}, {"SNMP_PERSISTENT_DIR", elsewhere.path()},
                                         {"MIBS", "ALL"}, {"MIBDIRS", elsewhere.path()}});
    EXPECT_FALSE(may_read(manager({"-v2c", "-c", "stranger"})));
    EXPECT_TRUE(may_read(manager({"-v2c", "-c", "public"})));
    const std::string kept = a.root.path() + "/var/lib/zel/snmp/zel_snmpd.conf";
    EXPECT_NE(read_file(kept).find("engineBoots"), std::string::npos);
    struct stat info{};
    ASSERT_EQ(stat((a.root.path() + "/var/lib/zel/snmp").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_EQ(read_file(a.root.path() + "/etc/zel/snmp/zel_snmpd.conf"), open_configuration()) << "it is never written to";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(elsewhere.path()), {}), 1);
}

TEST(snmp_access, counts_its_starts_also_after_a_crash)
{
    alone a;
    const auto boots = [&] {
        std::smatch found;
        const std::string text = read_file(a.root.path() + "/var/lib/zel/snmp/zel_snmpd.conf");
        return std::regex_search(text, found, std::regex("engineBoots (\\d+)")) ? std::stoi(found[1]) : -1;
    };
    EXPECT_EQ(boots(), 1);
    a.agent->process().signal(SIGKILL);
    EXPECT_EQ(a.agent->process().wait(), 128 + SIGKILL);
    a.agent = std::make_unique<agent_process>(a.root);
    EXPECT_TRUE(a.agent->ready());
    EXPECT_EQ(boots(), 2);
    EXPECT_EQ(a.agent->stop(), 0);
    EXPECT_EQ(boots(), 2);
}

TEST(snmp_access, warns_of_secrets_that_others_can_read)
{
    alone a;
    EXPECT_EQ(a.agent->stop(), 0);
    ASSERT_EQ(chmod((a.root.path() + "/etc/zel/snmp/zel_snmpd.conf").c_str(), 0644), 0);
    a.agent = std::make_unique<agent_process>(a.root);
    EXPECT_TRUE(a.agent->process().err.await("holds secrets; other users can read it (mode 644)"));
}

TEST(snmp_access, follows_a_password_that_is_changed_in_the_configuration)
{
    alone a;
    EXPECT_EQ(a.agent->stop(), 0);
    std::string configuration = open_configuration();
    configuration.replace(configuration.find("viewer pass"), 11, "second pass");
    write_agent_configuration(a.root, configuration);
    a.agent = std::make_unique<agent_process>(a.root);
    EXPECT_TRUE(a.agent->ready());
    EXPECT_TRUE(may_read(manager(user("viewer", "authNoPriv", "second pass"))));
    EXPECT_FALSE(may_read(manager(user("viewer", "authNoPriv", "viewer pass"))));
    EXPECT_TRUE(may_read(manager(user("operator", "authPriv", "operator pass", "private pass"))));
}

TEST(snmp_access, refuses_informs_that_would_stop_the_agent)
{
    const struct {
        const char *file, *options;
    } rows[] = {
        {"zel_snmpd.conf", "-v 3 -Ci -u operator"}, {"zel_snmpd.conf", "-C i -v3 -u operator"},
        {"zel_snmpd.conf", "-Ci -u operator"},       // without a version it is the third
        {"zel_snmpd.local.conf", "-Ci -v 2c -v 3 -u operator"},
    };
    for (const auto &row : rows) {
        const unit_root root;
        write_small_unit(root);
        write_file(root.path() + "/etc/zel/snmp/" + row.file,
                   "rocommunity public\n\ntrapsess " + std::string(row.options) + " 127.0.0.1:9\n");
        const run_result result = run({ZEL_SNMPD, "--root", root.path()});
        EXPECT_EQ(result.status, 1) << row.options;
        const std::string complaint = std::string(row.file) + ": line 3: Error: informs of version 3";
        EXPECT_NE(result.err.find(complaint), std::string::npos) << result.err;
    }
}

TEST(snmp_access, lets_informs_of_version_2c_be_sent)
{
    const alone a(open_configuration() + "trapsess -Ci -v 2c -c public " + own_address() + ":9\n");
    EXPECT_TRUE(may_read(manager({"-v2c", "-c", "public"})));
}

TEST(snmp_program, tells_bad_input_in_one_line)
{
    const unit_root root;
    write_small_unit(root);
    const struct {
        std::vector<std::string> words;
        int status;
        std::string text;
    } rows[] = {
        {{"--what"}, 2, "zel_snmpd: unknown argument \"--what\" (try --help)\n"},
        {{"--root"}, 2, "zel_snmpd: --root needs a folder (try --help)\n"},
        {{"--root", "/nowhere/at/all"}, 1, "zel_snmpd: /nowhere/at/all: No such file or directory\n"},
    };
    for (const auto &row : rows) {
        std::vector<std::string> words{ZEL_SNMPD};
        words.insert(words.end(), row.words.begin(), row.words.end());
        const run_result result = run(words);
        EXPECT_EQ(result.status, row.status);
        EXPECT_EQ(result.err, row.text);
    }
    EXPECT_EQ(run({ZEL_SNMPD, "--version"}).out.substr(0, 10), "zel_snmpd ");
    EXPECT_EQ(run({ZEL_SNMPD, "--help"}).out.substr(0, 16), "usage: zel_snmpd");
    EXPECT_EQ(run({ZEL_SNMPD, "--root", root.path(), "--check"}).out, root.settings() + ": no mistakes\n");
    root.write_settings(", \"snmp_agent\": {\"port\": 0, \"trap_sinks\": [{\"port\": 162}]}");
    const run_result wrong = run({ZEL_SNMPD, "--root=" + root.path()});
    EXPECT_EQ(wrong.status, 3);
    EXPECT_EQ(wrong.err, "zel_snmpd: " + root.settings() +
                             ":1: snmp_agent.port: must be a whole number from 1 to 65535, not 0\n" +
                             "zel_snmpd: " + root.settings() + ":1: snmp_agent.trap_sinks[0]: \"address\" is missing\n");
}

TEST(snmp_program, runs_once_per_unit_and_says_which_address_is_taken)
{
    const alone a;
    const run_result second = run({ZEL_SNMPD, "--root", a.root.path()});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.err.find("A server named snmp_gpio is running already"), std::string::npos) << second.err;
    const unit_root other;
    write_small_unit(other);
    const run_result taken = run({ZEL_SNMPD, "--root", other.path()});
    EXPECT_EQ(taken.status, 1);
    EXPECT_NE(taken.err.find("Cannot listen on udp:" + own_address() + ":1161"), std::string::npos) << taken.err;
}

TEST(snmp_program, ends_on_both_signals)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        alone a;
        a.agent->process().signal(signal);
        EXPECT_EQ(a.agent->process().wait(), 0);
        EXPECT_FALSE(std::filesystem::exists(a.root.path() + "/run/zel/snmp_gpio"));
    }
}

TEST(snmp_program, listens_on_an_address_of_version_6)
{
    const unit_root root;
    // No other test listens on the loopback address of version 6.
    root.write_settings(", \"snmp_agent\": {\"address\": \"::1\", \"port\": 21161}");
    agent_process agent(root);
    ASSERT_TRUE(agent.ready());
    const temp_folder scratch;
    const run_result result = run({"snmpget", "-v2c", "-c", "public", "-t", "3", "-r", "0", "-Oqv", "udp6:[::1]:21161",
                                   "zelUnitState.0"}, tool_environment(scratch.path()));
    EXPECT_EQ(result.out, "away\n") << result.err;
    EXPECT_EQ(agent.stop(), 0);
}
