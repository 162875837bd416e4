#include "captured_stderr.h"
#include "common/utf8.h"
#include "temp_folder.h"
#include "zel_debug.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <atomic>
#include <cerrno>
#include <functional>
#include <regex>
#include <set>
#include <thread>

namespace {

// Runs `deed` in a forked child, which then exits; its exit status, or -1.
int in_child(const std::function<int()> &deed)
{
    const pid_t child = fork();
    if (child == 0) exit(deed());
    int status;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int log_all_levels()
{
    for (const int level : {0, 1, 2, 4}) log_message(level, "level %d\n", level);
    return 0;
}

int log_to_a_closed_pipe()
{
    int ends[2];
    if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0 || close(ends[0]) != 0 || close(ends[1]) != 0) return 2;
    signal(SIGPIPE, SIG_DFL);
    log_message(0, "nobody reads this\n");
    log_message(0, "nor this\n");
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 0 ? 0 : 3;
}

std::vector<std::string> texts(const std::vector<std::string> &lines)
{
    std::vector<std::string> result;
    for (const std::string &line : lines) result.push_back(level_and_text(line));
    return result;
}

using lines = std::vector<std::string>;

class debug : public testing::Test {
protected:
    void SetUp() override
    {
        unsetenv("ZEL_ROOT");
        zel_debug_set_level(4);
        zel_debug_set_repeat_interval(10000);
        log_message(4, "start of %s\n", testing::UnitTest::GetInstance()->current_test_info()->name());
        (void)log_.all();
    }
    void TearDown() override { (void)zel_debug_set_file(nullptr); }

    captured_stderr log_;
    temp_folder folder_;
};

// Comes first in this file and logs in children only: the log looks at the environment once, at its first message.
class fresh_log : public testing::Test {
protected:
    captured_stderr log_;
    temp_folder folder_;
};

}  // namespace

TEST_F(fresh_log, the_threshold_comes_from_the_environment)
{
    const struct { const char *setting; lines expected; } table[] = {
        {nullptr, {"error: level 0\n", "warning: level 1\n", "information: level 2\n"}},
        {"error", {"error: level 0\n"}},
        {"warning", {"error: level 0\n", "warning: level 1\n"}},
        {"4", {"error: level 0\n", "warning: level 1\n", "information: level 2\n", "detail: level 4\n"}},
        {"loud", {"error: level 0\n", "warning: level 1\n", "information: level 2\n"}},
    };
    for (const auto &row : table) {
        EXPECT_EQ(in_child([&] {
            row.setting != nullptr ? setenv("ZEL_LOG_LEVEL", row.setting, 1) : unsetenv("ZEL_LOG_LEVEL");
            return log_all_levels();
        }), 0);
        EXPECT_EQ(texts(log_.all()), row.expected) << (row.setting != nullptr ? row.setting : "none");
    }
}

TEST_F(fresh_log, the_environment_names_the_log_file)
{
    EXPECT_EQ(in_child([&] {
        setenv("ZEL_ROOT", folder_.path().c_str(), 1);
        setenv("ZEL_LOG_FILE", "/log", 1);
        setenv("ZEL_LOG_LEVEL", "error", 1);
        return log_all_levels();
    }), 0);
    EXPECT_EQ(level_and_text(text_of(folder_.file("log"))), "error: level 0\n");
    EXPECT_TRUE(log_.all().empty());
}

TEST_F(fresh_log, the_count_of_repeated_messages_is_written_at_exit)
{
    EXPECT_EQ(in_child([] {
        for (int i = 0; i < 4; ++i) log_message(1, "again\n");
        return 0;
    }), 0);
    EXPECT_EQ(texts(log_.all()), (lines{"warning: again\n", "warning: last message repeated 3 times\n"}));
}

TEST_F(debug, a_line_bears_both_times_the_program_the_process_and_the_level)
{
    zel_debug_set_program("zel_unit");
    log_message(1, "%s: pin %d\n", "open", 7);
    const std::string line = log_.next();
    const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z \d+\.\d{6} zel_unit\[(\d+)\] warning: open: pin 7\n)");
    std::smatch found;
    ASSERT_TRUE(std::regex_match(line, found, form)) << line;
    EXPECT_EQ(found[1], std::to_string(getpid()));
    zel_debug_set_program(nullptr);
}

TEST_F(debug, the_wall_time_is_the_present_one_in_utc)
{
    // time() reads a coarser clock, which may still be in the second before.
    timespec before{}, after{};
    clock_gettime(CLOCK_REALTIME, &before);
    log_message(0, "now\n");
    clock_gettime(CLOCK_REALTIME, &after);
    const std::string line = log_.next();
    tm parsed{};
    ASSERT_NE(strptime(line.c_str(), "%Y-%m-%dT%H:%M:%S", &parsed), nullptr) << line;
    EXPECT_GE(timegm(&parsed), before.tv_sec);
    EXPECT_LE(timegm(&parsed), after.tv_sec);
}

TEST_F(debug, each_level_has_its_word)
{
    for (const int level : {-5, 0, 1, 2, 3, 4, 99}) {
        zel_debug_set_level(99);
        log_message(level, "x%d\n", level);
    }
    EXPECT_EQ(texts(log_.all()), (lines{"error: x-5\n", "error: x0\n", "warning: x1\n", "information: x2\n", "detail: x3\n",
                                        "detail: x4\n", "detail: x99\n"}));
}

TEST_F(debug, messages_above_the_threshold_are_not_written)
{
    zel_debug_set_level(1);
    for (const int level : {2, 1, 4, 0}) log_message(level, "x\n");
    EXPECT_EQ(texts(log_.all()), (lines{"warning: x\n", "error: x\n"}));
    EXPECT_EQ(zel_debug_get_level(), 1);
}

TEST_F(debug, level_names_and_numbers_are_understood)
{
    const struct { const char *name; int level; } table[] = {
        {"error", 0}, {"warning", 1}, {"information", 2}, {"detail", 4}, {"0", 0}, {"3", 3}, {"9", 9},
        {"", -1}, {"10", -1}, {"-1", -1}, {"Error", -1}, {"debug", -1}, {nullptr, -1}};
    for (const auto &row : table) EXPECT_EQ(zel_debug_level_from_name(row.name), row.level) << (row.name ? row.name : "null");
}

TEST_F(debug, repeated_messages_are_counted_until_another_one_comes)
{
    for (int i = 0; i < 4; ++i) log_message(2, "same\n");
    EXPECT_EQ(texts(log_.all()), (lines{"information: same\n"}));
    log_message(2, "other\n");
    log_message(2, "other\n");
    log_message(1, "other\n");
    EXPECT_EQ(texts(log_.all()), (lines{"information: last message repeated 3 times\n", "information: other\n",
                                        "information: last message repeated 1 time\n", "warning: other\n"}));
}

TEST_F(debug, the_count_of_repeated_messages_is_written_after_a_time_although_nothing_else_is_logged)
{
    zel_debug_set_repeat_interval(30);
    for (int i = 0; i < 3; ++i) log_message(2, "same\n");
    EXPECT_EQ(level_and_text(log_.next()), "information: same\n");
    EXPECT_EQ(level_and_text(log_.next()), "information: last message repeated 2 times\n");
    log_message(2, "same\n");
    EXPECT_EQ(level_and_text(log_.next()), "information: last message repeated 1 time\n");
}

TEST_F(debug, the_count_of_repeated_messages_is_written_on_demand_and_once)
{
    log_message(2, "same\n");
    log_message(2, "same\n");
    zel_debug_flush();
    zel_debug_flush();
    EXPECT_EQ(texts(log_.all()), (lines{"information: same\n", "information: last message repeated 1 time\n"}));
}

TEST_F(debug, an_interval_of_zero_writes_every_message)
{
    zel_debug_set_repeat_interval(0);
    log_message(2, "same\n");
    log_message(2, "same\n");
    EXPECT_EQ(log_.all().size(), 2u);
}

TEST_F(debug, a_name_from_the_network_can_forge_no_line_and_steer_no_terminal)
{
    const struct { const char *text, *written; } table[] = {
        {"a\nerror: forged\n", "a\\nerror: forged"},
        {"a\r\tb\x1b[2Jc\x7f\n", "a\\r\\tb\\x1b[2Jc\\x7f"},
        {"c1 \xc2\x9b!\n", "c1 \\x9b!"},
        {"turn \xe2\x80\xae!\n", "turn \\u202e!"},
        {"bad \xff\xc3(\xe2\x82\n", "bad \\xff\\xc3(\\xe2\\x82"},
        {"overlong \xc0\xaf surrogate \xed\xa0\x80\n", "overlong \\xc0\\xaf surrogate \\xed\\xa0\\x80"},
        {"fine \xc3\xbc \xe2\x82\xac \xf0\x9f\x94\x8a\n", "fine \xc3\xbc \xe2\x82\xac \xf0\x9f\x94\x8a"},
        {"no line feed", "no line feed"},
        {"two\n\n", "two\\n"},
        {"\n", ""},
    };
    for (const auto &row : table) {
        log_message(0, "%s", row.text);
        EXPECT_EQ(level_and_text(log_.next()), "error: " + std::string(row.written) + "\n");
    }
}

TEST_F(debug, a_long_line_is_bounded_and_cut_at_a_whole_character)
{
    for (int shift = 0; shift < 4; ++shift) {
        std::string text(static_cast<size_t>(shift), 'x');
        while (text.size() < 9000) text += "\xe2\x82\xac";
        log_message(0, "%s\n", text.c_str());
        const std::string line = log_.next();
        EXPECT_LE(line.size(), 4096u);
        EXPECT_GT(line.size(), 4096u - 8);
        ASSERT_TRUE(line.ends_with("\xac...\n")) << line.substr(line.size() - 10);
        const auto *at = reinterpret_cast<const unsigned char *>(line.c_str());
        while (*at != 0) {
            const zel::utf8_piece piece = zel::utf8_piece_at(at);
            ASSERT_TRUE(piece.well_formed);
            at += piece.length;
        }
    }
}

TEST_F(debug, escapes_that_make_a_line_too_long_are_not_cut_either)
{
    log_message(0, "%s\n", std::string(4000, '\x01').c_str());
    const std::string line = log_.next();
    EXPECT_LE(line.size(), 4096u);
    EXPECT_TRUE(line.ends_with("\\x01...\n"));
}

TEST_F(debug, errno_is_kept_whatever_happens)
{
    errno = ENOTTY;
    log_message(0, "fine: %m\n");
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_EQ(level_and_text(log_.next()), "error: fine: Inappropriate ioctl for device\n");
    ASSERT_EQ(zel_debug_set_file("/dev/full"), 0);
    errno = ENOTTY;
    log_message(0, "a full disk\n");
    EXPECT_EQ(errno, ENOTTY);
    log_message(4, "%ls\n", L"\x7fffffff");
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(debug, a_reader_that_went_away_does_not_end_the_process)
{
    EXPECT_EQ(in_child(log_to_a_closed_pipe), 0);
}

TEST_F(debug, a_reader_that_has_stopped_loses_lines_and_holds_nobody_up)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_GT(fcntl(ends[1], F_SETPIPE_SZ, 4096), 0);
    const int before = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    const std::string page(4096, '.');
    EXPECT_EQ(write(ends[1], page.data(), page.size()), 4096);
    for (int i = 0; i < 1000; ++i) log_message(0, "line %d\n", i);
    char room[8192];
    EXPECT_EQ(read(ends[0], room, sizeof room), 4096);
    EXPECT_EQ(fcntl(ends[1], F_SETPIPE_SZ, 65536), 65536);
    log_message(0, "heard again\n");
    log_message(0, "and again\n");
    dup2(before, STDERR_FILENO);
    close(before);
    close(ends[1]);
    const ssize_t length = read(ends[0], room, sizeof room);
    close(ends[0]);
    ASSERT_GT(length, 0);
    const std::string text(room, static_cast<size_t>(length));
    EXPECT_NE(text.find("warning: 1000 lines of the log could not be written\n"), std::string::npos) << text;
    EXPECT_LT(text.find("warning:"), text.find("error: heard again\n"));
    EXPECT_LT(text.find("error: heard again\n"), text.find("error: and again\n"));
    EXPECT_EQ(text.find("line 999"), std::string::npos);
}

TEST_F(debug, a_log_file_lies_below_the_units_root_and_is_appended_to)
{
    setenv("ZEL_ROOT", folder_.path().c_str(), 1);
    write_text(folder_.file("var/log/zel/unit.log"), "earlier\n");
    ASSERT_EQ(zel_debug_set_file("/var/log/zel/unit.log"), 0);
    log_message(0, "here\n");
    EXPECT_EQ(text_of(folder_.file("var/log/zel/unit.log")).substr(0, 8), "earlier\n");
    EXPECT_NE(text_of(folder_.file("var/log/zel/unit.log")).find("error: here\n"), std::string::npos);
    EXPECT_TRUE(log_.all().empty());
    ASSERT_EQ(zel_debug_set_file("/var/log/new/folder/unit.log"), 0);
    log_message(0, "there\n");
    EXPECT_NE(text_of(folder_.file("var/log/new/folder/unit.log")).find("error: there\n"), std::string::npos);
}

TEST_F(debug, a_file_that_cannot_be_opened_leaves_the_output_as_it_was)
{
    write_text(folder_.file("file"), "");
    EXPECT_EQ(zel_debug_set_file(folder_.file("file/log").c_str()), -1);
    EXPECT_EQ(zel_debug_set_file(("/" + std::string(5000, 'x')).c_str()), -1);
    log_message(0, "still here\n");
    const lines written = texts(log_.all());
    ASSERT_EQ(written.size(), 3u);
    EXPECT_NE(written[0].find("cannot be opened: Not a directory"), std::string::npos) << written[0];
    EXPECT_NE(written[1].find("cannot be opened: File name too long"), std::string::npos) << written[1];
    EXPECT_EQ(written[2], "error: still here\n");
}

TEST_F(debug, a_pipe_without_a_reader_is_refused_instead_of_waited_for)
{
    ASSERT_EQ(mkfifo(folder_.file("pipe").c_str(), 0600), 0);
    EXPECT_EQ(zel_debug_set_file(folder_.file("pipe").c_str()), -1);
}

TEST_F(debug, a_rotated_file_is_left_for_a_new_one)
{
    const std::string path = folder_.file("log"), rotated = folder_.file("log.1");
    ASSERT_EQ(zel_debug_set_file(path.c_str()), 0);
    log_message(0, "one\n");
    ASSERT_EQ(rename(path.c_str(), rotated.c_str()), 0);
    log_message(0, "two\n");
    zel_debug_reopen();
    log_message(0, "three\n");
    EXPECT_NE(text_of(rotated).find("error: two\n"), std::string::npos);
    EXPECT_EQ(level_and_text(text_of(path)), "error: three\n");
}

TEST_F(debug, a_log_that_cannot_be_opened_anew_goes_on_in_the_old_file)
{
    std::filesystem::create_directory(folder_.file("sub"));
    const std::string path = folder_.file("sub/log"), moved = folder_.file("moved");
    ASSERT_EQ(zel_debug_set_file(path.c_str()), 0);
    std::filesystem::rename(folder_.file("sub"), moved);
    zel_debug_reopen();
    log_message(0, "kept\n");
    const std::string text = text_of(moved + "/log");
    EXPECT_NE(text.find("cannot be opened anew: No such file"), std::string::npos) << text;
    EXPECT_NE(text.find("error: kept\n"), std::string::npos);
}

TEST_F(debug, lines_of_many_threads_stay_whole)
{
    constexpr int threads = 4, each = 250;
    std::set<std::string> seen;
    std::thread reader([&] {
        while (seen.size() < threads * each) {
            const std::string line = log_.next();
            if (line.empty()) break;
            seen.insert(level_and_text(line));
        }
    });
    std::vector<std::thread> writers;
    for (int number = 0; number < threads; ++number) {
        writers.emplace_back([number] {
            for (int i = 0; i < each; ++i) log_message(2, "thread %d line %d %s\n", number, i, std::string(300, 'y').c_str());
        });
    }
    for (std::thread &writer : writers) writer.join();
    reader.join();
    EXPECT_EQ(seen.size(), static_cast<size_t>(threads * each));
    EXPECT_TRUE(seen.contains("information: thread 3 line 249 " + std::string(300, 'y') + "\n"));
}

TEST_F(debug, a_child_forked_while_others_log_can_log_too)
{
    ASSERT_EQ(zel_debug_set_file(folder_.file("log").c_str()), 0);
    zel_debug_set_repeat_interval(1);
    std::atomic<bool> stop = false;
    std::thread busy([&] { while (!stop) log_message(2, "busy\n"); });
    for (int i = 0; i < 30; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            log_message(2, "child %d\n", i);
            _exit(0);
        }
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    busy.join();
    const std::string text = text_of(folder_.file("log"));
    for (int i = 0; i < 30; ++i) {
        EXPECT_NE(text.find("information: child " + std::to_string(i) + "\n"), std::string::npos) << i;
    }
}

#ifndef __arm__  // user-mode emulation cannot start threads in the child of a process that has some
TEST_F(debug, a_forked_child_counts_its_own_repeated_messages_and_not_its_parents)
{
    log_message(2, "parent\n");
    log_message(2, "parent\n");
    EXPECT_EQ(in_child([]() -> int {
        for (int i = 0; i < 3; ++i) log_message(2, "child\n");
        zel_debug_flush();
        _exit(0);
    }), 0);
    EXPECT_EQ(texts(log_.all()), (lines{"information: parent\n", "information: child\n",
                                        "information: last message repeated 2 times\n"}));
    zel_debug_flush();
    EXPECT_EQ(texts(log_.all()), (lines{"information: last message repeated 1 time\n"}));
}
#endif
