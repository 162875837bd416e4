// Input mode, source and level of ports that have their type.
#include "child_process.h"
#include "port_steps.h"
#include "zel_gpio/port_settings.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;
using zel::set_gpio_in_mode;
using zel::set_gpio_status;
using zel::set_gpio_vgpo_src;

namespace {

enum { disabled = 0, input = 1, output = 2, latching = 0, momentary = 1, keep = 1, write_back = 0 };
enum { gpi = 0, cough = 1, vgpio_1 = 2, vgpio_2 = 3, button = 4, led = 5 };

constexpr char near[] = "vGPO1@Studio 2", beside[] = "vGPO2@Studio 2", far[] = "vGPO1@Studio 3", gone[] = "vGPO9@Gone";

zel::gpio_port_t *port(int32_t index) { return &zel::gpios[index]; }

/// A unit with one port of each kind, and a second virtual one.
void describe(unit &u) { u.gpis(1).coughs(1).virtuals(2).buttons(1).ember(); }

void set_types(unit &u, int type)
{
    u.set("physical/gpio_0/type", type).set("physical/gpio_1/type", std::min(type, 1)).set("virtual/vgpio_0/type", type);
    u.set("user_buttons/btn_1/type", std::min(type, 1)).set("user_buttons/led_1/type", type);
}

std::string key(int32_t index)
{
    constexpr const char *keys[] = {"physical/gpio_0", "physical/gpio_1",    "virtual/vgpio_0",
                                    "virtual/vgpio_1", "user_buttons/btn_1", "user_buttons/led_1"};
    return keys[index];
}

std::string node(int32_t index)
{
    constexpr const char *nodes[] = {"physical/gpio 1", "physical/cough 1",      "virtual/vgpio 1",
                                     "virtual/vgpio 2", "user buttons/button 1", "user buttons/led 1"};
    return std::string("gpio/") + nodes[index] + "/";
}

std::string kind_name(const testing::TestParamInfo<int32_t> &of)
{
    constexpr const char *names[] = {"gpi", "cough", "vgpio", "vgpio_2", "button", "led"};
    return names[of.param];
}

void expect_assertion(const std::string &condition, const std::function<void()> &call)
{
    const fake::child_result child = fake::in_child([&] {
        unit u;
        describe(u);
        u.start();
        call();
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_NE(child.output.find("`" + condition + "'"), std::string::npos) << child.output;
}

}   // namespace

// ---- Input mode

class input_mode : public testing::TestWithParam<int32_t> {
protected:
    unit u;

    void start(int type)
    {
        describe(u);
        set_types(u, type);
        ASSERT_EQ(u.start(), 0);
        u.take();
    }
};

TEST_P(input_mode, of_an_input_is_kept_written_to_its_parameter_and_saved)
{
    start(input);
    for (const uint32_t mode : {0u, 1u, 0u}) {
        EXPECT_EQ(set_gpio_in_mode(port(GetParam()), mode, write_back), 0);
        EXPECT_EQ(port(GetParam())->input_mode, mode);
        const std::string save = "save " + key(GetParam()) + " 1";
        if (GetParam() == vgpio_1)
            EXPECT_LINES(changes(u), save);
        else
            EXPECT_LINES(changes(u), number_set(node(GetParam()) + "input mode", mode, 8), save);
    }
}

TEST_P(input_mode, that_came_through_its_parameter_is_not_written_back)
{
    start(input);
    EXPECT_EQ(set_gpio_in_mode(port(GetParam()), momentary, keep), 0);
    EXPECT_EQ(port(GetParam())->input_mode, static_cast<uint32_t>(momentary));
    EXPECT_LINES(changes(u), "save " + key(GetParam()) + " 1");
}

TEST_P(input_mode, beyond_the_two_is_refused)
{
    start(input);
    const uint32_t before = port(GetParam())->input_mode;
    for (const auto &[mode, text] : {std::pair{2u, "2"}, std::pair{257u, "257"}, std::pair{UINT32_MAX, "-1"}}) {
        EXPECT_EQ(set_gpio_in_mode(port(GetParam()), mode, write_back), -1);
        EXPECT_LINES(u.take(), std::string("log 0 set_gpio_in_mode: Invalid value new input mode value requested: ") + text);
    }
    EXPECT_EQ(port(GetParam())->input_mode, before);
}

TEST_P(input_mode, of_a_disabled_port_is_refused)
{
    start(disabled);
    EXPECT_EQ(set_gpio_in_mode(port(GetParam()), momentary, write_back), -1);
    EXPECT_LINES(u.take(), "log 1 set_gpio_in_mode: Unable to modify input mode for a port that is disabled");
}

INSTANTIATE_TEST_SUITE_P(inputs, input_mode, testing::Values(gpi, cough, vgpio_1, button), kind_name);

TEST(an_output, refuses_an_input_mode_even_one_that_is_none)
{
    unit u;
    describe(u);
    set_types(u, output);
    ASSERT_EQ(u.start(), 0);
    u.take();
    for (const int32_t index : {gpi, vgpio_1, led})
        for (const uint32_t mode : {1u, 7u}) {
            EXPECT_EQ(set_gpio_in_mode(port(index), mode, write_back), -1);
            EXPECT_LINES(u.take(), "log 1 set_gpio_in_mode: Unable to modify input mode for a port that is an output");
            EXPECT_EQ(port(index)->input_mode, 0u);
        }
}

TEST(a_new_input_mode, takes_effect_on_the_pin_only_when_the_port_is_made_an_input_again)
{
    unit u;
    describe(u);
    set_types(u, input);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_in_mode(port(gpi), momentary, write_back), 0);
    EXPECT_LINES(u.take_of("pin"));
    EXPECT_EQ(zel::set_gpio_type(port(gpi), input, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 1 edge 3");
    EXPECT_EQ(saved(u, "physical/gpio_0/input_mode"), "1");
}

TEST(a_new_input_mode, that_cannot_be_saved_is_kept_and_reported)
{
    unit u;
    describe(u);
    set_types(u, input);
    ASSERT_EQ(u.start(), 0);
    u.fail("json set gpio/physical/gpio_0/input_mode");
    EXPECT_EQ(set_gpio_in_mode(port(gpi), momentary, write_back), -1);
    EXPECT_EQ(port(gpi)->input_mode, static_cast<uint32_t>(momentary));
}

TEST(a_new_input_mode, of_no_port_is_an_assertion)
{
    expect_assertion("port != NULL", [] { (void)set_gpio_in_mode(nullptr, 0, 0); });
}

// ---- Source

/// Port 2 is a virtual input with the handler Record; the sources `near`, `beside` (of the same unit) and `far` are known.
class source : public testing::Test {
protected:
    unit u;
    zel::gpio_port_t &vgpi() { return zel::gpios[vgpio_1]; }

    void start(const char *name)
    {
        describe(u);
        set_types(u, input);
        u.set("virtual/vgpio_0/vgpo_src", name)
            .set("virtual/vgpio_0/handler", "Record")
            .set("virtual/vgpio_0/handler_invert", "0");
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        discover(u, near, 2, "/a/near");
        discover(u, beside, 2, "/a/beside");
        discover(u, far, 3, "/a/far");
        u.take();
    }

    void start_on()
    {
        start(near);
        u.value(1, "/a/near/status", 1);
        ASSERT_EQ(vgpi().state, 1);
        u.take();
    }

    std::string shown_text(const std::string &name) { return text_set(node(vgpio_1) + "vgpio source", name); }
    static constexpr char is_saved[] = "save virtual/vgpio_0 1";
    static constexpr char off[] = "callback Record source 2 state 0 context 0";
};

TEST_F(source, that_is_known_is_followed_shown_and_saved)
{
    start("");
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, write_back), 0);
    EXPECT_LINES(changes(u), "consumer 1 connect 10.0.0.2:9000 (timeout 10)", "consumer 1 get /a/near/type",
                 "consumer 1 get /a/near/status", shown_text(near), is_saved);
    EXPECT_STREQ(vgpi().vgpo_src, near);
    EXPECT_EQ(vgpi().vgpo_src_valid, 1);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), std::string("\"") + near + "\"");
}

TEST_F(source, that_came_through_its_parameter_is_not_written_back)
{
    start("");
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, keep), 0);
    EXPECT_LINES(changes(u), "consumer 1 connect 10.0.0.2:9000 (timeout 10)", "consumer 1 get /a/near/type",
                 "consumer 1 get /a/near/status", is_saved);
}

TEST_F(source, of_another_unit_ends_the_old_link_and_keeps_the_level)
{
    start_on();
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), far, write_back), 0);
    EXPECT_LINES(changes(u), "consumer 1 end", "consumer 2 connect 10.0.0.3:9000 (timeout 10)", "consumer 2 get /a/far/type",
                 "consumer 2 get /a/far/status", shown_text(far), is_saved);
    EXPECT_EQ(vgpi().state, 1) << "until the new source says otherwise";
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, near), nullptr) << "is announced still";
}

TEST_F(source, chosen_again_while_reachable_is_connected_anew)
{
    start_on();
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, write_back), 0);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 end", "consumer 2 connect 10.0.0.2:9000 (timeout 10)",
                 "consumer 2 get /a/near/type", "consumer 2 get /a/near/status");
    EXPECT_STREQ(vgpi().vgpo_src, near);
}

TEST_F(source, chosen_again_while_unreachable_is_kept)
{
    start(gone);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), gone, write_back), 0);
    EXPECT_LINES(changes(u), shown_text(gone), is_saved);
    EXPECT_STREQ(vgpi().vgpo_src, gone);
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, gone), nullptr);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), "\"vGPO9@Gone\"");
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-0"), gone);
}

TEST_F(source, chosen_again_by_its_own_text_while_unreachable_is_kept)
{
    start(gone);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), vgpi().vgpo_src, write_back), 0);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), find_vgpo_by_name(&zel::remote_vgpos, gone)->name, write_back), 0);
    EXPECT_STREQ(vgpi().vgpo_src, gone);
}

TEST_F(source, chosen_again_after_its_service_was_withdrawn_is_kept_and_followed_when_it_returns)
{
    start_on();
    withdraw(u, near);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, write_back), 0);
    EXPECT_STREQ(vgpi().vgpo_src, near);
    discover(u, near, 5, "/b");
    ASSERT_EQ(u.consumers().size(), 1u);
    EXPECT_EQ(u.consumer_address(u.consumers()[0]), "10.0.0.5:9000");
    EXPECT_TRUE(u.follows(u.consumers()[0], "/b/status"));
}

TEST_F(source, that_was_unreachable_and_is_left_leaves_the_list)
{
    start(gone);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, write_back), 0);
    EXPECT_LINES(changes(u),
                 "log 2 disconnect_vgpi_from_vgpo: Removing vgpo_src 'vGPO9@Gone' from the list as it is no longer discoverable "
                 "or selected",
                 "ember remove gpio/vgpio sources/v-0", "ipc snmp send 14 (68 bytes)",
                 "log 2 remove_vgpo: Removing vgpo 'vGPO9@Gone'", "consumer 1 connect 10.0.0.2:9000 (timeout 10)",
                 "consumer 1 get /a/near/type", "consumer 1 get /a/near/status", shown_text(near), is_saved);
}

TEST_F(source, that_is_unknown_is_refused_and_changes_nothing)
{
    start_on();
    for (const char *const name : {"vGPO1@Studio 4", "vgpo1@studio 2", "vGPO1@Studio 2 ", " ", "%s%n", "-"}) {
        EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), name, write_back), -1);
        EXPECT_LINES(u.take(), std::string("log 0 set_gpio_vgpo_src: vGPIO Source: '") + name + "' not found");
    }
    EXPECT_STREQ(vgpi().vgpo_src, near);
    EXPECT_EQ(vgpi().state, 1);
}

TEST_F(source, emptied_ends_the_link_lowers_the_level_and_ends_the_trigger)
{
    start_on();
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), "", write_back), 0);
    EXPECT_LINES(changes(u), "consumer 1 end", off, number_set(node(vgpio_1) + "status", 0, 8), ended("vGPI 1"), shown_text(""),
                 is_saved);
    EXPECT_STREQ(vgpi().vgpo_src, "");
    EXPECT_EQ(vgpi().vgpo_src_valid, 0);
    EXPECT_EQ(vgpi().vgpi_session, nullptr);
    EXPECT_EQ(vgpi().state, 0);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), "\"\"");
}

TEST_F(source, emptied_through_its_parameter_shows_the_level_all_the_same)
{
    start_on();
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), "", keep), 0);
    EXPECT_LINES(changes(u), "consumer 1 end", off, number_set(node(vgpio_1) + "status", 0, 8), ended("vGPI 1"), is_saved);
}

TEST_F(source, emptied_when_there_was_none_evaluates_the_port_again)
{
    start("");
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), "", write_back), 0);
    EXPECT_LINES(changes(u), off, number_set(node(vgpio_1) + "status", 0, 8), shown_text(""), is_saved);
}

TEST_F(source, emptied_while_unreachable_leaves_the_list)
{
    start(gone);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), "", write_back), 0);
    EXPECT_EQ(find_vgpo_by_name(&zel::remote_vgpos, gone), nullptr);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-0"), "absent");
    EXPECT_STREQ(vgpi().vgpo_src, "");
}

TEST_F(source, emptied_on_a_shared_link_has_lost_its_name_before_the_link_is_left)
{
    u.set("virtual/vgpio_1/type", 1).set("virtual/vgpio_1/vgpo_src", beside);
    start_on();
    ASSERT_EQ(u.consumers().size(), 1u);
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), "", write_back), 0);
    EXPECT_LINES(u.take_of("consumer"));
    EXPECT_TRUE(u.follows(1, "/a/beside/status"));
    EXPECT_EQ(vgpi().vgpi_session, nullptr);
    u.value(1, "/a/beside/status", 1);
    EXPECT_EQ(zel::gpios[vgpio_2].state, 1);
    EXPECT_EQ(vgpi().state, 0);
}

TEST_F(source, emptied_on_a_link_that_still_brings_its_values_is_not_moved_by_them)
{
    u.set("virtual/vgpio_1/type", 1).set("virtual/vgpio_1/vgpo_src", beside);
    start_on();
    ASSERT_EQ(set_gpio_vgpo_src(&vgpi(), "", write_back), 0);
    u.take();
    const int64_t on = 1;
    for (size_t nth = 0; nth < u.requests_ever(1); ++nth)
        u.late_value(1, nth, &on);
    EXPECT_EQ(vgpi().state, 0);
    EXPECT_EQ(u.count_of("callback"), 0);
}

TEST_F(source, of_a_port_without_its_own_trigger_is_emptied_without_an_event)
{
    start_on();
    ASSERT_EQ(zel::check_and_set_new_gpio_trig_list(&vgpi(), "", write_back), 0);
    u.take();
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), "", write_back), 0);
    EXPECT_LINES(changes(u), "consumer 1 end", off, number_set(node(vgpio_1) + "status", 0, 8), shown_text(""), is_saved);
    EXPECT_EQ(trigger_list[u.trigger_id("vGPI 1")].state, 1);
}

TEST_F(source, whose_link_cannot_be_made_is_kept_all_the_same)
{
    start("");
    u.fail("consumer 1 connect");
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, write_back), 0);
    EXPECT_STREQ(vgpi().vgpo_src, near);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), std::string("\"") + near + "\"");
}

TEST_F(source, that_cannot_be_saved_is_kept_and_reported)
{
    start("");
    u.fail("json set gpio/virtual/vgpio_0/vgpo_src");
    EXPECT_EQ(set_gpio_vgpo_src(&vgpi(), near, write_back), -1);
    EXPECT_STREQ(vgpi().vgpo_src, near);
}

TEST_F(source, may_be_given_to_any_input)
{
    start("");
    for (const int32_t index : {gpi, cough, button}) {
        EXPECT_EQ(set_gpio_vgpo_src(port(index), near, write_back), 0);
        EXPECT_STREQ(port(index)->vgpo_src, near);
        EXPECT_EQ(u.count_of(node(index) + "vgpio source"), 0);
    }
    EXPECT_EQ(set_gpio_vgpo_src(port(gpi), "", write_back), 0);
    EXPECT_EQ(zel::disable_gpio(cough), 0);
    u.stop();
    EXPECT_TRUE(u.consumers().empty()) << "every link is ended at shut-down";
}

TEST_F(source, of_an_output_or_a_disabled_port_is_refused)
{
    describe(u);
    set_types(u, output);
    ASSERT_EQ(u.start(), 0);
    discover(u, near, 2, "/a");
    u.take();
    for (const char *const name : {near, "", "unknown"})
        for (const auto &[index, what] : {std::pair{gpi, "an output"}, std::pair{vgpio_1, "an output"},
                                          std::pair{led, "an output"}, std::pair{vgpio_2, "disabled"}}) {
            EXPECT_EQ(set_gpio_vgpo_src(port(index), name, write_back), -1);
            EXPECT_LINES(u.take(),
                         std::string("log 1 set_gpio_vgpo_src: Unable to modify vgpio source for a port that is ") + what);
        }
}

TEST(a_new_source, of_no_port_is_an_assertion)
{
    expect_assertion("port != NULL", [] { (void)set_gpio_vgpo_src(nullptr, "", 0); });
}

// ---- Level

class level : public testing::Test {
protected:
    unit u;

    void start(int type)
    {
        describe(u);
        set_types(u, type);
        ASSERT_EQ(u.start(), 0);
        u.led_handler(0);
        u.take();
    }
};

TEST_F(level, of_a_physical_output_is_driven_and_shown_but_neither_saved_nor_sent)
{
    start(output);
    for (const uint8_t state : {1, 0, 5, 255}) {
        EXPECT_EQ(set_gpio_status(port(gpi), state, write_back), 0);
        EXPECT_LINES(u.take(), "pin 101 write " + std::to_string(state), number_set(node(gpi) + "status", state, 8));
        EXPECT_EQ(port(gpi)->state, state) << "as given";
    }
}

TEST_F(level, that_came_through_its_parameter_is_not_written_back)
{
    start(output);
    EXPECT_EQ(set_gpio_status(port(gpi), 1, keep), 0);
    EXPECT_LINES(u.take(), "pin 101 write 1");
}

TEST_F(level, of_a_virtual_output_or_an_led_is_shown_only)
{
    start(output);
    for (const int32_t index : {vgpio_1, led}) {
        EXPECT_EQ(set_gpio_status(port(index), 1, write_back), 0);
        EXPECT_LINES(u.take(), number_set(node(index) + "status", 1, 8));
        EXPECT_EQ(port(index)->state, 1);
    }
}

TEST_F(level, of_an_output_whose_pin_did_not_open_is_kept)
{
    u.fail("pin 101 open");
    start(output);
    EXPECT_EQ(set_gpio_status(port(gpi), 1, write_back), 0);
    EXPECT_LINES(u.take(), number_set(node(gpi) + "status", 1, 8));
    EXPECT_EQ(port(gpi)->state, 1);
}

TEST_F(level, of_an_output_that_udp_commands_drive_is_left_alone)
{
    u.udp(true);
    start(output);
    EXPECT_EQ(set_gpio_status(port(gpi), 1, write_back), 0);
    EXPECT_LINES(u.take());
    EXPECT_EQ(port(gpi)->state, 0);
    EXPECT_EQ(set_gpio_status(port(vgpio_1), 1, write_back), 0);
    EXPECT_EQ(port(vgpio_1)->state, 1) << "UDP commands drive GPI ports only";
}

TEST_F(level, of_an_input_is_refused)
{
    start(input);
    for (const int32_t index : {gpi, cough, vgpio_1, button}) {
        EXPECT_EQ(set_gpio_status(port(index), 1, write_back), -1);
        EXPECT_LINES(u.take(), "log 2 set_gpio_status: Unable to change state of a GPI");
        EXPECT_EQ(port(index)->state, 0);
    }
}

TEST_F(level, of_a_disabled_port_is_refused_also_while_udp_commands_are_on)
{
    u.udp(true);
    start(disabled);
    for (const int32_t index : {gpi, cough, vgpio_1, button, led}) {
        EXPECT_EQ(set_gpio_status(port(index), 1, write_back), -1);
        EXPECT_LINES(u.take(), "log 2 set_gpio_status: Unable to change state of a disabled GPIO");
        EXPECT_EQ(port(index)->state, 0);
    }
}

TEST_F(level, lasts_until_the_next_event_of_a_listed_trigger)
{
    u.set("physical/gpio_0/trigger", "Eth Link Down").set("physical/gpio_0/invert_trigger", "0");
    start(output);
    ASSERT_EQ(set_gpio_status(port(gpi), 1, write_back), 0);
    u.raise("AoIP Link Down");
    EXPECT_EQ(u.level(101), 1);
    u.raise("Eth Link Down");
    u.clear("Eth Link Down");
    EXPECT_EQ(u.level(101), 0);
    EXPECT_EQ(port(gpi)->state, 0);
}

TEST(a_new_level, of_no_port_is_an_assertion)
{
    expect_assertion("port != NULL", [] { (void)set_gpio_status(nullptr, 1, 0); });
}

// ---- Without a tree, and from the agent

TEST(settings_without_a_provider, are_kept_and_written_nowhere)
{
    unit u;
    u.gpis(1).coughs(1).virtuals(2).buttons(1);
    set_types(u, input);
    ASSERT_EQ(u.start(), 0);
    discover(u, near, 2, "/a");
    EXPECT_EQ(set_gpio_in_mode(port(gpi), momentary, write_back), 0);
    EXPECT_EQ(set_gpio_vgpo_src(port(vgpio_1), near, write_back), 0);
    EXPECT_EQ(set_gpio_vgpo_src(port(vgpio_1), "", write_back), 0);
    ASSERT_EQ(zel::set_gpio_type(port(gpi), output, 0), 0);
    EXPECT_EQ(set_gpio_status(port(gpi), 1, write_back), 0);
    EXPECT_EQ(u.level(101), 1);
    EXPECT_LINES(u.journal_of("ember"));
}

TEST(settings_without_their_parameters, are_kept_and_written_nowhere)
{
    unit u;
    describe(u);
    set_types(u, input);
    u.fail("ember add gpio/physical/gpio 1/input mode").fail("ember add gpio/physical/gpio 1/status");
    u.fail("ember add gpio/virtual/vgpio 1/vgpio source").fail("ember add gpio/virtual/vgpio 1/status");
    ASSERT_EQ(u.start(), 0);
    discover(u, near, 2, "/a");
    u.take();
    EXPECT_EQ(set_gpio_in_mode(port(gpi), momentary, write_back), 0);
    EXPECT_EQ(set_gpio_vgpo_src(port(vgpio_1), near, write_back), 0);
    EXPECT_EQ(set_gpio_vgpo_src(port(vgpio_1), "", write_back), 0);
    EXPECT_LINES(u.journal_of("ember"));
    ASSERT_EQ(zel::set_gpio_type(port(gpi), output, 0), 0);
    u.take();
    EXPECT_EQ(set_gpio_status(port(gpi), 1, write_back), 0);
    EXPECT_LINES(u.take(), "pin 101 write 1");
}

TEST(settings_from_the_agent, are_shown_in_the_tree)
{
    unit u;
    describe(u);
    set_types(u, input);
    ASSERT_EQ(u.start(), 0);
    discover(u, near, 2, "/a");
    EXPECT_EQ(ask(u, 19, 0, 1), 0);
    EXPECT_EQ(u.value_of(node(gpi) + "input mode"), "1");
    EXPECT_EQ(ask(u, 19, 0, 2), -1);
    EXPECT_EQ(ask(u, 27, 0, 0, near), 0);
    EXPECT_EQ(u.value_of(node(vgpio_1) + "vgpio source"), near);
    EXPECT_EQ(ask(u, 27, 0, 0, "nowhere"), -1);
    EXPECT_EQ(ask(u, 27, 0, 0, ""), 0);
    EXPECT_EQ(u.value_of(node(vgpio_1) + "vgpio source"), "");
    EXPECT_EQ(ask(u, 20, 0, 1), -1);
    EXPECT_EQ(ask(u, 15, 0, 2), 0);
    EXPECT_EQ(ask(u, 20, 0, 77), 0);
    EXPECT_EQ(u.value_of(node(gpi) + "status"), "1");
    EXPECT_EQ(ask(u, 23, 0, 2), 0);
    EXPECT_EQ(ask(u, 28, 0, 1), 0);
    EXPECT_EQ(port(vgpio_1)->state, 1);
}
