// Everything that can go wrong with a settings file: unreadable ones, calls that fail, power cuts between any two calls.
#include "settings_fixture.h"

#include <sys/stat.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>

namespace {

using json_file_faults = settings;

constexpr char old_text[] = "{\"gpio\": {\"number\": 1}}\n";
constexpr char other_text[] = "{\"gpio\": {\"number\": 2}}\n";

// Each call of one replacement, in the order in which they are made.
const std::vector<std::string> replacement = {
    "open config.json.tmp", "write config.json.tmp", "fsync config.json.tmp", "unlink config.json.link",
    "link config.json -> config.json.link", "rename config.json.link -> config.json.good", "unlink config.json.link",
    "rename config.json.tmp -> config.json", "open .", "fsync ."};

// Those whose failure keeps the new text from being known to be on the disk.
const std::vector<std::string> needed = {"open config.json.tmp", "write config.json.tmp", "fsync config.json.tmp", in_place,
                                         "open .", on_disk};

}  // namespace

TEST_F(json_file_faults, the_new_text_is_on_the_disk_before_it_takes_the_old_ones_place)
{
    write("config.json", old_text);
    const file_handle file = open();
    file_calls::watch(folder_);
    ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
    ASSERT_TRUE(file_calls::wait_for(on_disk));
    EXPECT_EQ(file_calls::journal(), replacement);
    EXPECT_EQ(text("config.json.good"), old_text);
}

TEST_F(json_file_faults, nobody_waits_for_a_disk_that_hangs)
{
    static std::mutex mutex;
    static std::condition_variable changed;
    static bool hangs = false, released = false;
    write("config.json", old_text);
    const file_handle file = open();
    zel_json_obj_t *const obj = gpio(file);
    file_calls::watch(folder_);
    file_calls::tell([](const std::string &call) {
        std::unique_lock lock(mutex);
        if (call != "fsync config.json.tmp" || released) return;
        hangs = true;
        changed.notify_all();
        changed.wait(lock, [] { return released; });
    });
    ASSERT_EQ(zel_json_file_set_integer(file.get(), obj, "number", 3), 0);
    std::unique_lock lock(mutex);
    changed.wait(lock, [] { return hangs; });
    lock.unlock();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, "number", 100 + i), 0);
        EXPECT_EQ(zel_json_file_load_integer(file.get(), obj, "number", 0), 100 + i);
    }
    EXPECT_EQ(zel_json_remove_object(file.get(), obj, "absent"), -1);
    lock.lock();
    released = true;
    changed.notify_all();
    lock.unlock();
    ASSERT_TRUE(file_calls::wait_for(on_disk, 2));
    file_calls::tell(nullptr);
    EXPECT_NE(text("config.json").find("\"number\": 199"), std::string::npos);
}

TEST_F(json_file_faults, the_names_of_new_folders_are_brought_to_the_disk_too)
{
    file_calls::watch(unit_.path());
    {
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
    }
    EXPECT_EQ(file_calls::count("mkdir config"), 1u);
    EXPECT_GE(file_calls::count("fsync ."), 1u);
    EXPECT_GE(file_calls::count("fsync config"), 1u);
}

TEST_F(json_file_faults, a_power_cut_at_any_call_leaves_the_old_or_the_new_text)
{
    int old_ones = 0, new_ones = 0;
    for (int nth = 1; nth <= static_cast<int>(replacement.size()) + 1; ++nth) {
        write("config.json", old_text);
        const int status = in_child([&] {
            const file_handle file = open();
            file_calls::watch(folder_);
            file_calls::end_at(nth);
            (void)zel_json_file_set_integer(file.get(), gpio(file), "number", 3);
        });
        EXPECT_EQ(status, nth <= static_cast<int>(replacement.size()) ? 99 : 0) << nth;
        const int32_t number = number_at_next_start();
        EXPECT_TRUE(number == 1 || number == 3) << "cut at " << nth << ": " << number;
        ++(number == 1 ? old_ones : new_ones);
        EXPECT_FALSE(is_there("config.json.tmp"));
    }
    EXPECT_EQ(old_ones, 8);
    EXPECT_EQ(new_ones, 3);
}

TEST_F(json_file_faults, a_power_cut_while_an_unreadable_file_is_replaced_loses_neither_copy)
{
    for (const bool links : {true, false}) {
        for (int nth = 1, status = 99; status == 99; ++nth) {
            std::filesystem::remove_all(folder_);
            write("config.json", "{ broken");
            write("config.json.good", old_text);
            status = in_child([&] {
                file_calls::watch(folder_);
                if (!links) file_calls::fail("link config.json -> config.json.link", EPERM);
                file_calls::end_at(nth);
                const file_handle file = open();
                (void)zel_json_file_set_integer(file.get(), gpio(file), "number", 3);
            });
            EXPECT_TRUE(status == 99 || status == 0);
            EXPECT_EQ(text("config.json.good"), old_text);
            EXPECT_TRUE(text("config.json") == "{ broken" || text("config.json.bad") == "{ broken");
            if (is_there("config.json")) {
                const int32_t number = number_at_next_start();
                EXPECT_TRUE(number == 1 || number == 3) << "cut at " << nth << ": " << number;
            }
        }
    }
}

TEST_F(json_file_faults, a_failed_call_leaves_the_old_text_and_the_next_try_writes_the_new_one)
{
    for (const int error : {ENOSPC, EIO, EACCES, EROFS}) {
        for (const std::string &call : needed) {
            std::filesystem::remove_all(folder_);
            write("config.json", old_text);
            {
                const file_handle file = open();
                file_calls::watch(folder_);
                file_calls::fail(call, error, 1);
                ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
                ASSERT_TRUE(file_calls::wait_for(call));
            }
            EXPECT_EQ(file_calls::failures(), 1) << call;
            EXPECT_FALSE(is_there("config.json.tmp")) << call;
            file_calls::watch("");
            EXPECT_EQ(number_at_next_start(), 3) << call << ": " << strerror(error);
        }
        EXPECT_EQ(logged(std::string("failed: ") + strerror(error) + "; kept in memory and tried again"), needed.size());
    }
    EXPECT_EQ(logged("written, nothing was lost"), 4 * needed.size());
    EXPECT_EQ(logged(" are lost"), 0u);
}

TEST_F(json_file_faults, while_calls_fail_the_old_file_is_whole_and_no_temporary_one_is_left)
{
    for (const std::string &call : needed) {
        std::filesystem::remove_all(folder_);
        write("config.json", old_text);
        {
            const file_handle file = open();
            file_calls::watch(folder_);
            file_calls::fail(call, ENOSPC);
            ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
        }
        EXPECT_GE(file_calls::failures(), 1) << call;
        file_calls::watch("");
        EXPECT_FALSE(is_there("config.json.tmp")) << call;
        const bool was_in_place = call == on_disk || call == "open .";
        EXPECT_EQ(number_at_next_start(), was_in_place ? 3 : 1) << call;
    }
    EXPECT_EQ(logged("No space left on device; kept in memory and tried again"), needed.size());
    EXPECT_EQ(logged("config.json: the last changes are lost"), needed.size());
}

TEST_F(json_file_faults, a_full_disk_is_told_once_and_tried_again_until_there_is_room)
{
    write("config.json", old_text);
    const file_handle file = open();
    file_calls::watch(folder_);
    file_calls::fail("write config.json.tmp", ENOSPC);
    for (int i = 0; i < 500; ++i) ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 100 + i), 0);
    ASSERT_TRUE(file_calls::wait_for("write config.json.tmp", 2));
    ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 700), 0);
    EXPECT_EQ(text("config.json"), old_text);
    file_calls::stop_failing();
    ASSERT_TRUE(file_calls::wait_for(on_disk));
    EXPECT_NE(text("config.json").find("700"), std::string::npos);
    EXPECT_LE(file_calls::count("write config.json.tmp"), 10u);
    EXPECT_EQ(logged("No space left"), 1u);
}

TEST_F(json_file_faults, a_disk_that_takes_few_bytes_at_a_time_gets_the_whole_text)
{
    file_calls::watch(folder_);
    file_calls::limit_writes(7);
    {
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_string(file.get(), gpio(file), "name", std::string(500, 'n').c_str()), 0);
    }
    const file_handle file = open();
    EXPECT_EQ(zel_json_file_load_string(file.get(), gpio(file), "name", ""), std::string(500, 'n'));
}

TEST_F(json_file_faults, without_second_names_settings_are_saved_all_the_same_and_it_is_told_once)
{
    write("config.json", old_text);
    {
        const file_handle file = open();
        file_calls::watch(folder_);
        file_calls::fail("link config.json -> config.json.link", EPERM);
        for (int i = 1; i <= 3; ++i) {
            ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 10 + i), 0);
            ASSERT_TRUE(file_calls::wait_for(on_disk, static_cast<size_t>(i)));
        }
    }
    EXPECT_GE(file_calls::failures(), 3);
    EXPECT_EQ(number_at_next_start(), 13);
    EXPECT_EQ(logged("no copy of the last good"), 1u);
    EXPECT_FALSE(is_there("config.json.good"));
}

TEST_F(json_file_faults, a_folder_that_cannot_be_made_is_told_and_tried_again)
{
    file_calls::watch(unit_.path());
    file_calls::fail("mkdir config", EACCES, 1);
    {
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
        ASSERT_TRUE(file_calls::wait_for("mkdir config"));
    }
    EXPECT_EQ(logged("making its folder failed: Permission denied"), 1u);
    EXPECT_EQ(number_at_next_start(), 3);
}

TEST_F(json_file_faults, settings_too_large_to_be_read_again_are_not_put_in_place)
{
    write("config.json", old_text);
    {
        const file_handle file = open();
        const std::string large(5 << 20, 'x');
        ASSERT_EQ(zel_json_file_set_string(file.get(), gpio(file), "name", large.c_str()), 0);
    }
    EXPECT_EQ(text("config.json"), old_text);
    EXPECT_EQ(logged("making a text that can be read again failed: File too large"), 1u);
}

TEST_F(json_file_faults, an_unreadable_file_gives_way_to_the_last_good_copy_and_is_kept)
{
    const std::string unreadable[] = {
        "", " ", "{", "{\"gpio\": {\"number\": 5}", "[1, 2]", "null", "\"text\"", "{\"gpio\": {\"number\": 5}} trailing",
        "{\"a\": \"\xff\"}", "{\"a\": \"line\nfeed\"}", "{\"a\": 99999999999999999999}", "{\"a\": 1E400}", "{'a': 1}",
        "{\"a\": 1,}", "\xEF\xBB\xBF{}", "{\"a\": \"\\u0000\"}", "{\"a\": \"\\ud800\"}", "{\"a\": nul}", std::string("{\"a\": 1}\0", 9),
        std::string(4096, '\0'), "{\"a\":" + std::string(1000000, '['), std::string((4 << 20) + 1, ' ')};
    for (const std::string &bad : unreadable) {
        const std::string what = bad.substr(0, 40);
        std::filesystem::remove_all(folder_);
        write("config.json", bad);
        write("config.json.good", old_text);
        {
            const file_handle file = open();
            ASSERT_NE(file, nullptr) << what;
            EXPECT_EQ(zel_json_file_load_integer(file.get(), gpio(file), "number", -1), 1) << what;
        }
        EXPECT_EQ(text("config.json"), bad) << "written over without a set: " << what;
        EXPECT_EQ(text("config.json.bad"), bad) << what;
        {
            const file_handle file = open();
            EXPECT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
        }
        EXPECT_EQ(number_at_next_start(), 3) << what;
        EXPECT_EQ(text("config.json.bad"), bad) << what;
        EXPECT_EQ(text("config.json.good"), old_text) << what;
        EXPECT_FALSE(is_there("config.json.bad.1")) << what;
    }
    const size_t cases = std::size(unreadable);
    EXPECT_EQ(logged("config.json cannot be read: "), 2 * cases);
    EXPECT_EQ(logged("the last good copy " + folder_ + "/config.json.good takes its place"), 2 * cases);
    EXPECT_EQ(logged("is kept as " + folder_ + "/config.json.bad\n"), cases);
}

TEST_F(json_file_faults, an_unreadable_file_without_a_good_copy_is_left_alone)
{
    for (const char *good : {"", "also broken"}) {
        write("config.json", "{ broken");
        if (*good != '\0') write("config.json.good", good);
        EXPECT_EQ(open(), nullptr);
        EXPECT_EQ(text("config.json"), "{ broken");
        EXPECT_EQ(text("config.json.good"), good);
        EXPECT_FALSE(is_there("config.json.bad"));
    }
    EXPECT_EQ(logged("cannot be read: line 1 column"), 2u);
    EXPECT_EQ(logged("has no good copy"), 2u);
}

TEST_F(json_file_faults, each_different_unreadable_file_is_kept_under_a_name_of_its_own)
{
    for (int i = 0; i < 20; ++i) {
        write("config.json.good", old_text);
        write("config.json", "broken " + std::to_string(i));
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 100 + i), 0);
    }
    EXPECT_EQ(text("config.json.bad"), "broken 0");
    for (int i = 1; i < 15; ++i) EXPECT_EQ(text("config.json.bad." + std::to_string(i)), "broken " + std::to_string(i));
    EXPECT_EQ(text("config.json.bad.15"), "broken 19");
    EXPECT_FALSE(is_there("config.json.bad.16"));
    EXPECT_EQ(logged("config.json.bad.15, in place of an earlier one"), 4u);
}

TEST_F(json_file_faults, without_second_names_the_unreadable_file_is_moved_away_only_for_its_successor)
{
    write("config.json", "{ broken");
    write("config.json.good", old_text);
    file_calls::watch(folder_);
    file_calls::fail("link config.json -> config.json.link", EPERM);
    {
        const file_handle file = open();
        EXPECT_EQ(text("config.json"), "{ broken");
        EXPECT_FALSE(is_there("config.json.bad"));
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
    }
    EXPECT_EQ(text("config.json.bad"), "{ broken");
    EXPECT_EQ(number_at_next_start(), 3);
}

TEST_F(json_file_faults, an_unreadable_file_that_cannot_be_kept_is_not_written_over)
{
    write("config.json", "{ broken");
    write("config.json.good", old_text);
    file_calls::watch(folder_);
    file_calls::fail("link config.json -> config.json.link", EPERM);
    {
        const file_handle file = open();
        std::filesystem::create_directories(folder_ + "/config.json.bad.15/full");
        for (int i = 0; i < 15; ++i) write(i == 0 ? "config.json.bad" : "config.json.bad." + std::to_string(i), "earlier");
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
    }
    EXPECT_EQ(text("config.json"), "{ broken");
    EXPECT_EQ(text("config.json.good"), old_text);
    EXPECT_EQ(logged("keeping the unreadable file failed"), 1u);
    EXPECT_EQ(logged("the last changes are lost"), 1u);
}

TEST_F(json_file_faults, a_folder_in_the_files_place_gives_way_like_an_unreadable_file)
{
    std::filesystem::create_directories(folder_ + "/config.json/inside");
    write("config.json.good", old_text);
    {
        const file_handle file = open();
        EXPECT_EQ(zel_json_file_load_integer(file.get(), gpio(file), "number", -1), 1);
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
    }
    EXPECT_EQ(number_at_next_start(), 3);
    EXPECT_TRUE(is_there("config.json.bad/inside"));
}

TEST_F(json_file_faults, a_file_that_may_not_be_read_gives_way_to_the_good_copy)
{
    for (const int error : {EACCES, EIO}) {
        std::filesystem::remove_all(folder_);
        write("config.json", other_text);
        write("config.json.good", old_text);
        file_calls::watch(folder_);
        file_calls::fail("open config.json", error, 1);
        EXPECT_EQ(number_at_next_start(), 1);
        EXPECT_EQ(text("config.json.bad"), other_text);
    }
}

TEST_F(json_file_faults, a_lack_of_descriptors_or_memory_says_nothing_about_the_file)
{
    write("config.json", other_text);
    write("config.json.good", old_text);
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        file_calls::watch(folder_);
        file_calls::fail("open config.json", error, 1);
        EXPECT_EQ(open(), nullptr);
        EXPECT_EQ(number_at_next_start(), 2);
    }
    EXPECT_FALSE(is_there("config.json.bad"));
    EXPECT_EQ(logged("config.json cannot be read: "), 3u);
}

TEST_F(json_file_faults, a_missing_file_is_new_and_empty_although_there_is_a_good_copy)
{
    write("config.json.good", old_text);
    {
        const file_handle file = open();
        ASSERT_NE(file, nullptr);
        EXPECT_EQ(zel_json_file_load_integer(file.get(), gpio(file), "number", -1), -1);
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "other", 3), 0);
    }
    EXPECT_EQ(number_at_next_start("other"), 3);
    EXPECT_EQ(text("config.json.good"), old_text);
    EXPECT_EQ(logged("is missing and begins anew; its last good copy is"), 1u);
}

TEST_F(json_file_faults, a_temporary_file_left_by_a_power_cut_is_never_read)
{
    write("config.json", old_text);
    write("config.json.tmp", other_text);
    EXPECT_EQ(number_at_next_start(), 1);
    EXPECT_FALSE(is_there("config.json.tmp"));
    std::filesystem::remove(folder_ + "/config.json");
    write("config.json.tmp", other_text);
    EXPECT_EQ(number_at_next_start(), -1);
}

TEST_F(json_file_faults, an_unreadable_file_does_not_pass_its_mode_on)
{
    write("config.json", "{ broken");
    write("config.json.good", old_text);
    ASSERT_EQ(chmod((folder_ + "/config.json").c_str(), 0), 0);
    ASSERT_EQ(chmod((folder_ + "/config.json.good").c_str(), 0640), 0);
    {
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 3), 0);
    }
    struct stat status{};
    ASSERT_EQ(stat((folder_ + "/config.json").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
}
