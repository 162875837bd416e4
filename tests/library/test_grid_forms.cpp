// What forms posted to "/cgi/gpioGrid.cgi" do and leave alone, step by step; and forms that no page of ours would send.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"

using namespace vgpo_units;
using fake::lines;
using fake::unit;
using fake::web_reply;
using grid_test::effects;
using grid_test::handler_triggers;
using grid_test::port_handlers;
using grid_test::port_list;
using grid_test::relay_list;

namespace {

web_reply post(unit &u, const std::string &body) { return u.request("/cgi/gpioGrid.cgi", nullptr, body.c_str()); }

/// 0 GPI (input) drives Record, 1 GPI (output) on Door, 2 cough (input) drives Record, 3 vGPI follows `near`, 4 vGPO, 5 button,
/// 6 LED; relay 0 (on the grid) on Door and GPI 1, relay 1 empty. Handlers 0 Record (on Door), 1 Play, 2 the LED's; trigger 11
/// Door.
class forms : public testing::Test {
protected:
    unit u;

    void SetUp() override { start(u); }

    static void start(unit &u)
    {
        u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(2);
        u.set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Record").set("physical/gpio_0/handler_invert", "0");
        u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", "Door").set("physical/gpio_1/invert_trigger", "0");
        u.set("physical/gpio_2/type", 1).set("physical/gpio_2/handler", "Record").set("physical/gpio_2/handler_invert", "0");
        u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_0/handler_invert", "");
        u.set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/trigger", "").set("virtual/vgpio_1/invert_trigger", "");
        u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler_invert", "");
        u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "").set("user_buttons/led_1/invert_trigger", "");
        u.set("relay/relay_0/triggers", "Door, GPI 1").set("relay/relay_0/trigger_invert", "0, 1");
        u.set("on_grid_handlers", "Record").set("on_grid_triggers", "Door");
        u.set("handler_info/Record/triggers", "Door").set("handler_info/Record/trigger_inverts", "0");
        ASSERT_EQ(u.start(), 0);
        u.handler("Record"), u.handler("Play"), u.led_handler(0);
        u.trigger("Door");
        u.take();
        u.forget_sent();
    }

    /// Everything that a form can change.
    std::string state_of_all() const
    {
        std::string text = u.json("gpio");
        for (int32_t i = 0; i < 7; ++i) text += "|" + std::to_string(zel::gpios[i].type) + port_list(i) + port_handlers(i);
        for (int32_t r = 0; r < 2; ++r) text += "|" + std::to_string(zel::relays[r].on_grid) + relay_list(r);
        for (int32_t id = 0; id < 3; ++id) text += "|" + std::to_string(handler_list[id].on_grid) + handler_triggers(id);
        return text;
    }
};

// ---- Relays

struct relay_case {
    const char *state;
    int on_grid;
    const char *list;
};

TEST_F(forms, a_relay_takes_its_place_and_keeps_or_loses_its_list)
{
    for (const relay_case &c : {relay_case{"2", 1, "Door#11 !GPI 1#5"}, {"1", 0, "Door#11 !GPI 1#5"}, {"0", 0, ""},
                                {"3", 0, "Door#11 !GPI 1#5"}, {"-1", 0, "Door#11 !GPI 1#5"}, {nullptr, 0, ""}}) {
        EXPECT_CHILD_SUCCEEDS({
            const std::string state = c.state != nullptr ? std::string("&newState=") + c.state : "";
            EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0" + state).status, 200);
            EXPECT_EQ(zel::relays[0].on_grid, c.on_grid) << state;
            EXPECT_EQ(relay_list(0), c.list) << state;
            EXPECT_EQ(u.json("gpio/relay/relay_0/on_grid"), c.on_grid != 0 ? "true" : "false");
        });
    }
}

TEST_F(forms, a_relay_is_marked_first_and_emptied_then)
{
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0&newState=0").text, "{}");
    EXPECT_LINES(fake::only(u.take(), {"json set gpio/relay", "pin", "ipc", "log 0", "log 1"}),
                 "json set gpio/relay/relay_0/on_grid false", "json set gpio/relay/relay_0/triggers \"\"",
                 "json set gpio/relay/relay_0/trigger_invert \"\"", "pin 201 write 0", "ipc snmp send 11 (416 bytes)");
}

TEST_F(forms, a_relay_whose_mark_cannot_be_saved_is_judged_by_its_list)
{
    u.fail("json set gpio/relay/relay_0/on_grid");
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0&newState=2").status, 501);
    EXPECT_EQ(zel::relays[0].on_grid, 1);
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0&newState=0").status, 200) << "the later operation's result decides";
    EXPECT_TRUE(u.logged("0 gpio_grid_post_handler: Failed to set on_grid for json object: relay_0 to 0"));
    u.heal();
    u.fail("json set gpio/relay/relay_1/trigger_invert");
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=1&newState=0").status, 501);
}

TEST_F(forms, a_relay_that_cannot_be_loaded_does_not_stop_the_next)
{
    u.fail("json load gpio/relay/relay_0");
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0,1&newState=2").status, 501);
    EXPECT_EQ(zel::relays[0].on_grid, 1) << "left as it was";
    EXPECT_EQ(zel::relays[1].on_grid, 1);
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0,1&newState=0").status, 200) << "the last result decides";
}

// ---- Handlers and triggers

TEST_F(forms, a_handler_that_leaves_the_grid_leaves_its_inputs_and_its_triggers)
{
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=0&newState=0").status, 200);
    EXPECT_EQ(port_handlers(0) + port_handlers(2) + handler_triggers(0), "");
    EXPECT_EQ(port_list(1), "Door#11") << "the trigger stays where else it is";
    EXPECT_EQ(handler_list[0].on_grid, 0);
    EXPECT_EQ(u.json("gpio/on_grid_handlers"), "\"\"");
    EXPECT_EQ(u.json("gpio/physical/gpio_2/handler"), "\"\"");
    EXPECT_EQ(u.json("gpio/on_grid_triggers"), "\"GPI 1, Door\"");
}

TEST_F(forms, a_trigger_that_leaves_the_grid_leaves_ports_relays_and_handlers)
{
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=11&newState=0&gpioInMode=0").status, 200);
    EXPECT_EQ(port_list(1), "");
    EXPECT_EQ(relay_list(0), "!GPI 1#5");
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_EQ(port_handlers(0), "Record#0");
    EXPECT_EQ(trigger_list[11].on_grid, 0);
    EXPECT_EQ(trigger_list[11].name, std::string("Door")) << "it is still registered";
    EXPECT_EQ(u.json("gpio/on_grid_triggers"), "\"GPI 1\"") << "what the relay still lists is on the grid";
    EXPECT_EQ(handler_list[0].on_grid, 1);
}

TEST_F(forms, the_mere_presence_of_a_number_asks_for_the_trigger)
{
    for (const char *const number : {"0", "1", "-1", "77", "2147483647"}) {
        EXPECT_CHILD_SUCCEEDS({
            post(u, std::string("gpioType=event&gpioPort=11&newState=0&gpioInMode=") + number);
            EXPECT_EQ(trigger_list[11].on_grid, 0) << number;
        });
    }
    for (const char *const text : {"&gpioInMode=", "&gpioInMode=x", "&gpioInMode=1x", "&GPIOINMODE=1", ""}) {
        EXPECT_CHILD_SUCCEEDS({
            post(u, std::string("gpioType=event&gpioPort=0&newState=0") + text);
            EXPECT_EQ(handler_list[0].on_grid, 0) << text;
            EXPECT_EQ(trigger_list[11].on_grid, 1) << text;
        });
    }
}

TEST_F(forms, events_are_put_on_the_grid_by_kind)
{
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=1,2&newState=2").status, 200);
    EXPECT_EQ(u.json("gpio/on_grid_handlers"), "\"Record, Play\"");
    EXPECT_EQ(handler_list[2].on_grid, 0) << "an LED's handler is never on it";
    u.take();
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=1,3&newState=1").status, 200);
    EXPECT_EQ(trigger_list[1].on_grid + trigger_list[3].on_grid, 2);
    EXPECT_EQ(u.take_of("json set gpio/on_grid_triggers").size(), 2u);
    EXPECT_EQ(handler_list[1].on_grid, 1);
    for (const char *const other : {"3", "-1", "2147483647"}) {
        u.take();
        EXPECT_EQ(post(u, std::string("gpioType=event&gpioPort=0,1&newState=") + other).status, 200);
        EXPECT_TRUE(u.take().empty()) << other;
    }
}

// ---- Ports

TEST_F(forms, every_port_that_exists_is_told_to_the_agent_whatever_comes_of_it)
{
    for (const char *const state : {"7", "-1", "2147483647"}) {
        EXPECT_EQ(post(u, std::string("gpioType=any&gpioPort=0,3,5,6,7,99,-1&newState=") + state).status, 200);
        EXPECT_LINES(u.take(), "ipc snmp send 7 (696 bytes)", "ipc snmp send 8 (696 bytes)", "ipc snmp send 9 (696 bytes)",
                     "ipc snmp send 10 (696 bytes)");
    }
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=0&newState=1").status, 501);
    EXPECT_LINES(u.take(), "log 0 gpio_grid_post_handler: Failed to get new input mode", "ipc snmp send 7 (696 bytes)");
    EXPECT_EQ(post(u, "gpioType=virtual&gpioPort=3&newState=1&gpioInMode=0").status, 501);
    EXPECT_LINES(u.take(), "log 0 gpio_grid_post_handler: Failed to get new vgpo src", "ipc snmp send 8 (696 bytes)");
}

TEST_F(forms, a_refused_port_does_not_stop_the_next)
{
    EXPECT_EQ(post(u, "gpioType=any&gpioPort=6,3,0&newState=1&vgpoSrc=-&gpioInMode=1").status, 200);
    EXPECT_EQ(zel::gpios[0].input_mode, 1u);
    EXPECT_STREQ(zel::gpios[3].vgpo_src, "");
    EXPECT_EQ(post(u, "gpioType=any&gpioPort=0,6&newState=1&gpioInMode=0").status, 501);
    EXPECT_EQ(zel::gpios[0].input_mode, 0u);
}

TEST_F(forms, an_output_starts_with_the_first_trigger_that_the_port_had)
{
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=0,1&newState=2").status, 200);
    EXPECT_EQ(port_list(0), "GPI 1#5") << "an input's own";
    EXPECT_EQ(port_list(1), "Door#11");
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=0&newState=0").status, 200);
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=0&newState=2").status, 200);
    EXPECT_EQ(port_list(0), "") << "a disabled port has none";
}

TEST_F(forms, a_virtual_input_takes_the_source_that_is_known_and_no_other)
{
    resolve(u, far, "10.0.0.3");
    const std::pair<const char *, const char *> cases[] = {
        {"vGPO1%40Studio+3", far}, {"vGPO1%40Studio%203", far}, {"-", ""}, {"vGPO1@Studio 2", ""}, {"vGPO1@Studio 3", far},
        {"", ""}, {"%2D", ""}, {"vGPO1%40Studio+3%00x", far}, {"vGPO1%40Studio+3%0A", ""}, {"%", ""}, {"%4", ""}, {"%ZZ", ""}};
    for (const auto &[value, expected] : cases) {
        EXPECT_EQ(post(u, std::string("gpioType=virtual&gpioPort=3&newState=1&vgpoSrc=") + value).status, 200) << value;
        const bool dropped = expected == std::string("") && value == std::string("vGPO1@Studio 2");
        EXPECT_STREQ(zel::gpios[3].vgpo_src, expected) << value << (dropped ? " was let go of before" : "");
    }
}

TEST_F(forms, a_source_is_stored_with_its_control_characters_encoded)
{
    resolve(u, "a%0Ab", "10.0.0.3");
    EXPECT_EQ(post(u, "gpioType=virtual&gpioPort=3&newState=1&vgpoSrc=a%0Ab").status, 200);
    EXPECT_STREQ(zel::gpios[3].vgpo_src, "a%0Ab");
    EXPECT_EQ(u.json("gpio/virtual/vgpio_0/vgpo_src"), "\"a%0Ab\"");
}

TEST_F(forms, a_port_s_own_trigger_can_be_taken_off_everything_too)
{
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=5&newState=0&gpioInMode=0").status, 200);
    EXPECT_EQ(relay_list(0), "Door#11");
    EXPECT_EQ(trigger_list[5].name, std::string("GPI 1"));
    u.edge(1, 1);
    u.edge(1, 0);
    EXPECT_EQ(port_handlers(0), "Record#0");
    EXPECT_EQ(port_list(1), "Door#11");
}

TEST_F(forms, a_source_of_any_length_and_any_bytes_is_harmless)
{
    for (const std::string &value :
         {std::string(20000, 'v'), std::string(5000, '\x01'), std::string(3000, '%'), std::string(64, '\x7F')}) {
        EXPECT_EQ(post(u, "gpioType=virtual&gpioPort=3&newState=1&vgpoSrc=" + value).status, 200);
        EXPECT_STREQ(zel::gpios[3].vgpo_src, "");
    }
}

// ---- Forms that no page sends

const char *const refused_forms[] = {
    "a",
    "=",
    "&",
    "&&&&",
    "gpioType%3Drelay%26gpioPort%3D0",
    "gpioType relay",
    "gpiotype=relay&gpioport=0&newstate=2",
    "{\"gpioType\":1}",
    "gpioType=relay&newState=2",
    "gpioPort=0&newState=2",
    "newState=2",
    "vgpoSrc=-",
    "gpioInMode=1",
    "getFreeGpio=0",
    "gpioType&gpioPort&newState",
    "%67pioType%3Drelay&gpioPort=0",
};

TEST_F(forms, that_lack_anything_are_refused_and_change_nothing)
{
    const std::string before = state_of_all();
    for (const char *const body : refused_forms) {
        const web_reply reply = post(u, body);
        EXPECT_EQ(reply.status, 501) << body;
        EXPECT_EQ(reply.text, "{}") << body;
        EXPECT_EQ(reply.result, 1);
        EXPECT_EQ(fake::only(u.take(), {"log 0"}).size(), 1u) << body;
        EXPECT_EQ(state_of_all(), before) << body;
    }
}

const char *const idle_forms[] = {
    "gpioType=relay&gpioPort=&newState=2",
    "gpioType=relay&gpioPort=,&newState=2",
    "gpioType=relay&gpioPort=2,3,-1,-2&newState=0",
    "gpioType=relay&gpioPort=2147483648,-2147483649,4294967296,4294967297,-4294967296&newState=0",
    "gpioType=relay&gpioPort=18446744073709551616,99999999999999999999999999&newState=0",
    "gpioType=event&gpioPort=-1,-200,-2147483648,-99999999999999999999&newState=0",
    "gpioType=event&gpioPort=&newState=1",
    "gpioType=physical&gpioPort=7,200,2147483647&newState=0",
    "gpioType=physical&gpioPort=-1,-7,-2147483648,-4294967295&newState=0",
    "gpioType=physical&gpioPort=4294967296,4294967297,8589934592,18446744073709551616&newState=0",
    "gpioType=&gpioPort=,,,,,,,,,&newState=0",
    "gpioType=RELAY&gpioPort=9&newState=0",
};

TEST_F(forms, with_indexes_outside_every_table_are_answered_and_change_nothing)
{
    const std::string before = state_of_all();
    for (const char *const body : idle_forms) {
        const web_reply reply = post(u, body);
        EXPECT_EQ(reply.status, 200) << body;
        EXPECT_EQ(reply.text, "{}") << body;
        EXPECT_TRUE(u.take().empty()) << body;
        EXPECT_EQ(state_of_all(), before) << body;
    }
}

TEST_F(forms, with_events_behind_the_tables_are_refused)
{
    const std::string before = state_of_all();
    for (const char *const index :
         {"200", "201", "2147483647", "2147483648", "4294967296", "4294967307", "99999999999999999999"}) {
        for (const char *const state : {"0", "1", "2", "0&gpioInMode=0"}) {
            EXPECT_EQ(post(u, std::string("gpioType=event&gpioPort=") + index + "&newState=" + state).status, 501) << index;
            EXPECT_EQ(state_of_all(), before) << index << " " << state;
        }
    }
}

TEST_F(forms, with_modes_that_are_none_are_refused)
{
    const std::string before = state_of_all();
    for (const char *const mode : {"2", "-1", "200", "2147483647", "-2147483648", "2147483648", "4294967296", "4294967297",
                                   "-4294967295", "99999999999999999999", "", "1x", "one", "0x1", "1.0", "+1"}) {
        EXPECT_EQ(post(u, std::string("gpioType=physical&gpioPort=0&newState=1&gpioInMode=") + mode).status, 501) << mode;
        EXPECT_EQ(post(u, std::string("gpioType=user_button&gpioPort=5&newState=1&gpioInMode=") + mode).status, 501) << mode;
        EXPECT_EQ(state_of_all(), before) << mode;
    }
}

TEST_F(forms, with_a_key_twice_go_by_the_first)
{
    EXPECT_EQ(post(u, "gpioType=relay&gpioType=event&gpioPort=1&gpioPort=0&newState=2&newState=0").status, 200);
    EXPECT_EQ(zel::relays[1].on_grid, 1);
    EXPECT_EQ(zel::relays[0].on_grid, 1);
    EXPECT_EQ(relay_list(0), "Door#11 !GPI 1#5");
}

TEST_F(forms, may_be_very_long)
{
    std::string ports = "gpioType=relay&newState=2&gpioPort=";
    for (int i = 0; i < 20000; ++i) ports += "9,";
    EXPECT_EQ(post(u, ports + "1").status, 200);
    EXPECT_EQ(zel::relays[1].on_grid, 1);
    EXPECT_EQ(post(u, "gpioType=" + std::string(50000, 'r') + "&gpioPort=99&newState=0").status, 200);
    EXPECT_EQ(post(u, std::string(50000, '&') + "gpioType=relay&gpioPort=1&newState=1").status, 200);
    EXPECT_EQ(zel::relays[1].on_grid, 0);
    EXPECT_EQ(post(u, "gpioType=relay&newState=2&gpioPort=" + std::string(50000, '9')).status, 200);
    EXPECT_EQ(post(u, "gpioType=relay&newState=2&gpioPort=" + std::string(50000, ',') + "1").status, 200);
    EXPECT_EQ(zel::relays[1].on_grid, 1);
}

TEST_F(forms, whose_answer_finds_no_room_fail_after_their_work)
{
    for (const size_t size : {size_t{1}, size_t{2}}) {
        const web_reply reply = u.request("/cgi/gpioGrid.cgi", nullptr, "gpioType=relay&gpioPort=1&newState=2", size);
        EXPECT_EQ(reply.status, 501);
        EXPECT_FALSE(reply.has_text);
        EXPECT_EQ(zel::relays[1].on_grid, 1);
    }
    EXPECT_EQ(u.request("/cgi/gpioGrid.cgi", nullptr, "gpioType=relay&gpioPort=1&newState=2", 3).text, "{}");
}

}  // namespace
