// The daemons that a unit runs beside itself: stand-ins in the unit's folder, so that it is the unit that is tested.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

namespace zel::test {
namespace {

// A copy of the unit, with programs beside it that tell a named pipe of their life: one line each when they begin and end.
class unit_with_stand_ins {
public:
    explicit unit_with_stand_ins(const std::vector<std::string> &names, const std::string &body)
    {
        std::filesystem::create_directories(folder());
        std::filesystem::copy_file(ZEL_UNIT, program());
        if (mkfifo(pipe().c_str(), 0600) != 0) throw std::runtime_error("mkfifo");
        told_ = line_reader(unique_fd(open(pipe().c_str(), O_RDWR | O_CLOEXEC)));
        for (const std::string &name : names) {
            write_file(folder() + "/" + name, "#!/bin/bash\ntell() { echo \"" + name + " $*\" > '" + pipe() + "'; }\n" + body);
            std::filesystem::permissions(folder() + "/" + name, std::filesystem::perms::owner_all);
        }
    }

    void start(const std::vector<std::string> &options = {"--with-daemons"})
    {
        unit_ = std::make_unique<unit_process>(root, environment{}, options, program());
        ASSERT_TRUE(unit_->ready());
    }
    // The process of the next program that begins, with its words in `words`.
    pid_t next_begin(const std::string &name, std::string *words = nullptr)
    {
        const std::string line = told_.await(name + " begins ").value_or("");
        const std::string rest = line.substr(std::min(line.size(), line.find(" begins ") + 8));
        if (words != nullptr) *words = rest.substr(std::min(rest.size(), rest.find(' ') + 1));
        return rest.empty() ? -1 : static_cast<pid_t>(std::stol(rest));
    }
    line_reader &told() { return told_; }
    unit_process &unit() { return *unit_; }

    const unit_root root;

private:
    std::string folder() const { return root.path() + "/bin"; }
    std::string program() const { return folder() + "/zel_unit"; }
    std::string pipe() const { return root.path() + "/told"; }

    line_reader told_;
    std::unique_ptr<unit_process> unit_;
};

constexpr char stays[] = "trap 'tell ends; exit 0' TERM\ntell begins $$ \"$@\"\nwhile :; do sleep 0.05; done\n";
constexpr char stubborn[] = "trap '' TERM\ntell begins $$ \"$@\"\nwhile :; do sleep 0.05; done\n";

bool gone(pid_t process) { return kill(process, 0) != 0; }

}  // namespace

TEST(companions, run_on_the_units_root_and_end_with_it)
{
    unit_with_stand_ins u({"zel_sdiscd", "zel_snmpd"}, stays);
    u.start();
    std::string words;
    const pid_t first = u.next_begin("", &words);
    EXPECT_EQ(words, "--root " + u.root.path() + "/");
    EXPECT_EQ(read_file("/proc/" + std::to_string(first) + "/environ").find("NOTIFY_SOCKET="), std::string::npos);
    const pid_t second = u.next_begin("", &words);
    EXPECT_EQ(words, "--root " + u.root.path() + "/");
    ASSERT_GT(first, 0);
    ASSERT_GT(second, 0);
    EXPECT_EQ(u.unit().stop(), 0);
    EXPECT_TRUE(u.told().await("ends"));
    EXPECT_TRUE(u.told().await("ends"));
    EXPECT_TRUE(gone(first));
    EXPECT_TRUE(gone(second));
}

TEST(companions, are_started_again_when_they_end)
{
    unit_with_stand_ins u({"zel_sdiscd"}, stays);
    u.start();
    const pid_t first = u.next_begin("zel_sdiscd");
    ASSERT_GT(first, 0);
    kill(first, SIGKILL);
    EXPECT_TRUE(u.unit().process().err.await("ended by signal 9"));
    const pid_t second = u.next_begin("zel_sdiscd");
    EXPECT_GT(second, 0);
    EXPECT_NE(second, first);
}

TEST(companions, that_are_not_installed_are_named_and_missed_by_nobody)
{
    unit_with_stand_ins u({"zel_sdiscd"}, stays);
    u.start();
    EXPECT_TRUE(u.unit().process().err.await("zel_snmpd: No such file or directory; the unit runs without it"));
    EXPECT_GT(u.next_begin("zel_sdiscd"), 0);
    EXPECT_EQ(u.unit().stop(), 0);
}

TEST(companions, end_when_the_unit_is_killed)
{
    unit_with_stand_ins u({"zel_sdiscd"}, stays);
    u.start();
    ASSERT_GT(u.next_begin("zel_sdiscd"), 0);
    u.unit().process().signal(SIGKILL);
    EXPECT_TRUE(u.told().await("zel_sdiscd ends"));
}

TEST(companions, that_do_not_end_by_themselves_are_ended)
{
    unit_with_stand_ins u({"zel_snmpd"}, stubborn);
    u.start();
    const pid_t process = u.next_begin("zel_snmpd");
    ASSERT_GT(process, 0);
    EXPECT_EQ(u.unit().stop(), 0);
    EXPECT_TRUE(gone(process));
}

TEST(companions, are_not_started_unless_asked_for)
{
    unit_with_stand_ins u({"zel_sdiscd", "zel_snmpd"}, stays);
    u.start({});
    EXPECT_EQ(u.unit().stop(), 0);
    EXPECT_EQ(u.unit().process().err.rest().find("Running"), std::string::npos);
}

}  // namespace zel::test
