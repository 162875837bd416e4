// The fake platform itself: what the other tests rely on.
#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "zel_debug.h"
#include "zel_sys.h"

using fake::lines;
using fake::unit;

namespace {

constexpr const char *path = "/mnt/data/config/config.json";

void ignore_value(void *, const char *, uint32_t, const void *) {}
void ignore_link(void *, uint8_t, const char *, uint16_t) {}
void ignore_message(zel_ipc_client_t *, uint8_t, const void *, uint32_t) {}

zel_ember_session_t *consumer_of(const char *address)
{
    zel_ember_session_config_t config{};
    config.provider_addr = address;
    config.connect_cb = ignore_link;
    return zel_ember_session_init(&config);
}

}  // namespace

TEST(fake_journal, filters_by_whole_words_and_path_elements)
{
    EXPECT_TRUE(fake::begins_with("pin 1 write 1", "pin 1"));
    EXPECT_FALSE(fake::begins_with("pin 10 write 1", "pin 1"));
    EXPECT_TRUE(fake::begins_with("json set gpio/physical/gpio_1/type 2", "json set gpio/physical/gpio_1"));
    EXPECT_FALSE(fake::begins_with("json set gpio/physical/gpio_10/type 2", "json set gpio/physical/gpio_1"));
    EXPECT_FALSE(fake::begins_with("pin", "pin 1"));
    EXPECT_TRUE(fake::begins_with("anything", ""));
}

TEST(fake_journal, notes_a_message_that_has_no_line_feed)
{
    unit unit;
    log_message(1, "%s: text %d\n", "f", 5);
    log_message(0, "%s", "bare");
    EXPECT_EQ(unit.take(), (lines{"log 1 f: text 5", "log 0 bare (no line feed)"}));
}

TEST(fake_faults, fail_calls_by_name_by_number_and_for_some_times)
{
    unit unit;
    unit.fail("pin 3 open", 1);
    EXPECT_EQ(zel_sys_gpio_open(3, 0), nullptr);
    zel_sys_gpio_t *const pin = zel_sys_gpio_open(3, 0);
    ASSERT_NE(pin, nullptr);
    EXPECT_TRUE(unit.fault_fired());
    unit.fail_nth(1);
    EXPECT_EQ(zel_sys_gpio_set_edge(pin, 3), 0);
    EXPECT_EQ(zel_sys_gpio_read(pin), -1);
    EXPECT_EQ(zel_sys_gpio_read(pin), 0);
    EXPECT_EQ(unit.take(), (lines{"pin 3 open 0 failed", "pin 3 open 0", "pin 3 edge 3", "pin 3 read 0 failed", "pin 3 read 0"}));
    EXPECT_EQ(unit.open_pins(), 1);
    zel_sys_gpio_close(pin);
    EXPECT_EQ(unit.open_pins(), 0);
}

TEST(fake_pins, refuse_null_and_writing_an_input)
{
    unit unit;
    EXPECT_EQ(zel_sys_gpio_write(nullptr, 1), -1);
    zel_sys_gpio_t *const pin = zel_sys_gpio_open(3, 0);
    EXPECT_EQ(zel_sys_gpio_write(pin, 1), -1);
    zel_sys_gpio_close(pin);
}

TEST(fake_file, makes_absent_objects_and_keeps_what_was_set)
{
    unit unit;
    unit.config(R"({"other": [1, {"a": "b"}], "gpio": {"physical": {"gpio_0": {"type": 1, "x": 1.5, "t": "say \"hi\"\\n"}}}})");
    zel_json_file_t *const file = zel_json_file_init(path);
    zel_json_obj_t *const gpio = zel_json_file_load_object(file, nullptr, "gpio");
    zel_json_obj_t *const port = zel_json_file_load_object(file, zel_json_file_load_object(file, gpio, "physical"), "gpio_0");
    EXPECT_EQ(zel_json_file_load_integer(file, port, "type", 7), 1);
    EXPECT_EQ(zel_json_file_load_integer(file, port, "x", 7), 7);
    EXPECT_EQ(zel_json_file_integer_validate(file, port, "type", 0, 2, 3), 0);
    EXPECT_STREQ(zel_json_file_load_string(file, port, "t", ""), "say \"hi\"\\n");
    EXPECT_EQ(zel_json_file_load_string(file, port, "type", nullptr), nullptr);
    EXPECT_EQ(zel_json_file_set_boolean(file, port, "flag", 5), 0);
    EXPECT_EQ(zel_json_file_load_boolean(file, port, "flag", 0), 1);
    EXPECT_NE(zel_json_file_load_object(file, gpio, "relay"), nullptr);
    EXPECT_EQ(zel_json_file_load_object(file, port, "type"), nullptr);
    EXPECT_EQ(zel_json_file_set_string(file, port, "bad", "\xff"), -1);
    EXPECT_EQ(zel_json_remove_object(file, port, "x"), 0);
    EXPECT_EQ(zel_json_remove_object(file, port, "x"), -1);
    zel_json_file_term(file);
    EXPECT_EQ(unit.json("other"), R"([1, {"a": "b"}])");
    EXPECT_EQ(unit.json("gpio"), R"({"physical": {"gpio_0": {"type": 1, "t": "say \"hi\"\\n", "flag": true}}, "relay": {}})");
    EXPECT_EQ(unit.take(), (lines{"json open /mnt/data/config/config.json", "json set gpio/physical/gpio_0/flag true",
                                  "json make gpio/relay", "json set bad to no text", "json remove gpio/physical/gpio_0/x",
                                  "json remove gpio/physical/gpio_0/x (absent)", "json close"}));
}

TEST(fake_file, releases_a_borrowed_text_when_its_key_is_set)
{
    unit unit;
    unit.set("a", "first");
    zel_json_file_t *const file = zel_json_file_init(path);
    zel_json_obj_t *const gpio = zel_json_file_load_object(file, nullptr, "gpio");
    const char *const text = zel_json_file_load_string(file, gpio, "a", "");
    EXPECT_EQ(zel_json_file_set_string(file, gpio, "a", text), 0);   // allowed: it is copied first
    EXPECT_STREQ(zel_json_file_load_string(file, gpio, "a", ""), "first");
    zel_json_file_term(file);
}

TEST(fake_writer, writes_json_and_never_beyond_its_buffer)
{
    const auto document = [](char *buf, size_t size) {
        int pos = zel_json_writer_new_obj(buf, size, zel_json_writer_start(buf), nullptr);
        pos = zel_json_writer_put_str(buf, size, pos, "a", "q\"\n\xff");
        pos = zel_json_writer_new_array(buf, size, pos, "list");
        pos = zel_json_writer_put_int(buf, size, pos, nullptr, -5);
        pos = zel_json_writer_put_bool(buf, size, pos, nullptr, 3);
        pos = zel_json_writer_end_obj(buf, size, zel_json_writer_end_array(buf, size, pos));
        return zel_json_writer_finish(buf, size, pos);
    };
    unit unit;
    char text[200];
    const std::string expected = "{\"a\":\"q\\\"\\u000a\xEF\xBF\xBD\",\"list\":[-5,true]}";
    EXPECT_EQ(document(text, sizeof text), static_cast<int>(expected.size()));
    EXPECT_EQ(text, expected);
    for (size_t size = 1; size <= expected.size(); ++size)
        EXPECT_EQ(document(std::make_unique<char[]>(size).get(), size), -1);
    EXPECT_EQ(document(std::make_unique<char[]>(expected.size() + 1).get(), expected.size() + 1),
              static_cast<int>(expected.size()));
}

TEST(fake_tree, has_paths_from_the_root_and_values)
{
    unit unit;
    unit.ember(9000, "studio");
    zel_ember_session_t *const provider = unit.provider();
    zel_ember_element_t *const node = zel_ember_add_node(provider, "gpio", nullptr, 0, unit.parent());
    zel_ember_element_t *const text = zel_ember_add_string_param(provider, "t", nullptr, 0, 1, "A", nullptr, nullptr, node);
    char buffer[64];
    EXPECT_EQ(zel_ember_get_path(provider, text, buffer, sizeof buffer), 0);
    EXPECT_STREQ(buffer, "/studio/gpio/t");
    EXPECT_NE(zel_ember_get_path(provider, text, buffer, 14), 0);
    EXPECT_EQ(zel_ember_set_param(provider, nullptr, 0, 0, text, "BC", 3, nullptr, nullptr), 0);
    EXPECT_EQ(unit.value_of("gpio/t"), "BC");
    EXPECT_EQ(unit.write("gpio/t", "D"), -2);   // read only
    EXPECT_EQ(zel_ember_set_param(provider, nullptr, 0, 0, nullptr, "BC", 3, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_remove_element(provider, node), 0);
    EXPECT_EQ(unit.value_of("gpio/t"), "absent");
    EXPECT_EQ(unit.take(), (lines{"ember add node gpio", "ember add string gpio/t = A r", "ember set gpio/t \"BC\" (3 bytes)",
                                  "ember set null", "ember remove gpio"}));
}

TEST(fake_consumers, keep_one_request_per_path)
{
    unit unit;
    zel_ember_session_t *const session = consumer_of("10.0.0.2:9000");
    EXPECT_EQ(zel_ember_get_param(session, "/a/b", nullptr, ignore_value), 0);
    EXPECT_EQ(zel_ember_get_param(session, "a/b", session, ignore_value), 0);
    ASSERT_EQ(unit.requests(1).size(), 1U);
    EXPECT_EQ(unit.requests(1)[0].user_data, session);
    EXPECT_EQ(unit.requests_ever(1), 2U);
    EXPECT_EQ(zel_ember_clear_param_cb(session, "/a/b"), 0);
    EXPECT_EQ(zel_ember_clear_param_cb(session, "/a/b"), -1);
    zel_ember_session_term(session);
    EXPECT_EQ(unit.consumers(), std::vector<int>{});
}

TEST(fake_forms, are_decoded_as_the_web_server_does)
{
    const char *const keys[] = {"a", "b", "c", nullptr};
    char form[] = "b=1+2%41&zzz&a=&b=9&d=4&c=12";
    zel_web_kvp_t pairs[4];
    EXPECT_EQ(zel_web_get_kvp(form, keys, pairs, 4), 3);
    EXPECT_STREQ(zel_web_key_val(1, pairs, 4), "1 2A");
    EXPECT_STREQ(zel_web_key_val(0, pairs, 4), "");
    EXPECT_EQ(pairs[3].key, -1);
    long number = 5;
    EXPECT_EQ(zel_web_key_valtol(1, pairs, 4, &number), -1);
    EXPECT_EQ(zel_web_key_valtol(0, pairs, 4, &number), -1);
    EXPECT_EQ(number, 5);
    EXPECT_EQ(zel_web_key_valtol(2, pairs, 4, &number), 0);
    EXPECT_EQ(number, 12);
}

TEST(fake_platform_death, stops_at_what_is_used_after_its_end)
{
    EXPECT_DEATH(
        {
            unit unit;
            zel_sys_gpio_t *const pin = zel_sys_gpio_open(1, 0);
            zel_sys_gpio_close(pin);
            zel_sys_gpio_close(pin);
        },
        "fake platform: pin close on a handle that is not open");
    EXPECT_DEATH(
        {
            unit unit;
            unit.ember();
            zel_ember_element_t *const node = zel_ember_add_node(unit.provider(), "n", nullptr, 0, unit.parent());
            zel_ember_remove_element(unit.provider(), node);
            zel_ember_remove_element(unit.provider(), node);
        },
        "fake platform: ember remove of an element that was removed");
    EXPECT_DEATH(
        {
            unit unit;
            zel_json_file_t *const file = zel_json_file_init(path);
            zel_json_obj_t *const object = zel_json_file_load_object(file, nullptr, "o");
            zel_json_remove_object(file, nullptr, "o");
            zel_json_file_set_integer(file, object, "n", 1);
        },
        "fake platform: json set on an object that was removed");
    EXPECT_DEATH(
        {
            unit unit;
            zel_ember_session_t *const session = consumer_of("10.0.0.2:9000");
            zel_ember_session_term(session);
            zel_ember_get_param(session, "/a", nullptr, ignore_value);
        },
        "fake platform: ember get on a session that is no consumer or has ended");
    EXPECT_DEATH(
        {
            unit unit;
            zel_ipc_client_t *const client = zel_ipc_client_init("snmp_gpio", "zel_gpio", ignore_message, nullptr);
            zel_ipc_client_term(client);
            zel_ipc_client_send(client, 1, "x", 1);
        },
        "fake platform: ipc send on a client that does not exist");
}

TEST(child_process, reports_failed_expectations_crashes_and_output)
{
    EXPECT_EQ(fake::in_child([] {}).exit_status, 0);
    EXPECT_EQ(fake::in_child([] { EXPECT_EQ(1, 2); }).exit_status, 1);
    EXPECT_EQ(fake::in_child([] { std::abort(); }).signal, SIGABRT);
    EXPECT_EQ(fake::in_child([] { std::fputs("words", stderr); }).output, "words");
}

TEST(child_process, does_not_count_what_failed_before_it)
{
    const fake::child_result outer = fake::in_child([] {
        EXPECT_EQ(1, 2);
        std::printf("inner %d\n", fake::in_child([] {}).exit_status);
    });
    EXPECT_EQ(outer.exit_status, 1);
    EXPECT_NE(outer.output.find("inner 0"), std::string::npos);
}
