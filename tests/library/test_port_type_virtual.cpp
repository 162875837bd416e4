// Changing the type of virtual ports: links of inputs to other units' outputs, publication of own outputs, and the choice of
// sources.
#include "port_steps.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;
using zel::disable_gpio;
using zel::set_gpio_to_input;
using zel::set_gpio_to_output;

namespace {

enum { eth = 0, aoip = 1, disabled = 0, input = 1, output = 2, momentary = 1, no_handler = -1, no_trigger = -1 };

constexpr char near[] = "vGPO1@Studio 2", far[] = "vGPO1@Studio 3", beside[] = "vGPO2@Studio 2";

const std::string publishing =
    "log 2 publish_vgpo: Publishing service 'vGPO1@Studio 1' (strlist = '\"path=/unit/gpio/virtual/vgpio 1\"')";

lines linked(int session, int host, const std::string &path)
{
    const std::string begin = "consumer " + std::to_string(session);
    return {begin + " connect 10.0.0." + std::to_string(host) + ":9000 (timeout 10)", begin + " get " + path + "/type",
            begin + " get " + path + "/status"};
}

std::string dropped(const std::string &name)
{
    return "log 2 disconnect_vgpi_from_vgpo: Removing vgpo_src '" + name +
           "' from the list as it is no longer discoverable or selected";
}

}   // namespace

/// Ports: 0 a GPI, 1 and 2 virtual ("vgpio 1" is changed). The sources `near`, `beside` (of the same unit) and `far` are known.
class virtual_port : public testing::Test {
protected:
    unit u;
    zel::gpio_port_t &port() { return zel::gpios[1]; }

    void start(int type, const char *source = "")
    {
        u.gpis(1)
            .virtuals(2)
            .ember()
            .friendly_name("Studio 1")
            .set("virtual/vgpio_0/type", type)
            .set("virtual/vgpio_0/vgpo_src", source);
        u.set("virtual/vgpio_0/handler", "Record").set("virtual/vgpio_0/handler_invert", "0");
        u.set("virtual/vgpio_0/trigger", "Eth Link Down, AoIP Link Down").set("virtual/vgpio_0/invert_trigger", "0, 1");
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        u.raise("Eth Link Down");
        discover(u, near, 2, "/a/near");
        discover(u, beside, 2, "/a/beside");
        discover(u, far, 3, "/a/far");
        u.take();
    }

    /// An input that follows `near` and is on.
    void start_following()
    {
        start(input, near);
        u.value(1, "/a/near/type", 2);
        u.value(1, "/a/near/status", 1);
        ASSERT_EQ(port().state, 1);
        u.take();
    }

    /// An input whose source is known by name only.
    void start_waiting(const char *source)
    {
        start(input, source);
        ASSERT_STREQ(port().vgpo_src, source);
        ASSERT_EQ(port().vgpi_session, nullptr);
    }

    static std::string called(int state) { return "callback Record source 1 state " + std::to_string(state) + " context 0"; }
    static lines shows(const shown &values) { return published("virtual/vgpio 1", values); }
    static std::string is_saved(int type) { return "save virtual/vgpio_0 " + std::to_string(type); }
};

TEST_F(virtual_port, from_disabled_to_disabled_clears_saves_and_tells)
{
    start(disabled);
    EXPECT_EQ(disable_gpio(1), 0);
    EXPECT_LINES(changes(u), steps({is_saved(disabled), shows({disabled, "", "", "", 0, 0}), sent(8)}));
    EXPECT_EQ(port().vgpo_src, nullptr);
}

TEST_F(virtual_port, from_disabled_to_input_without_a_source)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, nullptr, 0), 0);
    EXPECT_LINES(changes(u), steps({setting_up(1, 0, 1), is_saved(input), shows({input, "", "", "", 0, 0, ""}), sent(8)}));
    EXPECT_STREQ(port().vgpo_src, "");
    EXPECT_EQ(first_trigger(1), own_trigger("vGPI 1"));
    EXPECT_EQ(port().num_trigs, 0);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), "\"\"");
}

TEST_F(virtual_port, from_disabled_to_input_with_a_source_connects)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, near, 0), 0);
    EXPECT_LINES(changes(u), steps({setting_up(1, 0, 1), linked(1, 2, "/a/near"), is_saved(input),
                                    shows({input, "", "", "", 0, 0, near}), sent(8)}));
    EXPECT_STREQ(port().vgpo_src, near);
    EXPECT_NE(port().vgpo_src, near) << "the list's own text";
    EXPECT_EQ(port().vgpo_src_valid, 1);
}

TEST_F(virtual_port, from_disabled_to_output_publishes_itself)
{
    start(disabled);
    u.forget_sent();
    EXPECT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    EXPECT_LINES(changes(u), steps({publishing, "ipc sdisc send 9 (1224 bytes)", is_saved(output),
                                    shows({output, "", "", "", 0, 0}), sent(8)}));
    EXPECT_EQ(u.sent("sdisc", 9).at(0).text_at(4, 64), "vGPO1@Studio 1");
    EXPECT_EQ(port().vgpo_src, nullptr);
}

TEST_F(virtual_port, from_disabled_to_output_with_a_trigger_is_on_at_once)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_output(1, eth, 0), 0);
    const lines values = shows({output, "", "Eth Link Down", "Eth Link Down", 0, 1});
    EXPECT_LINES(changes(u), steps({publishing, "ipc sdisc send 9 (1224 bytes)", is_saved(output), values, sent(8),
                                    is_saved(output), values, sent(8)}));
    EXPECT_EQ(port().state, 1);
}

TEST_F(virtual_port, from_input_to_disabled_ends_its_trigger_and_its_link)
{
    start_following();
    EXPECT_EQ(disable_gpio(1), 0);
    EXPECT_LINES(changes(u), steps({ended("vGPI 1"), called(0), "consumer 1 end", is_saved(disabled),
                                    shows({disabled, "", "", "", 0, 0}), sent(8)}));
    EXPECT_EQ(port().vgpo_src, nullptr);
    EXPECT_EQ(port().vgpi_session, nullptr);
    EXPECT_EQ(port().vgpo_src_valid, 0);
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, near), nullptr) << "is announced still";
}

TEST_F(virtual_port, from_input_to_disabled_drops_a_source_that_is_unreachable_and_chosen_nowhere_else)
{
    start_waiting("vGPO9@Gone");
    EXPECT_EQ(disable_gpio(1), 0);
    EXPECT_LINES(changes(u), steps({called(0), dropped("vGPO9@Gone"), "ember remove gpio/vgpio sources/v-0",
                                    "ipc snmp send 14 (68 bytes)", "log 2 remove_vgpo: Removing vgpo 'vGPO9@Gone'",
                                    is_saved(disabled), shows({disabled, "", "", "", 0, 0}), sent(8)}));
    EXPECT_EQ(find_vgpo_by_name(&zel::remote_vgpos, "vGPO9@Gone"), nullptr);
}

TEST_F(virtual_port, from_input_to_input_with_its_source_connects_anew)
{
    start_following();
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, near, 0), 0);
    EXPECT_LINES(changes(u), steps({setting_up(1, 0, 1), called(0), "consumer 1 end", linked(2, 2, "/a/near"), called(0),
                                    ended("vGPI 1"), is_saved(input), shows({input, "Record", "", "", 0, 0, near}), sent(8)}));
    EXPECT_EQ(port().state, 0) << "until the new link brings the level";
    EXPECT_EQ(port().num_trigs, 1);
}

TEST_F(virtual_port, from_input_to_input_with_another_source_moves_there)
{
    start_following();
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, far, 0), 0);
    EXPECT_LINES(changes(u), steps({setting_up(1, 0, 1), called(0), "consumer 1 end", linked(2, 3, "/a/far"), called(0),
                                    ended("vGPI 1"), is_saved(input), shows({input, "Record", "", "", 0, 0, far}), sent(8)}));
    EXPECT_STREQ(port().vgpo_src, far);
}

TEST_F(virtual_port, from_input_to_input_without_a_source_ends_the_link)
{
    start_following();
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, nullptr, 0), 0);
    EXPECT_LINES(changes(u), steps({setting_up(1, 0, 1), called(0), "consumer 1 end", called(0), ended("vGPI 1"), is_saved(input),
                                    shows({input, "Record", "", "", 0, 0, ""}), sent(8)}));
    EXPECT_STREQ(port().vgpo_src, "");
    EXPECT_EQ(port().vgpo_src_valid, 0);
}

TEST_F(virtual_port, given_a_source_that_is_not_in_the_list_ends_up_without_one)
{
    start_following();
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, "vGPO7@Nowhere", 0), 0);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 end");
    EXPECT_STREQ(port().vgpo_src, "");
    EXPECT_EQ(port().vgpi_session, nullptr);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), "\"\"");
}

TEST_F(virtual_port, given_the_empty_name_is_left_without_a_source)
{
    start_following();
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, "", 0), 0);
    EXPECT_STREQ(port().vgpo_src, "");
    EXPECT_TRUE(u.consumers().empty());
}

TEST_F(virtual_port, given_the_unreachable_source_that_it_has_keeps_it)
{
    start_waiting("vGPO9@Gone");
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, "vGPO9@Gone", 0), 0);
    EXPECT_STREQ(port().vgpo_src, "vGPO9@Gone");
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, "vGPO9@Gone"), nullptr);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-0"), "vGPO9@Gone");
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), "\"vGPO9@Gone\"");
    EXPECT_TRUE(u.consumers().empty());
    discover(u, "vGPO9@Gone", 4, "/x");
    EXPECT_TRUE(u.follows(1, "/x/status")) << "and follows it once it is found";
}

TEST_F(virtual_port, made_an_input_through_its_type_keeps_its_unreachable_source)
{
    start_waiting("vGPO9@Gone");
    EXPECT_EQ(zel::set_gpio_type(&port(), input, 0), 0);
    EXPECT_STREQ(port().vgpo_src, "vGPO9@Gone");
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, "vGPO9@Gone"), nullptr);
}

TEST_F(virtual_port, that_leaves_an_unreachable_source_drops_it)
{
    start_waiting("vGPO9@Gone");
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, near, 0), 0);
    EXPECT_EQ(find_vgpo_by_name(&zel::remote_vgpos, "vGPO9@Gone"), nullptr);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-0"), "absent");
    EXPECT_TRUE(u.follows(1, "/a/near/status"));
}

TEST_F(virtual_port, that_leaves_an_unreachable_source_which_another_port_chose_lets_it_be)
{
    u.set("virtual/vgpio_1/type", 1).set("virtual/vgpio_1/vgpo_src", "vGPO9@Gone");
    start_waiting("vGPO9@Gone");
    EXPECT_EQ(set_gpio_to_input(1, 0, no_handler, nullptr, 0), 0);
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, "vGPO9@Gone"), nullptr);
    EXPECT_EQ(set_gpio_to_output(2, no_trigger, 0), 0);
    EXPECT_EQ(find_vgpo_by_name(&zel::remote_vgpos, "vGPO9@Gone"), nullptr) << "now nobody wants it";
}

TEST_F(virtual_port, takes_any_mode_and_keeps_none)
{
    start(disabled);
    EXPECT_EQ(set_gpio_to_input(1, 77, no_handler, nullptr, 0), 0);
    EXPECT_EQ(set_gpio_to_input(1, UINT32_MAX, no_handler, nullptr, 0), 0);
    EXPECT_EQ(port().input_mode, 0u);
    EXPECT_TRUE(u.logged("4 set_gpio_to_input: Setting up index 1 as input (mode = 77, class = 1)"));
}

TEST_F(virtual_port, from_input_to_output_ends_its_trigger_and_link_and_publishes_itself)
{
    start_following();
    EXPECT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    EXPECT_LINES(changes(u), steps({ended("vGPI 1"), called(0), "consumer 1 end", publishing, "ipc sdisc send 9 (1224 bytes)",
                                    is_saved(output), shows({output, "", "", "", 0, 0}), sent(8)}));
    EXPECT_EQ(port().vgpo_src, nullptr);
    EXPECT_EQ(port().vgpo_src_valid, 0);
    EXPECT_EQ(port().handler_names[0], nullptr);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST_F(virtual_port, from_input_to_output_drops_a_source_that_is_unreachable)
{
    start_waiting("vGPO9@Gone");
    EXPECT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    EXPECT_LINES(changes(u),
                 steps({called(0), dropped("vGPO9@Gone"), "ember remove gpio/vgpio sources/v-0", "ipc snmp send 14 (68 bytes)",
                        "log 2 remove_vgpo: Removing vgpo 'vGPO9@Gone'", publishing, "ipc sdisc send 9 (1224 bytes)",
                        is_saved(output), shows({output, "", "", "", 0, 0}), sent(8)}));
}

TEST_F(virtual_port, from_input_to_output_on_a_shared_link_stops_only_its_own_values)
{
    u.set("virtual/vgpio_1/type", 1).set("virtual/vgpio_1/vgpo_src", beside);
    start_following();
    EXPECT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 clear /a/near/type", "consumer 1 clear /a/near/status");
    EXPECT_TRUE(u.follows(1, "/a/beside/status"));
}

TEST_F(virtual_port, from_output_to_disabled_is_withdrawn)
{
    start(output);
    u.forget_sent();
    EXPECT_EQ(disable_gpio(1), 0);
    EXPECT_LINES(changes(u),
                 steps({"ipc sdisc send 10 (15 bytes)", is_saved(disabled), shows({disabled, "", "", "", 0, 0}), sent(8)}));
    EXPECT_EQ(u.sent("sdisc", 10).at(0).text_at(0, 64), "vGPO1@Studio 1");
    EXPECT_EQ(port_list(1), "");
    EXPECT_EQ(trigger_list[eth].state, 1);
}

TEST_F(virtual_port, from_output_to_input_is_withdrawn_ends_its_triggers_and_connects)
{
    start(output);
    EXPECT_EQ(set_gpio_to_input(1, 0, 0, far, 1), 0);
    const lines still_on = shows({input, "Record", "", "", 0, 1, far}), off = shows({input, "Record", "", "", 0, 0, far});
    EXPECT_LINES(changes(u), steps({setting_up(1, 0, 1), "ipc sdisc send 10 (15 bytes)", ended("Eth Link Down"),
                                    shows({output, "", "Eth Link Down, !AoIP Link Down", "!AoIP Link Down", 0, 1}), sent(8),
                                    linked(1, 3, "/a/far"), is_saved(input), called(0), still_on, sent(8), called(1),
                                    is_saved(input), off, sent(8)}))
        << "the handler is connected before the level falls to 0";
    EXPECT_EQ(trigger_list[eth].state, 0);
    EXPECT_EQ(first_trigger(1), own_trigger("vGPI 1"));
    EXPECT_EQ(port_handlers(1), "!Record#0");
    EXPECT_EQ(handler_list[0].state, 1) << "inverted";
}

TEST_F(virtual_port, from_output_to_output_is_not_published_again)
{
    start(output);
    EXPECT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    EXPECT_LINES(changes(u),
                 steps({is_saved(output),
                        shows({output, "", "Eth Link Down, !AoIP Link Down", "Eth Link Down, !AoIP Link Down", 0, 1}), sent(8)}));
}

TEST_F(virtual_port, follows_again_after_it_was_an_output)
{
    start_following();
    ASSERT_EQ(set_gpio_to_output(1, no_trigger, 0), 0);
    ASSERT_EQ(set_gpio_to_input(1, 0, no_handler, near, 0), 0);
    u.value(2, "/a/near/status", 1);
    EXPECT_EQ(port().state, 1);
    EXPECT_EQ(trigger_list[u.trigger_id("vGPI 1")].state, 1);
}

// ---- Texts of other units

class hostile_source : public testing::TestWithParam<const char *> {};

TEST_P(hostile_source, is_a_name_like_any_other)
{
    unit u;
    u.virtuals(1).ember();
    ASSERT_EQ(u.start(), 0);
    discover(u, GetParam(), 2, "/a");
    EXPECT_EQ(set_gpio_to_input(0, 0, no_handler, GetParam(), 0), 0);
    EXPECT_STREQ(zel::gpios[0].vgpo_src, GetParam());
    EXPECT_EQ(u.value_of("gpio/virtual/vgpio 1/vgpio source"), GetParam());
    EXPECT_TRUE(u.follows(1, "/a/status"));
    withdraw(u, GetParam());
    EXPECT_EQ(disable_gpio(0), 0);
    EXPECT_EQ(zel::remote_vgpos.count, 0u);
}

INSTANTIATE_TEST_SUITE_P(names, hostile_source,
                         testing::Values("a, b, !c", "%s%n%d", "!", " ", "null", "\t\x01\x7f", "\"quoted\" \\", "GPI 1"),
                         [](const auto &of) { return "number_" + std::to_string(of.index); });

TEST(a_source_whose_name, fills_its_field_is_chosen_and_dropped_like_any_other)
{
    unit u;
    u.virtuals(1).ember();
    ASSERT_EQ(u.start(), 0);
    const std::string name(64, 'n');
    discover(u, name, 2, "/a");
    EXPECT_EQ(set_gpio_to_input(0, 0, no_handler, name.c_str(), 0), 0);
    EXPECT_EQ(zel::gpios[0].vgpo_src, name);
    EXPECT_EQ(set_gpio_to_output(0, no_trigger, 0), 0);
    EXPECT_TRUE(u.consumers().empty());
}
