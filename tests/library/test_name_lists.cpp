// Lists of triggers and handlers given by name: how the texts are read, and what an accepted one changes.
#include "child_process.h"
#include "library_allocations.h"
#include "port_steps.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/port_settings.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;
using zel::check_and_set_new_gpio_handler_list;
using zel::check_and_set_new_gpio_trig_list;
using zel::check_and_set_new_relay_trig_list;
using zel::get_gpio_handler_invert;
using zel::get_relay_trigger_invert;

namespace {

enum { gpi = 0, out = 1, vgpio = 2, keep = 1, write_back = 0 };

zel::gpio_port_t *port(int32_t index) { return &zel::gpios[index]; }
zel::relay_t *relay(int32_t index) { return &zel::relays[index]; }

/// Ports: 0 an input with the handlers Record and (inverted) Play, 1 an output and 2 a virtual output listening to "DC Power Off"
/// inverted; relay 0 likewise.
void describe(unit &u)
{
    u.gpis(2).virtuals(1).relays(2).ember();
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/handler", "Record, Play").set("physical/gpio_0/handler_invert", "0, 1");
    u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", "DC Power Off").set("physical/gpio_1/invert_trigger", "1");
    u.set("virtual/vgpio_0/type", 2).set("virtual/vgpio_0/trigger", "DC Power Off").set("virtual/vgpio_0/invert_trigger", "1");
    u.set("relay/relay_0/triggers", "DC Power Off, Eth Link Down").set("relay/relay_0/trigger_invert", "1, 0");
}

class name_list : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        describe(u);
        ASSERT_EQ(u.start(), 0);
        u.handler("Record"), u.handler("Play"), u.handler("Stop");
        u.take();
    }
};

}   // namespace

// ---- How a text is read

struct reading {
    const char *text;
    const char *list;      // of a port; null: refused
    const char *unknown;   // the name that the refusal tells
};

void PrintTo(const reading &r, std::ostream *out) { *out << '"' << r.text << '"'; }

class port_text : public name_list, public testing::WithParamInterface<reading> {};

TEST_P(port_text, is_taken_whole_or_not_at_all)
{
    const reading &r = GetParam();
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), r.text, write_back), r.list != nullptr ? 0 : -1);
    if (r.list != nullptr) {
        EXPECT_EQ(port_list(out), r.list);
        return;
    }
    EXPECT_LINES(u.take(), std::string("log 1 check_and_set_new_gpio_trig_list: Trigger name: '") + r.unknown + "' not found");
    EXPECT_EQ(port_list(out), "!DC Power Off#3");
}

INSTANTIATE_TEST_SUITE_P(texts, port_text,
                         testing::Values(reading{"", "", ""}, reading{"Eth Link Down", "Eth Link Down#0", ""},
                                         reading{"!Eth Link Down", "!Eth Link Down#0", ""},
                                         reading{"Eth Link Down,AC Power Off", "Eth Link Down#0 AC Power Off#2", ""},
                                         reading{"Eth Link Down, !AC Power Off", "Eth Link Down#0 !AC Power Off#2", ""},
                                         reading{" !Eth Link Down", "!Eth Link Down#0", ""},
                                         reading{" \t\n\v\f\r Eth Link Down", "Eth Link Down#0", ""},
                                         reading{"AC Power Off,Eth Link Down,AC Power Off",
                                                 "AC Power Off#2 Eth Link Down#0 AC Power Off#2", ""},
                                         reading{"!Eth Link Down,Eth Link Down", "!Eth Link Down#0 Eth Link Down#0", ""},
                                         reading{"DC Power Off", "DC Power Off#3", ""}));

INSTANTIATE_TEST_SUITE_P(
    refused, port_text,
    testing::Values(reading{"Unknown", nullptr, "Unknown"}, reading{"Eth Link Down,Unknown", nullptr, "Unknown"},
                    reading{"First,Second,Eth Link Down", nullptr, "First"}, reading{"Eth Link Down ", nullptr, "Eth Link Down "},
                    reading{"Eth Link Down ,AC Power Off", nullptr, "Eth Link Down "},
                    reading{"! Eth Link Down", nullptr, " Eth Link Down"}, reading{"!!Eth Link Down", nullptr, "!Eth Link Down"},
                    reading{"eth link down", nullptr, "eth link down"}, reading{"Eth Link Dow", nullptr, "Eth Link Dow"},
                    reading{"Eth Link Down!", nullptr, "Eth Link Down!"}, reading{"!", nullptr, ""}, reading{" ", nullptr, ""},
                    reading{"null", nullptr, "null"}, reading{"0", nullptr, "0"}, reading{"-1", nullptr, "-1"},
                    reading{"%s%n", nullptr, "%s%n"},
                    reading{"Eth Link Down;AC Power Off", nullptr, "Eth Link Down;AC Power Off"},
                    reading{"Record", nullptr, "Record"}));

class relay_text : public name_list, public testing::WithParamInterface<reading> {};

TEST_P(relay_text, is_taken_whole_or_not_at_all_and_knows_no_marks)
{
    const reading &r = GetParam();
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), r.text, write_back), r.list != nullptr ? 0 : -1);
    if (r.list != nullptr) {
        EXPECT_EQ(relay_list(0), r.list);
        return;
    }
    EXPECT_LINES(u.take(), std::string("log 2 check_and_set_new_relay_trig_list: Trigger name: '") + r.unknown + "' not found");
    EXPECT_EQ(relay_list(0), "!DC Power Off#3 Eth Link Down#0");
}

INSTANTIATE_TEST_SUITE_P(texts, relay_text,
                         testing::Values(reading{"", "", ""}, reading{"DC Power Off", "!DC Power Off#3", ""},
                                         reading{"Eth Link Down,DC Power Off", "Eth Link Down#0 !DC Power Off#3", ""},
                                         reading{"AC Power Off, \tDC Power Off", "AC Power Off#2 !DC Power Off#3", ""},
                                         reading{"DC Power Off,DC Power Off", "!DC Power Off#3 !DC Power Off#3", ""}));

INSTANTIATE_TEST_SUITE_P(refused, relay_text,
                         testing::Values(reading{"!DC Power Off", nullptr, "!DC Power Off"},
                                         reading{" !Eth Link Down", nullptr, "!Eth Link Down"},
                                         reading{"Eth Link Down,Unknown", nullptr, "Unknown"},
                                         reading{"Eth Link Down ", nullptr, "Eth Link Down "}, reading{" ", nullptr, ""},
                                         reading{"null", nullptr, "null"}, reading{"%s%n", nullptr, "%s%n"}));

class handler_text : public name_list, public testing::WithParamInterface<reading> {};

TEST_P(handler_text, that_holds_an_unknown_name_changes_nothing)
{
    EXPECT_EQ(check_and_set_new_gpio_handler_list(port(gpi), GetParam().text, write_back), -1);
    EXPECT_LINES(u.take(),
                 std::string("log 1 check_and_set_new_gpio_handler_list: Handler name: '") + GetParam().unknown + "' not found");
    EXPECT_EQ(first_trigger(gpi), own_trigger("GPI 1"));
    EXPECT_EQ(port_handlers(gpi), "Record#0 !Play#1");
}

INSTANTIATE_TEST_SUITE_P(refused, handler_text,
                         testing::Values(reading{"Unknown", nullptr, "Unknown"}, reading{"Record,Unknown", nullptr, "Unknown"},
                                         reading{"!Record", nullptr, "!Record"}, reading{"Record ,Play", nullptr, "Record "},
                                         reading{"record", nullptr, "record"}, reading{" ", nullptr, ""},
                                         reading{"Eth Link Down", nullptr, "Eth Link Down"}, reading{"0", nullptr, "0"}));

TEST_F(name_list, finds_a_trigger_whose_own_name_begins_with_the_mark_for_relays_only)
{
    ASSERT_NE(u.trigger("!Odd"), -1);
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(1), "!Odd", write_back), 0);
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "!Odd", write_back), -1);
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "!!Odd", write_back), 0);
    EXPECT_EQ(port_list(out), "!" + own_trigger("!Odd"));
}

TEST_F(name_list, of_more_names_than_a_list_holds_keeps_the_first_200)
{
    for (const char *const name : {"!PTP Sync Lost", "PTP Sync Lost"}) {
        std::string text = name, entries = entry_text("PTP Sync Lost", 4, name[0] == '!');
        for (int i = 1; i < 250; ++i)
            text += std::string(", ") + name;
        if (name[0] == '!') {
            EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), text.c_str(), write_back), 0);
            EXPECT_EQ(port(out)->num_trigs, 200);
            EXPECT_EQ(port(out)->active_trigs, 200);
        } else {
            EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), text.c_str(), write_back), 0);
            EXPECT_EQ(relay(0)->num_trigs, 200);
        }
    }
    EXPECT_EQ(saved(u, "physical/gpio_1/trigger").size(), 200 * std::strlen("PTP Sync Lost, "))
        << "two quotes and 199 separators";
}

TEST_F(name_list, of_200_different_names_is_complete)
{
    std::string text;
    for (int id = 0; id < 200; ++id) {
        if (trigger_list[id].name == nullptr) {
            ASSERT_NE(u.trigger(long_name("Trigger", id)), -1);
        }
        text += std::string(id > 0 ? "," : "") + (id % 2 ? "!" : "") + trigger_list[id].name;
    }
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), text.c_str(), write_back), 0);
    ASSERT_EQ(port(out)->num_trigs, 200);
    for (int id = 0; id < 200; ++id) {
        EXPECT_EQ(port(out)->trig_ids[id], id);
        EXPECT_EQ(port(out)->trig_inv[id], id % 2);
    }
}

TEST_F(name_list, that_is_hostile_is_refused_and_nothing_else)
{
    const std::string big(1 << 20, 'x'), marks(1 << 16, '!'), blanks(1 << 16, ' ');
    std::string many;
    for (int i = 0; i < 20000; ++i)
        many += "Eth Link Down,";
    for (const std::string &text : {big, marks, blanks, many + big, many + marks}) {
        EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), text.c_str(), write_back), -1);
        EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), text.c_str(), write_back), -1);
        EXPECT_EQ(check_and_set_new_gpio_handler_list(port(gpi), text.c_str(), write_back), -1);
    }
    EXPECT_EQ(port_list(out), "!DC Power Off#3");
    EXPECT_EQ(relay_list(0), "!DC Power Off#3 Eth Link Down#0");
    EXPECT_EQ(first_trigger(gpi), own_trigger("GPI 1"));
}

// ---- What an accepted list changes

TEST_F(name_list, of_a_port_is_saved_driven_shown_and_sent)
{
    u.raise("AC Power Off"), u.take();
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "AC Power Off,!Eth Link Down", write_back), 0);
    EXPECT_LINES(
        changes(u),
        steps({"save physical/gpio_1 2", "pin 102 write 1",
               published("physical/gpio 2", {2, "", "AC Power Off, !Eth Link Down", "AC Power Off, !Eth Link Down", 0, 1}),
               sent(7)}));
    EXPECT_EQ(saved(u, "physical/gpio_1/trigger"), "\"AC Power Off, Eth Link Down\"");
    EXPECT_EQ(saved(u, "physical/gpio_1/invert_trigger"), "\"0, 1\"");
}

TEST_F(name_list, that_came_through_its_parameter_is_not_written_back)
{
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "AC Power Off", keep), 0);
    EXPECT_LINES(changes(u), steps({"save physical/gpio_1 2", "pin 102 write 0",
                                    published("physical/gpio 2", {2, "", "", "", 0, 0}, false), sent(7)}));
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "AC Power Off", keep), 0);
    EXPECT_LINES(changes(u), steps({"save relay/relay_0", "pin 201 write 0", published_relay(1, "", "", 0, false), sent(11)}));
    EXPECT_EQ(check_and_set_new_gpio_handler_list(port(gpi), "Play", keep), 0);
    EXPECT_LINES(changes(u), steps({"save physical/gpio_0 1", "pin 1 write 0",
                                    published("physical/gpio 1", {1, "", "", "", 0, 0}, false), sent(7)}));
}

TEST_F(name_list, of_a_relay_is_saved_driven_shown_and_sent_with_the_inverts_it_had)
{
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "AC Power Off,DC Power Off", write_back), 0);
    EXPECT_LINES(changes(u), steps({"save relay/relay_0", "pin 201 write 1",
                                    published_relay(1, "AC Power Off, DC Power Off", "", 1), sent(11)}));
    EXPECT_EQ(saved(u, "relay/relay_0/trigger_invert"), "\"0, 1\"");
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "", write_back), 0);
    EXPECT_LINES(changes(u), steps({"save relay/relay_0", "pin 201 write 0", published_relay(1, "", "", 0), sent(11)}));
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "DC Power Off", write_back), 0);
    EXPECT_EQ(relay_list(0), "DC Power Off#3") << "the invert went with the entry";
}

TEST_F(name_list, of_an_empty_text_drives_the_output_to_0)
{
    ASSERT_EQ(u.level(102), 1);
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "", write_back), 0);
    EXPECT_LINES(changes(u), steps({"save physical/gpio_1 2", "pin 102 write 0",
                                    published("physical/gpio 2", {2, "", "", "", 0, 0}), sent(7)}));
}

TEST_F(name_list, of_an_input_replaces_its_own_trigger)
{
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(gpi), "Eth Link Down", write_back), 0);
    EXPECT_EQ(port_list(gpi), "Eth Link Down#0");
    EXPECT_EQ(zel::set_gpio_to_input(gpi, 0, -1, nullptr, 0), 0);
    EXPECT_EQ(first_trigger(gpi), own_trigger("GPI 1")) << "made an input again it has its own";
}

TEST_F(name_list, that_cannot_be_saved_is_reported_and_not_shown)
{
    u.fail("json set gpio/physical/gpio_1/invert_trigger").fail("json set gpio/relay/relay_0/trigger_invert");
    EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "", write_back), -1);
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "", write_back), -1);
    EXPECT_EQ(u.count_of("ember set") + u.count_of("ipc") + u.count_of("pin"), 0);
}

TEST_F(name_list, that_cannot_be_read_for_want_of_memory_is_refused_whole)
{
    for (const int nth : {0, 1}) {
        fake::fail_allocation(nth);
        EXPECT_EQ(check_and_set_new_gpio_trig_list(port(out), "AC Power Off,Eth Link Down", write_back), -1);
        EXPECT_TRUE(fake::allocation_failed());
        fake::fail_allocation(nth);
        EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "AC Power Off,DC Power Off", write_back), -1);
        EXPECT_TRUE(fake::allocation_failed());
        fake::fail_allocation(nth);
        EXPECT_EQ(check_and_set_new_gpio_handler_list(port(gpi), "Record,Play", write_back), -1);
        EXPECT_TRUE(fake::allocation_failed());
        fake::fail_allocation(-1);
    }
    EXPECT_EQ(port_list(out), "!DC Power Off#3");
    EXPECT_EQ(relay_list(0), "!DC Power Off#3 Eth Link Down#0");
    EXPECT_EQ(first_trigger(gpi), own_trigger("GPI 1"));
    EXPECT_EQ(u.count_of("ember set") + u.count_of("json set"), 0);
}

// ---- Lists of handlers

TEST_F(name_list, of_handlers_empties_the_list_of_triggers_and_leaves_the_handlers_as_they_were)
{
    for (const char *const text : {"Stop", "Record,Play", " Play,\tStop", ""}) {
        ASSERT_EQ(zel::set_gpio_to_input(gpi, 0, -1, nullptr, 0), 0);
        ASSERT_EQ(first_trigger(gpi), own_trigger("GPI 1"));
        u.take();
        EXPECT_EQ(check_and_set_new_gpio_handler_list(port(gpi), text, write_back), 0) << text;
        EXPECT_LINES(changes(u), steps({"save physical/gpio_0 1", "pin 1 write 0",
                                        published("physical/gpio 1", {1, "Record, Play", "", "", 0, 0}), sent(7)}));
        EXPECT_EQ(port_handlers(gpi), "Record#0 !Play#1");
        EXPECT_EQ(port(gpi)->num_trigs, 0);
        EXPECT_EQ(saved(u, "physical/gpio_0/handler"), "\"Record, Play\"");
        EXPECT_EQ(saved(u, "physical/gpio_0/handler_invert"), "\"0, 1\"");
    }
}

TEST_F(name_list, of_handlers_takes_an_inputs_own_trigger)
{
    ASSERT_EQ(port(gpi)->num_trigs, 1);
    EXPECT_EQ(check_and_set_new_gpio_handler_list(port(gpi), "Record", write_back), 0);
    EXPECT_EQ(first_trigger(gpi), "(null)#-1");
    u.take();
    u.edge(1, 1);
    EXPECT_EQ(port(gpi)->state, 1);
    EXPECT_EQ(u.count_of("log 2 zel_gpio_notify_trigger_event"), 0);
}

TEST_F(name_list, of_handlers_given_to_an_output_empties_and_lowers_it)
{
    ASSERT_EQ(u.level(102), 1);
    EXPECT_EQ(check_and_set_new_gpio_handler_list(port(out), "Record", write_back), 0);
    EXPECT_LINES(changes(u), steps({"save physical/gpio_1 2", "pin 102 write 0",
                                    published("physical/gpio 2", {2, "", "", "", 0, 0}), sent(7)}));
    EXPECT_EQ(port_handlers(out), "");
    EXPECT_EQ(check_and_set_new_gpio_handler_list(port(vgpio), "", write_back), 0);
    EXPECT_EQ(port_list(vgpio), "");
    EXPECT_EQ(port(vgpio)->state, 0);
}

// ---- Inverts that stand

TEST_F(name_list, asks_for_the_invert_of_the_first_entry_of_a_handler)
{
    EXPECT_EQ(get_gpio_handler_invert(gpi, 0), 0);
    EXPECT_EQ(get_gpio_handler_invert(gpi, 1), 1);
    EXPECT_EQ(get_gpio_handler_invert(gpi, 2), 0) << "is not listed";
    ASSERT_EQ(zel::set_gpio_handler_list(gpi, "2,2,1,1", "1,0,0,1", 0), 0);
    EXPECT_EQ(get_gpio_handler_invert(gpi, 2), 1);
    EXPECT_EQ(get_gpio_handler_invert(gpi, 1), 0);
    EXPECT_EQ(get_gpio_handler_invert(gpi, 0), 0);
    EXPECT_EQ(get_gpio_handler_invert(out, 2), 0);
    for (const int32_t id : {-1, -2, 199, 200, INT32_MAX, INT32_MIN})
        EXPECT_EQ(get_gpio_handler_invert(gpi, id), 0) << id;
}

TEST_F(name_list, asks_for_the_invert_of_the_first_entry_of_a_trigger)
{
    EXPECT_EQ(get_relay_trigger_invert(0, 3), 1);
    EXPECT_EQ(get_relay_trigger_invert(0, 0), 0);
    ASSERT_EQ(zel::set_relay_trigger_list(0, "2,3,2,3", "1,0,0,1", 0), 0);
    EXPECT_EQ(get_relay_trigger_invert(0, 2), 1);
    EXPECT_EQ(get_relay_trigger_invert(0, 3), 0);
    EXPECT_EQ(get_relay_trigger_invert(1, 2), 0);
    for (const int32_t id : {-2, 4, 199, 200, INT32_MAX, INT32_MIN})
        EXPECT_EQ(get_relay_trigger_invert(0, id), 0) << id;
    EXPECT_EQ(check_and_set_new_relay_trig_list(relay(0), "AC Power Off,AC Power Off", write_back), 0);
    EXPECT_EQ(relay_list(0), "!AC Power Off#2 !AC Power Off#2");
}

TEST_F(name_list, asks_no_owner_that_does_not_exist)
{
    for (const int32_t index : {-1, 3, 200, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(get_gpio_handler_invert(index, 1), 0) << index;
        EXPECT_EQ(get_relay_trigger_invert(index, 3), 0) << index;
    }
}

TEST(an_invert, is_0_before_there_are_any_ports_and_relays)
{
    unit u;
    EXPECT_EQ(get_gpio_handler_invert(0, 0), 0);
    EXPECT_EQ(get_relay_trigger_invert(0, 0), 0);
}

TEST(a_list_by_name, of_no_owner_or_no_text_is_an_assertion)
{
    const auto dies = [](const std::string &condition, const std::function<void()> &call) {
        const fake::child_result child = fake::in_child([&] {
            unit u;
            describe(u);
            u.start();
            call();
        });
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_NE(child.output.find("`" + condition + "'"), std::string::npos) << child.output;
    };
    dies("port != NULL", [] { (void)check_and_set_new_gpio_trig_list(nullptr, "", 0); });
    dies("new_list != NULL", [] { (void)check_and_set_new_gpio_trig_list(port(0), nullptr, 0); });
    dies("port != NULL", [] { (void)check_and_set_new_gpio_handler_list(nullptr, "", 0); });
    dies("new_list != NULL", [] { (void)check_and_set_new_gpio_handler_list(port(0), nullptr, 0); });
    dies("relay != NULL", [] { (void)check_and_set_new_relay_trig_list(nullptr, "", 0); });
    dies("new_list != NULL", [] { (void)check_and_set_new_relay_trig_list(relay(0), nullptr, 0); });
}

TEST_F(name_list, from_the_agent_is_read_the_same_way)
{
    EXPECT_EQ(ask(u, 17, out, 0, "Eth Link Down, !AC Power Off"), 0);
    EXPECT_EQ(port_list(out), "Eth Link Down#0 !AC Power Off#2");
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/output triggers"), "Eth Link Down, !AC Power Off");
    EXPECT_EQ(ask(u, 17, out, 0, "Nothing"), -1);
    EXPECT_EQ(ask(u, 35, 0, 0, "AC Power Off,DC Power Off"), 0);
    EXPECT_EQ(relay_list(0), "AC Power Off#2 !DC Power Off#3");
    EXPECT_EQ(ask(u, 35, 0, 0, "!AC Power Off"), -1);
    EXPECT_EQ(ask(u, 16, gpi, 0, "Stop"), 0);
    EXPECT_EQ(first_trigger(gpi), "(null)#-1");
    EXPECT_EQ(port_handlers(gpi), "Record#0 !Play#1");
    EXPECT_EQ(ask(u, 25, 0, 0, "!PTP Sync Lost"), 0);
    EXPECT_EQ(port_list(vgpio), "!PTP Sync Lost#4");
}
