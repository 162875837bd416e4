// Every mistake in a settings file is found and told with its place.
#include "running_unit.h"
#include "settings.h"
#include "settings_reading.h"

#include <gtest/gtest.h>

using namespace zel;
using zel::test::run;
using zel::test::run_result;
using zel::test::temp_folder;
using zel::test::write_file;

namespace {

struct checked {
    std::string path;
    run_result result;
};

checked check_text(const temp_folder &folder, std::string_view text)
{
    const std::string path = folder.path() + "/unit.json";
    write_file(path, text);
    return {path, run({ZEL_UNIT, "--check", path})};
}

struct wrong_row {
    const char *what;
    const char *text;                 // of the file
    std::vector<std::string> lines;   // behind "zel_unit: FILE:"
};

const wrong_row wrong_rows[] = {
    {"number_as_text", "{\n \"pins\": [\n  {\"in_pin\": \"x\", \"out_pin\": 2}]}",
     {"3: pins[0].in_pin: must be a whole number from 0 to 65535, not \"x\""}},
    {"number_too_high", "{\"pins\": [{\"in_pin\": 65536, \"out_pin\": 2}]}",
     {"1: pins[0].in_pin: must be a whole number from 0 to 65535, not 65536"}},
    {"number_negative", "{\"virtual_count\": -1}", {"1: virtual_count: must be a whole number from 0 to 1000, not -1"}},
    {"number_with_fraction", "{\"user_buttons\": 1.5}", {"1: user_buttons: must be a whole number from 0 to 64, not 1.5"}},
    {"number_beyond_32_bits", "{\"virtual_count\": 4294967297}",
     {"1: virtual_count: must be a whole number from 0 to 1000, not 4294967297"}},
    {"too_many_relays", "{\"relays\": {\"base_pin\": 1, \"count\": 257}}",
     {"1: relays.count: must be a whole number from 0 to 256, not 257"}},
    {"boolean_as_number", "{\"pins\": [{\"in_pin\": 1, \"out_pin\": 2, \"in_active_low\": 1}]}",
     {"1: pins[0].in_active_low: must be true or false, not 1"}},
    {"unknown_word", "{\"pin_backend\": \"real\"}", {"1: pin_backend: must be one of \"sim\", \"kernel\", not \"real\""}},
    {"unknown_setting", "{\n\n \"frendly_name\": \"x\"}",
     {"3: frendly_name: there is no such setting (did you mean \"friendly_name\"?)"}},
    {"unknown_setting_far_from_all", "{\"colour_of_the_lamp\": 1}", {"1: colour_of_the_lamp: there is no such setting"}},
    {"unknown_setting_inside", "{\"relays\": {\"base_pn\": 3}}",
     {"1: relays.base_pn: there is no such setting (did you mean \"base_pin\"?)", "1: relays: \"base_pin\" is missing"}},
    {"empty_name_of_a_setting", "{\"\": {}}", {"1: there is no such setting"}},
    {"name_like_a_pattern", "{\"pins[]\": {}}", {"1: pins[]: there is no such setting (did you mean \"pins\"?)"}},
    {"address_by_name", "{\"servers\": {\"ember\": {\"address\": \"localhost\"}}}",
     {"1: servers.ember.address: must be a numeric IPv4 or IPv6 address, not \"localhost\""}},
    {"port_zero", "{\"servers\": {\"web\": {\"port\": 0}}}",
     {"1: servers.web.port: must be a whole number from 1 to 65535, not 0"}},
    {"servers_on_one_port", "{\"servers\": {\n\"ember\": {\"port\": 9},\n\"web\": {\"port\": 9}}}",
     {"3: servers.web: has the address and port of servers.ember"}},
    {"pin_without_output", "{\"pins\": [{\"in_pin\": 1}]}",
     {"1: pins[0]: \"out_pin\" is missing (only a cough port needs none)"}},
    {"pin_without_input", "{\"pins\": [{\"out_pin\": 1}]}", {"1: pins[0]: \"in_pin\" is missing"}},
    {"cough_port_in_front", "{\"pins\": [\n{\"in_pin\": 1, \"cough\": true},\n{\"in_pin\": 2, \"out_pin\": 3}]}",
     {"3: pins[1]: a GPI port must stand before all cough ports"}},
    {"one_pin_twice", "{\"pins\": [\n{\"in_pin\": 1, \"out_pin\": 2},\n{\"in_pin\": 3, \"out_pin\": 1}]}",
     {"3: pins[1].out_pin: pin 1 is taken by pins[0].in_pin"}},
    {"relay_on_a_port_s_pin", "{\"pins\": [{\"in_pin\": 1, \"out_pin\": 11}],\n \"relays\": {\"base_pin\": 10, \"count\": 2}}",
     {"2: relays: pin 11 of relay 2 is taken by pins[0].out_pin"}},
    {"relays_beyond_the_last_pin", "{\"relays\": {\"base_pin\": 65535, \"count\": 4}}",
     {"1: relays: the pin of relay 2 would be above 65535"}},
    {"too_many_pins",
     "{\"pins\": [{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{},{}]}",
     {"1: pins: must be an array of at most 20 entries, not 21"}},
    {"empty_handler_name", "{\"handlers\": [{\"name\": \"\"}]}",
     {"1: handlers[0].name: must be a text of 1 to 63 bytes, not \"\""}},
    {"long_trigger_name", "{\"triggers\": [\"0123456789012345678901234567890123456789012345678901234567890123\"]}",
     {"1: triggers[0]: must be a text of 1 to 63 bytes, not \"01234567890123456789012345678901234567890123456789012345678..."}},
    {"comma_in_a_name", "{\"handlers\": [{\"name\": \"A, B\"}]}", {"1: handlers[0].name: must hold no comma"}},
    {"exclamation_mark_in_front", "{\"triggers\": [\"!A\"]}", {"1: triggers[0]: must not begin with '!'"}},
    {"blank_behind_a_name", "{\"triggers\": [\"A \"]}", {"1: triggers[0]: must not begin or end with a blank"}},
    {"line_feed_in_a_name", "{\"triggers\": [\"A\\nB\"]}", {"1: triggers[0]: must hold no control characters"}},
    {"zero_byte_in_a_name", "{\"triggers\": [\"A\\u0000B\"]}",
     {" line 1 column 24: \\u0000 is not allowed without JSON_ALLOW_NUL near '\"A\\u0000B\"'"}},
    {"two_handlers_of_one_name", "{\"handlers\": [\n{\"name\": \"A\"},\n{\"name\": \"A\"}]}",
     {"3: handlers[1].name: \"A\" is the name of handlers[0].name already"}},
    {"two_triggers_of_one_name", "{\"triggers\": [\"A\",\n\"A\"]}", {"2: triggers[1]: \"A\" is triggers[0] already"}},
    {"built_in_trigger", "{\"triggers\": [\"AC Power Off\"]}", {"1: triggers[0]: \"AC Power Off\" is a built-in trigger"}},
    {"port_s_own_trigger", "{\"triggers\": [\"vGPI 12\"]}", {"1: triggers[0]: \"vGPI 12\" is the name of a port's own trigger"}},
    {"user_led_s_handler", "{\"handlers\": [{\"name\": \"User LED 1\"}]}",
     {"1: handlers[0].name: is the name of a user LED's own handler"}},
    {"too_many_triggers_beside_the_ports'", "{\"virtual_count\": 194, \"triggers\": [\"A\", \"B\"]}",
     {"1: triggers: beside the ports' own triggers there is room for 1, not 2"}},
    {"command_that_is_no_path", "{\"handlers\": [{\"name\": \"A\", \"command\": [\"ls\"]}]}",
     {"1: handlers[0].command[0]: must be a program's absolute path"}},
    {"command_without_a_program", "{\"handlers\": [{\"name\": \"A\", \"command\": []}]}",
     {"1: handlers[0].command: must be an array of 1 to 64 entries, not 0"}},
    {"kernel_line_that_is_no_pin", "{\"kernel_lines\": {\"x\": {\"chip\": \"c\", \"offset\": 1}}}",
     {"1: kernel_lines.x: the name must be a pin's number from 0 to 65535"}},
    {"kernel_line_with_a_leading_zero", "{\"kernel_lines\": {\"07\": {\"chip\": \"c\", \"offset\": 1}}}",
     {"1: kernel_lines.07: the name must be a pin's number from 0 to 65535"}},
    {"one_kernel_line_twice",
     "{\"kernel_lines\": {\"1\": {\"chip\": \"c\", \"offset\": 1},\n\"2\": {\"chip\": \"c\", \"offset\": 1}}}",
     {"2: kernel_lines.2: is the same line as kernel_lines.1"}},
    {"kernel_line_without_chip", "{\"kernel_lines\": {\"1\": {\"offset\": 1}}}", {"1: kernel_lines.1: \"chip\" is missing"}},
    {"setting_given_twice", "{\"virtual_count\": 1,\n\"virtual_count\": 2}", {"2: virtual_count: is given twice"}},
    {"not_json", "{\n\"virtual_count\": }", {" line 2 column 18: unexpected token near '}'"}},
    {"not_an_object", "[]", {" the outermost value is not an object"}},
    {"several_mistakes_in_the_file_s_order",
     "{\n\"user_buttons\": 65,\n\"colour\": 1,\n\"pins\": [{\"in_pin\": 1}],\n\"interface\": \"\"\n}",
     {"2: user_buttons: must be a whole number from 0 to 64, not 65", "3: colour: there is no such setting",
      "4: pins[0]: \"out_pin\" is missing (only a cough port needs none)",
      "5: interface: must be a text of 1 to 15 bytes, not \"\""}},
};

}  // namespace

class wrong_settings : public testing::TestWithParam<wrong_row> {};

TEST_P(wrong_settings, is_told_with_its_place)
{
    const temp_folder folder;
    const checked found = check_text(folder, GetParam().text);
    std::string expected;
    for (const std::string &line : GetParam().lines) expected += "zel_unit: " + found.path + ":" + line + "\n";
    EXPECT_EQ(found.result.err, expected);
    EXPECT_EQ(found.result.out, "");
    EXPECT_EQ(found.result.status, 3);
}

INSTANTIATE_TEST_SUITE_P(unit_settings, wrong_settings, testing::ValuesIn(wrong_rows), [](const auto &each) {
    std::string name = each.param.what;
    for (char &c : name) c = isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
});

TEST(unit_settings, the_examples_have_no_mistakes)
{
    for (const char *path : {ZEL_DOCS "/unit.example.json", ZEL_EXAMPLES "/studio/unit.json"}) {
        const run_result result = run({ZEL_UNIT, "--check", path});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, std::string(path) + ": no mistakes\n");
    }
}

TEST(unit_settings, the_commented_example_shows_every_setting)
{
    const std::string text = zel::test::read_file(ZEL_DOCS "/unit.example.json");
    for (const setting &row : settings_table()) {
        const std::string name(row.pattern.substr(row.pattern.rfind('.') + 1));
        if (name.empty() || name == "*" || name.ends_with("[]")) continue;
        EXPECT_NE(text.find("\"" + name + "\":"), std::string::npos) << row.pattern;
    }
}

TEST(unit_settings, the_manual_has_the_table_that_the_program_prints)
{
    const run_result result = run({ZEL_UNIT, "--settings"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(zel::test::read_file(ZEL_DOCS "/unit.md").find(result.out), std::string::npos)
        << "docs/unit.md must hold:\n" << result.out;
}

TEST(unit_settings, an_empty_object_takes_every_default)
{
    const temp_folder folder;
    const std::string path = folder.path() + "/unit.json";
    write_file(path, "{}");
    const settings_reading reading = read_settings(path);
    EXPECT_TRUE(reading.mistakes.empty());
    EXPECT_EQ(reading.settings.product_id, "ZEL-SOFT");
    EXPECT_EQ(reading.settings.interface, "lo");
    EXPECT_EQ(reading.settings.udp.port, 5010);
    EXPECT_FALSE(reading.settings.udp_enabled);
    EXPECT_EQ(reading.settings.ember.address, "127.0.0.1");
    EXPECT_EQ(reading.settings.ember.port, 9000);
    EXPECT_EQ(reading.settings.discovery, "zel_sdiscd");
    EXPECT_EQ(reading.settings.relay_count, 0);
}

TEST(unit_settings, values_arrive_where_they_belong)
{
    const temp_folder folder;
    const std::string path = folder.path() + "/unit.json";
    write_file(path, R"({"#": [1], "pins": [{"in_pin": 4, "in_active_low": true, "out_pin": 5, "#x": {"a": 1, "a": 2}},
        {"in_pin": 6, "cough": true}], "relays": {"base_pin": 9, "count": 3}, "handlers": [{"name": "A"},
        {"name": "B", "command": ["/bin/x", "y z", ""]}], "triggers": ["T"],
        "kernel_lines": {"4": {"chip": "c", "offset": 7}}})");
    const settings_reading reading = read_settings(path);
    for (const mistake &wrong : reading.mistakes) ADD_FAILURE() << describe(path, wrong);
    const unit_settings &got = reading.settings;
    ASSERT_EQ(got.pins.size(), 2U);
    EXPECT_EQ(got.pins[0].in_pin, 4);
    EXPECT_TRUE(got.pins[0].in_active_low);
    EXPECT_EQ(got.pins[0].out_pin, 5);
    EXPECT_FALSE(got.pins[0].out_active_low);
    EXPECT_TRUE(got.pins[1].cough);
    EXPECT_EQ(got.relay_base_pin, 9);
    EXPECT_EQ(got.relay_count, 3);
    ASSERT_EQ(got.handlers.size(), 2U);
    EXPECT_TRUE(got.handlers[0].command.empty());
    EXPECT_EQ(got.handlers[1].command, (std::vector<std::string>{"/bin/x", "y z", ""}));
    EXPECT_EQ(got.triggers, std::vector<std::string>{"T"});
    ASSERT_EQ(got.kernel_lines.size(), 1U);
    EXPECT_EQ(got.kernel_lines[0].offset, 7);
}

TEST(unit_settings, one_line_may_serve_a_port_both_ways)
{
    const temp_folder folder;
    EXPECT_EQ(check_text(folder, "{\"pins\": [{\"in_pin\": 1, \"out_pin\": 1}]}").result.status, 0);
}

TEST(unit_settings, a_missing_file_is_told)
{
    const temp_folder folder;
    const run_result result = run({ZEL_UNIT, "--check", folder.path() + "/none.json"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "zel_unit: " + folder.path() + "/none.json: No such file or directory\n");
}

TEST(unit_settings, mistakes_keep_the_unit_from_starting)
{
    const zel::test::unit_root root;
    write_file(root.settings(), "{\"virtual_count\": \"many\"}");
    const run_result result = run({ZEL_UNIT, "--root", root.path()});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.err, "zel_unit: " + root.settings() +
                              ":1: virtual_count: must be a whole number from 0 to 1000, not \"many\"\n");
}

TEST(unit_command_line, what_cannot_be_understood_is_told)
{
    EXPECT_EQ(run({ZEL_UNIT, "--rot", "x"}).err, "zel_unit: unknown argument \"--rot\" (try --help)\n");
    EXPECT_EQ(run({ZEL_UNIT, "--rot", "x"}).status, 2);
    EXPECT_EQ(run({ZEL_UNIT, "--root"}).err, "zel_unit: --root needs a folder (try --help)\n");
    EXPECT_EQ(run({ZEL_UNIT, "--root", "/nowhere/at/all"}).status, 1);
    EXPECT_EQ(run({ZEL_UNIT, "--root", "/nowhere/at/all"}).err, "zel_unit: /nowhere/at/all: No such file or directory\n");
}

TEST(unit_command_line, help_and_version_go_to_the_standard_output)
{
    const run_result help = run({ZEL_UNIT, "--help"}), version = run({ZEL_UNIT, "--version"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.starts_with("usage: zel_unit"));
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.starts_with("zel_unit "));
}
