// A process that changes settings all the time is killed at random moments, 200 times in all; each time the file must be
// whole and hold every change that was due.
#include "settings_fixture.h"

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <random>
#include <thread>

namespace {

constexpr int rounds_each = 50;
constexpr int keys = 20;
constexpr double millisecond = 1e6;

int64_t now()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec * int64_t{1000000000} + time.tv_nsec;
}

enum class event : int32_t { set, write_begins, text_is_complete, write_ended };

// What the child tells, each in one write to the pipe.
struct record {
    event what;
    int32_t value;  // of a set, or the number in a complete text
    int64_t time;
    int64_t stall;  // the longest time so far that a thread of the child slept beyond its time
};

int report_to = -1;
std::atomic<int64_t> longest_stall = 0;

void report(event what, int32_t value)
{
    const record told{what, value, now(), longest_stall};
    if (::write(report_to, &told, sizeof told) != sizeof told) _exit(1);
}

std::string temporary_file;

void observe(const std::string &call)
{
    if (call == "open config.json.tmp") report(event::write_begins, 0);
    if (call == "fsync config.json.tmp") {
        const std::string text = text_of(temporary_file);
        report(event::text_is_complete, atoi(text.c_str() + text.find("\"number\": ") + strlen("\"number\": ")));
    }
    if (call == "open .") report(event::write_ended, 0);  // the first call behind the rename
}

void watch_for_stalls()
{
    constexpr int64_t nap = 2000000;
    while (true) {
        const int64_t before = now();
        std::this_thread::sleep_for(std::chrono::nanoseconds(nap));
        longest_stall = std::max(longest_stall.load(), now() - before - nap);
    }
}

std::string key_of(int32_t value)
{
    return "key_" + std::to_string(value % keys);
}

// Never returns. Of each value first its key is set, then the number, so that the number tells how far the file is.
[[noreturn]] void change_settings(zel_json_file_t *file, unsigned seed)
{
    std::mt19937 random(seed);
    std::thread(watch_for_stalls).detach();
    zel_json_obj_t *const obj = zel_json_file_load_object(file, nullptr, "gpio");
    for (int32_t value = zel_json_file_load_integer(file, obj, "number", 0) + 1;; ++value) {
        if (zel_json_file_set_string(file, obj, key_of(value).c_str(), std::to_string(value).c_str()) != 0) _exit(1);
        if (zel_json_file_set_integer(file, obj, "number", value) != 0) _exit(1);
        report(event::set, value);
        if (random() % 4 == 0) std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
    }
}

struct life {
    std::vector<record> records;
    int64_t killed_at = 0;
};

// Takes what is in the pipe; false at its end.
bool read_records(int fd, std::vector<record> &records)
{
    record buffer[512];
    const ssize_t size = read(fd, buffer, sizeof buffer);
    if (size < 0) return errno == EINTR;
    records.insert(records.end(), buffer, buffer + static_cast<size_t>(size) / sizeof(record));
    return size > 0;
}

class json_file_kill : public settings, public testing::WithParamInterface<int> {
protected:
    // Starts a child and kills it `after` nanoseconds after its first report.
    life live_and_die(int64_t after, unsigned seed)
    {
        int ends[2];
        EXPECT_EQ(pipe(ends), 0);
        const pid_t child = fork();
        if (child == 0) {
            close(ends[0]);
            report_to = ends[1];
            const file_handle file = open();
            file_calls::watch(folder_);
            temporary_file = folder_ + "/config.json.tmp";
            file_calls::tell(observe);
            change_settings(file.get(), seed);
        }
        close(ends[1]);
        life result;
        int64_t until = INT64_MAX;
        while (now() < until) {
            const int wait_ms = until == INT64_MAX ? 30000 : static_cast<int>((until - now()) / 1000000);
            pollfd readable{ends[0], POLLIN, 0};
            if (poll(&readable, 1, std::max(wait_ms, 0)) > 0 && !read_records(ends[0], result.records)) break;
            if (until == INT64_MAX && !result.records.empty()) until = now() + after;
        }
        result.killed_at = now();
        kill(child, SIGKILL);
        while (read_records(ends[0], result.records)) {}
        close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the child ended by itself: " << status;
        return result;
    }

    // The number in the last text that was put in place.
    static int32_t surely_written(const life &past)
    {
        int32_t complete = 0, written = 0;
        for (const record &told : past.records) {
            if (told.what == event::text_is_complete) complete = told.value;
            if (told.what == event::write_ended) written = complete;
        }
        return written;
    }

    // The last number that may be in the file: the child may have been killed between a set and its report.
    static int32_t last_possible(const life &past)
    {
        int32_t last_set = 0;
        for (const record &told : past.records) last_set = std::max(last_set, told.value);
        return last_set + 1;
    }

    // The time after which a change is due: 100 ms, or twice the time of a write if that is more; and as the machine is not
    // ours alone, what it made the child's threads wait.
    static int64_t due_after(const life &past)
    {
        int64_t begun = 0, longest_write = 0;
        for (const record &told : past.records) {
            if (told.what == event::write_begins) begun = told.time;
            if (told.what == event::write_ended) longest_write = std::max(longest_write, told.time - begun);
            if (told.what == event::write_ended) begun = 0;
        }
        if (begun != 0) longest_write = std::max(longest_write, past.killed_at - begun);
        const int64_t stall = past.records.back().stall, silence = past.killed_at - past.records.back().time;
        return std::max(static_cast<int64_t>(100 * millisecond), 2 * longest_write) + 2 * stall + std::max<int64_t>(silence, 0);
    }

    static int32_t last_due(const life &past)
    {
        const int64_t limit = past.killed_at - due_after(past);
        int32_t value = 0;
        for (const record &told : past.records) {
            if (told.what == event::set && told.time <= limit) value = told.value;
        }
        return value;
    }

    // Every key holds the last value that was set when the number was, or already the next one.
    void expect_consistent(const file_handle &file, int32_t number)
    {
        for (int32_t value = std::max(number - keys + 2, 1); value <= number; ++value) {
            const std::string key = key_of(value), expected = std::to_string(value);
            EXPECT_EQ(zel_json_file_load_string(file.get(), gpio(file), key.c_str(), ""), expected);
        }
    }
};

}  // namespace

TEST_P(json_file_kill, a_process_killed_at_any_moment_leaves_a_whole_file_with_every_change_that_was_due)
{
    const char *const given = getenv("ZEL_TEST_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(atol(given)) : std::random_device{}();
    std::printf("ZEL_TEST_SEED=%u\n", seed);
    std::mt19937 random(seed);
    int64_t longest_due = 0;
    int32_t checked = 0, number_before = 0;
    for (int round = 0; round < rounds_each; ++round) {
        const int64_t after = static_cast<int64_t>((5 + random() % 245) * millisecond);
        const life past = live_and_die(after, random());
        const file_handle file = open();
        ASSERT_NE(file, nullptr);
        const int32_t number = zel_json_file_load_integer(file.get(), gpio(file), "number", 0);
        EXPECT_GE(number, surely_written(past)) << "round " << round;
        EXPECT_GE(number, last_due(past)) << "round " << round << ", due after " << due_after(past) / millisecond << " ms";
        EXPECT_LE(number, std::max(number_before + 1, last_possible(past))) << "round " << round;
        number_before = number;
        expect_consistent(file, number);
        longest_due = std::max(longest_due, due_after(past));
        checked += last_due(past) != 0;
    }
    std::printf("%d of %d rounds had changes that were due; the longest time allowed was %.0f ms\n", checked, rounds_each,
                static_cast<double>(longest_due) / millisecond);
    EXPECT_GT(checked, 0);
    EXPECT_EQ(whole_log(), "");
}

INSTANTIATE_TEST_SUITE_P(rounds, json_file_kill, testing::Range(0, 4));
