// Start, end, and what a unit does about another one, a dead one, or a damaged configuration.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

using namespace zel;
using namespace zel::test;

namespace {

constexpr const char *two_ports = R"(, "virtual_count": 1, "pins": [{"in_pin": 1, "out_pin": 101}, {"in_pin": 2, "out_pin": 102}],
    "relays": {"base_pin": 201, "count": 2}, "handlers": [{"name": "Record"}], "triggers": ["On Air"])";

mode_t mode_of(const std::string &path)
{
    struct stat status{};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

}  // namespace

TEST(unit_life, starts_and_ends_on_sigterm_leaving_no_socket)
{
    const unit_root root(two_ports);
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
    EXPECT_EQ(mode_of(root.socket()), 0600U);
    EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest();
    EXPECT_FALSE(std::filesystem::exists(root.socket()));
}

TEST(unit_life, ends_on_sigint)
{
    const unit_root root(two_ports);
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    unit.process().signal(SIGINT);
    EXPECT_EQ(unit.process().wait(), 0) << unit.process().err.rest();
}

TEST(unit_life, a_second_unit_on_the_same_root_is_refused_with_one_line)
{
    const unit_root root(two_ports);
    unit_process first(root);
    ASSERT_TRUE(first.ready());
    const run_result second = run({ZEL_UNIT, "--root", root.path()});
    EXPECT_EQ(second.status, 1);
    EXPECT_NE(second.err.find("another unit is running on this root (process " + std::to_string(first.process().pid()) + ")"),
              std::string::npos) << second.err;
    EXPECT_EQ(std::ranges::count(second.err, '\n'), 1) << second.err;
    EXPECT_TRUE(is_ok(control_link(root).ask(R"({"request":"unit"})")));  // the first one is not disturbed
    EXPECT_EQ(first.stop(), 0);
}

TEST(unit_life, the_socket_of_a_killed_unit_is_replaced)
{
    const unit_root root(two_ports);
    {
        unit_process killed(root);
        ASSERT_TRUE(killed.ready());
        killed.process().signal(SIGKILL);
        EXPECT_EQ(killed.process().wait(), 128 + SIGKILL);
    }
    ASSERT_TRUE(std::filesystem::exists(root.socket()));
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
    EXPECT_TRUE(is_ok(control_link(root).ask(R"({"request":"unit"})")));
    EXPECT_EQ(unit.stop(), 0);
}

TEST(unit_life, a_root_deeper_than_a_socket_address_works)
{
    const unit_root root(two_ports, "/" + std::string(100, 'a') + "/" + std::string(100, 'b'));
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
    const run_result asked = zelctl(root, {"unit"});
    EXPECT_EQ(asked.status, 0) << asked.err;
    EXPECT_NE(asked.out.find(root.path()), std::string::npos);
    EXPECT_EQ(unit.stop(), 0);
}

TEST(unit_life, two_units_run_side_by_side)
{
    const unit_root left(two_ports), right;
    write_file(right.settings(), std::string(R"({"servers": {"ember": {"address": ")") + own_address() +
                                     R"(", "port": 9001}, "web": {"address": ")" + own_address() +
                                     R"(", "port": 8081}})" + two_ports + "}");
    unit_process first(left), second(right);
    ASSERT_TRUE(first.ready() && second.ready());
    control_link to_first(left), to_second(right);
    EXPECT_TRUE(is_ok(to_first.ask(R"({"request":"event","trigger":"On Air","state":1})")));
    const auto on_air = [](control_link &link) {
        const json_handle answer = link.ask(R"({"request":"triggers"})");
        const json_t *const list = json_object_get(answer.get(), "triggers");
        for (size_t i = 0; i < json_array_size(list); ++i) {
            const json_t *const each = json_array_get(list, i);
            if (std::string("On Air") == json_string_value(json_object_get(each, "name"))) {
                return json_is_true(json_object_get(each, "state"));
            }
        }
        return false;
    };
    EXPECT_TRUE(on_air(to_first));
    EXPECT_FALSE(on_air(to_second));
    EXPECT_EQ(first.stop(), 0);
    EXPECT_TRUE(is_ok(to_second.ask(R"({"request":"unit"})")));
    EXPECT_EQ(second.stop(), 0);
}

TEST(unit_life, runs_without_a_tree_when_the_port_of_the_provider_is_taken)
{
    const unit_root first(two_ports), second(two_ports);  // one address and port for both
    unit_process with_tree(first), without(second);
    ASSERT_TRUE(with_tree.ready() && without.ready());
    const auto ember_open = [](const unit_root &root) {
        const json_handle answer = control_link(root).ask(R"({"request":"unit"})");
        return json_is_true(json_object_get(json_object_get(json_object_get(answer.get(), "unit"), "ember"), "open"));
    };
    EXPECT_TRUE(ember_open(first));
    EXPECT_FALSE(ember_open(second));
    EXPECT_TRUE(is_ok(control_link(second).ask(R"({"request":"event","trigger":"On Air","state":1})")));
    EXPECT_EQ(without.stop(), 0);
    EXPECT_NE(without.process().err.rest().find("the unit runs without its tree"), std::string::npos);
    EXPECT_EQ(with_tree.stop(), 0);
}

TEST(unit_life, runs_without_virtual_ports_and_without_ports)
{
    for (const char *const settings : {R"(, "pins": [{"in_pin": 1, "out_pin": 101}], "user_buttons": 1)", ""}) {
        const unit_root root(settings);
        unit_process unit(root);
        ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
        EXPECT_EQ(zelctl(root, {"status"}).status, 0);
        EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest();
    }
}

TEST(unit_life, sighup_opens_the_log_anew)
{
    const unit_root root(two_ports);
    const std::string log = root.path() + "/unit.log", rotated = log + ".1";
    unit_process unit(root, {{"ZEL_LOG_FILE", "/unit.log"}});  // below the root
    ASSERT_TRUE(unit.ready());
    std::filesystem::rename(log, rotated);
    unit.process().signal(SIGHUP);
    // An answer comes after the signal was taken: the two wait for the same loop, and signals are looked at first.
    control_link link(root);
    EXPECT_TRUE(is_ok(link.ask(R"({"request":"event","trigger":"On Air","state":1})")));
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_NE(read_file(rotated).find("is ready"), std::string::npos);
    EXPECT_EQ(read_file(rotated).find("The log was opened anew"), std::string::npos);
    EXPECT_NE(read_file(log).find("The log was opened anew"), std::string::npos);
    EXPECT_NE(read_file(log).find("Ending on signal 15"), std::string::npos);
}

TEST(unit_life, another_user_is_turned_away_even_where_the_files_would_let_him_in)
{
    if (getuid() != 0) GTEST_SKIP() << "only root can become another user";
    const unit_root root(two_ports);
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    for (const char *const folder : {"", "/run", "/run/zel"}) ASSERT_EQ(chmod((root.path() + folder).c_str(), 0755), 0);
    ASSERT_EQ(chmod(root.socket().c_str(), 0666), 0);
    const pid_t other = fork();
    if (other == 0) {
        constexpr uid_t nobody = 65534;
        if (setuid(nobody) != 0) _exit(2);
        control_link link(root);
        _exit(link.connected() && link.line() == R"({"ok":false,"error":"this is another user's unit"})" ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(is_ok(control_link(root).ask(R"({"request":"unit"})")));
    EXPECT_EQ(unit.stop(), 0);
}

TEST(unit_life, a_restart_keeps_the_wiring)
{
    const unit_root root(two_ports);
    {
        unit_process unit(root);
        ASSERT_TRUE(unit.ready());
        EXPECT_EQ(zelctl(root, {"set-port", "GPI 1", "input", "--mode", "momentary"}).status, 0);
        EXPECT_EQ(zelctl(root, {"connect", "GPI 1", "Record"}).status, 0);
        EXPECT_EQ(zelctl(root, {"connect", "GPI 1", "Relay 1"}).status, 0);
        EXPECT_EQ(zelctl(root, {"connect", "On Air", "Record", "--invert"}).status, 0);
        EXPECT_EQ(zelctl(root, {"connect", "On Air", "GPO 2"}).status, 0);
        EXPECT_EQ(unit.stop(), 0);
    }
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    const run_result grid = zelctl(root, {"grid"});
    EXPECT_EQ(grid.out,
              "INPUT   OUTPUT   INVERT  STATE\n"
              "GPI 1   Record           off\n"
              "On Air  GPO 2            off\n"
              "GPI 1   Relay 1          off\n"
              "On Air  Record   yes     on\n");
    EXPECT_EQ(unit.stop(), 0);
}

TEST(unit_life, a_damaged_configuration_is_kept_and_the_last_good_copy_is_used)
{
    const unit_root root(two_ports);
    for (const char *const mode : {"momentary", "latching"}) {  // twice, so that there is a good copy beside the file
        unit_process unit(root);
        ASSERT_TRUE(unit.ready());
        EXPECT_EQ(zelctl(root, {"set-port", "GPI 1", "input", "--mode", mode}).status, 0);
        EXPECT_EQ(unit.stop(), 0);
    }
    const std::string damaged = read_file(root.config()).substr(0, 60) + "\n#!";
    write_file(root.config(), damaged);
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
    const json_handle answer = control_link(root).ask(R"({"request":"ports"})");
    const json_t *const first = json_array_get(json_object_get(answer.get(), "ports"), 0);
    EXPECT_STREQ(json_string_value(json_object_get(first, "type")), "input");
    EXPECT_EQ(zelctl(root, {"connect", "On Air", "Relay 2"}).status, 0);
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_NE(unit.process().err.rest().find("config.json"), std::string::npos);
    bool kept = false;
    for (const auto &entry : std::filesystem::directory_iterator(std::filesystem::path(root.config()).parent_path())) {
        kept |= read_file(entry.path()) == damaged;
    }
    EXPECT_TRUE(kept);
    EXPECT_NE(read_file(root.config()).find("On Air"), std::string::npos);
}

TEST(unit_life, a_damaged_configuration_without_a_copy_keeps_the_unit_from_starting)
{
    const unit_root root(two_ports);
    write_file(root.config(), "{\"gpio\": ");
    const run_result result = run({ZEL_UNIT, "--root", root.path()});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("The unit cannot start: its ports could not be set up"), std::string::npos) << result.err;
    EXPECT_EQ(read_file(root.config()), "{\"gpio\": ");
}

TEST(unit_life, the_serial_number_is_made_once)
{
    const unit_root root(two_ports);
    std::string first;
    for (int start = 0; start < 2; ++start) {
        unit_process unit(root);
        ASSERT_TRUE(unit.ready());
        EXPECT_EQ(unit.stop(), 0);
        const std::string serial = read_file(root.path() + "/etc/zel/serial");
        EXPECT_EQ(serial.size(), 13U);
        if (start == 0) first = serial;
        EXPECT_EQ(serial, first);
    }
}

TEST(new_unit_script, makes_a_unit_that_runs_and_never_overwrites_one)
{
    const temp_folder folder;
    const std::string root = folder.path() + "/studio";
    const run_result made = run({"sh", ZEL_SCRIPTS "/new_unit.sh", root, "9100", "8100"});
    EXPECT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(run({ZEL_UNIT, "--root", root, "--check"}).status, 0);
    EXPECT_EQ(read_file(root + "/mnt/data/config/config.json"), studio_config());
    const std::string settings = read_file(root + "/etc/zel/unit.json");
    EXPECT_NE(settings.find("\"port\": 9100"), std::string::npos);
    EXPECT_NE(settings.find("\"port\": 8100"), std::string::npos);
    EXPECT_NE(settings.find("\"port\": 5010"), std::string::npos);
    const run_result again = run({"sh", ZEL_SCRIPTS "/new_unit.sh", root});
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.err.find("is a unit already"), std::string::npos);
    EXPECT_EQ(read_file(root + "/etc/zel/unit.json"), settings);
    EXPECT_EQ(run({"sh", ZEL_SCRIPTS "/new_unit.sh", folder.path() + "/b", "port"}).status, 2);
    EXPECT_EQ(run({"sh", ZEL_SCRIPTS "/new_unit.sh"}).status, 2);
    for (const char *const address : {"192.0.2.1", "127.0.0", "127.0.0.1\"", "127..0.1", "localhost"}) {
        EXPECT_EQ(run({"sh", ZEL_SCRIPTS "/new_unit.sh", folder.path() + "/b", "9100", "8100", address}).status, 2) << address;
    }
    EXPECT_EQ(run({"sh", ZEL_SCRIPTS "/new_unit.sh", folder.path() + "/b", "9100", "8100", "127.0.0.9", "a\"b"}).status, 2);
    const std::string named = folder.path() + "/c";
    ASSERT_EQ(run({"sh", ZEL_SCRIPTS "/new_unit.sh", named, "9100", "8100", "127.0.0.9", "Studio 9"}).status, 0);
    EXPECT_EQ(run({ZEL_UNIT, "--root", named, "--check"}).status, 0);
    EXPECT_NE(read_file(named + "/etc/zel/unit.json").find("\"ember\": {\"address\": \"127.0.0.9\", \"port\": 9100}"), std::string::npos);
    EXPECT_NE(read_file(named + "/etc/zel/unit.json").find("\"friendly_name\": \"Studio 9\""), std::string::npos);
}
