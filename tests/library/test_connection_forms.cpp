// Every pair of an input and an output that a form can name, on "/cgi/gpioConn.cgi".
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"

using fake::unit;
using fake::web_reply;
using grid_test::handler_triggers;
using grid_test::port_handlers;
using grid_test::port_list;
using grid_test::relay_list;

namespace {

constexpr char conn[] = "/cgi/gpioConn.cgi";

/// "1 event 3 physical 2": action, input class and id, output class and id.
std::string form(const std::string &text)
{
    constexpr const char *keys[] = {"action=", "&inputClass=", "&inputID=", "&outputClass=", "&outputID="};
    std::string body;
    size_t from = 0;
    for (const char *const key : keys) {
        const size_t to = std::min(text.find(' ', from), text.size());
        body += key + text.substr(from, to - from);
        from = std::min(to + 1, text.size());
    }
    return body;
}

/// 0 disabled, 1 input, 2 output, 3 cough (input), 4 vGPI, 5 vGPO, 6 button, 7 LED; relays 0 and 1; handler 0 "Record".
/// Port i raises trigger 5 + i, the button trigger 11; 12 is "Door".
class cells : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        u.gpis(3).coughs(1).virtuals(2).buttons(1).relays(2);
        u.set("physical/gpio_1/type", 1).set("physical/gpio_2/type", 2).set("physical/gpio_3/type", 1);
        u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_1/type", 2);
        u.set("user_buttons/btn_1/type", 1).set("user_buttons/led_1/type", 2);
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        u.trigger("Door");
        u.take();
    }

    web_reply post(const std::string &body) { return u.request(conn, nullptr, body.c_str()); }

    /// All lists that hold anything: "port 2: Door#12 | relay 0: ...".
    static std::string lists()
    {
        std::string text;
        const auto add = [&](const std::string &owner, const std::string &list) {
            if (!list.empty()) text += (text.empty() ? "" : " | ") + owner + ": " + list;
        };
        for (int32_t i = 0; i < 8; ++i) {
            if (zel::gpios[i].type == 2) add("port " + std::to_string(i), port_list(i));
            if (zel::gpios[i].type == 1) add("port " + std::to_string(i), port_handlers(i));
        }
        for (int32_t r = 0; r < 2; ++r) add("relay " + std::to_string(r), relay_list(r));
        add("handler 0", handler_triggers(0));
        return text;
    }
};

struct cell {
    const char *text;
    int status;
    const char *lists;   // afterwards
};

const cell made[] = {
    {"1 event 12 event 0", 200, "handler 0: Door#12"},
    {"1 event 12 relay 0", 200, "relay 0: Door#12"},
    {"1 event 12 relay 1", 200, "relay 1: Door#12"},
    {"1 event 12 physical 2", 200, "port 2: Door#12"},
    {"1 event 12 physical 0", 200, "port 0: Door#12"},          // becomes an output
    {"1 event 12 physical 1", 200, "port 1: Door#12"},          // so does an input
    {"1 event 12 virtual 4", 200, "port 4: Door#12"},
    {"1 event 12 virtual 5", 200, "port 5: Door#12"},
    {"1 event 12 user_led 7", 200, "port 7: Door#12"},
    {"1 event 12 anything 5", 200, "port 5: Door#12"},          // an unknown word is a port
    {"1 event 12 Relay 2", 200, "port 2: Door#12"},
    {"1 event 12  2", 200, "port 2: Door#12"},
    {"1 event 12 relay 2", 200, "port 2: Door#12"},             // no such relay: a port
    {"1 event 6 physical 2", 200, "port 2: GPI 2#6"},           // a port's trigger by its own number
    {"1 event -1 physical 2", 200, ""},                         // no trigger, and still an output
    {"1 event 200 physical 2", 200, ""},
    {"1 event 199 physical 2", 200, ""},                        // nobody's trigger
    {"1 physical 1 physical 2", 200, "port 2: GPI 2#6"},
    {"1 anything 1 anything 2", 200, "port 2: GPI 2#6"},
    {"1 cough 3 virtual 5", 200, "port 5: COUGH 1#8"},
    {"1 virtual 4 user_led 7", 200, "port 7: vGPI 1#9"},
    {"1 user_button 6 physical 2", 200, "port 2: User Button 1#11"},
    {"1 user_button 6 relay 1", 200, "relay 1: User Button 1#11"},
    {"1 user_led 7 relay 0", 200, "relay 0: User Button 1#11"},  // an LED has its button's trigger
    {"1 physical 0 relay 0", 200, "relay 0: GPI 1#5"},          // also while it is no input
    {"1 physical 1 relay 2", 200, "port 2: GPI 2#6"},
    {"1 physical 1 event 0", 501, "port 1: Record#0"},          // made, and answered as a failure
    {"1 cough 3 event 0", 501, "port 3: Record#0"},
    {"1 virtual 4 event 0", 501, "port 4: Record#0"},
    {"1 user_button 6 event 0", 501, "port 6: Record#0"},
};

TEST_F(cells, are_switched_on)
{
    for (const cell &c : made) {
        SCOPED_TRACE(c.text);
        EXPECT_CHILD_SUCCEEDS({
            const web_reply reply = post(form(c.text));
            EXPECT_EQ(reply.status, c.status);
            EXPECT_EQ(reply.text, "{}");
            EXPECT_EQ(lists(), c.lists);
        });
    }
}

struct refusal {
    const char *text, *message;   // null: no line at level 0
};

constexpr char no_input[] = "0 Invalid input_id 0: (Entry in gpios list is not an input)";

const refusal refused[] = {
    {"1 event 12 user_button 6", "0 set_gpio_to_output: Cannot set user button as an output"},
    {"1 event 201 physical 2", "0 set_gpio_to_output: Invalid trigger id 201 (Max = 200)"},
    {"1 event 2147483647 physical 2", "0 set_gpio_to_output: Invalid trigger id 2147483647 (Max = 200)"},
    {"1 event 12 event 1", nullptr},
    {"1 event 12 event 200", nullptr},
    {"1 event 12 event -1", nullptr},
    {"1 event -1 event 0", nullptr},
    {"1 event -1 relay 0", nullptr},
    {"1 event 12 relay -1", nullptr},
    {"1 event 12 relay 8", nullptr},
    {"1 event 12 physical 8", nullptr},
    {"1 event 12 physical -1", nullptr},
    {"1 event 12 physical -2147483648", nullptr},
    {"1 physical 8 event 0", nullptr},
    {"1 physical 8 relay 0", nullptr},
    {"1 physical 2147483647 physical 2", nullptr},
    {"1 physical -1 physical 2", nullptr},
    {"1 physical -2147483648 event 0", nullptr},
    {"1 physical 0 event 0", no_input},
    {"1 physical 0 physical 2", no_input},
    {"1 physical 2 event 0", "0 Invalid input_id 2: (Entry in gpios list is not an input)"},
    {"1 physical 2 physical 5", "0 Invalid input_id 2: (Entry in gpios list is not an input)"},
    {"1 user_led 7 physical 2", "0 Invalid input_id 7: (Entry in gpios list is not an input)"},
    {"1 physical 1 physical 0", "0 Invalid output_id 0: (Entry in gpios list is not an output)"},
    {"1 physical 1 physical 1", "0 Invalid output_id 1: (Entry in gpios list is not an output)"},
    {"1 physical 1 user_button 6", "0 Invalid output_id 6: (Entry in gpios list is not an output)"},
    {"1 physical 1 event 200", nullptr},
    {"1 physical 1 event -1", nullptr},
    {"1 physical 1 relay 8", nullptr},
    {"1 physical 1 relay -1", nullptr},
    {"1 physical 1 physical 8", nullptr},
    {"0 event 12 event 0", nullptr},
    {"0 event 12 event 200", nullptr},
    {"0 event 12 event -1", nullptr},
    {"0 event 12 relay 0", nullptr},
    {"0 event 12 relay -1", nullptr},
    {"0 event 12 relay 2147483647", nullptr},
    {"0 event 12 physical 2", nullptr},
    {"0 event 12 physical -1", nullptr},
    {"0 event 12 physical 8", nullptr},
    {"0 event -1 physical 2", nullptr},
    {"0 event 4711 physical 2", nullptr},
    {"0 event -2147483648 relay 0", nullptr},
    {"0 physical 1 event 0", nullptr},
    {"0 physical 1 event 200", nullptr},
    {"0 physical 1 event -1", nullptr},
    {"0 physical 1 relay 0", nullptr},
    {"0 physical 1 physical 2", nullptr},
    {"0 physical 1 physical -1", nullptr},
    {"0 physical 8 event 0", nullptr},
    {"0 physical -1 relay 0", nullptr},
    {"0 physical 0 event 0", no_input},
    {"0 physical 2 event 0", "0 Invalid input_id 2: (Entry in gpios list is not an input)"},
};

TEST_F(cells, that_cannot_be_switched_are_refused_and_nothing_changes)
{
    const std::string before = u.json("gpio");
    for (const refusal &c : refused) {
        u.take();
        const web_reply reply = post(form(c.text));
        EXPECT_EQ(reply.status, 501) << c.text;
        EXPECT_EQ(reply.text, "{}") << c.text;
        EXPECT_EQ(fake::joined(fake::only(u.take(), {"log 0"})),
                  c.message != nullptr ? "log " + std::string(c.message) + "\n" : "")
            << c.text;
        EXPECT_EQ(lists(), "") << c.text;
        EXPECT_EQ(u.json("gpio"), before) << c.text;
    }
}

TEST_F(cells, are_switched_off_again)
{
    for (const cell &c : made) {
        const bool stays = std::string(c.lists).empty() || c.text == std::string("1 physical 1 event 0");
        if (stays) continue;
        SCOPED_TRACE(c.text);
        EXPECT_CHILD_SUCCEEDS({
            post(form(c.text));
            std::string off = c.text;
            off[0] = '0';
            EXPECT_EQ(post(form(off)).status, 200);
            EXPECT_EQ(lists(), "");
            EXPECT_EQ(post(form(off)).status, 501) << "there is nothing left to switch off";
        });
    }
}

TEST_F(cells, of_an_output_that_loses_its_last_trigger_leave_it_an_output)
{
    post(form("1 event 12 physical 0"));
    u.raise("Door");
    EXPECT_EQ(u.level(101), 1);
    EXPECT_EQ(post(form("0 event 12 physical 0")).status, 200);
    EXPECT_EQ(zel::gpios[0].type, 2u);
    EXPECT_EQ(u.level(101), 0);
    EXPECT_EQ(u.json("gpio/physical/gpio_0/type"), "2");
}

struct invert_case {
    const char *text;
    const char *list;
};

TEST_F(cells, are_inverted_by_a_one_only)
{
    for (const invert_case &c : {invert_case{"&gpioInvert=1", "!Door#12"},
                                 {"&gpioInvert=0", "Door#12"},
                                 {"&gpioInvert=2", "Door#12"},
                                 {"&gpioInvert=-1", "Door#12"},
                                 {"&gpioInvert=true", "Door#12"},
                                 {"&gpioInvert=1x", "Door#12"},
                                 {"&gpioInvert=", "Door#12"},
                                 {"&gpioInvert=01", "!Door#12"},
                                 {"&gpioinvert=1", "Door#12"},
                                 {"", "Door#12"},
                                 {"&gpioInvert=1&gpioInvert=0", "!Door#12"}}) {
        EXPECT_EQ(post(form("1 event 12 relay 0") + c.text).status, 200);
        EXPECT_EQ(relay_list(0), c.list) << c.text;
        EXPECT_EQ(u.json("gpio/relay/relay_0/trigger_invert"), c.list[0] == '!' ? "\"1\"" : "\"0\"");
        EXPECT_EQ(u.level(201), c.list[0] == '!' ? 1 : 0) << c.text;
    }
}

TEST_F(cells, are_named_in_the_log)
{
    post(form("1 event 12 relay 0") + "&gpioInvert=1");
    EXPECT_TRUE(u.logged("2 create_connection: Connecting event input 12 and relay output 0 (invert = 1)"));
    post(form("1 odd -7 word 99"));
    EXPECT_TRUE(u.logged("2 create_connection: Connecting odd input -7 and word output 99 (invert = 0)"));
    post(form("0 event 12 relay 0") + "&gpioInvert=1");
    EXPECT_TRUE(u.logged("2 delete_connection: Disconnecting event input 12 and relay output 0"));
    post(form("1 %25s%25n 1 %25s 2"));
    EXPECT_TRUE(u.logged("2 create_connection: Connecting %s%n input 1 and %s output 2 (invert = 0)"));
}

TEST_F(cells, are_switched_off_by_every_other_action)
{
    for (const char *const action : {"0", "2", "-1", "11", "2147483647", "-2147483648"}) {
        post(form("1 event 12 relay 0"));
        ASSERT_EQ(relay_list(0), "Door#12");
        EXPECT_EQ(post(form(std::string(action) + " event 12 relay 0")).status, 200) << action;
        EXPECT_EQ(relay_list(0), "") << action;
    }
}

const char *const wild_ids[] = {"4294967296",           "4294967308",           "-4294967284",          "2147483648",
                                "18446744073709551628", "99999999999999999999", "-99999999999999999999"};

TEST_F(cells, of_numbers_beyond_32_bits_are_not_those_of_the_numbers_left_when_they_are_cut)
{
    const std::string before = u.json("gpio");
    for (const char *const id : wild_ids) {
        for (const std::string &text : {std::string("1 event ") + id + " physical 2", std::string("1 physical 1 physical ") + id,
                                        std::string("1 event 12 relay ") + id, std::string("1 physical ") + id + " relay 0",
                                        std::string("0 event 12 event ") + id}) {
            EXPECT_EQ(post(form(text)).status, 501) << text;
            EXPECT_EQ(lists(), "") << text;
            EXPECT_EQ(u.json("gpio"), before) << text;
        }
    }
}

TEST_F(cells, are_missed_one_by_one_in_a_fixed_order)
{
    const std::pair<const char *, const char *> parts[] = {{"action=1", "Action is missing"},
                                                           {"inputClass=event", "Input class info is missing"},
                                                           {"outputClass=relay", "Output class info is missing"},
                                                           {"inputID=12", "Input ID is missing"},
                                                           {"outputID=0", "Output ID is missing"}};
    std::string body = "gpioInvert=1";
    for (const auto &[part, message] : parts) {
        u.take();
        const web_reply reply = post(body);
        EXPECT_EQ(reply.status, 501);
        EXPECT_FALSE(reply.has_text);
        EXPECT_LINES(u.take(), std::string("log 0 url_handler_func_gpioConn: ") + message);
        body = std::string(part) + "&" + body;
    }
    EXPECT_EQ(post(body).status, 200);
    EXPECT_EQ(relay_list(0), "!Door#12");
}

const char *const wild_forms[] = {"x",
                                  "=",
                                  "&&&",
                                  "action",
                                  "action%3D1",
                                  "ACTION=1&INPUTCLASS=event",
                                  "{\"action\":1}",
                                  "action=&inputClass=event",
                                  "action=1&inputClass=event&inputID=&outputClass=relay&outputID=0",
                                  "action=1&inputClass=event&inputID=12a&outputClass=relay&outputID=0",
                                  "action=1&inputClass=event&inputID=12&outputClass=relay&outputID=0x0",
                                  "action=0x1&inputClass=event&inputID=12&outputClass=relay&outputID=0"};

TEST_F(cells, that_nobody_can_read_are_refused_without_a_body)
{
    for (const char *const body : wild_forms) {
        const web_reply reply = post(body);
        EXPECT_EQ(reply.result, 1);
        EXPECT_EQ(reply.status, 501) << body;
        EXPECT_FALSE(reply.has_text) << body;
        EXPECT_EQ(lists(), "") << body;
    }
    const std::string filler(70000, 'c');
    EXPECT_EQ(post(filler).status, 501);
    EXPECT_EQ(post("action=1&inputClass=" + filler + "&inputID=1&outputClass=" + filler + "&outputID=2").status, 200)
        << "two ports";
    EXPECT_EQ(lists(), "port 2: GPI 2#6");
}

TEST(pairs_of_buttons_and_leds, are_connected_by_the_triggers_of_the_buttons)
{
    unit u;
    u.gpis(12).virtuals(8).buttons(2).relays(4);
    for (const char *const button : {"btn_1", "btn_2"}) u.set(std::string("user_buttons/") + button + "/type", 1);
    ASSERT_EQ(u.start(), 0);
    const std::pair<int, const char *> pairs[] = {
        {20, "User Button 1#25"}, {21, "User Button 1#25"}, {22, "User Button 2#26"}, {23, "User Button 2#26"}};
    for (const auto &[port, list] : pairs) {
        const std::string relay = std::to_string(port - 20);
        EXPECT_EQ(u.request(conn, nullptr, form("1 user_button " + std::to_string(port) + " relay " + relay).c_str()).status,
                  200);
        EXPECT_EQ(relay_list(port - 20), list) << port;
        EXPECT_EQ(u.request(conn, nullptr, form("0 user_button " + std::to_string(port) + " relay " + relay).c_str()).status,
                  200);
        EXPECT_EQ(relay_list(port - 20), "") << port;
    }
}

TEST(a_connection, that_cannot_be_saved_answers_as_a_failure)
{
    unit u;
    u.relays(1);
    ASSERT_EQ(u.start(), 0);
    u.fail("json load gpio/relay/relay_0");
    EXPECT_EQ(u.request(conn, nullptr, form("1 event 3 relay 0").c_str()).status, 501);
    u.heal();
    EXPECT_EQ(u.request(conn, nullptr, form("1 event 3 relay 0").c_str()).status, 200);
}

}  // namespace
