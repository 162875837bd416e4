// Changing the type of GPI and cough ports: what each of the nine changes does to pins, handlers, triggers and listeners, in
// order.
#include "port_steps.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;
using zel::disable_gpio;
using zel::set_gpio_to_input;
using zel::set_gpio_to_output;

namespace {

enum { eth = 0, aoip = 1, disabled = 0, input = 1, output = 2, latching = 0, momentary = 1, no_handler = -1, no_trigger = -1 };

/// The port that is changed.
struct place {
    int32_t index, in_pin, out_pin;
    std::string node, key, trigger;

    std::string in(const std::string &call) const { return "pin " + std::to_string(in_pin) + " " + call; }
    std::string out(const std::string &call) const { return "pin " + std::to_string(out_pin) + " " + call; }
    std::string saved(int type) const { return "save " + key + " " + std::to_string(type); }
    std::string called(int state, int mode) const
    {
        return "callback Record source " + std::to_string(index) + " state " + std::to_string(state) + " context " +
               std::to_string(mode);
    }
};

void PrintTo(const place &p, std::ostream *out) { *out << p.trigger; }

const place gpi{0, 1, 101, "physical/gpio 1", "physical/gpio_0", "GPI 1"};
const place cough{2, 3, 103, "physical/cough 1", "physical/gpio_2", "COUGH 1"};

}   // namespace

/// Ports: 0 GPI 1, 1 an output that listens to the changed port's trigger, 2 COUGH 1, 3 virtual. Relay 0 listens, too.
class physical_port : public testing::TestWithParam<place> {
protected:
    const place &p = GetParam();
    unit u;

    zel::gpio_port_t &port() { return zel::gpios[p.index]; }

    void start(int type)
    {
        u.gpis(2).coughs(1).virtuals(1).relays(1).ember().set(p.key + "/type", type == input ? 1 : 0);
        u.set(p.key + "/input_mode", 1).set(p.key + "/handler", "Record").set(p.key + "/handler_invert", "0");
        u.set("physical/gpio_1/type", 2)
            .set("physical/gpio_1/trigger", p.trigger.c_str())
            .set("physical/gpio_1/invert_trigger", "0");
        u.set("relay/relay_0/triggers", p.trigger.c_str()).set("relay/relay_0/trigger_invert", "0");
        u.set_level(p.in_pin, 1);
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        if (type == output)
            become_output();
        u.take();
    }

    /// With the triggers "Eth Link Down" (occurred) and "AoIP Link Down" (inverted, not occurred).
    void become_output()
    {
        ASSERT_EQ(set_gpio_to_output(p.index, aoip, 1), 0);
        ASSERT_EQ(set_gpio_to_output(p.index, eth, 0), 0);
        u.raise("Eth Link Down");
    }

    /// The two listeners hear that the port's trigger ended.
    lines listeners_go_off() const
    {
        return steps({ended(p.trigger), "pin 102 write 0", published("physical/gpio 2", {output, "", p.trigger, "", 0, 0}),
                      sent(7), "pin 201 write 0", published_relay(1, p.trigger, "", 0), sent(11)});
    }

    lines shows(const shown &values) const { return published(p.node, values); }
};

TEST_P(physical_port, from_disabled_to_disabled_clears_saves_and_tells)
{
    start(disabled);
    EXPECT_EQ(disable_gpio(p.index), 0);
    EXPECT_LINES(changes(u), steps({p.saved(disabled), shows({disabled, "", "", "", latching, 0}), sent(7)}));
}

TEST_P(physical_port, from_disabled_to_input_opens_the_input_line)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_input(p.index, momentary, no_handler, nullptr, 0), 0);
    EXPECT_LINES(changes(u), steps({setting_up(p.index, momentary, 0), p.in("open 0"), p.in("active_low 0"), p.in("edge 3"),
                                    p.saved(input), shows({input, "", "", "", momentary, 0}), sent(7)}));
    EXPECT_EQ(first_trigger(p.index), own_trigger(p.trigger));
    EXPECT_EQ(port().num_trigs, 0) << "the own trigger stands outside the count";
    EXPECT_EQ(port().ignore_irq, 0);
    EXPECT_EQ(port().state, 0) << "the level is read at the next edge";
}

TEST_P(physical_port, from_disabled_to_output_opens_the_output_line_and_drives_it)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_output(p.index, no_trigger, 0), 0);
    EXPECT_LINES(changes(u), steps({p.out("open 2"), p.out("active_low 0"), p.out("write 0"), p.saved(output),
                                    shows({output, "", "", "", latching, 0}), sent(7)}));
    EXPECT_EQ(port().num_trigs, 0);
}

TEST_P(physical_port, from_disabled_to_output_with_a_trigger_sets_the_list_first_and_then_drives_and_saves_again)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_output(p.index, eth, 1), 0);
    const lines values = shows({output, "", "!Eth Link Down", "!Eth Link Down", latching, 1});
    EXPECT_LINES(changes(u), steps({p.out("open 2"), p.out("active_low 0"), p.saved(output), p.out("write 1"), values, sent(7),
                                    p.out("write 1"), p.saved(output), values, sent(7)}));
    EXPECT_EQ(port_list(p.index), "!Eth Link Down#0");
}

TEST_P(physical_port, from_input_to_disabled_ends_its_trigger_and_takes_it_from_every_output_and_relay)
{
    start(input);
    ASSERT_EQ(port().state, 1);
    EXPECT_EQ(disable_gpio(p.index), 0);
    const lines freed_output =
        steps({"save physical/gpio_1 2", "pin 102 write 0", published("physical/gpio 2", {output, "", "", "", 0, 0}), sent(7)});
    const lines freed_relay = steps({"save relay/relay_0", "pin 201 write 0", published_relay(1, "", "", 0), sent(11)});
    EXPECT_LINES(changes(u), steps({listeners_go_off(), p.called(0, momentary), freed_output, freed_relay, p.in("write 0"),
                                    p.in("close"), p.saved(disabled), shows({disabled, "", "", "", momentary, 0}), sent(7)}));
    EXPECT_EQ(port_list(1) + relay_list(0), "");
    EXPECT_EQ(first_trigger(p.index), "(null)#-1");
    EXPECT_EQ(port().num_handlers, 0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST_P(physical_port, from_input_to_input_applies_mode_and_name_again_without_taking_anything_down)
{
    start(input);
    EXPECT_EQ(set_gpio_to_input(p.index, latching, no_handler, nullptr, 0), 0);
    EXPECT_LINES(changes(u),
                 steps({setting_up(p.index, latching, 0), p.called(0, momentary), p.in("edge 2"), p.called(0, latching),
                        listeners_go_off(), p.saved(input), shows({input, "Record", "", "", latching, 0}), sent(7)}));
    EXPECT_EQ(first_trigger(p.index), own_trigger(p.trigger));
    EXPECT_EQ(port().num_trigs, 1) << "as start-up counted it";
    EXPECT_EQ(port_list(1), own_trigger(p.trigger));
    EXPECT_EQ(relay_list(0), own_trigger(p.trigger));
}

TEST_P(physical_port, from_input_to_output_ends_its_trigger_but_leaves_the_listeners_connected)
{
    start(input);
    EXPECT_EQ(set_gpio_to_output(p.index, no_trigger, 0), 0);
    EXPECT_LINES(changes(u),
                 steps({listeners_go_off(), p.called(0, momentary), p.in("close"), p.out("open 2"), p.out("active_low 0"),
                        p.out("write 1"), p.saved(output), shows({output, "", "", "", latching, 0}), sent(7)}))
        << "the level that the input had is the output's first one";
    EXPECT_EQ(port_list(1), own_trigger(p.trigger));
    EXPECT_EQ(relay_list(0), own_trigger(p.trigger));
    EXPECT_EQ(first_trigger(p.index), "(null)#-1");
    EXPECT_EQ(port().num_trigs, 0);
    EXPECT_EQ(port_handlers(p.index), "");
    EXPECT_EQ(port().handler_names[0], nullptr);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(saved(u, p.key + "/handler_invert"), "\"0\"") << "stays in the file";
    EXPECT_EQ(saved(u, p.key + "/input_mode"), "absent");
}

TEST_P(physical_port, from_output_to_disabled_writes_0_and_closes_without_ending_triggers)
{
    start(output);
    EXPECT_EQ(disable_gpio(p.index), 0);
    EXPECT_LINES(changes(u), steps({p.out("write 0"), p.out("close"), p.saved(disabled),
                                    shows({disabled, "", "", "", latching, 0}), sent(7)}));
    EXPECT_EQ(trigger_list[eth].state, 1);
    EXPECT_EQ(port_list(p.index), "");
    EXPECT_EQ(port().active_trigs, 0);
}

TEST_P(physical_port, from_output_to_input_changes_the_line_and_ends_every_listed_trigger)
{
    start(output);
    ASSERT_EQ(port_list(p.index), "Eth Link Down#0 !AoIP Link Down#1");
    EXPECT_EQ(set_gpio_to_input(p.index, momentary, no_handler, nullptr, 0), 0);
    const lines still_output = shows({output, "", "Eth Link Down, !AoIP Link Down", "!AoIP Link Down", latching, 1});
    EXPECT_LINES(changes(u), steps({setting_up(p.index, momentary, 0), p.out("close"), p.in("open 0"), p.in("active_low 0"),
                                    ended("Eth Link Down"), p.in("write 1"), still_output, sent(7), p.in("edge 3"),
                                    p.saved(input), shows({input, "", "", "", momentary, 0}), sent(7)}));
    EXPECT_EQ(trigger_list[eth].state, 0);
    EXPECT_EQ(first_trigger(p.index), own_trigger(p.trigger));
    EXPECT_EQ(port().trigger_names[1], nullptr);
    EXPECT_EQ(port().trig_ids[1], -1);
    EXPECT_EQ(port().trig_inv[1], 0);
    EXPECT_EQ(port().num_trigs, 0);
    EXPECT_EQ(port().active_trigs, 0);
    EXPECT_EQ(port().state, 0);
}

TEST_P(physical_port, from_output_to_output_only_drives_and_saves_again)
{
    start(output);
    EXPECT_EQ(set_gpio_to_output(p.index, no_trigger, 0), 0);
    const lines values = shows({output, "", "Eth Link Down, !AoIP Link Down", "Eth Link Down, !AoIP Link Down", latching, 1});
    EXPECT_LINES(changes(u), steps({p.out("write 1"), p.saved(output), values, sent(7)}));
}

TEST_P(physical_port, from_output_to_output_with_a_trigger_adds_the_connection)
{
    start(output);
    EXPECT_EQ(set_gpio_to_output(p.index, 2, 1), 0);
    EXPECT_EQ(port_list(p.index), "!AC Power Off#2 Eth Link Down#0 !AoIP Link Down#1");
    EXPECT_LINES(u.take_of("pin"), p.out("write 1"), p.out("write 1"));
}

TEST_P(physical_port, that_came_back_raises_its_trigger_at_every_edge)
{
    start(output);
    ASSERT_EQ(set_gpio_to_input(p.index, momentary, 0, nullptr, 0), 0);
    u.take();
    u.edge(p.in_pin, 1);
    EXPECT_EQ(port().state, 1);
    EXPECT_EQ(u.level(201), 1) << "the relay listens still";
    EXPECT_EQ(u.count_of(p.called(1, momentary)), 1);
    u.edge(p.in_pin, 0);
    EXPECT_EQ(u.level(201), 0);
}

INSTANTIATE_TEST_SUITE_P(places, physical_port, testing::Values(gpi, cough),
                         [](const auto &of) { return std::string(of.param.index == 0 ? "gpi" : "cough"); });

// ---- Lines and edges

struct edge_case {
    bool active_low;
    uint32_t mode;
    int edge;
};

void PrintTo(const edge_case &c, std::ostream *out) { *out << "edge " << c.edge; }

class input_edge : public testing::TestWithParam<edge_case> {};

TEST_P(input_edge, follows_mode_and_polarity)
{
    const edge_case &c = GetParam();
    unit u;
    u.gpi(1, 101, c.active_low);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_to_input(0, c.mode, no_handler, nullptr, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 1 open 0", std::string("pin 1 active_low ") + (c.active_low ? "1" : "0"),
                 "pin 1 edge " + std::to_string(c.edge));
    EXPECT_EQ(zel::gpios[0].ignore_irq, c.active_low);
    EXPECT_EQ(zel::gpios[0].input_mode, c.mode);
}

INSTANTIATE_TEST_SUITE_P(modes, input_edge,
                         testing::Values(edge_case{false, latching, 2}, edge_case{false, momentary, 3},
                                         edge_case{true, latching, 1}, edge_case{true, momentary, 3}),
                         [](const auto &of) {
                             return std::string(of.param.active_low ? "active_low" : "active_high") +
                                    (of.param.mode == momentary ? "_momentary" : "_latching");
                         });

TEST(an_active_low_input, drops_the_first_interrupt_after_it_was_made_an_input)
{
    unit u;
    u.gpi(1, 101, true);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(set_gpio_to_input(0, latching, no_handler, nullptr, 0), 0);
    u.edge(1, 1);
    EXPECT_EQ(zel::gpios[0].state, 0);
    u.edge(1, 1);
    EXPECT_EQ(zel::gpios[0].state, 1);
}

TEST(an_active_low_input, that_is_an_input_already_does_not_drop_an_interrupt_again)
{
    unit u;
    u.gpi(1, 101, true).set("physical/gpio_0/type", 1);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(set_gpio_to_input(0, latching, no_handler, nullptr, 0), 0);
    EXPECT_EQ(zel::gpios[0].ignore_irq, 0);
}

TEST(an_output, takes_its_own_polarity)
{
    unit u;
    u.gpi(1, 101, true, false).gpi(2, 102, false, true);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_to_output(0, no_trigger, 0), 0);
    EXPECT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 101 open 2", "pin 101 active_low 0", "pin 101 write 0", "pin 102 open 2",
                 "pin 102 active_low 1", "pin 102 write 0");
    EXPECT_EQ(zel::gpios[0].ignore_irq, 0);
}

// ---- UDP commands

/// Ports 0 (GPI, driven by UDP commands) and 1 (cough, which is not).
class with_udp_commands : public testing::Test {
protected:
    unit u;

    void start(int type)
    {
        u.gpis(1).coughs(1).udp(true).set("physical/gpio_0/type", type).set("physical/gpio_1/type", 1);
        ASSERT_EQ(u.start(), 0);
    }

    int udp_value()
    {
        uint8_t value = 99;
        return zel_gpio_get_udp_pin(0, &value) == 0 ? value : -1;
    }
};

TEST_F(with_udp_commands, a_new_input_forgets_the_value_that_was_commanded)
{
    start(1);
    ASSERT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    EXPECT_EQ(set_gpio_to_input(0, momentary, no_handler, nullptr, 0), 0);
    EXPECT_EQ(udp_value(), 0);
}

TEST_F(with_udp_commands, a_new_output_is_driven_once_and_its_level_is_the_commanded_value)
{
    start(1);
    ASSERT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    u.loop();
    ASSERT_EQ(zel::gpios[0].state, 1);
    ASSERT_EQ(zel_gpio_set_udp_pin(0, 0), 1);
    u.take();
    EXPECT_EQ(set_gpio_to_output(0, no_trigger, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 1 close", "pin 101 open 2", "pin 101 active_low 0", "pin 101 write 1");
    EXPECT_EQ(udp_value(), 1);
}

TEST_F(with_udp_commands, a_connected_trigger_does_not_move_a_new_output)
{
    start(0);
    u.raise("Eth Link Down");
    u.take();
    EXPECT_EQ(set_gpio_to_output(0, eth, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 101 open 2", "pin 101 active_low 0", "pin 101 write 0");
    EXPECT_EQ(zel::gpios[0].state, 0);
}

TEST_F(with_udp_commands, a_disabled_output_is_commanded_to_0_first)
{
    start(2);
    ASSERT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    u.take();
    EXPECT_EQ(disable_gpio(0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 101 write 0", "pin 101 write 0", "pin 101 close");
    EXPECT_EQ(udp_value(), 0);
}

TEST_F(with_udp_commands, a_cough_port_is_driven_as_ever)
{
    start(0);
    u.set_level(2, 0);
    u.take();
    EXPECT_EQ(set_gpio_to_output(1, 0, 1), 0);
    EXPECT_EQ(u.level(102), 1);
    EXPECT_EQ(disable_gpio(1), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 2 close", "pin 102 open 2", "pin 102 active_low 0", "pin 102 write 1", "pin 102 write 1",
                 "pin 102 write 0", "pin 102 close");
}

TEST(without_udp_commands, the_commanded_value_is_left_alone)
{
    unit u;
    u.gpis(1).set("physical/gpio_0/type", 1);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    EXPECT_EQ(set_gpio_to_input(0, momentary, no_handler, nullptr, 0), 0);
    EXPECT_EQ(disable_gpio(0), 0);
    uint8_t value = 0;
    EXPECT_EQ(zel_gpio_get_udp_pin(0, &value), 0);
    EXPECT_EQ(value, 1);
}
