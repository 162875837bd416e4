#include "captured_stderr.h"
#include "common/unit_file.h"
#include "temp_folder.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

class unit_file : public testing::Test {
protected:
    void SetUp() override { setenv("ZEL_ROOT", folder_.path().c_str(), 1); }

    zel::unit_file load(const std::string &text)
    {
        write_text(path_, text);
        return zel::unit_file::load();
    }

    temp_folder folder_;
    const std::string path_ = folder_.file("etc/zel/unit.json");
    captured_stderr log_;
};

}  // namespace

TEST_F(unit_file, values_are_found_by_path)
{
    const auto file = load(R"({"product_id": "X", "servers": {"ember": {"port": 9001}}, "pins": [{"in_pin": 1}, {"in_pin": 2,
                              "cough": true}], "kernel_lines": {"5": {"chip": "a/b", "offset": 3}}})");
    EXPECT_EQ(file.state(), zel::json_state::good);
    EXPECT_STREQ(file.string("product_id", "none"), "X");
    EXPECT_EQ(file.integer("servers/ember/port", 9000, 1, 65535), 9001);
    EXPECT_EQ(file.count("pins"), 2u);
    EXPECT_EQ(file.integer("pins/1/in_pin", 0), 2);
    EXPECT_TRUE(file.boolean("pins/1/cough", false));
    EXPECT_STREQ(file.string("kernel_lines/5/chip", ""), "a/b");
    EXPECT_TRUE(file.sound());
    EXPECT_TRUE(log_.all().empty());
}

TEST_F(unit_file, absent_values_give_their_defaults_silently)
{
    const auto file = load(R"({"pins": [{}], "servers": {}})");
    EXPECT_STREQ(file.string("product_id", "none"), "none");
    EXPECT_EQ(file.string("product_id", nullptr), nullptr);
    EXPECT_EQ(file.integer("servers/ember/port", 9000), 9000);
    EXPECT_EQ(file.integer("pins/0/in_pin", -1), -1);
    EXPECT_EQ(file.integer("pins/1/in_pin", -2), -2);
    EXPECT_EQ(file.integer("pins/x/in_pin", -3), -3);
    EXPECT_EQ(file.integer("pins/99999999999999999999999/in_pin", -4), -4);
    EXPECT_TRUE(file.boolean("servers/web/enabled", true));
    EXPECT_EQ(file.count("triggers"), 0u);
    EXPECT_FALSE(file.has("servers/web"));
    EXPECT_TRUE(file.has("servers"));
    EXPECT_TRUE(file.sound());
    EXPECT_TRUE(log_.all().empty());
}

TEST_F(unit_file, a_missing_file_is_an_empty_one)
{
    const auto file = zel::unit_file::load();
    EXPECT_EQ(file.state(), zel::json_state::missing);
    EXPECT_EQ(file.integer("a/b", 7), 7);
    EXPECT_TRUE(file.member_names("").empty());
    EXPECT_TRUE(file.sound());
    EXPECT_TRUE(log_.all().empty());
}

TEST_F(unit_file, comments_do_not_exist_at_any_level)
{
    const auto file = load(R"({"#": 1, "#note": 2, "a": {"#": 3, "b": 4, "c#": 5}, "#": 6})");
    EXPECT_FALSE(file.has("#"));
    EXPECT_FALSE(file.has("#note"));
    EXPECT_FALSE(file.has("a/#"));
    EXPECT_EQ(file.integer("a/c#", 0), 5);
    EXPECT_EQ(file.member_names(""), (std::vector<std::string>{"a"}));
    EXPECT_EQ(file.member_names("a"), (std::vector<std::string>{"b", "c#"}));
}

TEST_F(unit_file, a_value_that_cannot_be_used_is_named_and_its_default_taken)
{
    const auto file = load(R"({"s": 1, "i": "1", "b": 0, "n": null, "r": 1.5, "big": 4294967296, "port": 65536, "a": {}, "o": [],
                              "v": 3})");
    const struct { const char *path, *complaint; } table[] = {
        {"s", "to be a text"}, {"i", "to be a whole number from -2147483648 to 2147483647"}, {"b", "to be true or false"},
        {"n", "to be a text"}, {"r", "to be a whole number from 0 to 9"},
        {"big", "to be a whole number from -2147483648 to 2147483647"}, {"port", "to be a whole number from 1 to 65535"},
        {"a", "to be an array"}, {"o", "to be an object"}, {"v/x/y", "to be found below an object or array"}};
    EXPECT_TRUE(file.sound());
    EXPECT_STREQ(file.string("s", "d"), "d");
    EXPECT_EQ(file.integer("i", 5), 5);
    EXPECT_TRUE(file.boolean("b", true));
    EXPECT_STREQ(file.string("n", "d"), "d");
    EXPECT_EQ(file.integer("r", 5, 0, 9), 5);
    EXPECT_EQ(file.integer("big", 5), 5);
    EXPECT_EQ(file.integer("port", 80, 1, 65535), 80);
    EXPECT_EQ(file.count("a"), 0u);
    EXPECT_TRUE(file.member_names("o").empty());
    EXPECT_EQ(file.integer("v/x/y", 4), 4);
    EXPECT_FALSE(file.sound());
    for (const auto &row : table) {
        const std::string line = level_and_text(log_.next());
        EXPECT_TRUE(line.starts_with("warning: ")) << line;
        EXPECT_NE(line.find("unit.json: \"" + std::string(row.path) + "\" is expected " + row.complaint), std::string::npos)
            << line;
    }
}

TEST_F(unit_file, an_unreadable_file_is_told_once_and_empty)
{
    const struct { const char *text, *complaint; } table[] = {
        {"", "line 1 column 0: '[' or '{' expected near end of file"},
        {"[1]", "the outermost value is not an object"},
        {"{\"a\": 1,\n \"b\" 2}", "line 2 column 6: ':' expected near '2'"},
        {"{\"a\": 1} x", "line 1 column 10: end of file expected near 'x'"},
        {"\xEF\xBB\xBF{}", "line 1 column"},
    };
    for (const auto &row : table) {
        const auto file = load(row.text);
        EXPECT_EQ(file.state(), zel::json_state::unreadable);
        EXPECT_FALSE(file.sound());
        EXPECT_EQ(file.integer("a", 3), 3);
        const auto lines = log_.all();
        ASSERT_EQ(lines.size(), 1u) << row.text;
        EXPECT_NE(lines[0].find(path_ + ": " + row.complaint), std::string::npos) << lines[0];
    }
}

TEST_F(unit_file, a_file_of_more_than_four_mebibytes_is_refused_unread)
{
    write_text(path_, "{}");
    ASSERT_EQ(truncate(path_.c_str(), (4 << 20) + 1), 0);
    EXPECT_EQ(zel::unit_file::load().state(), zel::json_state::unreadable);
    EXPECT_NE(log_.next().find("4194305 bytes are more than the 4194304 allowed"), std::string::npos);
}

TEST_F(unit_file, a_pipe_or_folder_in_its_place_is_refused_without_waiting)
{
    std::filesystem::create_directories(path_);
    EXPECT_EQ(zel::unit_file::load().state(), zel::json_state::unreadable);
    std::filesystem::remove(path_);
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(zel::unit_file::load().state(), zel::json_state::unreadable);
    for (const std::string &line : log_.all()) EXPECT_NE(line.find("not a regular file"), std::string::npos) << line;
}

TEST_F(unit_file, brackets_without_end_are_refused_and_do_not_exhaust_the_stack)
{
    EXPECT_EQ(load("{\"a\":" + std::string(1000000, '[')).state(), zel::json_state::unreadable);
    EXPECT_NE(log_.next().find("maximum parsing depth reached"), std::string::npos);
}
