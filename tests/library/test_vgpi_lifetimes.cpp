// Names, addresses, records and sessions that virtual inputs hold on to, while their sources change, leave and return. What was
// on its way from the other unit at that moment arrives late.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_records.h"
#include "zel_gpio/vgpi_links.h"

using namespace vgpo_units;
using fake::unit;

namespace {

constexpr char grid[] = "/cgi/gpioGrid.cgi";

void resolve_at(unit &u, const char *name, const char *address)
{
    resolve(u, name, address, 9000, "\"path=/" + std::string(name) + "\"");
}

std::string path_of(const char *name, const char *parameter) { return "/" + std::string(name) + "/" + parameter; }

/// Inputs 0 and 2 follow one output of a unit, input 1 another one of it: one session. Each drives the handler "Record".
void start_sharing(unit &u)
{
    describe(u, {near, beside, near});
    for (int v = 0; v < 3; ++v) u.set("virtual/vgpio_" + std::to_string(v) + "/handler", "Record");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    resolve_at(u, near, "10.0.0.2");
    resolve_at(u, beside, "10.0.0.2");
    ASSERT_EQ(u.consumers(), std::vector<int>{1});
}

/// All answers that the first and the latest requests ever made on a living session can bring now: levels, types, nothing; and
/// news of the link.
void everything_arrives_late(unit &u)
{
    static constexpr int64_t values[] = {1, 2, 0, 3};
    for (const int session : u.consumers()) {
        const size_t asked = u.requests_ever(session);
        for (size_t nth = 0; nth < asked; ++nth) {
            if (nth >= 8 && nth + 12 < asked) continue;
            for (const int64_t &value : values) u.late_value(session, nth, &value);
            for (int i = 0; i < 5; ++i) u.late_value(session, nth, nullptr);
        }
        u.connected(session, false);
        u.connected(session, true);
    }
}

/// Other units come and go, so that released memory is used again.
void others_come_and_go(unit &u)
{
    for (int i = 0; i < 60; ++i) resolve(u, ("vGPO9@Studio " + std::to_string(i)).c_str(), "10.9.9.9");
    for (int i = 0; i < 60; ++i) remove(u, ("vGPO9@Studio " + std::to_string(i)).c_str());
}

fake::bytes agent_request(int32_t index, int32_t value, const char *text)
{
    zel::snmp_request_record request{index, value, {}, 1};
    strncpy(request.text, text, sizeof request.text);
    fake::bytes payload(sizeof request);
    std::memcpy(payload.data(), &request, sizeof request);
    return payload;
}

struct change {
    const char *what;
    void (*make)(unit &);
};

const change changes[] = {
    {"the tree chooses another source", [](unit &u) { u.write("gpio/virtual/vgpio 1/vgpio source", far); }},
    {"the tree chooses the neighbour's source", [](unit &u) { u.write("gpio/virtual/vgpio 1/vgpio source", beside); }},
    {"the tree chooses the same source", [](unit &u) { u.write("gpio/virtual/vgpio 1/vgpio source", near); }},
    {"the tree drops the source", [](unit &u) { u.write("gpio/virtual/vgpio 1/vgpio source", ""); }},
    {"the tree drops the only follower's source", [](unit &u) { u.write("gpio/virtual/vgpio 2/vgpio source", ""); }},
    {"the tree disables the input", [](unit &u) { u.write("gpio/virtual/vgpio 1/type", 0); }},
    {"the tree makes it an output", [](unit &u) { u.write("gpio/virtual/vgpio 2/type", 2); }},
    {"the agent chooses another source", [](unit &u) { u.deliver("snmp", 27, agent_request(0, 0, far)); }},
    {"the agent drops the source", [](unit &u) { u.deliver("snmp", 27, agent_request(1, 0, "")); }},
    {"the agent disables the input", [](unit &u) { u.deliver("snmp", 23, agent_request(1, 0, "")); }},
    {"the browser chooses another source",
     [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1&newState=1&vgpoSrc=vGPO1%40Studio+3"); }},
    {"the browser drops all", [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1,2&newState=1&vgpoSrc=-"); }},
    {"the browser disables two", [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,2&newState=0"); }},
    {"the service is gone", [](unit &u) { remove(u, near); }},
    {"both services are gone", [](unit &u) { remove(u, near), remove(u, beside); }},
    {"the service is at another address", [](unit &u) { resolve_at(u, near, "10.0.0.7"); }},
    {"the service is resolved again", [](unit &u) { resolve_at(u, near, "10.0.0.2"); }},
    {"the service has another path", [](unit &u) { resolve(u, near, "10.0.0.2", 9000, "path=/elsewhere"); }},
    {"the service has an empty record", [](unit &u) { resolve(u, near, "", 0, ""); }},
};

TEST(what_arrives_late, does_no_harm_after_any_change)
{
    for (const change &c : changes) {
        SCOPED_TRACE(c.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start_sharing(u);
            resolve_at(u, far, "10.0.0.3");
            c.make(u);
            everything_arrives_late(u);
            others_come_and_go(u);
            everything_arrives_late(u);
        });
    }
}

TEST(what_arrives_late, does_no_harm_after_any_two_changes)
{
    for (const change &first : changes) {
        SCOPED_TRACE(first.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start_sharing(u);
            resolve_at(u, far, "10.0.0.3");
            for (const change &second : changes) {
                first.make(u);
                second.make(u);
                everything_arrives_late(u);
                u.write("gpio/virtual/vgpio 1/type", 1);
                u.write("gpio/virtual/vgpio 2/type", 1);
            }
            others_come_and_go(u);
            everything_arrives_late(u);
        });
    }
}

TEST(what_arrives_late, for_a_source_that_was_left_reaches_no_input)
{
    unit u;
    start_sharing(u);
    resolve_at(u, far, "10.0.0.3");
    for (const char *const input : {"gpio/virtual/vgpio 1/vgpio source", "gpio/virtual/vgpio 3/vgpio source"})
        ASSERT_EQ(u.write(input, far), 0);
    u.take();
    const int64_t on = 1;
    u.late_value(1, 1, &on);
    EXPECT_EQ(port(0).state + port(1).state + port(2).state, 0);
    EXPECT_TRUE(u.take().empty());
    remove(u, near);
    u.take();
    u.late_value(1, 1, &on);
    EXPECT_LINES(u.take(), std::string("log 0 vgpo_state_cb: Failed to find vGPO named '") + near + "' in list");
}

TEST(several_followers, move_together_each_time_their_source_has_another_address)
{
    unit u;
    describe(u, {near, near, beside, near, beside, near, near});
    ASSERT_EQ(u.start(), 0);
    resolve_at(u, beside, "10.0.0.2");
    for (int round = 0; round < 30; ++round) {
        const std::string address = "10.0.0." + std::to_string(2 + round % 4);
        resolve_at(u, near, address.c_str());
        for (const int input : {0, 1, 3, 5, 6}) {
            ASSERT_EQ(port(input).vgpo_src_valid, 1) << round << " " << input;
            EXPECT_EQ(port(input).vgpi_session, port(0).vgpi_session);
            EXPECT_EQ(port(input).vgpi_provider_addr, address + ":9000");
        }
        EXPECT_EQ(u.consumers().size(), round % 4 == 0 ? 1u : 2u) << "sessions that nobody uses end";
        EXPECT_EQ(port(0).vgpi_session == port(2).vgpi_session, round % 4 == 0);
        const int session = u.consumers().back();
        u.value(session, path_of(near, "status"), round % 2);
        for (const int input : {0, 1, 3, 5, 6}) EXPECT_EQ(port(input).state, round % 2) << round << " " << input;
        everything_arrives_late(u);
    }
}

TEST(an_unreachable_source, chosen_again_in_any_way_stays)
{
    const change again[] = {
        {"by the tree", [](unit &u) { EXPECT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", near), 0); }},
        {"by the agent", [](unit &u) { u.deliver("snmp", 27, agent_request(0, 0, near)); }},
        {"by the browser",
         [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0&newState=1&vgpoSrc=vGPO1%40Studio+2"); }},
        {"with the type, by the tree", [](unit &u) { EXPECT_EQ(u.write("gpio/virtual/vgpio 1/type", 1), 0); }},
        {"with the type, by the agent", [](unit &u) { u.deliver("snmp", 23, agent_request(0, 1, "")); }},
    };
    for (const change &c : again) {
        SCOPED_TRACE(c.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            describe(u, {near});
            u.start();
            for (int round = 0; round < 3; ++round) {
                c.make(u);
                ASSERT_NE(record(near), nullptr);
                EXPECT_EQ(record(near)->id, 0u);
                EXPECT_STREQ(port(0).vgpo_src, near);
                EXPECT_EQ(u.json("gpio/virtual/vgpio_0/vgpo_src"), std::string("\"") + near + "\"");
                others_come_and_go(u);
            }
            resolve_at(u, near, "10.0.0.2");
            EXPECT_EQ(port(0).vgpo_src_valid, 1);
        });
    }
}

TEST(a_removed_service, that_is_followed_stays_for_tree_agent_and_browser)
{
    unit u;
    start_sharing(u);
    u.value(1, path_of(near, "status"), 1);
    u.value(1, path_of(beside, "status"), 1);
    const vGPO_t *const before = record(near);
    u.take();
    u.forget_sent();
    remove(u, near);
    EXPECT_LINES(fake::without(u.take(), {"log 4"}), "log 2 zel_gpio_notify_trigger_event: event 'vGPI 1' has ended",
                 "ember set gpio/virtual/vgpio 1/status 0 (8 bytes)", "ipc snmp send 8 (696 bytes)", "consumer 1 clear " + path_of(near, "type"),
                 "consumer 1 clear " + path_of(near, "status"), "log 2 zel_gpio_notify_trigger_event: event 'vGPI 3' has ended",
                 "ember set gpio/virtual/vgpio 3/status 0 (8 bytes)", "ipc snmp send 8 (696 bytes)");
    EXPECT_EQ(port(0).state + port(2).state, 0);
    EXPECT_EQ(port(1).state, 1) << "the neighbour goes on";
    EXPECT_EQ(port(1).vgpo_src_valid, 1);
    EXPECT_EQ(record(near), before);
    EXPECT_EQ(before->id, 0u);
    EXPECT_EQ(before->status_path, nullptr);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-0"), near);
    EXPECT_TRUE(u.sent("snmp", 14).empty());
    EXPECT_NE(u.request(grid, "getFreeGpio=0", nullptr).text.find(near), std::string::npos);
}

TEST(a_removed_service, that_returns_is_followed_again_under_its_number)
{
    unit u;
    start_sharing(u);
    for (int round = 0; round < 3; ++round) {
        remove(u, near);
        EXPECT_EQ(port(0).vgpi_session, nullptr);
        others_come_and_go(u);
        everything_arrives_late(u);
        u.forget_sent();
        resolve_at(u, near, "10.0.0.2");
        EXPECT_EQ(record(near)->id, 0u);
        EXPECT_EQ(u.sent("snmp", 14).size(), 1u);
        EXPECT_EQ(u.consumers(), std::vector<int>{1}) << "over the neighbour's session";
        u.value(1, path_of(near, "status"), 1);
        EXPECT_EQ(port(0).state + port(2).state, 2);
    }
}

TEST(a_removed_service, removed_twice_is_nothing_new)
{
    unit u;
    start_sharing(u);
    remove(u, near);
    u.take();
    remove(u, near);
    EXPECT_LINES(fake::without(u.take(), {"log 4"}), "ember set gpio/virtual/vgpio 1/status 0 (8 bytes)",
                 "ember set gpio/virtual/vgpio 3/status 0 (8 bytes)");
    EXPECT_NE(record(near), nullptr);
}

TEST(the_end, ends_each_session_once_with_all_still_following)
{
    unit u;
    describe(u, {near, beside, near, far});
    ASSERT_EQ(u.start(), 0);
    resolve_at(u, near, "10.0.0.2");
    resolve_at(u, beside, "10.0.0.2");
    resolve_at(u, far, "10.0.0.3");
    u.take();
    u.stop();
    EXPECT_LINES(fake::only(u.take(), {"consumer 1 end", "consumer 2 end"}), "consumer 1 end", "consumer 2 end");
}

// ---- Callbacks that turn everything over while a value is on its way through the followers

const change turns[] = {
    {"removes the service", [](unit &u) { remove(u, near); }},
    {"removes all services", [](unit &u) { remove(u, near), remove(u, beside); }},
    {"moves the service", [](unit &u) { resolve_at(u, near, "10.0.0.7"); }},
    {"gives it another path", [](unit &u) { resolve(u, near, "10.0.0.2", 9000, "path=/elsewhere"); }},
    {"disables all inputs", [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1,2&newState=0"); }},
    {"takes all sources away, and the record with them",
     [](unit &u) {
         remove(u, near);
         u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1,2&newState=1&vgpoSrc=-");
     }},
    {"loses the link",
     [](unit &u) {
         if (!u.consumers().empty()) u.connected(u.consumers()[0], false);
     }},
    {"chooses other sources",
     [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,2&newState=1&vgpoSrc=vGPO2%40Studio+2"); }},
    {"makes outputs of the inputs", [](unit &u) { u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1,2&newState=2"); }},
    {"forgets the triggers", [](unit &) { zel_gpio_deregister_trigger("vGPI 1"), zel_gpio_deregister_trigger("vGPI 3"); }},
};

TEST(a_callback, that_turns_the_links_over_during_a_value_does_no_harm)
{
    for (const change &turn : turns) {
        for (const char *const parameter : {"status", "type"}) {
            SCOPED_TRACE(std::string(turn.what) + " at " + parameter);
            EXPECT_CHILD_SUCCEEDS({
                unit u;
                start_sharing(u);
                int calls = 0;
                u.value(1, path_of(near, "status"), 1);
                u.handler("Door", [&](int32_t, uint8_t, uintptr_t) { if (++calls == 2) turn.make(u); });
                u.request("/cgi/gpioConn.cgi", nullptr, "action=1&inputClass=virtual&inputID=0&outputClass=event&outputID=1");
                calls = 1;
                u.value(1, path_of(near, parameter), 0);
                EXPECT_GE(calls, 2) << "the callback was called";
                others_come_and_go(u);
                everything_arrives_late(u);
            });
        }
    }
}

TEST(a_callback, that_turns_the_links_over_while_a_service_leaves_does_no_harm)
{
    for (const change &turn : turns) {
        SCOPED_TRACE(turn.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start_sharing(u);
            bool turned = false;
            u.value(1, path_of(near, "status"), 1);
            u.handler("Door", [&](int32_t, uint8_t, uintptr_t) { if (!std::exchange(turned, true)) turn.make(u); });
            const int32_t trigger = unit::trigger_id("vGPI 1");
            turned = true;
            u.request("/cgi/gpioConn.cgi", nullptr,
                      ("action=1&inputClass=event&inputID=" + std::to_string(trigger) + "&outputClass=event&outputID=1").c_str());
            turned = false;
            remove(u, near);
            EXPECT_TRUE(turned);
            others_come_and_go(u);
            everything_arrives_late(u);
        });
    }
}

TEST(a_callback, that_lets_all_names_go_and_chooses_new_ones_during_a_value_does_no_harm)
{
    unit u;
    start_sharing(u);
    resolve_at(u, far, "10.0.0.3");
    bool turned = true;
    u.handler("Door", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(turned, true)) return;
        u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1,2&newState=0");   // ends the session, nothing is followed
        u.request(grid, nullptr, "gpioType=virtual&gpioPort=0,1,2&newState=1&vgpoSrc=vGPO1%40Studio+3");
    });
    u.request("/cgi/gpioConn.cgi", nullptr, "action=1&inputClass=virtual&inputID=0&outputClass=event&outputID=1");
    turned = false;
    u.value(1, path_of(near, "status"), 1);
    EXPECT_TRUE(turned);
    for (int i = 0; i < 3; ++i) EXPECT_STREQ(port(i).vgpo_src, far);
    EXPECT_EQ(u.consumers().size(), 1u);
}

TEST(a_source, with_another_path_is_no_longer_followed_at_its_old_one)
{
    unit u;
    start_sharing(u);
    resolve(u, near, "10.0.0.2", 9000, "path=/elsewhere");
    EXPECT_FALSE(u.follows(1, path_of(near, "status")));
    EXPECT_FALSE(u.follows(1, path_of(near, "type")));
    EXPECT_TRUE(u.follows(1, "/elsewhere/status"));
    EXPECT_TRUE(u.follows(1, path_of(beside, "status")));
}

}  // namespace
