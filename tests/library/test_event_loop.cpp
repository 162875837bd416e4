// The two calls around the host's select(): which descriptors are offered, and what an edge does.
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "zel_gpio/records.h"

using fake::joined;
using fake::lines;
using fake::unit;

namespace {

struct offered {
    fd_set readfds, exceptfds;
    int maxfd = -1;

    offered()
    {
        FD_ZERO(&readfds);
        FD_ZERO(&exceptfds);
        zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
    }

    int exceptional() const
    {
        int count = 0;
        for (int fd = 0; fd < FD_SETSIZE; ++fd)
            count += FD_ISSET(fd, &exceptfds) != 0;
        return count;
    }
};

/// An input with a handler "Record"; `settings` beside its type and its list.
void input(unit &unit, int32_t index, const std::string &settings = "")
{
    unit.set_json("physical/gpio_" + std::to_string(index),
                  R"({"type": 1, "handler": "Record", "handler_invert": "0")" + settings + "}");
}

constexpr const char *momentary = R"(, "input_mode": 1)";

/// A service of another unit, as the discovery daemon resolves it; its provider is at 10.0.0.<host>:9000.
void resolve(unit &unit, const char *name, int host)
{
    fake::bytes record(238 + 100);
    const auto put = [&](size_t at, const std::string &text) { std::memcpy(&record[at], text.c_str(), text.size()); };
    put(4, name);
    put(132, "_zelvgpo._tcp");
    put(196, "10.0.0." + std::to_string(host));
    record[236] = 0x28, record[237] = 0x23;
    put(238, std::string("\"path=/unit/") + name + "\"");
    unit.deliver("sdisc", 5, record);
}

/// Four virtual ports: 0, 2 and 3 follow outputs of other units, 0 and 2 of one unit; 1 is an output.
void three_followers(unit &unit)
{
    unit.ember()
        .gpis(1)
        .virtuals(4)
        .set("physical/gpio_0/type", 1)
        .set("physical/gpio_0/input_mode", 1)
        .set("physical/gpio_0/handler_invert", "");
    const char *const sources[] = {"vGPO1@B", nullptr, "vGPO2@B", "vGPO1@C"};
    for (int v = 0; v < 4; ++v) {
        const std::string port = "virtual/vgpio_" + std::to_string(v);
        unit.set(port + "/type", sources[v] == nullptr ? 2 : 1)
            .set(port + "/handler_invert", "")
            .set(port + "/invert_trigger", "");
        if (sources[v] != nullptr)
            unit.set(port + "/vgpo_src", sources[v]);
    }
}

}  // namespace

TEST(set_fds, offers_the_links_then_the_inputs_then_the_sessions)
{
    unit unit;
    three_followers(unit);
    ASSERT_EQ(unit.start(), 0);
    resolve(unit, "vGPO1@B", 2), resolve(unit, "vGPO2@B", 2), resolve(unit, "vGPO1@C", 3);
    ASSERT_EQ(unit.consumers(), (std::vector<int>{1, 2}));
    unit.take();
    offered offered;
    EXPECT_EQ(unit.take(), (lines{"ipc sdisc set_fds", "ipc snmp set_fds", "pin 1 fd", "consumer 1 set_fds", "consumer 1 set_fds",
                                  "consumer 2 set_fds"}));
}

TEST(process_fds, handles_the_links_then_the_inputs_then_each_session_once)
{
    unit unit;
    three_followers(unit);
    ASSERT_EQ(unit.start(), 0);
    resolve(unit, "vGPO1@B", 2), resolve(unit, "vGPO2@B", 2), resolve(unit, "vGPO1@C", 3);
    unit.take();
    unit.loop();
    EXPECT_EQ(unit.take(), (lines{"ipc sdisc process_fds", "ipc snmp process_fds", "pin 1 fd", "consumer 1 process_fds",
                                  "consumer 2 process_fds"}));
}

TEST(set_fds, sets_the_descriptors_of_inputs_in_the_exception_set_and_raises_the_highest)
{
    unit unit;
    unit.gpis(4).coughs(1);
    input(unit, 0), input(unit, 3), input(unit, 4);
    unit.set("physical/gpio_1/type", 2);
    ASSERT_EQ(unit.start(), 0);
    offered offered;
    EXPECT_EQ(offered.exceptional(), 3);
    for (const int pin : {1, 4, 5})
        EXPECT_TRUE(FD_ISSET(unit.pin_fd(pin), &offered.exceptfds)) << pin;
    EXPECT_EQ(offered.maxfd, std::max({unit.pin_fd(1), unit.pin_fd(4), unit.pin_fd(5)}));
}

TEST(set_fds, never_lowers_the_highest_descriptor)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    fd_set readfds, exceptfds;
    FD_ZERO(&readfds);
    FD_ZERO(&exceptfds);
    int maxfd = 900;
    zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
    EXPECT_EQ(maxfd, 900);
}

TEST(set_fds, offers_inputs_whether_or_not_udp_commands_drive_them)
{
    unit unit;
    unit.gpis(1).udp(true);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(offered().exceptional(), 1);
}

TEST(set_fds, leaves_out_an_input_without_a_descriptor)
{
    unit unit;
    unit.gpis(2);
    input(unit, 0), input(unit, 1);
    ASSERT_EQ(unit.start(), 0);
    unit.fail("pin 1 fd");
    offered offered;
    EXPECT_EQ(offered.exceptional(), 1);
    EXPECT_TRUE(FD_ISSET(unit.pin_fd(2), &offered.exceptfds));
}

TEST(set_fds, leaves_out_an_input_whose_pin_is_not_open)
{
    unit unit;
    unit.ember().gpis(2).virtuals(1).fail("pin 1 open");
    input(unit, 0), input(unit, 1);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(offered().exceptional(), 1);
    EXPECT_EQ(unit.take_of("pin"), lines{"pin 2 fd"});
}

TEST(set_fds, needs_the_exception_set_and_the_highest_descriptor)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    fd_set readfds, exceptfds;
    FD_ZERO(&readfds);
    FD_ZERO(&exceptfds);
    int maxfd = 0;
    const auto expected = [](const void *except, const void *max) {
        char line[200];
        std::snprintf(line, sizeof line, "log 0 zel_gpio_set_fds: Invalid parameter: exceptfds = %p, maxfd = %p", except, max);
        return lines{line};
    };
    zel_gpio_set_fds(&readfds, nullptr, &maxfd);
    EXPECT_EQ(unit.take(), expected(nullptr, &maxfd));
    zel_gpio_set_fds(&readfds, &exceptfds, nullptr);
    EXPECT_EQ(unit.take(), expected(&exceptfds, nullptr));
    zel_gpio_set_fds(&readfds, nullptr, nullptr);
    EXPECT_EQ(unit.take(), expected(nullptr, nullptr));
}

TEST(process_fds, needs_the_exception_set)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    fd_set readfds;
    FD_ZERO(&readfds);
    zel_gpio_process_fds(&readfds, nullptr);
    EXPECT_EQ(unit.take(), lines{"log 0 zel_gpio_process_fds: exceptfds is NULL"});
}

TEST(both_calls, do_nothing_before_the_library_is_initialised)
{
    unit unit;
    EXPECT_EQ(offered().exceptional(), 0);
    unit.loop();
    EXPECT_EQ(unit.take(), lines{});
}

TEST(both_calls, do_nothing_on_a_unit_whose_start_up_built_nothing)
{
    unit unit;
    unit.gpis(2).virtuals(2).buttons(1).fail("json open");
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    EXPECT_EQ(offered().exceptional(), 0);
    unit.loop();
    EXPECT_EQ(unit.take(), lines{});
}

TEST(both_calls, serve_the_discovery_link_alone_when_there_is_no_agent)
{
    unit unit;
    unit.fail("ipc snmp init");
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    offered offered;
    unit.loop();
    EXPECT_EQ(unit.take(), (lines{"ipc sdisc set_fds", "ipc sdisc process_fds"}));
}

TEST(an_edge, of_a_momentary_input_runs_through_the_grid_in_order)
{
    unit unit;
    unit.ember().gpis(2).virtuals(1);
    input(unit, 0, momentary);
    unit.set_json("physical/gpio_1", R"({"type": 2, "trigger": "GPI 1", "invert_trigger": "0"})");
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    unit.edge(1, 1);
    EXPECT_EQ(joined(unit.take()), joined({"ipc sdisc process_fds", "ipc snmp process_fds", "pin 1 fd", "pin 1 read 1",
                                           "callback Record source 0 state 1 context 1", "ipc snmp send 7 (696 bytes)",
                                           "ember set gpio/physical/gpio 1/status 1 (8 bytes)",
                                           "log 2 zel_gpio_notify_trigger_event: event 'GPI 1' has occurred", "pin 102 write 1",
                                           "ember set gpio/physical/gpio 2/type 2 (8 bytes)",
                                           "ember set gpio/physical/gpio 2/input functions \"\" (1 bytes)",
                                           "ember set gpio/physical/gpio 2/output triggers \"GPI 1\" (6 bytes)",
                                           "ember set gpio/physical/gpio 2/active triggers \"GPI 1\" (6 bytes)",
                                           "ember set gpio/physical/gpio 2/input mode 0 (8 bytes)",
                                           "ember set gpio/physical/gpio 2/status 1 (4 bytes)", "ipc snmp send 7 (696 bytes)"}));
    EXPECT_EQ(unit.sent("snmp", 7).front().int_at(692), 0);   // of the start-up
}

TEST(an_edge, tells_the_agent_the_new_state_before_the_trigger_is_raised)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0, momentary);
    ASSERT_EQ(unit.start(), 0);
    unit.forget_sent();
    unit.edge(1, 1);
    ASSERT_EQ(unit.sent("snmp").size(), 1U);
    EXPECT_EQ(unit.sent("snmp")[0].int_at(0), 0);
    EXPECT_EQ(unit.sent("snmp")[0].int_at(4), 1);
    EXPECT_EQ(unit.sent("snmp")[0].int_at(692), 1);
}

TEST(a_momentary_input, reads_1_while_held_and_0_after_release)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0, momentary);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    unit.edge(1, 1), unit.edge(1, 0);
    EXPECT_EQ(
        fake::only(unit.take(), {"callback", "log 2"}),
        (lines{"callback Record source 0 state 1 context 1", "log 2 zel_gpio_notify_trigger_event: event 'GPI 1' has occurred",
               "callback Record source 0 state 0 context 1", "log 2 zel_gpio_notify_trigger_event: event 'GPI 1' has ended"}));
    EXPECT_EQ(zel::gpios[0].state, 0);
}

TEST(a_latching_input, toggles_on_every_interrupt_whatever_its_level)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    unit.edge(1, 1), unit.edge(1, 1), unit.edge(1, 0), unit.edge(1, 0);
    EXPECT_EQ(unit.take_of("callback"),
              (lines{"callback Record source 0 state 1 context 0", "callback Record source 0 state 0 context 0",
                     "callback Record source 0 state 1 context 0", "callback Record source 0 state 0 context 0"}));
}

TEST(an_edge, of_several_inputs_is_handled_in_index_order)
{
    unit unit;
    unit.gpis(2).coughs(1);
    input(unit, 0), input(unit, 1), input(unit, 2);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    unit.set_level(3, 1);
    unit.loop({3, 1});
    EXPECT_EQ(unit.take_of("callback"),
              (lines{"callback Record source 0 state 1 context 0", "callback Record source 2 state 1 context 1"}));
}

TEST(no_edge, changes_nothing_and_reads_no_pin)
{
    unit unit;
    unit.gpis(2);
    input(unit, 0, momentary), input(unit, 1);
    ASSERT_EQ(unit.start(), 0);
    unit.set_level(1, 1);
    unit.take();
    unit.loop();
    EXPECT_EQ(unit.take_of("pin"), (lines{"pin 1 fd", "pin 2 fd"}));
    EXPECT_EQ(zel::gpios[0].state, 0);
}

TEST(an_edge, whose_pin_cannot_be_read_changes_nothing)
{
    unit unit;
    unit.gpis(2);
    input(unit, 0, momentary), input(unit, 1);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record");
    unit.take();
    unit.fail("pin 1 read").fail("pin 2 read");
    unit.loop({1, 2});
    EXPECT_EQ(fake::only(unit.take(), {"callback", "log", "ipc snmp send"}), lines{});
    EXPECT_EQ(zel::gpios[1].state, 0);
}

TEST(an_edge, whose_descriptor_is_gone_changes_nothing)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    unit.fail("pin 1 fd");
    unit.loop({1});
    EXPECT_EQ(zel::gpios[0].state, 0);
    EXPECT_EQ(unit.count_of("pin 1 read"), 0);
}

TEST(the_first_edge, after_an_active_low_pin_became_an_input_is_logged_and_dropped)
{
    unit unit;
    unit.gpi(1, 101, true).set("physical/gpio_0/type", 0);
    ASSERT_EQ(unit.start(), 0);
    ASSERT_EQ(zel_gpio_set_pin_direction(0, 1), 1);
    EXPECT_EQ(zel::gpios[0].ignore_irq, 1);
    unit.take();
    unit.edge(1, 1);
    EXPECT_EQ(fake::without(unit.take(), {"ipc sdisc process_fds", "ipc snmp process_fds"}),
              (lines{"pin 1 fd", "pin 1 read 1", "log 4 zel_gpio_process_fds: Ignoring IRQ on index 0..."}));
    EXPECT_EQ(zel::gpios[0].state, 0);
    unit.edge(1, 1);
    EXPECT_EQ(zel::gpios[0].state, 1);
}

TEST(the_first_edge, after_an_active_high_pin_became_an_input_counts)
{
    unit unit;
    unit.gpi(1, 101, false);
    ASSERT_EQ(unit.start(), 0);
    ASSERT_EQ(zel_gpio_set_pin_direction(0, 1), 1);
    unit.edge(1, 1);
    EXPECT_EQ(zel::gpios[0].state, 1);
}

TEST(the_first_edge, of_an_active_low_input_at_start_up_counts)
{
    unit unit;
    unit.gpi(1, 101, true);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    unit.edge(1, 1);
    EXPECT_EQ(zel::gpios[0].state, 1);
}

TEST(an_input, of_a_callback_that_reports_events_and_registers_names_goes_on)
{
    unit unit;
    unit.gpis(3).relays(1);
    input(unit, 0, momentary), input(unit, 1, momentary);
    unit.set_json("relay/relay_0", R"({"triggers": "Late, GPI 2", "trigger_invert": "0, 0"})");
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record", [&](int32_t source, uint8_t state, uintptr_t) {
        if (source == 0 && state == 1) {
            unit.trigger("Late");
            unit.raise("Late");
            unit.handler("Another");
            zel_gpio_set_handler_state(unit::handler_id("Another"));
            zel_gpio_set_pin_direction(2, 1);
        }
    });
    unit.set_level(1, 1), unit.set_level(2, 1);
    unit.take();
    unit.loop({1, 2});
    EXPECT_EQ(unit.take_of("callback"),
              (lines{"callback Record source 0 state 1 context 1", "callback Another source -1 state 1 context 0",
                     "callback Record source 1 state 1 context 1"}));
    EXPECT_EQ(unit.level(201), 1);
    EXPECT_EQ(zel::relays[0].active_trigs, 2);
    EXPECT_TRUE(unit.is_open(3));
}

TEST(set_fds, does_without_a_read_set)
{
    unit unit;
    unit.gpis(1);
    input(unit, 0);
    ASSERT_EQ(unit.start(), 0);
    fd_set exceptfds;
    FD_ZERO(&exceptfds);
    int maxfd = -1;
    zel_gpio_set_fds(nullptr, &exceptfds, &maxfd);
    EXPECT_EQ(maxfd, unit.pin_fd(1));
    zel_gpio_process_fds(nullptr, &exceptfds);
    EXPECT_EQ(zel::gpios[0].state, 1);   // its descriptor was in the set
}

TEST(an_input, from_index_64_on_calls_its_handlers_but_cannot_assert_them)
{
    unit unit;
    unit.virtuals(70);
    for (const char *const port : {"virtual/vgpio_63", "virtual/vgpio_64", "virtual/vgpio_69"})
        unit.set(std::string(port) + "/type", 1)
            .set(std::string(port) + "/handler_invert", "1");   // asserted while the input is off
    unit.set("virtual/vgpio_63/handler", "A").set("virtual/vgpio_64/handler", "B").set("virtual/vgpio_69/handler", "C");
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    unit.handler("A"), unit.handler("B"), unit.handler("C");
    EXPECT_EQ(unit.take_of("callback"), (lines{"callback A source 63 state 1 context 0", "callback B source 64 state 0 context 0",
                                               "callback C source 69 state 0 context 0"}));
    EXPECT_EQ(handler_list[0].port_mask, uint64_t{1} << 63);
    EXPECT_EQ(handler_list[1].port_mask, 0U);
    EXPECT_EQ(handler_list[2].port_mask, 0U);
}
