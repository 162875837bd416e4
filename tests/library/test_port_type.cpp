// What holds for changes of type of every kind of port: refusals, failures, connections given along, and the request through the
// port's own parameter.
#include <cstdlib>

#include "child_process.h"
#include "library_allocations.h"
#include "port_steps.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;
using zel::disable_gpio;
using zel::set_gpio_to_input;
using zel::set_gpio_to_output;
using zel::set_gpio_type;

namespace {

enum { eth = 0, aoip = 1, disabled = 0, input = 1, output = 2, latching = 0, momentary = 1, no_handler = -1, no_trigger = -1 };
enum { gpi = 0, cough = 1, virtual_port = 2, button = 3, led = 4 };

/// One port of each kind, at these indexes, and a relay.
void describe(unit &u) { u.gpis(1).coughs(1).virtuals(1).buttons(1).relays(1).ember(); }

std::string type_set(const std::string &port, int64_t type) { return number_set("gpio/" + port + "/type", type, 8); }

uint32_t type_of(int32_t index) { return zel::gpios[index].type; }

std::string kind_name(const testing::TestParamInfo<int32_t> &of)
{
    constexpr const char *names[] = {"gpi", "cough", "virtual_port", "button", "led"};
    return names[of.param];
}

}   // namespace

// ---- Refusals

class each_port : public testing::TestWithParam<int32_t> {
protected:
    unit u;

    void SetUp() override
    {
        describe(u);
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        u.take();
    }

    uint32_t type() const { return type_of(GetParam()); }
};

TEST_P(each_port, with_a_handler_id_beyond_the_table_is_left_unchanged)
{
    for (const int32_t id : {201, 202, INT32_MAX}) {
        EXPECT_EQ(set_gpio_to_input(GetParam(), latching, id, nullptr, 0), -1);
        EXPECT_LINES(u.take(), "log 0 set_gpio_to_input: Invalid handler id " + std::to_string(id) + " (Max = 200)");
    }
    EXPECT_EQ(type(), static_cast<uint32_t>(disabled));
}

TEST_P(each_port, with_a_trigger_id_beyond_the_table_is_left_unchanged)
{
    for (const int32_t id : {201, 202, INT32_MAX}) {
        EXPECT_EQ(set_gpio_to_output(GetParam(), id, 0), -1);
        EXPECT_LINES(u.take(), "log 0 set_gpio_to_output: Invalid trigger id " + std::to_string(id) + " (Max = 200)");
    }
    EXPECT_EQ(type(), static_cast<uint32_t>(disabled));
}

class each_input : public each_port {};
class each_output : public each_port {};

TEST_P(each_input, with_a_handler_id_one_beyond_the_last_is_an_input_without_that_handler)
{
    EXPECT_EQ(set_gpio_to_input(GetParam(), latching, 200, nullptr, 1), 0);
    EXPECT_EQ(type(), static_cast<uint32_t>(input));
    EXPECT_EQ(port_handlers(GetParam()), "");
}

TEST_P(each_output, with_a_trigger_id_one_beyond_the_last_is_an_output_without_that_trigger)
{
    EXPECT_EQ(set_gpio_to_output(GetParam(), 200, 1), 0);
    EXPECT_EQ(type(), static_cast<uint32_t>(output));
    EXPECT_EQ(port_list(GetParam()), "");
}

TEST_P(each_input, with_a_free_slot_or_a_negative_id_gets_no_handler)
{
    for (const int32_t id : {199, -1, -2, INT32_MIN}) {
        EXPECT_EQ(set_gpio_to_input(GetParam(), latching, id, nullptr, 0), 0);
        EXPECT_EQ(port_handlers(GetParam()), "");
    }
}

TEST_P(each_output, with_a_free_slot_or_a_negative_id_gets_no_trigger)
{
    for (const int32_t id : {199, -1, -2, INT32_MIN}) {
        EXPECT_EQ(set_gpio_to_output(GetParam(), id, 0), 0);
        EXPECT_EQ(port_list(GetParam()), "");
    }
}

TEST_P(each_port, of_an_unknown_type_stays_as_it_is_while_its_parameter_shows_the_request)
{
    const lines before = u.tree();
    for (const uint32_t wanted : {3u, 4u, 255u, 0x10000u}) {
        u.take();
        EXPECT_EQ(set_gpio_type(&zel::gpios[GetParam()], wanted, 1), -1);
        EXPECT_LINES(u.take());
        EXPECT_EQ(set_gpio_type(&zel::gpios[GetParam()], wanted, 0), -1);
        const lines all = u.take();
        ASSERT_EQ(all.size(), 1u);
        EXPECT_TRUE(ends_with(all[0], "/type " + std::to_string(wanted) + " (8 bytes)")) << all[0];
    }
    EXPECT_EQ(type(), static_cast<uint32_t>(disabled));
}

TEST_P(each_port, that_changes_through_all_types_and_back_leaks_nothing_and_stays_usable)
{
    for (int round = 0; round < 3; ++round) {
        for (const uint32_t type : {1u, 2u, 1u, 0u, 2u, 0u, 0u, 2u, 2u, 1u, 1u})
            (void)set_gpio_type(&zel::gpios[GetParam()], type, 0);
        if (GetParam() != led)
            (void)set_gpio_to_input(GetParam(), latching, 0, nullptr, round % 2 != 0);
        if (GetParam() != button)
            (void)set_gpio_to_output(GetParam(), eth, round % 2 == 0);
    }
    EXPECT_EQ(disable_gpio(GetParam()), 0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(u.open_pins(), 1) << "the relay's";
}

INSTANTIATE_TEST_SUITE_P(kinds, each_port, testing::Values(gpi, cough, virtual_port, button, led), kind_name);
INSTANTIATE_TEST_SUITE_P(kinds, each_input, testing::Values(gpi, cough, virtual_port, button), kind_name);
INSTANTIATE_TEST_SUITE_P(kinds, each_output, testing::Values(gpi, cough, virtual_port, led), kind_name);

TEST(an_input_mode_above_1, is_refused_for_physical_ports_and_buttons)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    for (const int32_t index : {gpi, cough, button}) {
        for (const auto &[mode, text] : {std::pair{2u, "2"}, std::pair{256u, "256"}, std::pair{UINT32_MAX, "-1"}}) {
            EXPECT_EQ(set_gpio_to_input(index, mode, no_handler, nullptr, 0), -1);
            EXPECT_LINES(u.take(), std::string("log 0 set_gpio_to_input: Invalid input mode ") + text);
        }
        EXPECT_EQ(type_of(index), static_cast<uint32_t>(disabled));
    }
}

TEST(a_change_of_type, of_a_port_that_does_not_exist_is_an_assertion)
{
    const auto dies = [](const std::function<void()> &call) {
        const fake::child_result child = fake::in_child([&] {
            unit u;
            describe(u);
            u.start();
            call();
        });
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_NE(child.output.find("index < total_gpio_count"), std::string::npos) << child.output;
    };
    dies([] { (void)set_gpio_to_input(5, 0, no_handler, nullptr, 0); });
    dies([] { (void)set_gpio_to_output(5, no_trigger, 0); });
    dies([] { (void)disable_gpio(5); });
}

TEST(a_change_of_type, of_no_port_is_an_assertion)
{
    const fake::child_result child = fake::in_child([] {
        unit u;
        describe(u);
        u.start();
        (void)set_gpio_type(nullptr, input, 0);
    });
    EXPECT_EQ(child.signal, SIGABRT);
    EXPECT_NE(child.output.find("port != NULL"), std::string::npos) << child.output;
}

// ---- Requests for a type

/// A request that is carried out or refused; the parameter is written with what was asked for, unless it asked.
struct type_request {
    int32_t index;
    const char *node;
    uint32_t type;
    int32_t result;
};

void PrintTo(const type_request &r, std::ostream *out) { *out << r.node << " to " << r.type; }

class requested_type : public testing::TestWithParam<type_request> {
protected:
    unit u;

    void SetUp() override
    {
        describe(u);
        ASSERT_EQ(u.start(), 0);
        u.take();
    }
};

TEST_P(requested_type, is_written_to_the_parameter_last_whatever_came_of_it)
{
    const type_request &r = GetParam();
    EXPECT_EQ(set_gpio_type(&zel::gpios[r.index], r.type, 0), r.result);
    EXPECT_EQ(u.journal().back(), type_set(r.node, r.type));
    EXPECT_EQ(type_of(r.index), r.result == 0 ? r.type : 0u);
}

TEST_P(requested_type, is_not_written_back_by_the_request_that_came_through_the_parameter)
{
    const type_request &r = GetParam();
    EXPECT_EQ(set_gpio_type(&zel::gpios[r.index], r.type, 1), r.result);
    EXPECT_EQ(u.count_of(type_set(r.node, r.type)), r.result == 0 ? 1 : 0) << "once, with all other values";
    if (r.result == 0) {
        EXPECT_TRUE(fake::begins_with(u.journal().back(), "ipc snmp send"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    requests, requested_type,
    testing::Values(type_request{gpi, "physical/gpio 1", 0, 0}, type_request{gpi, "physical/gpio 1", 1, 0},
                    type_request{gpi, "physical/gpio 1", 2, 0}, type_request{cough, "physical/cough 1", 0, 0},
                    type_request{cough, "physical/cough 1", 1, 0}, type_request{cough, "physical/cough 1", 2, -1},
                    type_request{virtual_port, "virtual/vgpio 1", 0, 0}, type_request{virtual_port, "virtual/vgpio 1", 1, 0},
                    type_request{virtual_port, "virtual/vgpio 1", 2, 0}, type_request{button, "user buttons/button 1", 0, 0},
                    type_request{button, "user buttons/button 1", 1, 0}, type_request{button, "user buttons/button 1", 2, -1},
                    type_request{led, "user buttons/led 1", 0, 0}, type_request{led, "user buttons/led 1", 1, -1},
                    type_request{led, "user buttons/led 1", 2, 0}));

TEST(a_cough_port, is_refused_as_an_output_by_a_request_but_not_by_the_change_itself)
{
    unit u;
    describe(u);
    u.set("physical/gpio_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_type(&zel::gpios[cough], output, 0), -1);
    EXPECT_LINES(u.take(), "log 0 set_gpio_type: Cannot set a cough port as an output", type_set("physical/cough 1", 2));
    EXPECT_EQ(type_of(cough), static_cast<uint32_t>(input));
    EXPECT_EQ(set_gpio_to_output(cough, no_trigger, 0), 0);
    EXPECT_EQ(type_of(cough), static_cast<uint32_t>(output));
}

TEST(a_cough_port, that_was_never_an_input_is_momentary_when_a_request_makes_it_one)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_type(&zel::gpios[cough], input, 0), 0);
    EXPECT_EQ(zel::gpios[cough].input_mode, 1u);
    EXPECT_TRUE(u.take_of("pin").back().ends_with("edge 3"));
}

TEST(a_request_to_be_an_input, keeps_the_mode_that_the_port_had)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1);
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(set_gpio_type(&zel::gpios[gpi], disabled, 0), 0);
    u.take();
    EXPECT_EQ(set_gpio_type(&zel::gpios[gpi], input, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 1 open 0", "pin 1 active_low 0", "pin 1 edge 3");
    EXPECT_EQ(set_gpio_type(&zel::gpios[gpi], output, 0), 0);
    u.take();
    EXPECT_EQ(set_gpio_type(&zel::gpios[gpi], input, 0), 0);
    EXPECT_LINES(u.take_of("pin"), "pin 101 close", "pin 1 open 0", "pin 1 active_low 0", "pin 1 edge 2");
}

TEST(a_request_for_a_type, without_a_provider_writes_nothing)
{
    unit u;
    u.gpis(1);
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_type(&zel::gpios[0], input, 0), 0);
    EXPECT_LINES(u.journal_of("ember"));
}

TEST(a_request_for_a_type, without_the_parameter_writes_nothing)
{
    unit u;
    describe(u);
    u.fail("ember add gpio/physical/gpio 1/type");
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(set_gpio_type(&zel::gpios[gpi], 3, 0), -1);
    EXPECT_LINES(u.take());
}

// ---- Connections given along

TEST(a_handler_given_along, is_connected_with_its_invert)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, 1, nullptr, 1), 0);
    EXPECT_EQ(port_handlers(gpi), "!Play#1");
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, 0, nullptr, 0), 0);
    EXPECT_EQ(port_handlers(gpi), "Record#0 !Play#1");
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, 1, nullptr, 0), 0);
    EXPECT_EQ(port_handlers(gpi), "Record#0 Play#1");
    EXPECT_EQ(handler_list[1].state, 0);
    EXPECT_EQ(saved(u, "physical/gpio_0/handler"), "\"Record, Play\"");
}

TEST(a_trigger_given_along, is_connected_with_its_invert)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(set_gpio_to_output(virtual_port, aoip, 1), 0);
    EXPECT_EQ(zel::gpios[virtual_port].state, 1);
    EXPECT_EQ(set_gpio_to_output(virtual_port, aoip, 0), 0);
    EXPECT_EQ(port_list(virtual_port), "AoIP Link Down#1");
    EXPECT_EQ(zel::gpios[virtual_port].state, 0);
    EXPECT_EQ(saved(u, "virtual/vgpio_0/trigger"), "\"AoIP Link Down\"");
}

TEST(an_output_that_drives_handlers, lets_them_go_when_it_becomes_an_input)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 2);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    ASSERT_EQ(zel::set_gpio_handler_connection(gpi, 0, 1), 0);
    ASSERT_EQ(handler_list[0].port_mask, 1u);
    u.take();
    EXPECT_EQ(set_gpio_to_input(gpi, latching, no_handler, nullptr, 0), 0);
    EXPECT_LINES(u.journal_of("callback"), "callback Record source 0 state 0 context 0");
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_EQ(port_handlers(gpi), "");
    EXPECT_EQ(zel::gpios[gpi].handler_names[0], nullptr);
}

TEST(a_disabled_input, ends_and_disconnects_whatever_stands_in_the_place_of_its_own_trigger)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1)
        .set("relay/relay_0/triggers", "Eth Link Down, GPI 1")
        .set("relay/relay_0/trigger_invert", "0, 0");
    ASSERT_EQ(u.start(), 0);
    u.raise("Eth Link Down");
    ASSERT_EQ(zel::set_gpio_trigger_list(gpi, "0", "0", 0), 0);
    EXPECT_EQ(disable_gpio(gpi), 0);
    EXPECT_EQ(trigger_list[eth].state, 0);
    EXPECT_EQ(relay_list(0), own_trigger("GPI 1"));
}

TEST(a_disabled_input, that_lost_its_own_trigger_disconnects_nothing)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1).set("relay/relay_0/triggers", "GPI 1, Unknown").set("relay/relay_0/trigger_invert", "0, 0");
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel::set_gpio_trigger_list(gpi, "null", "null", 0), 0);
    u.take();
    EXPECT_EQ(disable_gpio(gpi), 0);
    EXPECT_EQ(relay_list(0), own_trigger("GPI 1") + " Unknown#-1");
    EXPECT_EQ(u.count_of("json set gpio/relay"), 0);
}

TEST(a_disabled_input, is_taken_from_a_list_however_often_it_stands_there)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1).set("virtual/vgpio_0/type", 2).set("user_buttons/led_1/type", 2);
    ASSERT_EQ(u.start(), 0);
    const std::string id = std::to_string(u.trigger_id("GPI 1"));
    ASSERT_EQ(zel::set_gpio_trigger_list(virtual_port, (id + ",0," + id).c_str(), "1,1,0", 0), 0);
    ASSERT_EQ(zel::set_gpio_trigger_list(led, id.c_str(), "1", 0), 0);
    EXPECT_EQ(disable_gpio(gpi), 0);
    EXPECT_EQ(port_list(virtual_port), "!Eth Link Down#0");
    EXPECT_EQ(port_list(led), "");
    EXPECT_EQ(zel::gpios[led].state, 0);
}

TEST(a_list_longer_than_its_first_entry, is_freed_when_its_input_becomes_an_output_or_is_disabled)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    for (const int32_t index : {gpi, cough})
        ASSERT_EQ(zel::set_gpio_trigger_list(index, "0,1,2", "0,1,0", 0), 0);
    EXPECT_EQ(set_gpio_to_output(gpi, 3, 0), 0);
    EXPECT_EQ(port_list(gpi), "DC Power Off#3");
    EXPECT_EQ(disable_gpio(cough), 0);
    for (int k = 0; k < 3; ++k)
        EXPECT_EQ(zel::gpios[cough].trigger_names[k], nullptr);
}

TEST(an_entry_without_a_name, is_passed_over_when_its_port_changes)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down, AoIP Link Down");
    u.set("physical/gpio_0/invert_trigger", "0, 0").set("physical/gpio_1/type", 1).set("physical/gpio_1/handler", "Record, Play");
    ASSERT_EQ(u.start(), 0);
    u.raise("Eth Link Down"), u.raise("AoIP Link Down");
    const auto lose = [](char *&name) { std::free(std::exchange(name, nullptr)); };
    lose(zel::gpios[gpi].trigger_names[0]);
    lose(zel::gpios[cough].handler_names[0]);
    EXPECT_EQ(set_gpio_to_input(gpi, latching, no_handler, nullptr, 0), 0);
    EXPECT_EQ(trigger_list[eth].state, 1);
    EXPECT_EQ(trigger_list[aoip].state, 0);
    EXPECT_EQ(set_gpio_to_output(cough, no_trigger, 0), 0);
    EXPECT_EQ(zel::gpios[cough].handler_names[1], nullptr);
}

// ---- Failures

TEST(an_input_line_that_cannot_be_opened, leaves_a_port_that_is_neither_named_nor_saved_nor_published)
{
    unit u;
    u.gpi(1, 101, true)
        .virtuals(1)
        .ember()
        .set("physical/gpio_0/type", 2)
        .set("physical/gpio_0/trigger", "Eth Link Down")
        .set("physical/gpio_0/invert_trigger", "0");
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.fail("pin 1 open");
    EXPECT_EQ(set_gpio_to_input(0, momentary, no_handler, nullptr, 0), -1);
    EXPECT_LINES(changes(u), setting_up(0, momentary, 0), "pin 101 close", "pin 1 open 0 failed",
                 "log 0 set_gpio_to_input: Failed to open gpio 1");
    EXPECT_EQ(type_of(0), static_cast<uint32_t>(input));
    EXPECT_EQ(first_trigger(0), "(null)#-1");
    EXPECT_EQ(zel::gpios[0].ignore_irq, 1);
    EXPECT_EQ(saved(u, "physical/gpio_0/type"), "2");
}

TEST(an_input_line_that_cannot_be_opened, may_be_asked_for_again_and_the_port_works_without_it)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.fail("pin 1 open");
    ASSERT_EQ(set_gpio_to_input(gpi, momentary, no_handler, nullptr, 0), -1);
    u.heal(), u.take();
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, no_handler, nullptr, 0), 0) << "it is an input already";
    EXPECT_EQ(first_trigger(gpi), own_trigger("GPI 1"));
    EXPECT_EQ(u.count_of("pin 1"), 0);
    EXPECT_EQ(disable_gpio(gpi), 0);
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, no_handler, nullptr, 0), 0);
    EXPECT_TRUE(u.is_open(1));
}

TEST(an_output_line_that_cannot_be_opened, leaves_a_port_that_is_neither_driven_nor_saved_nor_published)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1);
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.fail("pin 101 open");
    EXPECT_EQ(set_gpio_to_output(gpi, eth, 0), -1);
    EXPECT_LINES(changes(u), "pin 1 close", "pin 101 open 2 failed", "log 0 set_gpio_to_output: Failed to open gpio 101");
    EXPECT_EQ(type_of(gpi), static_cast<uint32_t>(output));
    EXPECT_EQ(port_list(gpi), "");
    EXPECT_EQ(saved(u, "physical/gpio_0/type"), "1");
    u.heal();
    EXPECT_EQ(set_gpio_to_output(gpi, eth, 0), 0) << "the pin stays closed, the rest works";
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[gpi].state, 1);
    EXPECT_EQ(disable_gpio(gpi), 0);
}

TEST(a_polarity_that_cannot_be_set, fails_a_change_to_an_input)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.fail("pin 1 active_low");
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, no_handler, nullptr, 0), -1);
    EXPECT_LINES(changes(u), setting_up(gpi, momentary, 0), "pin 1 open 0", "pin 1 active_low 0 failed",
                 "log 0 set_gpio_to_input: Failed to set active_low property for gpio 1");
    EXPECT_EQ(type_of(gpi), static_cast<uint32_t>(input));
    EXPECT_TRUE(u.is_open(1));
}

TEST(a_polarity_that_cannot_be_set, does_not_fail_a_change_to_an_output)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.fail("pin 101 active_low");
    EXPECT_EQ(set_gpio_to_output(gpi, no_trigger, 0), 0);
    EXPECT_LINES(changes(u),
                 steps({"pin 101 open 2", "pin 101 active_low 0 failed",
                        "log 0 set_gpio_to_output: Failed to set active_low property for gpio 101", "pin 101 write 0",
                        "save physical/gpio_0 2", published("physical/gpio 1", {output, "", "", "", 0, 0}), sent(7)}));
}

TEST(a_port_that_cannot_be_saved, fails_its_change_but_is_published_and_sent)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.fail("json set gpio/physical/gpio_0/type");
    for (const auto &change : {std::function<int32_t()>([] { return set_gpio_to_input(gpi, momentary, no_handler, nullptr, 0); }),
                               std::function<int32_t()>([] { return set_gpio_to_output(gpi, no_trigger, 0); }),
                               std::function<int32_t()>([] { return disable_gpio(gpi); })}) {
        u.take();
        EXPECT_EQ(change(), -1);
        EXPECT_EQ(u.count_of(type_set("physical/gpio 1", type_of(gpi))), 1);
        EXPECT_EQ(u.journal().back(), sent(7));
    }
}

TEST(a_value_that_cannot_be_published, does_not_fail_a_change)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.fail("ember set");
    EXPECT_EQ(set_gpio_to_input(gpi, momentary, no_handler, nullptr, 0), 0);
    EXPECT_EQ(set_gpio_to_output(gpi, no_trigger, 0), 0);
    EXPECT_EQ(disable_gpio(gpi), 0);
}

TEST(a_service_that_cannot_be_announced, does_not_fail_a_change_to_an_output)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.fail("ipc sdisc send 9");
    EXPECT_EQ(set_gpio_to_output(virtual_port, no_trigger, 0), 0);
    EXPECT_TRUE(u.logged(
        "0 publish_vgpo: Failed to send ZEL_SDISC_PUBLISH SERVICE_CMD message to zel_sdiscd for service 'vGPO1@Studio 1'"));
    EXPECT_EQ(type_of(virtual_port), static_cast<uint32_t>(output));
}

/// Memory that is short at any allocation of a change: the library goes on, and the same change made again succeeds.
class memory_that_is_short : public testing::TestWithParam<int32_t> {};

TEST_P(memory_that_is_short, costs_a_name_at_most)
{
    int nth = 0;
    for (bool fired = true; fired && nth < 40; ++nth) {
        const fake::child_result child = fake::in_child([&] {
            unit u;
            describe(u);
            EXPECT_EQ(u.start(), 0);
            u.handler("Record");
            u.led_handler(0);
            discover(u, "vGPO1@Studio 2", 2, "/a");
            fake::fail_allocation(nth);
            (void)set_gpio_to_input(GetParam(), latching, 0, "vGPO1@Studio 2", 0);
            (void)set_gpio_to_output(GetParam(), eth, 0);
            const bool failed = fake::allocation_failed();
            fake::fail_allocation(-1);
            EXPECT_EQ(set_gpio_to_input(GetParam(), latching, 0, "vGPO1@Studio 2", 0), GetParam() == led ? -1 : 0);
            EXPECT_EQ(set_gpio_to_output(GetParam(), eth, 0), GetParam() == button ? -1 : 0);
            u.stop();
            if (!failed)
                _exit(testing::Test::HasFailure() ? 1 : 77);
        });
        ASSERT_TRUE(child.signal == 0 && (child.exit_status == 0 || child.exit_status == 77)) << "allocation " << nth << "\n"
                                                                                              << child.output;
        fired = child.exit_status == 0;
    }
    EXPECT_GT(nth, 2);
    EXPECT_LT(nth, 40);
}

INSTANTIATE_TEST_SUITE_P(kinds, memory_that_is_short, testing::Values(gpi, virtual_port, button, led), kind_name);

// ---- Through the pins' direction

TEST(a_pin_direction, makes_an_input_without_handlers_or_an_output_of_its_own_trigger)
{
    unit u;
    describe(u);
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set_level(1, 1);
    ASSERT_EQ(u.start(), 0);
    const std::string own = own_trigger("GPI 1");
    EXPECT_EQ(zel_gpio_set_pin_direction(gpi, 2), 1);
    EXPECT_EQ(type_of(gpi), static_cast<uint32_t>(output));
    EXPECT_EQ(port_list(gpi), own) << "entry 0 is read before the change";
    EXPECT_EQ(zel_gpio_set_pin_direction(gpi, 1), 1);
    EXPECT_EQ(type_of(gpi), static_cast<uint32_t>(input));
    EXPECT_EQ(port_handlers(gpi), "");
    EXPECT_EQ(zel_gpio_set_pin_direction(gpi, 0), 1);
    EXPECT_EQ(type_of(gpi), static_cast<uint32_t>(disabled));
    EXPECT_EQ(zel_gpio_set_pin_direction(gpi, 3), -1);
    EXPECT_EQ(zel_gpio_set_pin_direction(cough, 1), -1);
}
