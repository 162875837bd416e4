// What happens in the unit, seen through its control socket: each change once, in the order in which it happened.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

using namespace zel;
using namespace zel::test;

namespace {

// The studio example: GPI 1 drives "Record", and its trigger drives relay 1.
class studio : public testing::Test {
protected:
    studio()
    {
        write_file(root.config(), studio_config());
        // Nobody reads the log here, and a full pipe would stop the unit.
        unit.emplace(root, environment{{"ZEL_LOG_LEVEL", "warning"}});
    }
    void SetUp() override
    {
        ASSERT_TRUE(unit->ready()) << unit->process().err.rest();
        watcher.emplace(root);
        asking.emplace(root);
        ASSERT_TRUE(is_ok(watcher->ask(R"({"request":"watch"})")));
    }
    void TearDown() override
    {
        if (unit->process().pid() > 0) {
            EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest();
        }
    }

    // The next change in short: "pin 1 input 1", "handler Record 1", "event GPI 1 1".
    std::string change()
    {
        const json_handle line = watcher->next();
        const std::string kind = text_of(line, "change");
        if (kind == "pin") {
            return "pin " + std::to_string(number_of(line, "pin")) + " " + text_of(line, "direction") + " " +
                   std::to_string(number_of(line, "level"));
        }
        if (kind == "button") return "button " + std::to_string(number_of(line, "number"));
        return kind + " " + text_of(line, "name") + " " + std::to_string(number_of(line, "state"));
    }
    std::vector<std::string> changes(size_t count)
    {
        lines all;
        while (all.size() < count) all.push_back(change());
        return all;
    }
    // Nothing else has happened: the next change is that of an event raised now.
    void expect_quiet()
    {
        ASSERT_TRUE(is_ok(asking->ask(R"({"request":"event","trigger":"Door Bell","state":1})")));
        EXPECT_EQ(change(), "event Door Bell 1");
    }
    json_handle ask(const std::string &request) { return asking->ask(request); }

    using lines = std::vector<std::string>;
    unit_root root{studio_settings()};
    std::optional<unit_process> unit;
    std::optional<control_link> watcher, asking;
};

}  // namespace

TEST_F(studio, a_press_is_told_as_pin_then_handler_then_event_then_outputs)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":1})")));
    EXPECT_EQ(changes(4), (lines{"pin 1 input 1", "handler Record 1", "event GPI 1 1", "pin 201 output 1"}));
    ASSERT_TRUE(is_ok(ask(R"({"request":"release","pin":"GPI 1"})")));
    EXPECT_EQ(changes(4), (lines{"pin 1 input 0", "handler Record 0", "event GPI 1 0", "pin 201 output 0"}));
    expect_quiet();
}

TEST_F(studio, a_pulse_is_a_press_and_a_release)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"pulse","pin":2})")));
    EXPECT_EQ(changes(8), (lines{"pin 2 input 1", "handler Play 1", "event GPI 2 1", "pin 203 output 1",
                                 "pin 2 input 0", "handler Play 0", "event GPI 2 0", "pin 203 output 0"}));
    ASSERT_TRUE(is_ok(ask(R"({"request":"pulse","pin":2,"length_ms":30})")));
    EXPECT_EQ(changes(8).back(), "pin 203 output 0");
    expect_quiet();
}

TEST_F(studio, requests_sent_in_one_breath_stay_apart)
{
    asking->send("{\"request\":\"press\",\"pin\":1}\n{\"request\":\"release\",\"pin\":1}\n{\"request\":\"press\",\"pin\":1}\n");
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(is_ok(asking->next()));
    EXPECT_EQ(changes(12), (lines{"pin 1 input 1", "handler Record 1", "event GPI 1 1", "pin 201 output 1",
                                  "pin 1 input 0", "handler Record 0", "event GPI 1 0", "pin 201 output 0",
                                  "pin 1 input 1", "handler Record 1", "event GPI 1 1", "pin 201 output 1"}));
}

TEST_F(studio, an_answer_comes_after_what_the_request_before_it_did)
{
    asking->send("{\"request\":\"press\",\"pin\":1}\n{\"request\":\"relays\"}\n");
    ASSERT_TRUE(is_ok(asking->next()));
    const json_handle answer = asking->next();
    EXPECT_TRUE(json_is_true(json_object_get(json_array_get(json_object_get(answer.get(), "relays"), 0), "state")));
}

TEST_F(studio, a_latching_input_changes_at_every_press)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"pulse","pin":5})")));
    EXPECT_EQ(changes(4), (lines{"pin 5 input 1", "handler Dim Monitors 1", "event GPI 5 1", "pin 5 input 0"}));
    ASSERT_TRUE(is_ok(ask(R"({"request":"pulse","pin":5})")));
    EXPECT_EQ(changes(4), (lines{"pin 5 input 1", "handler Dim Monitors 0", "event GPI 5 0", "pin 5 input 0"}));
    expect_quiet();
}

TEST_F(studio, cough_ports_are_inputs_too)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":"COUGH 1"})")));
    EXPECT_EQ(changes(3), (lines{"pin 17 input 1", "handler Mute Mic 1", "event COUGH 1 1"}));
    // The other one asserts the same handler: no change of its state, so no line for it.
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":"Cough Port 2"})")));
    EXPECT_EQ(changes(2), (lines{"pin 18 input 1", "event COUGH 2 1"}));
    expect_quiet();
}

TEST_F(studio, every_call_is_told_to_those_who_asked_for_calls)
{
    control_link all(root);
    ASSERT_TRUE(is_ok(all.ask(R"({"request":"watch","calls":true})")));
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":17})")));
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":18})")));
    std::vector<std::string> kinds;
    for (int i = 0; i < 6; ++i) kinds.push_back(text_of(all.next(), "change"));
    EXPECT_EQ(kinds, (lines{"pin", "handler", "event", "pin", "call", "event"}));
}

TEST_F(studio, an_event_drives_outputs_relays_and_handlers)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"event","trigger":"On Air","state":1})")));
    EXPECT_EQ(changes(4), (lines{"event On Air 1", "pin 109 output 1", "pin 202 output 1", "handler Mic Live 1"}));
    ASSERT_TRUE(is_ok(ask(R"({"request":"event","trigger":"On Air","state":1})")));  // repeated: nothing new
    ASSERT_TRUE(is_ok(ask(R"({"request":"event","trigger":"On Air","state":0})")));
    EXPECT_EQ(changes(4), (lines{"event On Air 0", "pin 109 output 0", "pin 202 output 0", "handler Mic Live 0"}));
    expect_quiet();
}

TEST_F(studio, a_button_press_is_told_with_its_event_and_led)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"button","number":3})")));
    EXPECT_EQ(changes(3), (lines{"button 3", "event User Button 3 1", "led User LED 3 1"}));
    ASSERT_TRUE(is_ok(ask(R"({"request":"button","number":1})")));
    EXPECT_EQ(changes(4), (lines{"button 1", "event User Button 1 1", "led User LED 1 1", "handler Talkback 1"}));
    expect_quiet();
}

TEST_F(studio, a_handler_is_toggled_by_hand)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"toggle","handler":"Stop"})")));
    const json_handle line = watcher->next();
    EXPECT_EQ(text_of(line, "name"), "Stop");
    EXPECT_EQ(text_of(line, "by"), "host");
    EXPECT_EQ(number_of(line, "source"), -1);
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":3})")));
    EXPECT_EQ(changes(2), (lines{"pin 3 input 1", "event GPI 3 1"}));
    EXPECT_EQ(text_of(ask(R"({"request":"toggle","handler":"Stop"})"), "note"), "an input holds the handler on");
}

TEST_F(studio, a_handler_s_line_tells_who_drives_it)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"press","pin":4})")));  // port 3 drives handler 3
    (void)watcher->next();
    json_handle line = watcher->next();
    EXPECT_EQ(text_of(line, "name"), "Mic Live");
    EXPECT_EQ(text_of(line, "by"), "GPI 4");
    EXPECT_EQ(number_of(line, "context"), 1);
    EXPECT_EQ(change(), "event GPI 4 1");
    ASSERT_TRUE(is_ok(ask(R"({"request":"release","pin":4})")));
    EXPECT_EQ(changes(3).back(), "event GPI 4 0");
    ASSERT_TRUE(is_ok(ask(R"({"request":"event","trigger":"On Air","state":1})")));
    while (text_of(line = watcher->next(), "change") != "handler") {}
    EXPECT_EQ(text_of(line, "by"), "triggers");
}

TEST_F(studio, a_press_that_nothing_takes_up_is_noted)
{
    EXPECT_EQ(text_of(ask(R"({"request":"press","pin":8})"), "note"), "the port is not set to be an input");
    EXPECT_EQ(text_of(ask(R"({"request":"press","pin":1})"), "note"), "");
}

TEST_F(studio, a_new_connection_takes_effect_at_once)
{
    ASSERT_TRUE(is_ok(ask(R"({"request":"connect","input":"Fader Start 1","output":"Relay 8"})")));
    ASSERT_TRUE(is_ok(ask(R"({"request":"event","trigger":"Fader Start 1","state":1})")));
    EXPECT_EQ(changes(2), (lines{"event Fader Start 1 1", "pin 208 output 1"}));
    ASSERT_TRUE(is_ok(ask(R"({"request":"disconnect","input":"Fader Start 1","output":"Relay 8"})")));
    EXPECT_EQ(change(), "pin 208 output 0");
    expect_quiet();
}

TEST_F(studio, a_watcher_that_does_not_read_is_let_go_and_the_unit_goes_on)
{
    for (int i = 0; i < 6000 && unit->process().pid() > 0; ++i) {
        ASSERT_TRUE(is_ok(ask(R"({"request":"event","trigger":"On Air","state":)" + std::to_string(i & 1 ? 0 : 1) + "}")));
    }
    int told = 0;
    while (!watcher->line().empty()) ++told;  // ends: the unit has closed the link
    EXPECT_GT(told, 0);
    EXPECT_LT(told, 4 * 6000);
    EXPECT_TRUE(is_ok(ask(R"({"request":"unit"})")));
}

TEST_F(studio, wrong_requests_are_refused_and_the_link_stays)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", "a request is a JSON object on one line"},
        {"{", "a request is a JSON object on one line"},
        {"[]", "a request is a JSON object with the member \"request\""},
        {"{}", "a request is a JSON object with the member \"request\""},
        {R"({"request":"dance"})", "there is no request \"dance\""},
        {R"({"request":"press"})", "\"pin\" is missing"},
        {R"({"request":"press","pin":99})", "pin 99 is the input of no port"},
        {R"({"request":"press","pin":101})", "pin 101 is the input of no port"},
        {R"({"request":"press","pin":"GPI 17"})", "\"GPI 17\" is neither a pin nor a port with an input pin"},
        {R"({"request":"press","pin":"vGPI 1"})", "\"vGPI 1\" is neither a pin nor a port with an input pin"},
        {R"({"request":"button","number":5})", "\"number\" must be a whole number from 1 to 4"},
        {R"({"request":"event","trigger":"Off Air","state":1})", "there is no trigger \"Off Air\""},
        {R"({"request":"event","trigger":"On Air","state":2})", "\"state\" must be a whole number from 0 to 1"},
        {R"({"request":"toggle","handler":"200"})", "there is no handler \"200\""},
        {R"({"request":"connect","input":"GPI 1"})", "\"output\" is missing"},
        {R"({"request":"connect","input":"GPI 8","output":"Record"})", "the first port is not set to be an input"},
        {R"({"request":"connect","input":"GPI 1","output":"GPO 8"})", "the second port is not set to be an output"},
        {R"({"request":"connect","input":"Relay 1","output":"Record"})", "\"Relay 1\" is no input or trigger of this unit"},
        {R"({"request":"connect","input":"On Air","output":"COUGH 1"})",
         "\"COUGH 1\" is no output, relay or handler of this unit"},
        {R"({"request":"disconnect","input":"On Air","output":"Relay 1"})", "\"On Air\" is not connected to \"Relay 1\""},
        {R"({"request":"set-port","port":"GPI 1","type":"both"})", "\"type\" must be one of disabled, input, output"},
        {R"({"request":"set-port","port":"Relay 1","type":"input"})", "there is no port \"Relay 1\""},
    };
    for (const auto &[request, error] : rows) {
        const json_handle answer = ask(request);
        EXPECT_FALSE(is_ok(answer)) << request;
        EXPECT_EQ(text_of(answer, "error"), error) << request;
    }
    expect_quiet();
}

TEST_F(studio, an_overlong_request_ends_the_link)
{
    asking->send(std::string(10000, 'x'));
    EXPECT_EQ(asking->line(), R"({"ok":false,"error":"the request is too long"})");
    EXPECT_EQ(asking->line(), "");
    EXPECT_TRUE(is_ok(control_link(root).ask(R"({"request":"unit"})")));
}

TEST_F(studio, a_client_too_many_is_turned_away)
{
    std::vector<std::unique_ptr<control_link>> links;
    for (int i = 0; i < 30; ++i) {
        links.push_back(std::make_unique<control_link>(root));
        ASSERT_TRUE(is_ok(links.back()->ask(R"({"request":"unit"})")));
    }
    EXPECT_EQ(control_link(root).line(), R"({"ok":false,"error":"too many clients"})");
    links.pop_back();
    // The unit notices the end in a turn of its own, before the next client that asks.
    ASSERT_TRUE(is_ok(ask(R"({"request":"unit"})")));
    EXPECT_TRUE(is_ok(control_link(root).ask(R"({"request":"unit"})")));
}

TEST_F(studio, a_client_that_stops_sending_still_gets_its_answers)
{
    control_link link(root);
    link.send("{\"request\":\"unit\"}\n{\"request\":\"pins\"}\n");
    shutdown(link.fd(), SHUT_WR);
    EXPECT_TRUE(is_ok(link.next()));
    EXPECT_TRUE(is_ok(link.next()));
    EXPECT_EQ(link.line(), "");
}

TEST_F(studio, nobody_is_left_waiting_when_the_unit_ends)
{
    EXPECT_EQ(unit->stop(), 0);
    EXPECT_EQ(watcher->line(), "");
}
