#include "settings_fixture.h"

#include <sys/stat.h>

#include <cerrno>
#include <climits>

namespace {

using json_file = settings;

constexpr char sample[] = R"({
  "before": [1, 2.5, null, {"x": "y"}],
  "gpio": {
    "number": 7,
    "unknown": {"deep": true},
    "name": "On Air",
    "flag": false
  },
  "after": "kept"
}
)";

mode_t mode_of(const std::string &path)
{
    struct stat status{};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

}  // namespace

TEST_F(json_file, a_missing_file_is_empty_and_loading_makes_none)
{
    {
        const file_handle file = open();
        ASSERT_NE(file, nullptr);
        zel_json_obj_t *const obj = gpio(file);
        ASSERT_NE(obj, nullptr);
        EXPECT_STREQ(zel_json_file_load_string(file.get(), obj, "name", "default"), "default");
        EXPECT_EQ(zel_json_file_load_string(file.get(), obj, "name", nullptr), nullptr);
        EXPECT_EQ(zel_json_file_load_integer(file.get(), obj, "number", -5), -5);
        EXPECT_EQ(zel_json_file_load_boolean(file.get(), obj, "flag", 1), 1);
        EXPECT_EQ(zel_json_file_integer_validate(file.get(), obj, "type", 0, 0, 2), 0);
    }
    EXPECT_FALSE(std::filesystem::exists(folder_));
    EXPECT_EQ(whole_log(), "");
}

TEST_F(json_file, what_is_set_is_there_at_the_next_start_in_a_folder_made_for_it)
{
    {
        const file_handle file = open();
        zel_json_obj_t *const obj = gpio(file);
        EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", "T\xc3\xbcr \"1\"\n\x01\\"), 0);
        EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, "lowest", INT32_MIN), 0);
        EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, "number", 42), 0);
        EXPECT_EQ(zel_json_file_set_boolean(file.get(), obj, "flag", 5), 0);
        EXPECT_EQ(zel_json_file_set_boolean(file.get(), zel_json_file_load_object(file.get(), obj, "deep"), "off", 0), 0);
    }
    const file_handle file = open();
    zel_json_obj_t *const obj = gpio(file);
    EXPECT_STREQ(zel_json_file_load_string(file.get(), obj, "name", ""), "T\xc3\xbcr \"1\"\n\x01\\");
    EXPECT_EQ(zel_json_file_load_integer(file.get(), obj, "lowest", 0), INT32_MIN);
    EXPECT_EQ(zel_json_file_load_integer(file.get(), obj, "number", 0), 42);
    EXPECT_EQ(zel_json_file_load_boolean(file.get(), obj, "flag", 0), 1);
    EXPECT_EQ(zel_json_file_load_boolean(file.get(), zel_json_file_load_object(file.get(), obj, "deep"), "off", 1), 0);
    EXPECT_EQ(mode_of(folder_ + "/config.json"), 0600u);
    EXPECT_EQ(mode_of(folder_), 0700u);
}

TEST_F(json_file, a_set_reaches_the_disk_without_a_save_call)
{
    write("config.json", sample);
    const file_handle file = open();
    file_calls::watch(folder_);
    ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 1), 0);
    EXPECT_TRUE(file_calls::wait_for(on_disk));
    EXPECT_NE(text("config.json").find("\"number\": 1"), std::string::npos);
    ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 2), 0);
    EXPECT_TRUE(file_calls::wait_for(on_disk, 2));
    EXPECT_NE(text("config.json").find("\"number\": 2"), std::string::npos);
}

TEST_F(json_file, a_burst_of_sets_is_joined)
{
    file_calls::watch(folder_);
    {
        const file_handle file = open();
        for (int i = 0; i <= 2000; ++i) ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", i), 0);
    }
    EXPECT_GE(file_calls::count(in_place), 1u);
    EXPECT_LE(file_calls::count(in_place), 50u);
    EXPECT_EQ(number_at_next_start(), 2000);
}

TEST_F(json_file, setting_what_is_there_already_writes_nothing)
{
    write("config.json", sample);
    file_calls::watch(folder_);
    {
        const file_handle file = open();
        zel_json_obj_t *const obj = gpio(file);
        EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, "number", 7), 0);
        EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", "On Air"), 0);
        EXPECT_EQ(zel_json_file_set_boolean(file.get(), obj, "flag", 0), 0);
    }
    EXPECT_EQ(file_calls::count(in_place), 0u);
    EXPECT_EQ(text("config.json"), sample);
}

TEST_F(json_file, unknown_members_and_the_order_of_all_survive)
{
    write("config.json", sample);
    {
        const file_handle file = open();
        EXPECT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 8), 0);
        EXPECT_EQ(zel_json_file_set_string(file.get(), gpio(file), "new", "last"), 0);
    }
    EXPECT_EQ(text("config.json"), R"({
  "before": [
    1,
    2.5,
    null,
    {
      "x": "y"
    }
  ],
  "gpio": {
    "number": 8,
    "unknown": {
      "deep": true
    },
    "name": "On Air",
    "flag": false,
    "new": "last"
  },
  "after": "kept"
}
)");
    EXPECT_EQ(text("config.json.good"), sample);
}

TEST_F(json_file, a_value_of_another_type_or_size_counts_as_absent)
{
    write("config.json", R"({"gpio": {"text": "5", "real": 5.0, "big": 2147483648, "small": -2147483649,
                             "huge": 9223372036854775807, "null": null, "list": [1], "object": {}, "yes": true, "number": 3, "one": 1}})");
    const file_handle file = open();
    zel_json_obj_t *const obj = gpio(file);
    for (const char *key : {"text", "real", "big", "small", "huge", "null", "list", "object", "yes", "absent"}) {
        EXPECT_EQ(zel_json_file_load_integer(file.get(), obj, key, 11), 11) << key;
        EXPECT_EQ(zel_json_file_integer_validate(file.get(), obj, key, 1, 0, 99), 1) << key;
    }
    for (const char *key : {"real", "null", "list", "object", "yes", "number"}) {
        EXPECT_STREQ(zel_json_file_load_string(file.get(), obj, key, "d"), "d") << key;
    }
    for (const char *key : {"text", "one", "null", "list", "object"}) {
        EXPECT_EQ(zel_json_file_load_boolean(file.get(), obj, key, 0), 0) << key;
        EXPECT_EQ(zel_json_file_load_boolean(file.get(), obj, key, 1), 1) << key;
    }
    for (const char *key : {"text", "list", "yes", "number", "null"}) {
        EXPECT_EQ(zel_json_file_load_object(file.get(), obj, key), nullptr) << key;
    }
}

TEST_F(json_file, a_number_out_of_its_range_gives_the_default)
{
    write("config.json", R"({"gpio": {"type": 2}})");
    const file_handle file = open();
    const auto validated = [&](int32_t min, int32_t max) {
        return zel_json_file_integer_validate(file.get(), gpio(file), "type", -7, min, max);
    };
    EXPECT_EQ(validated(0, 2), 2);
    EXPECT_EQ(validated(2, 2), 2);
    EXPECT_EQ(validated(0, 1), -7);
    EXPECT_EQ(validated(3, 9), -7);
    EXPECT_EQ(validated(INT32_MIN, INT32_MAX), 2);
}

TEST_F(json_file, a_set_takes_the_place_of_a_value_of_any_type)
{
    write("config.json", R"({"gpio": {"a": [1, {"b": {}}], "c": null, "d": 5.0}})");
    {
        const file_handle file = open();
        EXPECT_EQ(zel_json_file_set_string(file.get(), gpio(file), "a", "x"), 0);
        EXPECT_EQ(zel_json_file_set_boolean(file.get(), gpio(file), "c", 1), 0);
        EXPECT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "d", 5), 0);
    }
    EXPECT_EQ(text("config.json"), "{\n  \"gpio\": {\n    \"a\": \"x\",\n    \"c\": true,\n    \"d\": 5\n  }\n}\n");
}

TEST_F(json_file, handles_stay_the_same_while_objects_come_and_go)
{
    const file_handle file = open();
    zel_json_obj_t *const first = zel_json_file_load_object(file.get(), gpio(file), "gpio_0");
    for (int i = 1; i < 300; ++i) {
        ASSERT_NE(zel_json_file_load_object(file.get(), gpio(file), ("gpio_" + std::to_string(i)).c_str()), nullptr);
    }
    for (int i = 1; i < 300; i += 2) {
        EXPECT_EQ(zel_json_remove_object(file.get(), gpio(file), ("gpio_" + std::to_string(i)).c_str()), 0);
    }
    EXPECT_EQ(zel_json_file_load_object(file.get(), gpio(file), "gpio_0"), first);
    EXPECT_EQ(zel_json_file_set_integer(file.get(), first, "type", 2), 0);
    EXPECT_EQ(zel_json_file_load_integer(file.get(), first, "type", 0), 2);
}

TEST_F(json_file, a_text_stays_where_it_is_until_its_key_is_set_to_another)
{
    write("config.json", sample);
    const file_handle file = open();
    zel_json_obj_t *const obj = gpio(file);
    const char *const name = zel_json_file_load_string(file.get(), obj, "name", "");
    EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", "On Air"), 0);
    EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", name), 0);
    EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "other", "x"), 0);
    EXPECT_EQ(zel_json_remove_object(file.get(), obj, "flag"), 0);
    EXPECT_EQ(zel_json_file_load_string(file.get(), obj, "name", ""), name);
    EXPECT_STREQ(name, "On Air");
}

TEST_F(json_file, a_text_borrowed_from_a_key_may_be_set_there)
{
    write("config.json", sample);
    const file_handle file = open();
    zel_json_obj_t *const obj = gpio(file);
    EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", zel_json_file_load_string(file.get(), obj, "name", "") + 3), 0);
    EXPECT_STREQ(zel_json_file_load_string(file.get(), obj, "name", ""), "Air");
}

TEST_F(json_file, text_that_is_not_utf_8_is_refused_and_changes_nothing)
{
    write("config.json", sample);
    {
        const file_handle file = open();
        zel_json_obj_t *const obj = gpio(file);
        EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", "\xff"), -1);
        EXPECT_EQ(zel_json_file_set_string(file.get(), obj, "name", nullptr), -1);
        EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, "\xc3(", 1), -1);
        EXPECT_EQ(zel_json_file_load_object(file.get(), obj, "\xc3("), nullptr);
        EXPECT_STREQ(zel_json_file_load_string(file.get(), obj, "name", ""), "On Air");
    }
    EXPECT_EQ(text("config.json"), sample);
}

TEST_F(json_file, a_removed_objects_handle_is_refused_and_so_are_those_below_it)
{
    const file_handle file = open();
    zel_json_obj_t *const outer = gpio(file), *const inner = zel_json_file_load_object(file.get(), outer, "handler_info");
    zel_json_obj_t *const innermost = zel_json_file_load_object(file.get(), inner, "Record");
    ASSERT_EQ(zel_json_file_set_string(file.get(), innermost, "triggers", "A, B"), 0);
    ASSERT_EQ(zel_json_remove_object(file.get(), outer, "handler_info"), 0);
    for (zel_json_obj_t *const gone : {inner, innermost}) {
        EXPECT_EQ(zel_json_file_set_integer(file.get(), gone, "x", 1), -1);
        EXPECT_EQ(zel_json_file_set_string(file.get(), gone, "triggers", "C"), -1);
        EXPECT_STREQ(zel_json_file_load_string(file.get(), gone, "triggers", "none"), "none");
        EXPECT_EQ(zel_json_file_load_object(file.get(), gone, "Record"), nullptr);
        EXPECT_EQ(zel_json_remove_object(file.get(), gone, "triggers"), -1);
    }
    zel_json_obj_t *const anew = zel_json_file_load_object(file.get(), outer, "handler_info");
    ASSERT_NE(anew, nullptr);
    EXPECT_NE(anew, inner);
    zel_json_obj_t *const record = zel_json_file_load_object(file.get(), anew, "Record");
    EXPECT_STREQ(zel_json_file_load_string(file.get(), record, "triggers", "none"), "none");
}

TEST_F(json_file, an_object_overwritten_by_a_value_is_gone_as_well)
{
    const file_handle file = open();
    zel_json_obj_t *const inner = zel_json_file_load_object(file.get(), gpio(file), "relay");
    EXPECT_EQ(zel_json_file_set_string(file.get(), gpio(file), "relay", "none"), 0);
    EXPECT_EQ(zel_json_file_set_integer(file.get(), inner, "relay_count", 1), -1);
    EXPECT_EQ(zel_json_file_load_object(file.get(), gpio(file), "relay"), nullptr);
}

TEST_F(json_file, members_of_any_kind_are_removed_and_stay_so)
{
    write("config.json", sample);
    {
        const file_handle file = open();
        EXPECT_EQ(zel_json_remove_object(file.get(), nullptr, "before"), 0);
        EXPECT_EQ(zel_json_remove_object(file.get(), nullptr, "before"), -1);
        EXPECT_EQ(zel_json_remove_object(file.get(), gpio(file), "number"), 0);
        EXPECT_EQ(zel_json_remove_object(file.get(), gpio(file), "unknown"), 0);
        EXPECT_EQ(zel_json_remove_object(file.get(), gpio(file), "absent"), -1);
    }
    EXPECT_EQ(text("config.json"), R"({
  "gpio": {
    "name": "On Air",
    "flag": false
  },
  "after": "kept"
}
)");
}

TEST_F(json_file, null_arguments_are_refused)
{
    zel_json_init();
    const file_handle file = open();
    zel_json_obj_t *const obj = gpio(file);
    EXPECT_EQ(zel_json_file_init(nullptr), nullptr);
    EXPECT_EQ(zel_json_file_init("relative/config.json"), nullptr);
    EXPECT_EQ(zel_json_file_init(""), nullptr);
    EXPECT_EQ(zel_json_file_load_object(nullptr, obj, "x"), nullptr);
    EXPECT_EQ(zel_json_file_load_object(file.get(), nullptr, nullptr), nullptr);
    EXPECT_EQ(zel_json_file_set_integer(nullptr, obj, "x", 1), -1);
    EXPECT_EQ(zel_json_file_set_integer(file.get(), nullptr, "x", 1), -1);
    EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, nullptr, 1), -1);
    EXPECT_STREQ(zel_json_file_load_string(file.get(), nullptr, "x", "d"), "d");
    EXPECT_EQ(zel_json_file_load_integer(file.get(), obj, nullptr, 3), 3);
    EXPECT_EQ(zel_json_remove_object(file.get(), obj, nullptr), -1);
    EXPECT_EQ(zel_json_remove_object(nullptr, obj, "x"), -1);
    zel_json_file_term(nullptr);
}

TEST_F(json_file, objects_are_made_only_as_deep_as_they_can_be_read_again)
{
    int depth = 0;
    {
        const file_handle file = open();
        zel_json_obj_t *obj = nullptr;
        for (zel_json_obj_t *next = gpio(file); next != nullptr; next = zel_json_file_load_object(file.get(), obj, "in")) {
            obj = next;
            ++depth;
        }
        EXPECT_EQ(zel_json_file_set_integer(file.get(), obj, "number", 5), 0);
    }
    EXPECT_GE(depth, 100);
    EXPECT_NE(open(), nullptr);
    EXPECT_EQ(whole_log(), "");
}

TEST_F(json_file, the_mode_of_an_existing_file_is_kept)
{
    write("config.json", sample);
    ASSERT_EQ(chmod((folder_ + "/config.json").c_str(), 0640), 0);
    {
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 9), 0);
    }
    EXPECT_EQ(mode_of(folder_ + "/config.json"), 0640u);
    EXPECT_EQ(number_at_next_start(), 9);
}

TEST_F(json_file, a_symbolic_link_stays_one)
{
    write_text(unit_.file("elsewhere/real.json"), sample);
    std::filesystem::create_directory(folder_);
    ASSERT_EQ(symlink("../elsewhere/real.json", (folder_ + "/config.json").c_str()), 0);
    {
        const file_handle file = open();
        ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 9), 0);
    }
    EXPECT_TRUE(std::filesystem::is_symlink(folder_ + "/config.json"));
    EXPECT_NE(text_of(unit_.file("elsewhere/real.json")).find("\"number\": 9"), std::string::npos);
}

TEST_F(json_file, a_file_is_open_only_once)
{
    {
        const file_handle file = open();
        EXPECT_EQ(open(), nullptr);
        EXPECT_EQ(logged("config.json is open already"), 1u);
        EXPECT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 9), 0);
    }
    EXPECT_EQ(number_at_next_start(), 9);
}

TEST_F(json_file, a_process_that_exits_without_closing_the_file_has_written_it)
{
    EXPECT_EQ(in_child([&] {
        zel_json_file_t *const file = open().release();
        if (zel_json_file_set_integer(file, zel_json_file_load_object(file, nullptr, "gpio"), "number", 12) == 0) exit(0);
        _exit(1);
    }), 0);
    EXPECT_EQ(number_at_next_start(), 12);
}

TEST_F(json_file, a_forked_child_leaves_the_file_to_its_parent)
{
    file_handle file = open();
    ASSERT_EQ(zel_json_file_set_integer(file.get(), gpio(file), "number", 1), 0);
    file_calls::watch(folder_);
    EXPECT_EQ(in_child([&] {
        zel_json_file_term(file.release());
        if (file_calls::count(in_place) != 0) _exit(1);
        exit(0);
    }), 0);
    file.reset();
    EXPECT_EQ(number_at_next_start(), 1);
}

TEST_F(json_file, many_changes_while_writes_go_on_are_all_there_at_the_end)
{
    write("config.json", sample);
    {
        const file_handle file = open();
        zel_json_obj_t *const obj = gpio(file);
        file_calls::watch(folder_);
        for (int round = 1; file_calls::count(in_place) < 5; ++round) {
            const std::string key = "key_" + std::to_string(round % 50);
            ASSERT_EQ(zel_json_file_set_integer(file.get(), obj, key.c_str(), round), 0);
            ASSERT_EQ(zel_json_file_set_integer(file.get(), obj, "number", round), 0);
            ASSERT_EQ(zel_json_file_load_integer(file.get(), obj, key.c_str(), 0), round);
            ASSERT_EQ(zel_json_remove_object(file.get(), obj, round % 7 == 0 ? key.c_str() : "absent"), round % 7 == 0 ? 0 : -1);
        }
        ASSERT_EQ(zel_json_file_set_integer(file.get(), obj, "number", 1000000), 0);
    }
    EXPECT_EQ(number_at_next_start(), 1000000);
    EXPECT_EQ(whole_log(), "");
}
