// Programs run when a handler changes. Each test's script writes to a named pipe, which tells its runs one by one.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace zel;
using namespace zel::test;

namespace {

class commanded : public testing::Test {
protected:
    // `script`: run by /bin/sh with the pipe as its first argument.
    void start(const std::string &script)
    {
        write_file(program, "#!/bin/sh\n" + script);
        ASSERT_EQ(chmod(program.c_str(), 0755), 0);
        ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
        // Open for writing too, so that the stream does not end between two runs.
        told = line_reader(unique_fd(open(pipe.c_str(), O_RDWR | O_CLOEXEC)));
        root.write_settings(R"(, "virtual_count": 1, "pins": [{"in_pin": 1, "out_pin": 101}],
                            "handlers": [{"name": "Mic Live", "command": [")" + program + "\", \"" + pipe +
                            R"(", "two words", "$HOME"]}])");
        unit.emplace(root, environment{{"ZEL_STATE", "from outside"}});
        ASSERT_TRUE(unit->ready()) << unit->process().err.rest();
        link.emplace(root);
    }
    void toggle() { ASSERT_TRUE(is_ok(link->ask(R"({"request":"toggle","handler":"Mic Live"})"))); }

    unit_root root;
    std::string program = root.path() + "/program", pipe = root.path() + "/pipe";
    line_reader told;
    std::optional<unit_process> unit;
    std::optional<control_link> link;
};

}  // namespace

TEST_F(commanded, the_program_gets_its_arguments_and_what_happened)
{
    start("echo \"$2|$3|$#|$ZEL_HANDLER|$ZEL_HANDLER_ID|$ZEL_STATE|$ZEL_SOURCE|$ZEL_CONTEXT|$ZEL_ROOT\" > \"$1\"\n");
    ASSERT_EQ(zelctl(root, {"set-port", "GPI 1", "input", "--mode", "momentary"}).status, 0);
    ASSERT_EQ(zelctl(root, {"connect", "GPI 1", "Mic Live"}).status, 0);
    ASSERT_TRUE(is_ok(link->ask(R"({"request":"press","pin":1})")));
    EXPECT_EQ(told.next(), "two words|$HOME|3|Mic Live|0|1|0|1|" + root.path());
    ASSERT_TRUE(is_ok(link->ask(R"({"request":"release","pin":1})")));
    EXPECT_EQ(told.next(), "two words|$HOME|3|Mic Live|0|0|0|1|" + root.path());
    EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest();
}

TEST_F(commanded, the_program_has_none_of_the_unit_s_descriptors_signals_or_input)
{
    start("{ ls /proc/self/fd | wc -l; sed -n 's/^Sig\\(Blk\\|Ign\\):\\t//p' /proc/self/status; readlink /proc/self/fd/0; } "
          "> \"$1\"\n");
    toggle();
    EXPECT_EQ(told.next(), "4");  // of ls itself: its three and the folder that it reads
    constexpr unsigned long ordinary = 0x7fffffff;  // the C library keeps two signals above for itself
    for (const char *const which : {"blocked", "ignored"}) {
        EXPECT_EQ(std::stoul(told.next().value_or("1"), nullptr, 16) & ordinary, 0U) << which;
    }
    EXPECT_EQ(told.next(), "/dev/null");
    EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest();
}

TEST_F(commanded, while_it_runs_only_the_latest_state_is_kept)
{
    start("echo \"begin $ZEL_STATE\" > \"$1\"\nread answer < \"$1.go\"\necho \"end $ZEL_STATE\" > \"$1\"\n");
    ASSERT_EQ(mkfifo((pipe + ".go").c_str(), 0600), 0);
    const unique_fd go(open((pipe + ".go").c_str(), O_RDWR | O_CLOEXEC));
    toggle();
    EXPECT_EQ(told.next(), "begin 1");
    for (int i = 0; i < 5; ++i) toggle();  // ends in state 0; five changes, one more run
    ASSERT_EQ(write(go.get(), "\n", 1), 1);
    EXPECT_EQ(told.next(), "end 1");
    EXPECT_EQ(told.next(), "begin 0");
    toggle();
    toggle();  // back where the running one is: nothing more to do
    ASSERT_EQ(write(go.get(), "\n", 1), 1);
    EXPECT_EQ(told.next(), "end 0");
    toggle();
    EXPECT_EQ(told.next(), "begin 1");
    ASSERT_EQ(write(go.get(), "\n", 1), 1);
    EXPECT_EQ(told.next(), "end 1");
    EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest();
}

TEST_F(commanded, a_running_program_does_not_hold_up_the_unit_and_is_ended_with_it)
{
    start("trap 'echo ended > \"$1\"; exit 0' TERM\necho begin > \"$1\"\nwhile :; do sleep 1 & wait $!; done\n");
    toggle();
    EXPECT_EQ(told.next(), "begin");
    EXPECT_TRUE(is_ok(link->ask(R"({"request":"unit"})")));
    EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest();
    EXPECT_EQ(told.next(), "ended");
}

TEST_F(commanded, a_program_that_ignores_its_end_is_ended_by_force)
{
    start("trap '' TERM\necho $$ > \"$1\"\nwhile :; do sleep 1; done\n");
    toggle();
    const auto pid = static_cast<pid_t>(std::stol(told.next().value_or("0")));
    ASSERT_GT(pid, 0);
    EXPECT_EQ(unit->stop(), 0);
    EXPECT_NE(unit->process().err.rest().find("Ending commands that did not end by themselves"), std::string::npos);
    EXPECT_NE(kill(pid, 0), 0);
}

TEST_F(commanded, what_goes_wrong_with_it_is_logged)
{
    start("exit 3\n");
    toggle();
    EXPECT_TRUE(unit->process().err.await("program ended with status 3"));
    write_file(program, "");
    ASSERT_EQ(unlink(program.c_str()), 0);
    toggle();
    EXPECT_TRUE(unit->process().err.await("of handler 'Mic Live' could not be run: No such file or directory"));
    EXPECT_EQ(unit->stop(), 0);
}
