// Publishing a port or a relay: every value anew from its record, in one order, whatever single writes fail.
#include "child_process.h"
#include "port_steps.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/ember_status.h"

using namespace port_steps;
using zel::set_gpio_ember_status;
using zel::set_relay_ember_status;

namespace {

enum { gpi = 0, out = 1, cough = 2, vgpi = 3, vgpo = 4, button = 5, led = 6 };

zel::gpio_port_t *port(int32_t index) { return &zel::gpios[index]; }
zel::relay_t *relay() { return &zel::relays[0]; }

/// One of everything, and the triggers 0 and 2 occurred. The input lists Record, Play and Stop; the outputs list Unknown
/// inverted, and the triggers 0, 1 (inverted), 2 (inverted), 3.
class status : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        constexpr char triggers[] = "Unknown, Eth Link Down, AoIP Link Down, AC Power Off, DC Power Off",
                       inverts[] = "1, 0, 1, 1, 0";
        u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(1).ember();
        u.set("physical/gpio_0/type", 1)
            .set("physical/gpio_0/input_mode", 1)
            .set("physical/gpio_0/handler", "Record, Play, Stop")
            .set("physical/gpio_0/handler_invert", "0, 1, 0");
        u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", triggers).set("physical/gpio_1/invert_trigger", inverts);
        u.set("physical/gpio_2/type", 1).set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", "vGPO1@Studio 2");
        u.set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/trigger", triggers).set("virtual/vgpio_1/invert_trigger", inverts);
        u.set("user_buttons/btn_1/type", 1)
            .set("user_buttons/btn_1/handler", "Stop")
            .set("user_buttons/btn_1/handler_invert", "1");
        u.set("user_buttons/led_1/type", 2)
            .set("user_buttons/led_1/trigger", triggers)
            .set("user_buttons/led_1/invert_trigger", inverts);
        u.set("relay/relay_0/triggers", triggers).set("relay/relay_0/trigger_invert", inverts);
        ASSERT_EQ(u.start(), 0);
        u.handler("Record"), u.handler("Play"), u.handler("Stop"), u.led_handler(0);
        u.raise("Eth Link Down"), u.raise("AC Power Off");
        u.take();
    }

    /// Publishing the port must write these values and nothing else.
    void expect_published(int32_t index, const std::string &node, const shown &values)
    {
        for (const uint8_t from_ember : {0, 1}) {
            EXPECT_EQ(set_gpio_ember_status(port(index), from_ember), 0);
            EXPECT_LINES(u.take(), published(node, values, from_ember == 0));
        }
    }
};

constexpr char listed[] = "!Unknown, Eth Link Down, !AoIP Link Down, !AC Power Off, DC Power Off";
constexpr char active[] = "!Unknown, Eth Link Down, !AoIP Link Down, !AC Power Off";

}   // namespace

// ---- Values and order

TEST_F(status, of_an_output_shows_inverted_triggers_as_active_whether_they_occurred_or_not)
{
    expect_published(out, "physical/gpio 2", {2, "", listed, active, 0, 1});
    expect_published(vgpo, "virtual/vgpio 2", {2, "", listed, active, 0, 1});
    expect_published(led, "user buttons/led 1", {2, "", listed, active, 0, 1});
}

TEST_F(status, of_an_input_shows_its_level_and_its_handlers_without_marks)
{
    expect_published(gpi, "physical/gpio 1", {1, "Record, Play, Stop", "", "", 1, 0});
    expect_published(cough, "physical/cough 1", {1, "", "", "", 1, 0});
    expect_published(vgpi, "virtual/vgpio 1", {1, "", "", "", 0, 0, "vGPO1@Studio 2"});
    expect_published(button, "user buttons/button 1", {1, "Stop", "", "", 0, 0});
    zel::gpios[gpi].state = 1;
    expect_published(gpi, "physical/gpio 1", {1, "Record, Play, Stop", "", "", 1, 1});
}

TEST_F(status, of_a_disabled_port_shows_what_an_input_would)
{
    zel::gpios[gpi].type = 0;
    expect_published(gpi, "physical/gpio 1", {0, "Record, Play, Stop", "", "", 1, 0});
    zel::gpios[led].type = 0;
    zel::gpios[led].state = 1;
    expect_published(led, "user buttons/led 1", {0, "", "", "", 0, 1});
}

TEST_F(status, of_an_output_follows_the_count_of_its_active_triggers_and_not_its_level)
{
    zel::gpios[out].state = 0;
    expect_published(out, "physical/gpio 2", {2, "", listed, active, 0, 1});
    zel::gpios[out].active_trigs = 0;
    zel::gpios[out].state = 1;
    expect_published(out, "physical/gpio 2", {2, "", listed, active, 0, 0});
}

TEST_F(status, of_a_virtual_port_shows_its_source_unless_it_has_none_at_all)
{
    zel::gpios[vgpi].vgpo_src = "";
    expect_published(vgpi, "virtual/vgpio 1", {1, "", "", "", 0, 0, ""});
    zel::gpios[vgpi].vgpo_src = nullptr;
    expect_published(vgpi, "virtual/vgpio 1", {1, "", "", "", 0, 0, nullptr});
}

TEST_F(status, of_any_other_request_than_the_parameters_own_writes_the_lists)
{
    EXPECT_EQ(set_gpio_ember_status(port(out), 2), 0);
    EXPECT_LINES(u.take(), published("physical/gpio 2", {2, "", listed, active, 0, 1}));
}

/// Texts of an output's list, by entry: "!" inverted, "*" occurred.
struct list_case {
    const char *entries, *triggers, *active;
};

void PrintTo(const list_case &c, std::ostream *out) { *out << '"' << c.entries << '"'; }

class output_texts : public status, public testing::WithParamInterface<list_case> {};

TEST_P(output_texts, mark_inverts_and_list_what_is_active)
{
    std::string ids, inverts;
    for (int32_t id = 0; id < 5; ++id)
        zel_gpio_notify_trigger_event(id, 0);
    for (std::string rest = GetParam().entries; !rest.empty();) {
        const bool inverted = rest[0] == '!', occurred = rest.find('*') != std::string::npos && rest.find('*') < rest.find(' ');
        const int32_t id = rest[inverted ? 1 : 0] - '0';
        ids += (ids.empty() ? "" : ",") + std::to_string(id),
            inverts += std::string(inverts.empty() ? "" : ",") + (inverted ? "1" : "0");
        zel_gpio_notify_trigger_event(id, occurred);
        rest.erase(0, rest.find(' ') == std::string::npos ? rest.size() : rest.find(' ') + 1);
    }
    ASSERT_EQ(zel::set_gpio_trigger_list(out, ids.empty() ? "null" : ids.c_str(), ids.empty() ? "null" : inverts.c_str(), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/output triggers"), GetParam().triggers);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/active triggers"), GetParam().active);
}

INSTANTIATE_TEST_SUITE_P(lists, output_texts,
                         testing::Values(list_case{"", "", ""}, list_case{"0", "Eth Link Down", ""},
                                         list_case{"0*", "Eth Link Down", "Eth Link Down"},
                                         list_case{"!0", "!Eth Link Down", "!Eth Link Down"},
                                         list_case{"!0*", "!Eth Link Down", "!Eth Link Down"},
                                         list_case{"0 2*", "Eth Link Down, AC Power Off", "AC Power Off"},
                                         list_case{"0* 2", "Eth Link Down, AC Power Off", "Eth Link Down"},
                                         list_case{"0* 2*", "Eth Link Down, AC Power Off", "Eth Link Down, AC Power Off"},
                                         list_case{"0 !2 3", "Eth Link Down, !AC Power Off, DC Power Off", "!AC Power Off"},
                                         list_case{"0 2 3* 4*", "Eth Link Down, AC Power Off, DC Power Off, PTP Sync Lost",
                                                   "DC Power Off, PTP Sync Lost"}));

// ---- Entries without a handler

TEST_F(status, of_an_input_whose_first_handler_is_not_registered_begins_with_a_separator)
{
    port(gpi)->handlers[0] = nullptr;
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), ", Play, Stop");
    port(gpi)->handlers[1] = nullptr;
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), ", Stop");
    port(gpi)->handlers[2] = nullptr;
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), "");
}

TEST_F(status, of_an_input_whose_middle_or_last_handler_is_not_registered_leaves_it_out)
{
    handler_t *const play = port(gpi)->handlers[1];
    port(gpi)->handlers[1] = nullptr;
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), "Record, Stop");
    port(gpi)->handlers[1] = play;
    port(gpi)->handlers[2] = nullptr;
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), "Record, Play");
}

TEST_F(status, of_an_input_leaves_out_a_handler_without_a_name)
{
    char *const name = std::exchange(handler_list[0].name, nullptr);
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), ", Play, Stop");
    handler_list[0].name = name;
}

TEST_F(status, of_an_input_shows_the_present_name_of_a_renamed_handler)
{
    ASSERT_EQ(zel_gpio_rename_handler("Play", "Replay"), 0);
    EXPECT_EQ(set_gpio_ember_status(port(gpi), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), "Record, Replay, Stop");
}

TEST_F(status, of_an_entry_that_lost_its_name_shows_an_empty_one)
{
    char *const of_port = std::exchange(port(out)->trigger_names[1], nullptr);
    char *const of_relay = std::exchange(relay()->trigger_names[1], nullptr);
    EXPECT_EQ(set_gpio_ember_status(port(out), 0), 0);
    EXPECT_EQ(set_relay_ember_status(relay(), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/output triggers"), "!Unknown, , !AoIP Link Down, !AC Power Off, DC Power Off");
    EXPECT_EQ(u.value_of("gpio/physical/relay 1/output triggers"), "Unknown, , AoIP Link Down, AC Power Off, DC Power Off");
    port(out)->trigger_names[1] = of_port;
    relay()->trigger_names[1] = of_relay;
}

// ---- Relays

TEST_F(status, of_a_relay_shows_names_without_marks_and_what_has_occurred)
{
    constexpr char names[] = "Unknown, Eth Link Down, AoIP Link Down, AC Power Off, DC Power Off",
                   occurred[] = "Eth Link Down, AC Power Off";
    for (const uint8_t from_ember : {0, 1}) {
        EXPECT_EQ(set_relay_ember_status(relay(), from_ember), 0);
        EXPECT_LINES(u.take(), published_relay(1, names, occurred, 1, from_ember == 0));
    }
    u.clear("Eth Link Down");
    u.take();
    EXPECT_EQ(set_relay_ember_status(relay(), 0), 0);
    EXPECT_LINES(u.take(), published_relay(1, names, "AC Power Off", 1));
}

TEST_F(status, of_a_relay_follows_the_count_of_its_active_triggers)
{
    for (const auto &[count, shown_as] : {std::pair{0, 0}, std::pair{1, 1}, std::pair{200, 1}}) {
        relay()->active_trigs = count;
        EXPECT_EQ(set_relay_ember_status(relay(), 0), 0);
        EXPECT_EQ(u.value_of("gpio/physical/relay 1/status"), std::to_string(shown_as));
    }
}

TEST_F(status, of_a_relay_without_triggers_is_empty)
{
    ASSERT_EQ(zel::set_relay_trigger_list(0, "null", "null", 0), 0);
    u.take();
    EXPECT_EQ(set_relay_ember_status(relay(), 0), 0);
    EXPECT_LINES(u.take(), published_relay(1, "", "", 0));
}

class relay_without : public testing::TestWithParam<const char *> {};

TEST_P(relay_without, its_status_or_its_active_triggers_is_never_updated)
{
    unit u;
    u.relays(1)
        .ember()
        .set("relay/relay_0/triggers", "Eth Link Down")
        .fail(std::string("ember add gpio/physical/relay 1/") + GetParam());
    ASSERT_EQ(u.start(), 0);
    u.raise("Eth Link Down");
    EXPECT_EQ(set_relay_ember_status(&zel::relays[0], 0), 0);
    EXPECT_EQ(u.level(201), 1);
    EXPECT_EQ(u.count_of("ember set"), 0);
}

INSTANTIATE_TEST_SUITE_P(parameters, relay_without, testing::Values("status", "active triggers"));

TEST(a_relay_without_its_node, is_never_updated)
{
    unit u;
    u.relays(1).ember().fail("ember add gpio/physical/relay 1");
    EXPECT_EQ(u.start(), -1);
    EXPECT_EQ(set_relay_ember_status(&zel::relays[0], 0), 0);
    EXPECT_EQ(u.count_of("ember set"), 0);
}

// ---- Failures

struct failing_write {
    const char *parameter, *message;   // message null: not checked
};

void PrintTo(const failing_write &f, std::ostream *out) { *out << f.parameter; }

class failing_port_write : public status, public testing::WithParamInterface<failing_write> {};

TEST_P(failing_port_write, is_reported_where_it_is_checked_and_the_later_ones_follow)
{
    const failing_write &f = GetParam();
    for (const auto &[index, node] : {std::pair{out, "physical/gpio 2"}, std::pair{vgpi, "virtual/vgpio 1"}}) {
        const std::string path = std::string("gpio/") + node + "/" + f.parameter;
        if (u.value_of(path) == "absent")
            continue;
        u.fail("ember set " + path);
        lines expected;
        for (const std::string &line :
             published(node, index == out ? shown{2, "", listed, active, 0, 1} : shown{1, "", "", "", 0, 0, "vGPO1@Studio 2"})) {
            const bool fails = fake::begins_with(line, "ember set " + path);
            expected.push_back(fails ? line + " failed" : line);
            if (fails && f.message != nullptr)
                expected.push_back(std::string("log 0 set_gpio_ember_status: ") + f.message);
        }
        EXPECT_EQ(set_gpio_ember_status(port(index), 0), f.message != nullptr ? -1 : 0);
        EXPECT_LINES(u.take(), expected);
    }
    EXPECT_TRUE(u.fault_fired());
}

INSTANTIATE_TEST_SUITE_P(parameters, failing_port_write,
                         testing::Values(failing_write{"type", nullptr},
                                         failing_write{"input functions", "Failed to set handler list for gpio"},
                                         failing_write{"output triggers", "Failed to set trigger list for gpio"},
                                         failing_write{"active triggers", "Failed to set gpio active trigger list parameter"},
                                         failing_write{"input mode", nullptr},
                                         failing_write{"status", "Failed to set gpio status ember parameter"},
                                         failing_write{"vgpio source", nullptr}));

TEST_F(status, that_cannot_be_written_at_all_is_reported_value_by_value)
{
    u.fail("ember set");
    EXPECT_EQ(set_gpio_ember_status(port(out), 0), -1);
    EXPECT_LINES(u.journal_of("log"), "log 0 set_gpio_ember_status: Failed to set handler list for gpio",
                 "log 0 set_gpio_ember_status: Failed to set trigger list for gpio",
                 "log 0 set_gpio_ember_status: Failed to set gpio active trigger list parameter",
                 "log 0 set_gpio_ember_status: Failed to set gpio status ember parameter");
    EXPECT_EQ(u.count_of("ember set"), 6);
}

TEST_F(status, from_a_list_parameter_skips_the_failure_of_the_lists)
{
    u.fail("ember set gpio/physical/gpio 2/output triggers")
        .fail("ember set gpio/physical/gpio 2/input functions")
        .fail("ember set gpio/physical/relay 1/output triggers");
    EXPECT_EQ(set_gpio_ember_status(port(out), 1), 0);
    EXPECT_EQ(set_relay_ember_status(relay(), 1), 0);
    EXPECT_FALSE(u.fault_fired());
}

TEST_F(status, of_a_relay_whose_list_cannot_be_written_goes_on)
{
    u.fail("ember set gpio/physical/relay 1/output triggers");
    EXPECT_EQ(set_relay_ember_status(relay(), 0), -1);
    const lines all = u.take();
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(all[1], "log 0 set_relay_ember_status: Failed to set trigger list for relay");
    EXPECT_EQ(all[2], number_set("gpio/physical/relay 1/status", 1, 4));
    EXPECT_EQ(all[3], text_set("gpio/physical/relay 1/active triggers", "Eth Link Down, AC Power Off"));
}

TEST_F(status, of_a_relay_whose_status_cannot_be_written_leaves_the_active_triggers)
{
    u.fail("ember set gpio/physical/relay 1/status");
    EXPECT_EQ(set_relay_ember_status(relay(), 1), -1);
    EXPECT_LINES(u.take(), number_set("gpio/physical/relay 1/status", 1, 4) + " failed",
                 "log 0 set_relay_ember_status: Failed to set relay status ember parameter");
}

TEST_F(status, of_a_relay_whose_active_triggers_cannot_be_written_is_reported)
{
    u.fail("ember set gpio/physical/relay 1/active triggers");
    EXPECT_EQ(set_relay_ember_status(relay(), 1), -1);
    EXPECT_LINES(u.take(), number_set("gpio/physical/relay 1/status", 1, 4),
                 text_set("gpio/physical/relay 1/active triggers", "Eth Link Down, AC Power Off") + " failed",
                 "log 0 set_relay_ember_status: Failed to set relay active trigger list parameter");
}

TEST(a_status_without_a_provider, is_published_nowhere)
{
    unit u;
    u.gpis(1).relays(1);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_ember_status(port(0), 0), 0);
    EXPECT_EQ(set_relay_ember_status(relay(), 0), 0);
    EXPECT_LINES(u.take());
}

TEST(a_status_of_no_record, is_an_assertion)
{
    for (const bool of_port : {true, false}) {
        const fake::child_result child = fake::in_child([&] {
            unit u;
            (void)(of_port ? set_gpio_ember_status(nullptr, 0) : set_relay_ember_status(nullptr, 0));
        });
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_NE(child.output.find(of_port ? "`port != NULL'" : "`relay != NULL'"), std::string::npos) << child.output;
    }
}

// ---- Long lists

TEST_F(status, of_full_lists_of_long_names_is_complete)
{
    std::string names, marked, ids, inverts;
    for (int id = 0; id < 200; ++id) {
        if (trigger_list[id].name == nullptr) {
            ASSERT_EQ(u.trigger(long_name("Trigger", id)), id);
        }
        names += (id > 0 ? ", " : "") + std::string(trigger_list[id].name);
        marked += std::string(id > 0 ? ", " : "") + "!" + trigger_list[id].name;
        ids += (id > 0 ? "," : "") + std::to_string(id);
        inverts += id > 0 ? ",1" : "1";
    }
    ASSERT_EQ(zel::set_gpio_trigger_list(out, ids.c_str(), inverts.c_str(), 0), 0);
    ASSERT_EQ(zel::set_relay_trigger_list(0, ids.c_str(), inverts.c_str(), 0), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/output triggers"), marked);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/active triggers"), marked);
    EXPECT_EQ(u.value_of("gpio/physical/relay 1/output triggers"), names);
}
