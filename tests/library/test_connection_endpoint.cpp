// "/cgi/gpioConn.cgi": connecting and disconnecting.
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

web_reply post(unit &u, const std::string &body) { return u.request(conn, nullptr, body.c_str()); }

std::string form(int action, const char *input_class, int input, const char *output_class, int output, const char *more = "")
{
    return "action=" + std::to_string(action) + "&inputClass=" + input_class + "&inputID=" + std::to_string(input) +
           "&outputClass=" + output_class + "&outputID=" + std::to_string(output) + more;
}

/// Port 0 disabled, 1 input, 2 output, relay 0, handler 0 "Record".
void start(unit &u)
{
    u.gpis(3).relays(1).set("physical/gpio_1/type", 1).set("physical/gpio_2/type", 2);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take();
}

TEST(connecting, a_trigger_to_a_port_makes_it_an_output)
{
    unit u;
    start(u);
    const web_reply reply = post(u, form(1, "event", 3, "physical", 0));
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.text, "{}");
    EXPECT_EQ(port_list(0), "DC Power Off#3");
    EXPECT_EQ(zel::gpios[0].type, 2u);
    EXPECT_TRUE(u.logged("2 create_connection: Connecting event input 3 and physical output 0 (invert = 0)"));
}

struct connect_case {
    const char *what;
    std::string body;
    int status;
    std::function<std::string()> list;
    std::string expected;
};

std::vector<connect_case> connect_cases()
{
    const auto output = [] { return port_list(2); };
    const auto relay = [] { return relay_list(0); };
    const auto handler = [] { return handler_triggers(0); };
    const auto input = [] { return port_handlers(1); };
    return {
        {"a trigger and a handler", form(1, "event", 3, "event", 0, "&gpioInvert=1"), 200, handler, "!DC Power Off#3"},
        {"a trigger and a relay", form(1, "event", 3, "relay", 0), 200, relay, "DC Power Off#3"},
        {"an input and a handler, which answers as a failure", form(1, "physical", 1, "event", 0, "&gpioInvert=1"), 501, input, "!Record#0"},
        {"an input and a relay", form(1, "physical", 1, "relay", 0, "&gpioInvert=2"), 200, relay, "GPI 2#6"},
        {"an input and an output", form(1, "physical", 1, "physical", 2, "&gpioInvert=1"), 200, output, "!GPI 2#6"},
        {"a disabled port and a handler", form(1, "physical", 0, "event", 0), 501, input, ""},
        {"a disabled port and an output", form(1, "physical", 0, "physical", 2), 501, output, ""},
        {"an input and a port that is none", form(1, "physical", 1, "physical", 0), 501, output, ""},
        {"an input and a port behind the table", form(1, "physical", 1, "physical", 3), 501, output, ""},
        {"an input and a handler behind the table", form(1, "physical", 1, "event", 200), 501, input, ""},
        {"an input and a negative handler", form(1, "physical", 1, "event", -5), 501, input, ""},
        {"a port behind the table", form(1, "physical", 3, "event", 0), 501, input, ""},
        {"a negative port", form(1, "physical", -1, "relay", 0), 501, relay, ""},
        {"a trigger and a relay behind the table", form(1, "event", 3, "relay", 9), 501, relay, ""},
        {"a trigger and a negative relay", form(1, "event", 3, "relay", -1), 501, relay, ""},
        {"a trigger behind the table and an output", form(1, "event", 4711, "physical", 2), 501, output, ""},
        {"a trigger and a port of a number beyond 32 bits", "action=1&inputClass=event&inputID=3&outputClass=physical&outputID=4294967298",
         501, output, ""},
        {"a trigger of a number beyond 32 bits", "action=1&inputClass=event&inputID=4294967299&outputClass=physical&outputID=2", 501, output, ""},
    };
}

TEST(connecting, does_and_refuses)
{
    for (const connect_case &c : connect_cases()) {
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start(u);
            EXPECT_EQ(post(u, c.body).status, c.status) << c.what;
            EXPECT_EQ(c.list(), c.expected) << c.what;
        });
    }
}

TEST(connecting, names_the_port_that_does_not_fit_without_a_function)
{
    unit u;
    start(u);
    post(u, form(1, "physical", 0, "event", 0));
    post(u, form(1, "physical", 0, "physical", 2));
    post(u, form(0, "physical", 0, "event", 0));
    EXPECT_EQ(u.count_of("log 0 Invalid input_id 0: (Entry in gpios list is not an input)"), 3);
    post(u, form(1, "physical", 1, "physical", 0));
    EXPECT_TRUE(u.logged("0 Invalid output_id 0: (Entry in gpios list is not an output)"));
}

TEST(disconnecting, takes_each_kind_of_connection_away)
{
    unit u;
    start(u);
    post(u, form(1, "event", 3, "event", 0));
    post(u, form(1, "event", 3, "relay", 0));
    post(u, form(1, "event", 3, "physical", 2));
    post(u, form(1, "physical", 1, "event", 0));
    post(u, form(1, "physical", 1, "relay", 0));
    post(u, form(1, "physical", 1, "physical", 2));
    EXPECT_EQ(relay_list(0), "GPI 2#6 DC Power Off#3");

    EXPECT_EQ(post(u, form(0, "event", 3, "event", 0)).status, 200);
    EXPECT_EQ(post(u, form(0, "event", 3, "relay", 0)).status, 200);
    EXPECT_EQ(post(u, form(2, "event", 3, "physical", 2)).status, 200);
    EXPECT_TRUE(u.logged("2 delete_connection: Disconnecting event input 3 and physical output 2"));
    EXPECT_EQ(handler_triggers(0) + "|" + relay_list(0) + "|" + port_list(2), "|GPI 2#6|GPI 2#6");
    EXPECT_EQ(zel::gpios[2].type, 2u) << "the port stays an output";

    EXPECT_EQ(post(u, form(0, "physical", 1, "event", 0)).status, 200);
    EXPECT_EQ(post(u, form(0, "physical", 1, "relay", 0)).status, 200);
    EXPECT_EQ(post(u, form(0, "physical", 1, "physical", 2)).status, 200);
    EXPECT_EQ(port_handlers(1) + "|" + relay_list(0) + "|" + port_list(2), "||");

    EXPECT_EQ(post(u, form(0, "physical", 1, "relay", 0)).status, 501) << "not connected";
    EXPECT_EQ(post(u, form(0, "physical", 9, "relay", 0)).status, 501);
    EXPECT_EQ(post(u, form(0, "event", 3, "relay", 9)).status, 501);
}

struct missing_case {
    const char *body, *message;
};
const missing_case missing_cases[] = {
    {"x", "Invalid header string"},
    {"inputClass=event&inputID=3&outputClass=physical&outputID=0", "Action is missing"},
    {"action=a&inputClass=event&inputID=3&outputClass=physical&outputID=0", "Action is missing"},
    {"action=1&inputID=3&outputClass=physical&outputID=0", "Input class info is missing"},
    {"action=1&inputClass=event&inputID=3&outputID=0", "Output class info is missing"},
    {"action=1&inputClass=event&outputClass=physical&outputID=0", "Input ID is missing"},
    {"action=1&inputClass=event&inputID=3&outputClass=physical", "Output ID is missing"},
};

TEST(a_form, that_lacks_something_is_refused_without_a_body)
{
    unit u;
    start(u);
    for (const missing_case &c : missing_cases) {
        const web_reply reply = post(u, c.body);
        EXPECT_EQ(reply.result, 1);
        EXPECT_EQ(reply.status, 501) << c.body;
        EXPECT_FALSE(reply.has_text);
        EXPECT_TRUE(u.logged(std::string("0 url_handler_func_gpioConn: ") + c.message)) << c.body;
    }
}

TEST(a_request, without_a_body_counts_as_handled)
{
    unit u;
    start(u);
    for (const char *body : {static_cast<const char *>(nullptr), ""}) {
        const web_reply reply = u.request(conn, "action=1", body);
        EXPECT_EQ(reply.result, 1);
        EXPECT_EQ(reply.status, 200);
        EXPECT_FALSE(reply.has_text);
    }
}

TEST(a_request, whose_answer_does_not_fit_fails)
{
    unit u;
    start(u);
    EXPECT_EQ(u.request(conn, nullptr, form(1, "event", 3, "relay", 0).c_str(), 2).status, 501);
}

}  // namespace
