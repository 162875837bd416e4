// What a remote controller's write to a parameter does: the line in the log, the change itself, and what follows it.
#include "port_steps.h"
#include "zel_gpio/ember_callbacks.h"
#include "zel_gpio/port_settings.h"

using namespace port_steps;

namespace {

enum { gpi = 0, out = 1, cough = 2, vgpi = 3, vgpo = 4, button = 5, led = 6 };

constexpr char source_name[] = "vGPO1@Studio 2";

std::string asked(const std::string &callback, const std::string &what)
{
    return "log 2 " + callback + ": Request to change " + what + " received from 10.0.0.9:40001";
}

/// One of everything: 0 an input with the handler Record, 1 an output, 2 a cough port, 3 a virtual input, 4 a virtual output,
/// 5 a button, 6 its LED; a relay.
class controller : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(1).ember();
        u.set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Record").set("physical/gpio_0/handler_invert", "0");
        u.set("physical/gpio_1/type", 2)
            .set("physical/gpio_2/type", 1)
            .set("virtual/vgpio_0/type", 1)
            .set("virtual/vgpio_1/type", 2);
        u.set("user_buttons/btn_1/type", 1).set("user_buttons/led_1/type", 2);
        u.set("relay/relay_0/triggers", "AC Power Off").set("relay/relay_0/trigger_invert", "1");
        ASSERT_EQ(u.start(), 0);
        u.handler("Record"), u.led_handler(0);
        discover(u, source_name, 2, "/a");
        u.take();
    }

    /// What follows the first line, which must be `first`.
    lines behind(const std::string &first)
    {
        lines all = changes(u);
        EXPECT_FALSE(all.empty());
        if (all.empty())
            return all;
        EXPECT_EQ(all.front(), first);
        all.erase(all.begin());
        return all;
    }
};

const std::string type_asked = asked("gpio_type_cb", "a gpio type"), mode_asked = asked("gpio_in_mode_cb", "a gpio input mode");
const std::string handler_asked = asked("gpio_handler_cb", "a gpio handler function"),
                  trigger_asked = asked("gpio_trigger_cb", "a gpio trigger");
const std::string source_asked = asked("vgpo_src_cb", "a vgpio source"), status_asked = asked("gpio_status_cb", "a gpio status");
const std::string relay_asked = asked("relay_trigger_cb", "relay trigger list");

}   // namespace

// ---- Type

TEST_F(controller, that_sets_a_type_changes_it_and_the_agent_is_told_twice)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/type", 0), 0);
    EXPECT_LINES(behind(type_asked),
                 steps({"callback Record source 0 state 0 context 0", "pin 1 write 0", "pin 1 close", "save physical/gpio_0 0",
                        published("physical/gpio 1", {0, "", "", "", 0, 0}), sent(7), sent(7)}));
}

TEST_F(controller, that_sets_a_type_reaches_every_kind_of_port)
{
    struct wish {
        const char *path;
        int64_t type;
        int32_t index;
        int message;
    };
    for (const wish &w : {wish{"physical/gpio 2", 1, out, 7}, wish{"physical/cough 1", 0, cough, 7},
                          wish{"virtual/vgpio 1", 2, vgpi, 8}, wish{"virtual/vgpio 2", 0, vgpo, 8},
                          wish{"user buttons/button 1", 0, button, 9}, wish{"user buttons/led 1", 0, led, 10}}) {
        EXPECT_EQ(u.write(std::string("gpio/") + w.path + "/type", w.type), 0) << w.path;
        EXPECT_EQ(zel::gpios[w.index].type, static_cast<uint32_t>(w.type)) << w.path;
        const lines rest = behind(type_asked);
        ASSERT_GE(rest.size(), 2u);
        EXPECT_LINES(lines(rest.end() - 2, rest.end()), sent(w.message), sent(w.message));
    }
}

TEST_F(controller, that_asks_a_cough_port_to_be_an_output_is_refused_and_its_parameter_left_as_written)
{
    EXPECT_EQ(u.write("gpio/physical/cough 1/type", 2), -1);
    EXPECT_LINES(behind(type_asked), "log 0 set_gpio_type: Cannot set a cough port as an output", sent(7));
    EXPECT_EQ(u.value_of("gpio/physical/cough 1/type"), "2");
    EXPECT_EQ(zel::gpios[cough].type, 1u);
}

TEST_F(controller, that_asks_for_a_type_that_a_port_cannot_have_is_refused)
{
    EXPECT_EQ(u.write("gpio/user buttons/button 1/type", 2), -1);
    EXPECT_LINES(behind(type_asked), "log 0 set_gpio_to_output: Cannot set user button as an output", sent(9));
    EXPECT_EQ(u.write("gpio/user buttons/led 1/type", 1), -1);
    EXPECT_LINES(behind(type_asked), "log 0 set_gpio_to_input: Cannot set user button LED as an input", sent(10));
    for (const int64_t type : {int64_t{3}, int64_t{-1}, int64_t{0x7FFFFFFF}, INT64_MIN + 3, INT64_MAX}) {
        EXPECT_EQ(u.write("gpio/physical/gpio 1/type", type), -1) << type;
        EXPECT_LINES(behind(type_asked), sent(7));
    }
    EXPECT_EQ(zel::gpios[gpi].type, 1u);
}

TEST_F(controller, that_sets_a_type_of_more_than_32_bits_means_the_low_ones)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 2/type", int64_t{0x100000001}), 0);
    EXPECT_EQ(zel::gpios[out].type, 1u);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/type"), "1") << "the tree shows the type that the port has";
}

TEST_F(controller, that_sets_the_type_a_port_has_applies_it_again)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/type", 1), 0);
    EXPECT_LINES(behind(type_asked), steps({setting_up(0, 0, 0), "callback Record source 0 state 0 context 0", "pin 1 edge 2",
                                            "callback Record source 0 state 0 context 0", "save physical/gpio_0 1",
                                            published("physical/gpio 1", {1, "Record", "", "", 0, 0}), sent(7), sent(7)}));
}

// ---- Input mode

TEST_F(controller, that_sets_an_input_mode_has_it_saved_and_the_agent_told)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/input mode", 1), 0);
    EXPECT_LINES(behind(mode_asked), "save physical/gpio_0 1", sent(7));
    EXPECT_EQ(zel::gpios[gpi].input_mode, 1u);
    EXPECT_EQ(u.write("gpio/user buttons/button 1/input mode", 1), 0);
    EXPECT_LINES(behind(mode_asked), "save user_buttons/btn_1 1", sent(9));
}

TEST_F(controller, that_sets_an_input_mode_there_is_not_is_refused_but_the_agent_told)
{
    for (const int64_t mode : {int64_t{2}, int64_t{-1}}) {
        EXPECT_EQ(u.write("gpio/physical/gpio 1/input mode", mode), -1);
        EXPECT_LINES(behind(mode_asked),
                     "log 0 set_gpio_in_mode: Invalid value new input mode value requested: " + std::to_string(mode), sent(7));
    }
    EXPECT_EQ(u.write("gpio/physical/gpio 2/input mode", 1), -1);
    EXPECT_LINES(behind(mode_asked), "log 1 set_gpio_in_mode: Unable to modify input mode for a port that is an output", sent(7));
    EXPECT_EQ(zel::gpios[gpi].input_mode + zel::gpios[out].input_mode, 0u);
}

TEST_F(controller, that_sets_an_input_mode_of_more_than_32_bits_means_the_low_ones)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/input mode", int64_t{0x500000001}), 0);
    EXPECT_EQ(zel::gpios[gpi].input_mode, 1u);
}

TEST_F(controller, cannot_write_what_is_read_only)
{
    for (const char *const path : {"gpio/physical/cough 1/input mode", "gpio/physical/relay 1/status"})
        EXPECT_EQ(u.write(path, 0), -2) << path;
    for (const char *const path :
         {"gpio/physical/gpio 1/active triggers", "gpio/physical/relay 1/active triggers", "gpio/triggers/t-0"})
        EXPECT_EQ(u.write(path, "x"), -2) << path;
    EXPECT_LINES(u.take());
}

// ---- Lists

TEST_F(controller, that_sets_input_functions_empties_the_triggers_and_nothing_follows)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/input functions", "Record"), 0);
    EXPECT_LINES(behind(handler_asked), steps({"save physical/gpio_0 1", "pin 1 write 0",
                                               published("physical/gpio 1", {1, "", "", "", 0, 0}, false), sent(7)}));
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), "Record") << "as the controller wrote it";
    EXPECT_EQ(port_handlers(gpi), "Record#0");
    EXPECT_EQ(first_trigger(gpi), "(null)#-1");
}

TEST_F(controller, that_sets_unknown_input_functions_is_refused_and_nothing_follows)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/input functions", "Record,Rewind"), -1);
    EXPECT_LINES(behind(handler_asked), "log 1 check_and_set_new_gpio_handler_list: Handler name: 'Rewind' not found");
    EXPECT_EQ(first_trigger(gpi), own_trigger("GPI 1"));
}

TEST_F(controller, that_sets_output_triggers_drives_the_output_and_nothing_follows)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 2/output triggers", "Eth Link Down, !AoIP Link Down"), 0);
    EXPECT_LINES(behind(trigger_asked),
                 steps({"save physical/gpio_1 2", "pin 102 write 1",
                        published("physical/gpio 2", {2, "", "", "!AoIP Link Down", 0, 1}, false), sent(7)}));
    EXPECT_EQ(port_list(out), "Eth Link Down#0 !AoIP Link Down#1");
    EXPECT_EQ(u.write("gpio/user buttons/led 1/output triggers", "!Eth Link Down"), 0);
    EXPECT_LINES(behind(trigger_asked),
                 steps({"save user_buttons/led_1 2", "callback User LED 1 source 6 state 1 context 0",
                        published("user buttons/led 1", {2, "", "", "!Eth Link Down", 0, 1}, false), sent(10)}));
}

TEST_F(controller, that_sets_unknown_output_triggers_is_refused_and_nothing_follows)
{
    EXPECT_EQ(u.write("gpio/virtual/vgpio 2/output triggers", "Eth Link Up"), -1);
    EXPECT_LINES(behind(trigger_asked), "log 1 check_and_set_new_gpio_trig_list: Trigger name: 'Eth Link Up' not found");
}

TEST_F(controller, that_sets_a_relays_triggers_drives_it_and_nothing_follows)
{
    EXPECT_EQ(u.write("gpio/physical/relay 1/output triggers", "Eth Link Down, AC Power Off"), 0);
    EXPECT_LINES(behind(relay_asked),
                 steps({"save relay/relay_0", "pin 201 write 1", published_relay(1, "", "", 1, false), sent(11)}));
    EXPECT_EQ(relay_list(0), "Eth Link Down#0 !AC Power Off#2");
    EXPECT_EQ(u.write("gpio/physical/relay 1/output triggers", "!Eth Link Down"), -1);
    EXPECT_LINES(behind(relay_asked), "log 2 check_and_set_new_relay_trig_list: Trigger name: '!Eth Link Down' not found");
}

TEST_F(controller, that_writes_hostile_texts_changes_nothing)
{
    const char *const source_before = zel::gpios[vgpi].vgpo_src;
    const std::string big(100000, 'x'), commas = std::string(50000, ',') + "x", formats = "%s%s%s%n%n",
                                        control = "\x01\x7f\xff\xc3";
    for (const std::string &text : {big, commas, formats, control}) {
        EXPECT_EQ(u.write("gpio/physical/gpio 1/input functions", text.c_str()), -1);
        EXPECT_EQ(u.write("gpio/physical/gpio 2/output triggers", text.c_str()), -1);
        EXPECT_EQ(u.write("gpio/physical/relay 1/output triggers", text.c_str()), -1);
        EXPECT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", text.c_str()), -1);
    }
    EXPECT_EQ(port_handlers(gpi) + port_list(out) + relay_list(0), "Record#0!AC Power Off#2");
    EXPECT_EQ(zel::gpios[vgpi].vgpo_src, source_before);
}

// ---- Source

TEST_F(controller, that_sets_a_source_has_it_followed_and_the_agent_told)
{
    EXPECT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", source_name), 0);
    EXPECT_LINES(behind(source_asked), "consumer 1 connect 10.0.0.2:9000 (timeout 10)", "consumer 1 get /a/type",
                 "consumer 1 get /a/status", "save virtual/vgpio_0 1", sent(8));
    EXPECT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", ""), 0);
    EXPECT_LINES(behind(source_asked), "consumer 1 end", number_set("gpio/virtual/vgpio 1/status", 0, 8),
                 "save virtual/vgpio_0 1", sent(8));
}

TEST_F(controller, that_sets_an_unknown_source_is_refused_but_the_agent_told)
{
    EXPECT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", "vGPO1@Studio 9"), -1);
    EXPECT_LINES(behind(source_asked), "log 0 set_gpio_vgpo_src: vGPIO Source: 'vGPO1@Studio 9' not found", sent(8));
    EXPECT_EQ(u.write("gpio/virtual/vgpio 2/vgpio source", source_name), -1);
    EXPECT_LINES(behind(source_asked), "log 1 set_gpio_vgpo_src: Unable to modify vgpio source for a port that is an output",
                 sent(8));
}

// ---- Status

TEST_F(controller, that_sets_a_status_drives_the_output_tells_the_agent_and_evaluates_the_port)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 2/status", 1), 0);
    EXPECT_LINES(behind(status_asked), "pin 102 write 1", sent(7));
    EXPECT_EQ(u.write("gpio/user buttons/led 1/status", 1), 0);
    EXPECT_LINES(behind(status_asked), sent(10), "callback User LED 1 source 6 state 1 context 0");
    EXPECT_EQ(u.write("gpio/virtual/vgpio 2/status", 1), 0);
    EXPECT_LINES(behind(status_asked), sent(8));
    EXPECT_EQ(zel::gpios[vgpo].state, 1);
}

TEST_F(controller, that_sets_a_status_means_1_by_any_number_but_0)
{
    for (const int64_t value : {int64_t{1}, int64_t{2}, int64_t{-1}, int64_t{0x100000000}, INT64_MIN, int64_t{256}}) {
        EXPECT_EQ(u.write("gpio/physical/gpio 2/status", value), 0);
        EXPECT_EQ(zel::gpios[out].state, 1) << value;
        EXPECT_EQ(u.write("gpio/physical/gpio 2/status", 0), 0);
        EXPECT_EQ(zel::gpios[out].state, 0);
    }
    EXPECT_EQ(u.count_of("pin 102 write 1"), 6);
}

TEST_F(controller, that_sets_the_status_of_an_input_is_refused_but_its_handlers_are_told_what_stands)
{
    EXPECT_EQ(u.write("gpio/physical/gpio 1/status", 1), -1);
    EXPECT_LINES(behind(status_asked), "log 2 set_gpio_status: Unable to change state of a GPI", sent(7),
                 "callback Record source 0 state 0 context 0");
}

TEST_F(controller, that_sets_the_status_of_an_output_of_udp_commands_changes_nothing)
{
    u.udp(true);
    EXPECT_EQ(u.write("gpio/physical/gpio 2/status", 1), 0);
    EXPECT_LINES(behind(status_asked), sent(7));
    EXPECT_EQ(zel::gpios[out].state, 0);
}

TEST_F(controller, that_sets_the_status_of_a_virtual_output_does_not_notify_its_own_trigger)
{
    EXPECT_EQ(u.write("gpio/virtual/vgpio 2/status", 1), 0);
    EXPECT_EQ(trigger_list[u.trigger_id("vGPI 2")].state, 0);
}

// ---- No record

struct no_record {
    zel_ember_set_cb_t callback;
    const char *name, *what;
};

void PrintTo(const no_record &n, std::ostream *out) { *out << n.name; }

class callback_without_a_record : public testing::TestWithParam<no_record> {};

TEST_P(callback_without_a_record, logs_the_request_and_does_nothing)
{
    unit u;
    const int64_t number = 1;
    const bool text = std::string(GetParam().what).find("list") != std::string::npos;
    EXPECT_EQ(
        GetParam().callback(nullptr, "192.168.1.77", 65535, nullptr, text ? static_cast<const void *>("Eth Link Down") : &number),
        -1);
    lines expected{std::string("log 2 ") + GetParam().name + ": Request to change " + GetParam().what +
                   " received from 192.168.1.77:65535"};
    if (GetParam().callback == zel::relay_trigger_cb)
        expected.push_back("log 0 relay_trigger_cb: Invalid user_data");
    EXPECT_LINES(u.take(), expected);
}

INSTANTIATE_TEST_SUITE_P(callbacks, callback_without_a_record,
                         testing::Values(no_record{zel::gpio_type_cb, "gpio_type_cb", "a gpio type"},
                                         no_record{zel::gpio_handler_cb, "gpio_handler_cb", "a gpio handler function"},
                                         no_record{zel::gpio_trigger_cb, "gpio_trigger_cb", "a gpio trigger"},
                                         no_record{zel::gpio_in_mode_cb, "gpio_in_mode_cb", "a gpio input mode"},
                                         no_record{zel::vgpo_src_cb, "vgpo_src_cb", "a vgpio source"},
                                         no_record{zel::gpio_status_cb, "gpio_status_cb", "a gpio status"},
                                         no_record{zel::relay_trigger_cb, "relay_trigger_cb", "relay trigger list"}));

// ---- What is never written back

TEST_F(controller, never_gets_its_own_value_written_back)
{
    struct write {
        const char *path;
        const char *text;   // null: the number
        int64_t number;
    };
    for (const write &w :
         {write{"physical/gpio 1/input functions", "Record", 0}, write{"physical/gpio 2/output triggers", "Eth Link Down", 0},
          write{"physical/gpio 1/input mode", nullptr, 1}, write{"virtual/vgpio 1/vgpio source", source_name, 0},
          write{"virtual/vgpio 1/vgpio source", "", 0}, write{"physical/gpio 2/status", nullptr, 1},
          write{"physical/relay 1/output triggers", "Eth Link Down", 0}}) {
        const std::string path = std::string("gpio/") + w.path;
        u.take();
        EXPECT_EQ(w.text != nullptr ? u.write(path, w.text) : u.write(path, w.number), 0) << path;
        EXPECT_EQ(u.count_of("ember set " + path), 0) << path;
    }
}
