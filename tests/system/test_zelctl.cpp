// The command line tool: what it prints, and its exit statuses.
#include "common/local_socket.h"
#include "running_unit.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/socket.h>

using namespace zel;
using namespace zel::test;

namespace {

class studio_ctl : public testing::Test {
protected:
    studio_ctl()
    {
        write_file(root.config(), studio_config());
        unit.emplace(root);
    }
    void SetUp() override { ASSERT_TRUE(unit->ready()) << unit->process().err.rest(); }
    void TearDown() override { EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest(); }

    run_result ctl(std::vector<std::string> words) { return zelctl(root, std::move(words)); }
    child_process watch(std::vector<std::string> words)
    {
        words.insert(words.begin(), {ZEL_CTL, "--root", root.path(), "watch"});
        child_process child(words);
        EXPECT_EQ(child.err.next(), "zelctl: watching");
        return child;
    }

    unit_root root{studio_settings()};
    std::optional<unit_process> unit;
};

}  // namespace

TEST_F(studio_ctl, one_press_shows_handler_event_and_relay)
{
    child_process watching = watch({"--count", "4"});
    EXPECT_EQ(ctl({"press", "1"}).status, 0);
    EXPECT_EQ(watching.out.rest(),
              "pin 1 pressed (GPI 1)\nhandler Record on (by GPI 1)\nevent GPI 1 on\npin 201 on (Relay 1)\n");
    EXPECT_EQ(watching.wait(), 0);
}

TEST_F(studio_ctl, watch_ends_on_signals_time_and_count)
{
    for (const int number : {SIGINT, SIGTERM}) {
        child_process watching = watch({});
        watching.signal(number);
        EXPECT_EQ(watching.wait(), 0);
    }
    EXPECT_EQ(watch({"--for", "0"}).wait(), 0);
    EXPECT_EQ(watch({"--for=0", "--count=1"}).wait(), 5);
}

TEST_F(studio_ctl, watch_as_json_is_one_document_per_line)
{
    child_process watching = watch({"--count", "2", "--json", "--calls"});
    EXPECT_EQ(ctl({"event", "Phone Ringing", "on"}).status, 0);
    for (int i = 0; i < 2; ++i) {
        const std::string line = watching.out.next().value_or("");
        const json_handle change(json_loadb(line.data(), line.size(), 0, nullptr));
        EXPECT_FALSE(text_of(change, "change").empty()) << line;
    }
    EXPECT_EQ(watching.wait(), 0);
}

TEST_F(studio_ctl, a_watch_with_times_has_them_in_front)
{
    child_process watching = watch({"--count", "1", "--time"});
    EXPECT_EQ(ctl({"event", "Door Bell", "on"}).status, 0);
    const std::string line = watching.out.next().value_or("");
    ASSERT_GT(line.size(), 13U);
    EXPECT_EQ(line.substr(12), " event Door Bell on") << line;
    EXPECT_EQ(line[2], ':');
    EXPECT_EQ(line[8], '.');
}

TEST_F(studio_ctl, every_listing_is_a_table_and_a_json_document)
{
    for (const char *command : {"status", "unit", "pins", "ports", "relays", "handlers", "triggers", "states", "grid"}) {
        const run_result table = ctl({command}), document = ctl({command, "--json"});
        EXPECT_EQ(table.status, 0) << command << table.err;
        EXPECT_FALSE(table.out.empty()) << command;
        EXPECT_EQ(table.out.find(" \n"), std::string::npos) << command;
        const json_handle parsed(json_loadb(document.out.data(), document.out.size(), 0, nullptr));
        EXPECT_TRUE(is_ok(parsed)) << command;
    }
}

TEST_F(studio_ctl, tables_show_what_the_unit_has)
{
    ASSERT_EQ(ctl({"press", "GPI 4"}).status, 0);
    const std::string handlers = ctl({"handlers"}).out, ports = ctl({"ports"}).out, triggers = ctl({"triggers"}).out;
    EXPECT_NE(handlers.find("3   Mic Live      on     yes      GPI 4    On Air\n"), std::string::npos) << handlers;
    EXPECT_NE(ports.find("0      GPI 1             physical     input     momentary  off\n"), std::string::npos) << ports;
    EXPECT_NE(ports.find("17     COUGH 2           cough        input     momentary  off\n"), std::string::npos) << ports;
    EXPECT_NE(ports.find("18     vGPO 1            virtual      output               off\n"), std::string::npos) << ports;
    EXPECT_NE(ports.find("20     vGPI 3            virtual      input                off    -\n"), std::string::npos) << ports;
    EXPECT_NE(ports.find("27     User LED 1        user_led     output               off\n"), std::string::npos) << ports;
    EXPECT_NE(triggers.find("0   Eth Link Down   built-in  off    yes\n"), std::string::npos) << triggers;
    EXPECT_NE(triggers.find("GPI 4           port      on\n"), std::string::npos) << triggers;
}

TEST_F(studio_ctl, connections_are_made_listed_and_taken_away)
{
    const std::pair<const char *, const char *> pairs[] = {
        {"GPI 3", "Record"},     {"GPI 3", "Relay 7"},     {"Fader Start 2", "vGPO 2"}, {"User Button 2", "Stop"},
        {"COUGH 1", "Relay 7"},  {"vGPI 3", "Play"},       {"Fader Start 2", "LED 3"},  {"AC Power Off", "Relay 8"},
        {"Fader Start 1", "Play"}, {"GPI 2", "GPO 9"},
    };
    for (const auto &[input, output] : pairs) {
        const run_result made = ctl({"connect", input, output, "--invert"});
        EXPECT_EQ(made.status, 0) << input << " - " << output << ": " << made.err;
    }
    const std::string grid = ctl({"grid"}).out;
    EXPECT_NE(grid.find("GPI 3          Record        yes     on\n"), std::string::npos) << grid;
    EXPECT_NE(grid.find("User Button 2  Stop          yes     on\n"), std::string::npos) << grid;
    EXPECT_NE(grid.find("Fader Start 2  User LED 3    yes     on\n"), std::string::npos) << grid;
    for (const auto &[input, output] : pairs) {
        const run_result gone = ctl({"disconnect", input, output});
        EXPECT_EQ(gone.status, 0) << input << " - " << output << ": " << gone.err;
        EXPECT_EQ(ctl({"disconnect", input, output}).status, 1);
    }
    EXPECT_EQ(ctl({"grid"}).out.find("Fader Start"), std::string::npos);
}

TEST_F(studio_ctl, ports_change_their_type_and_mode)
{
    EXPECT_EQ(ctl({"set-port", "GPI 8", "input", "--mode", "latching"}).status, 0);
    EXPECT_NE(ctl({"ports"}).out.find("7      GPI 8             physical     input     latching"), std::string::npos);
    EXPECT_EQ(ctl({"set-port", "GPI 8", "input", "--mode", "momentary"}).status, 0);
    EXPECT_NE(ctl({"ports"}).out.find("7      GPI 8             physical     input     momentary"), std::string::npos);
    EXPECT_EQ(ctl({"set-port", "GPI 8", "output"}).status, 0);
    EXPECT_NE(ctl({"ports"}).out.find("7      GPO 8             physical     output"), std::string::npos);
    EXPECT_EQ(ctl({"set-port", "GPI 8", "disabled"}).status, 0);
    EXPECT_NE(ctl({"ports"}).out.find("7      Physical Port 8   physical     disabled"), std::string::npos);
    EXPECT_EQ(ctl({"set-port", "COUGH 1", "output"}).err, "zelctl: a cough port has no output pin\n");
    EXPECT_EQ(ctl({"set-port", "User LED 1", "input"}).status, 1);
    EXPECT_EQ(ctl({"set-port", "vGPI 5", "input"}).status, 0);
    EXPECT_NE(ctl({"ports"}).out.find("22     vGPI 5"), std::string::npos);
}

TEST_F(studio_ctl, a_refusal_is_one_line_and_status_1)
{
    const run_result refusal = ctl({"press", "99"});
    EXPECT_EQ(refusal.status, 1);
    EXPECT_EQ(refusal.out, "");
    EXPECT_EQ(refusal.err, "zelctl: pin 99 is the input of no port\n");
    const run_result noted = ctl({"press", "8"});
    EXPECT_EQ(noted.status, 0);
    EXPECT_EQ(noted.err, "zelctl: note: the port is not set to be an input\n");
}

TEST_F(studio_ctl, wrong_command_lines_have_status_2)
{
    const std::pair<std::vector<std::string>, const char *> rows[] = {
        {{}, "a command is missing (try --help)"},
        {{"dance"}, "there is no command \"dance\""},
        {{"press"}, "usage: zelctl press PIN"},
        {{"press", "1", "2"}, "usage: zelctl press PIN"},
        {{"press", "1", "--hard"}, "press has no option \"--hard\""},
        {{"pulse", "1", "--hold", "long"}, "--hold must be a whole number from 0 to 60000, not \"long\""},
        {{"pulse", "1", "--hold"}, "--hold needs a value"},
        {{"connect", "1", "2", "--invert=1"}, "connect has no option \"--invert=1\""},
        {{"button", "zero"}, "the button must be a whole number from 1 to 2147483647, not \"zero\""},
        {{"event", "On Air", "maybe"}, "the event's state must be on or off, not \"maybe\""},
        {{"handler", "Record", "on"}, "a handler can be toggled, not \"on\""},
        {{"event", "\xff", "on"}, "an argument is not UTF-8 text"},
        {{"--root"}, "--root needs a folder"},
    };
    for (const auto &[words, text] : rows) {
        const run_result result = ctl(words);
        EXPECT_EQ(result.status, 2) << text;
        EXPECT_EQ(result.err, std::string("zelctl: ") + text + "\n");
    }
    EXPECT_EQ(ctl({"watch", "--count", "0"}).status, 2);
}

TEST(zelctl, tells_that_no_unit_is_running)
{
    const unit_root root;
    const run_result result = zelctl(root, {"status"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "zelctl: no unit is running here (" + root.socket() + ")\n");
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    unit.process().signal(SIGKILL);
    EXPECT_EQ(unit.process().wait(), 128 + SIGKILL);
    EXPECT_EQ(zelctl(root, {"status"}).status, 3);  // its socket is still there
}

TEST(zelctl, a_watch_ends_with_the_unit)
{
    const unit_root root;
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    child_process watching({ZEL_CTL, "--root", root.path(), "watch"});
    EXPECT_EQ(watching.err.next(), "zelctl: watching");
    EXPECT_EQ(unit.stop(), 0);
    EXPECT_EQ(watching.err.next(), "zelctl: the unit has ended");
    EXPECT_EQ(watching.wait(), 3);
}

TEST(zelctl, help_and_version_need_no_unit)
{
    EXPECT_EQ(run({ZEL_CTL, "--version"}).status, 0);
    const run_result help = run({ZEL_CTL, "--help"});
    EXPECT_EQ(help.status, 0);
    for (const char *word : {"status", "press PIN", "watch", "set-port", "Exit status"}) {
        EXPECT_NE(help.out.find(word), std::string::npos) << word;
    }
}

TEST(zelctl, an_answer_that_is_no_json_is_told)
{
    const unit_root root;
    write_file(root.path() + "/run/zel/x", "");
    const unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    local_socket_address address;
    ASSERT_TRUE(make_local_socket_address(root.socket(), address));
    ASSERT_EQ(bind(listener.get(), address.get(), address.length), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    child_process asking({ZEL_CTL, "--root", root.path(), "unit"});
    const unique_fd client(accept(listener.get(), nullptr, nullptr));
    ASSERT_EQ(send(client.get(), "what?\n", 6, MSG_NOSIGNAL), 6);
    EXPECT_EQ(asking.err.next(), "zelctl: the unit's answer cannot be understood");
    EXPECT_EQ(asking.wait(), 4);
}
