// The steps of start-up one by one: what each kind of port reads and drives, and how a step that fails ends it.
#include <cstdio>

#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "library_allocations.h"
#include "lifecycle_units.h"
#include "zel_gpio/records.h"

using fake::lines;
using fake::unit;

namespace {

void expect_all_released(const unit &unit)
{
    EXPECT_EQ(unit.open_pins(), 0);
    EXPECT_FALSE(unit.has_client("sdisc"));
    EXPECT_FALSE(unit.has_client("snmp"));
    EXPECT_EQ(unit.consumers(), std::vector<int>{});
    EXPECT_FALSE(unit.file_is_open());
    EXPECT_EQ(fake::allocations_held(), 0U);
}

/// Ports of all modes and polarities: 0 momentary low, 1 latching low, 2 latching high, 3 momentary high, 4 cough low.
void inputs_of_all_kinds(unit &unit)
{
    unit.gpi(1, 101, true).gpi(2, 102, true).gpi(3, 103).gpi(4, 104).cough(5, true);
    for (int i = 0; i < 5; ++i)
        unit.set("physical/gpio_" + std::to_string(i) + "/type", 1)
            .set("physical/gpio_" + std::to_string(i) + "/handler_invert", "");
    unit.set("physical/gpio_0/input_mode", 1).set("physical/gpio_3/input_mode", 1);
}

int registered_triggers(const std::string &first_word)
{
    int count = 0;
    for (const trigger_t &t : trigger_list)
        count += t.name != nullptr && fake::begins_with(t.name, first_word);
    return count;
}

}  // namespace

TEST(initialisation, refuses_more_than_20_physical_ports)
{
    unit unit;
    unit.gpis(21);
    EXPECT_EQ(unit.start(), -1);
    EXPECT_TRUE(unit.logged("0 init_phys_gpio: Too many physical gpios to map - 21/20"));
    EXPECT_TRUE(unit.logged("0 zel_gpio_init: init_phys_gpio failed"));
    EXPECT_EQ(unit.count_of("pin"), 0);
    EXPECT_EQ(unit.count_of("web"), 0);
}

TEST(initialisation, takes_20_physical_ports)
{
    unit unit;
    unit.gpis(12).coughs(8);
    EXPECT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::total_gpio_count, 20);
    EXPECT_EQ(zel::gpi_count, 12);
    EXPECT_EQ(zel::cough_count, 8);
}

TEST(initialisation, without_a_pin_table_for_its_count_builds_nothing_and_succeeds)
{
    unit unit;
    unit.gpis(2).null_phys_cfg();
    EXPECT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.take(), (lines{"json init", "log 0 zel_gpio_init: phys_cfg is NULL"}));
    EXPECT_EQ(zel::total_gpio_count, 0);
}

TEST(initialisation, without_a_pin_table_for_a_count_of_0_goes_on)
{
    unit unit;
    unit.null_phys_cfg().virtuals(1);
    EXPECT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("2 init_phys_gpio: No physical gpio"));
    EXPECT_EQ(zel::total_gpio_count, 1);
}

TEST(initialisation, without_a_configuration_file_builds_nothing_and_succeeds)
{
    unit unit;
    fake::one_of_everything(unit);
    unit.ember().fail("json open");
    EXPECT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 zel_gpio_init: Failed to initialise /mnt/data/config/config.json"));
    EXPECT_EQ(fake::without(unit.take(), {"json", "log"}), lines{});
    EXPECT_EQ(zel::total_gpio_count, 0);
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), -1);
    unit.stop();
    expect_all_released(unit);
}

TEST(initialisation, ends_with_the_step_that_fails_and_the_host_can_release_what_was_built)
{
    const struct { const char *fault; int32_t result; const char *message, *last_message; bool web; } rows[] = {
        {"ember add gpio", -1, "0 init_gpio_ember_tree: Failed to create gpio node",
         "0 zel_gpio_init: Failed to initialise ember tree", false},
        {"ipc sdisc init", -1, "0 sdisc_init: Failed to setup zel_sdiscd ipc client for zel_gpio",
         "0 zel_gpio_init: Failed to setup sdisc", false},
        {"ipc sdisc send 7", -1, "0 sdisc_init: Failed to send lookup request to zel_sdiscd",
         "0 zel_gpio_init: Failed to setup sdisc", false},
        {"ember add gpio/physical/gpio 1", -1, "0 add_gpio_to_ember_tree: Failed to add new ember node: 'gpio 1'",
         "0 zel_gpio_init: init_phys_gpio failed", false},
        {"ember add gpio/physical/relay 1", -1, "0 add_relay_to_ember_tree: Failed to add new ember node: 'relay 1'",
         "0 zel_gpio_init: init_relays failed", false},
        {"ember add gpio/virtual/vgpio 1", -1, "0 add_gpio_to_ember_tree: Failed to add new ember node: 'vgpio 1'",
         "0 zel_gpio_init: init_vgpio failed", false},
        {"json load gpio/user_buttons/led_1", -1, "0 init_user_buttons: Failed to load json object: user_buttons->led_1",
         "0 zel_gpio_init: init_user_buttons failed", false},
        {"web add /cgi/gpioGrid.cgi", -1, "0 zel_gpio_init: Failed to add web URL handler (1)", "", true},
        {"web add /cgi/gpioConn.cgi", -1, "0 zel_gpio_init: Failed to add web URL handler (2)", "", true},
        {"ipc snmp init", 0, "0 snmp_init: Failed to setup snmp ipc client for zel_gpio", "0 zel_gpio_init: Failed to setup snmp",
         true},
    };
    for (const auto &row : rows) {
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            fake::one_of_everything(unit);
            unit.ember().fail(row.fault);
            EXPECT_EQ(unit.start(), row.result) << row.fault;
            EXPECT_TRUE(unit.fault_fired());
            EXPECT_TRUE(unit.logged(row.message)) << fake::joined(unit.journal_of("log 0"));
            const std::string last = *row.last_message != 0 ? row.last_message : row.message;
            EXPECT_EQ(unit.journal_of("log 0").back(), "log " + last);
            EXPECT_EQ(unit.count_of("web") > 0, row.web);
            EXPECT_EQ(unit.has_client("snmp"), false);
            unit.stop();
            expect_all_released(unit));
    }
}

TEST(initialisation, ends_with_the_step_that_fails_on_a_unit_without_a_provider)
{
    const struct { const char *fault, *message, *last_message; } rows[] = {
        {"json load gpio/physical/gpio_1", "0 init_phys_gpio: Failed to load json object: physical->gpio_1",
         "0 zel_gpio_init: init_phys_gpio failed"},
        {"pin 1 open", "0 init_phys_gpio: Failed to open gpio 1", "0 zel_gpio_init: init_phys_gpio failed"},
        {"pin 1 active_low", "0 init_phys_gpio: Failed to set active_low property for gpio 1",
         "0 zel_gpio_init: init_phys_gpio failed"},
        {"pin 102 open", "0 init_phys_gpio: Failed to open gpio 102", "0 zel_gpio_init: init_phys_gpio failed"},
        {"pin 102 active_low", "0 init_phys_gpio: Failed to set active_low property for gpio 102",
         "0 zel_gpio_init: init_phys_gpio failed"},
        {"json load gpio/relay/relay_0", "0 init_relays: Failed to load json object: relays->relay_0",
         "0 zel_gpio_init: init_relays failed"},
        {"pin 201 open", "0 init_relays: Failed to open relay 201", "0 zel_gpio_init: init_relays failed"},
        {"json load gpio/virtual/vgpio_0", "0 init_vgpio: Failed to load json object: virtual->vgpio_0",
         "0 zel_gpio_init: init_vgpio failed"},
        {"json load gpio/user_buttons/btn_1", "0 init_user_buttons: Failed to load json object: user_buttons->btn_1",
         "0 zel_gpio_init: init_user_buttons failed"},
    };
    for (const auto &row : rows) {
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            fake::one_of_everything(unit);
            unit.fail(row.fault);
            EXPECT_EQ(unit.start(), -1) << row.fault;
            EXPECT_TRUE(unit.logged(row.message)) << fake::joined(unit.journal_of("log 0"));
            EXPECT_EQ(unit.journal_of("log 0").back(), std::string("log ") + row.last_message);
            EXPECT_EQ(unit.count_of("web"), 0);
            unit.stop();
            expect_all_released(unit));
    }
}

TEST(initialisation, reports_tables_that_cannot_be_allocated)
{
    const char *const messages[] = {"0 zel_gpio_init: Failed to allocate memory for physical, virtual and user button GPIO info",
                                    "0 init_relays: Failed to allocate memory for relay info"};
    int seen[2] = {};
    for (int nth = 0; nth < 12; ++nth) {
        const fake::child_result start = fake::in_child([&] {
            unit unit;
            unit.relays(2).virtuals(1);
            fake::fail_allocation(nth);
            const int32_t result = unit.start();
            fake::fail_allocation(-1);
            std::fputs(fake::joined(unit.journal_of("log 0")).c_str(), stderr);
            EXPECT_TRUE(result == -1 || (!unit.logged(messages[0]) && !unit.logged(messages[1])));
            unit.stop();
            expect_all_released(unit);
        });
        EXPECT_EQ(start.exit_status, 0) << start.output;
        for (int i = 0; i < 2; ++i)
            seen[i] += start.output.find(messages[i]) != std::string::npos;
    }
    EXPECT_GE(seen[0], 1);
    EXPECT_GE(seen[1], 1);
}

TEST(a_port_without_its_settings_object, does_not_keep_the_others_from_working_on_a_unit_with_a_provider)
{
    unit unit;
    unit.ember().gpis(4).relays(1).virtuals(2).buttons(1).fail("json load gpio/physical/gpio_2");
    for (int i = 0; i < 4; ++i)
        unit.set("physical/gpio_" + std::to_string(i) + "/type", i == 3 ? 1 : 2);
    unit.set_json("physical/gpio_3", R"({"type": 1, "input_mode": 1, "handler": "Record", "handler_invert": "0"})");
    unit.set("physical/gpio_0/trigger", "GPI 4").set("physical/gpio_0/invert_trigger", "0");
    unit.set_json("user_buttons/btn_1", R"({"type": 1, "handler": "Mute", "handler_invert": "0"})");
    unit.set_json("user_buttons/led_1", R"({"type": 2, "trigger": "GPI 4", "invert_trigger": "0"})");
    EXPECT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 init_phys_gpio: Failed to load json object: physical->gpio_2"));
    unit.handler("Record"), unit.handler("Mute"), unit.led_handler(0);
    EXPECT_FALSE(unit.is_open(3));
    unit.take();
    unit.edge(4, 1);
    EXPECT_EQ(unit.journal_of("callback Record"), lines{"callback Record source 3 state 1 context 1"});
    EXPECT_EQ(unit.level(101), 1);
    EXPECT_EQ(unit.take_of("callback User").size(), 1U);
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(unit.take_of("callback Mute"), lines{"callback Mute source 6 state 1 context 0"});
    EXPECT_EQ(unit.json("gpio/physical/phys_gpio_count"), "4");
}

TEST(a_port_without_its_settings_object, leaves_the_last_virtual_port_unused)
{
    unit unit;
    unit.ember().gpis(2).virtuals(3).fail("json load gpio/physical/gpio_0");
    EXPECT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::total_gpio_count, 4);
    EXPECT_EQ(unit.parameter_of("gpio/virtual/vgpio 2").exists, true);
    EXPECT_EQ(unit.parameter_of("gpio/virtual/vgpio 3").exists, false);
    EXPECT_EQ(registered_triggers("vGPI"), 2);
}

TEST(a_port_without_its_settings_object, ends_start_up_on_a_unit_without_a_provider)
{
    unit unit;
    unit.gpis(4).fail("json load gpio/physical/gpio_1");
    for (int i = 0; i < 4; ++i)
        unit.set("physical/gpio_" + std::to_string(i) + "/type", 1);
    EXPECT_EQ(unit.start(), -1);
    EXPECT_TRUE(unit.is_open(1));
    EXPECT_FALSE(unit.is_open(3));   // the ports behind it were not reached
}

TEST(a_virtual_port_without_its_settings_object, does_not_keep_the_others_from_working_on_a_unit_with_a_provider)
{
    unit unit;
    unit.ember()
        .virtuals(3)
        .fail("json load gpio/virtual/vgpio_1")
        .set("virtual/vgpio_2/type", 2)
        .set("virtual/vgpio_2/trigger", "Eth Link Down");
    EXPECT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 init_vgpio: Failed to load json object: virtual->vgpio_1"));
    unit.raise("Eth Link Down");
    EXPECT_EQ(unit.value_of("gpio/virtual/vgpio 3/status"), "1");
}

TEST(an_input, has_the_edge_of_its_mode_and_polarity)
{
    unit unit;
    inputs_of_all_kinds(unit);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.take_of("pin"),
              (lines{"pin 1 open 0", "pin 1 active_low 1", "pin 1 edge 3", "pin 1 read 0", "pin 2 open 0", "pin 2 active_low 1",
                     "pin 2 edge 1", "pin 3 open 0", "pin 3 active_low 0", "pin 3 edge 2", "pin 4 open 0", "pin 4 active_low 0",
                     "pin 4 edge 3", "pin 4 read 0", "pin 5 open 0", "pin 5 active_low 1", "pin 5 edge 3", "pin 5 read 0"}));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(zel::gpios[i].ignore_irq, 0) << i;   // only a change of type sets the flag
}

TEST(an_input, that_is_momentary_starts_at_its_pins_level_and_announces_it_while_a_latching_one_starts_at_0)
{
    unit unit;
    inputs_of_all_kinds(unit);
    for (int pin = 1; pin <= 5; ++pin)
        unit.set_level(pin, 1);
    ASSERT_EQ(unit.start(), 0);
    const int states[] = {1, 0, 0, 1, 1};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(zel::gpios[i].state, states[i]) << i;
        EXPECT_EQ(trigger_list[5 + i].state, states[i]) << i;
    }
    EXPECT_EQ(fake::only(unit.take(), {"log 2 zel_gpio_notify_trigger_event:"}),
              (lines{"log 2 zel_gpio_notify_trigger_event: event 'GPI 1' has occurred",
                     "log 2 zel_gpio_notify_trigger_event: event 'GPI 4' has occurred",
                     "log 2 zel_gpio_notify_trigger_event: event 'COUGH 1' has occurred"}));
}

TEST(an_input, that_udp_commands_drive_starts_at_0_and_its_pin_is_not_read)
{
    unit unit;
    inputs_of_all_kinds(unit);
    for (int pin = 1; pin <= 5; ++pin)
        unit.set_level(pin, 1);
    unit.udp(true);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(fake::only(unit.journal(), {"pin 1 read", "pin 4 read"}), lines{});
    EXPECT_EQ(zel::gpios[0].state, 0);
    EXPECT_EQ(zel::gpios[3].state, 0);
    EXPECT_EQ(zel::gpios[4].state, 1);   // cough ports are not driven by UDP commands
    EXPECT_EQ(unit.count_of("pin 1 edge 3"), 1);
}

TEST(an_input, owns_its_trigger_as_entry_0)
{
    unit unit;
    unit.gpis(1).coughs(1).virtuals(1).buttons(1);
    for (const char *const port : {"physical/gpio_0", "physical/gpio_1", "virtual/vgpio_0", "user_buttons/btn_1"})
        unit.set(std::string(port) + "/type", 1);
    ASSERT_EQ(unit.start(), 0);
    const char *const names[] = {"GPI 1", "COUGH 1", "vGPI 1", "User Button 1"};
    for (int i = 0; i < 4; ++i) {
        EXPECT_STREQ(zel::gpios[i].trigger_names[0], names[i]);
        EXPECT_EQ(zel::gpios[i].trig_ids[0], 5 + i);
        EXPECT_EQ(zel::gpios[i].num_trigs, i < 3 ? 1 : 0);   // a button fills the entry but does not count it
    }
}

TEST(an_output, is_driven_to_the_level_of_its_list)
{
    unit unit;
    unit.gpis(4);
    const char *const lists[][2] = {
        {"Eth Link Down", "0"}, {"Eth Link Down", "1"}, {"Nobody", "1"}, {"Nobody, Eth Link Down, AC Power Off", "0, 0, 1"}};
    for (int i = 0; i < 4; ++i) {
        const std::string port = "physical/gpio_" + std::to_string(i);
        unit.set(port + "/type", 2).set(port + "/trigger", lists[i][0]).set(port + "/invert_trigger", lists[i][1]);
    }
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.take_of("pin"), (lines{"pin 101 open 2", "pin 101 active_low 0", "pin 101 write 0", "pin 102 open 2",
                                          "pin 102 active_low 0", "pin 102 write 1", "pin 103 open 2", "pin 103 active_low 0",
                                          "pin 103 write 0", "pin 104 open 2", "pin 104 active_low 0", "pin 104 write 1"}));
    EXPECT_EQ(zel::gpios[1].state, 1);
    EXPECT_EQ(zel::gpios[2].state, 0);
}

TEST(an_output, with_an_empty_list_is_not_written)
{
    unit unit;
    unit.ember().gpi(1, 101, false, true).virtuals(1).set("physical/gpio_0/type", 2);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(fake::without(unit.take_of("pin"), {"pin 101 read"}), (lines{"pin 101 open 2", "pin 101 active_low 1"}));
}

TEST(an_output, that_udp_commands_drive_starts_at_its_udp_value)
{
    unit unit;
    unit.gpis(1)
        .udp(true)
        .set("physical/gpio_0/type", 2)
        .set("physical/gpio_0/trigger", "Eth Link Down")
        .set("physical/gpio_0/invert_trigger", "1");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.level(101), 0);
    EXPECT_EQ(zel::gpios[0].state, 0);
    EXPECT_EQ(zel::gpios[0].active_trigs, 1);
    EXPECT_EQ(unit.count_of("pin 101 write 1"), 0);
}

TEST(an_output, whose_pin_does_not_open_has_its_list_and_does_not_stop_events_on_a_unit_with_a_provider)
{
    unit unit;
    unit.ember().gpis(2).virtuals(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down");
    unit.set("physical/gpio_0/invert_trigger", "0").fail("pin 101 open");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 init_phys_gpio: Failed to open gpio 101"));
    EXPECT_EQ(zel::gpios[0].num_trigs, 1);
    unit.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[0].active_trigs, 1);
    EXPECT_EQ(unit.value_of("gpio/physical/gpio 1/status"), "1");
}

TEST(a_relay, is_driven_to_the_level_of_its_list_and_left_alone_without_one)
{
    unit unit;
    unit.relays(3, 40).set("relay/relay_0/triggers", "Eth Link Down").set("relay/relay_0/trigger_invert", "1");
    unit.set("relay/relay_1/triggers", "Eth Link Down").set("relay/relay_1/trigger_invert", "0");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.take_of("pin"),
              (lines{"pin 40 open 2", "pin 40 write 1", "pin 41 open 2", "pin 41 write 0", "pin 42 open 2"}));
}

TEST(a_relay, whose_pin_does_not_open_does_not_stop_the_unit)
{
    unit unit;
    unit.ember().relays(2).virtuals(1).fail("pin 201 open");
    for (const char *const relay : {"relay/relay_0", "relay/relay_1"})
        unit.set_json(relay, R"({"triggers": "Door, Eth Link Down", "trigger_invert": "0, 0"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 init_relays: Failed to open relay 201"));
    unit.trigger("Door");
    unit.raise("Door"), unit.raise("Eth Link Down"), unit.clear("Door");
    EXPECT_EQ(unit.level(202), 1);
    zel_gpio_deregister_trigger("Door");
    unit.clear("Eth Link Down");
    EXPECT_EQ(unit.level(202), 0);
}

TEST(a_virtual_output, puts_its_triggers_on_the_grid_and_has_the_level_of_its_list)
{
    unit unit;
    unit.virtuals(2).set_json("virtual/vgpio_0",
                              R"({"type": 2, "trigger": "Eth Link Down, AC Power Off", "invert_trigger": "0, 1"})");
    unit.set_json("virtual/vgpio_1", R"({"type": 2, "trigger": "Eth Link Down", "invert_trigger": "0"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(zel::gpios[0].active_trigs, 1);
    EXPECT_EQ(zel::gpios[1].state, 0);
    EXPECT_EQ(trigger_list[0].on_grid, 1);
    EXPECT_EQ(trigger_list[2].on_grid, 1);
    EXPECT_EQ(unit.sent("sdisc", 9).size(), 0U);   // announced on a unit with a provider only
}

TEST(a_virtual_input, enters_its_source_in_the_list_of_remote_outputs)
{
    unit unit;
    unit.ember()
        .virtuals(3)
        .set("virtual/vgpio_0/type", 1)
        .set("virtual/vgpio_0/vgpo_src", "vGPO1@B")
        .set("virtual/vgpio_1/type", 1);
    unit.set("virtual/vgpio_1/vgpo_src", "").set("virtual/vgpio_2/type", 1).set("virtual/vgpio_2/vgpo_src", "vGPO1@B");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_STREQ(zel::gpios[0].vgpo_src, "vGPO1@B");
    EXPECT_EQ(zel::gpios[0].vgpo_src, zel::gpios[2].vgpo_src);
    EXPECT_EQ(zel::gpios[0].vgpo_src_valid, 0);
    EXPECT_EQ(zel::remote_vgpos.count, 1U);
    EXPECT_EQ(unit.value_of("gpio/virtual/vgpio 2/vgpio source"), "");
    EXPECT_EQ(unit.consumers(), std::vector<int>{});
}

TEST(a_user_led, has_one_handler_entry_that_is_bound_when_the_host_registers_it)
{
    unit unit;
    unit.buttons(2)
        .set("user_buttons/led_1/type", 2)
        .set("user_buttons/led_1/trigger", "Eth Link Down")
        .set("user_buttons/led_1/invert_trigger", "0");
    ASSERT_EQ(unit.start(), 0);
    for (const int32_t led : {1, 3}) {
        EXPECT_EQ(zel::gpios[led].num_handlers, 1);
        EXPECT_EQ(zel::gpios[led].handlers[0], nullptr);
    }
    EXPECT_STREQ(zel::gpios[1].handler_names[0], "User LED 1");
    EXPECT_STREQ(zel::gpios[3].handler_names[0], "User LED 2");
    const int32_t id = unit.led_handler(0);
    EXPECT_EQ(zel::gpios[1].handlers[0], &handler_list[id]);
    EXPECT_EQ(unit.count_of("json set gpio/user_buttons/led_2"), 0);
}

TEST(user_buttons, report_a_missing_button_object_and_go_on_with_its_led)
{
    unit unit;
    unit.ember().virtuals(1).buttons(2).fail("json load gpio/user_buttons/btn_1");
    EXPECT_EQ(unit.start(), -1);
    EXPECT_TRUE(unit.logged("0 init_user_buttons: Failed to load json object: user_buttons->btn_1"));
    EXPECT_EQ(zel::user_button_count, 2);
    EXPECT_EQ(zel::total_gpio_count, 5);
}

TEST(user_buttons, end_at_a_missing_led_object)
{
    unit unit;
    unit.ember().virtuals(1).buttons(2).fail("json load gpio/user_buttons/led_1");
    EXPECT_EQ(unit.start(), -1);
    EXPECT_TRUE(unit.logged("0 init_user_buttons: Failed to load json object: user_buttons->led_1"));
    EXPECT_EQ(zel::user_button_count, 1);
    EXPECT_EQ(zel::total_gpio_count, 1);
    EXPECT_EQ(unit.trigger_id("User Button 2"), -1);
}

TEST(initialisation, copies_the_pin_table)
{
    unit unit;   // start() gives the library a table of its own that is gone afterwards
    unit.gpi(1, 101, true, true).set("physical/gpio_0/type", 1);
    ASSERT_EQ(unit.start(), 0);
    unit.take();
    ASSERT_EQ(zel_gpio_set_pin_direction(0, 2), 1);
    EXPECT_EQ(fake::only(unit.take(), {"pin 101 open", "pin 101 active_low"}), (lines{"pin 101 open 2", "pin 101 active_low 1"}));
}

TEST(initialisation, without_a_parent_node_builds_no_tree_and_announces_nothing)
{
    unit unit;
    fake::one_of_everything(unit);
    unit.ember().without_parent();
    ASSERT_EQ(unit.start(), 0);
    unit.raise("Eth Link Down");
    unit.stop();
    EXPECT_EQ(unit.count_of("ember"), 0);
    EXPECT_EQ(unit.sent("sdisc", 9).size(), 0U);
}

TEST(a_failed_write_to_the_tree, at_start_up_does_not_keep_the_ports_behind_it_from_working)
{
    unit unit;
    unit.ember().gpis(3).virtuals(1);
    for (int i = 0; i < 3; ++i) {
        const std::string port = "physical/gpio_" + std::to_string(i);
        unit.set(port + "/type", 2).set(port + "/trigger", "Eth Link Down").set(port + "/invert_trigger", "1");
    }
    unit.fail("ember set gpio/physical/gpio 1/status");
    EXPECT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("0 set_gpio_ember_status: Failed to set gpio status ember parameter"));
    EXPECT_EQ(unit.level(102), 1);
    EXPECT_EQ(unit.level(103), 1);
    EXPECT_EQ(unit.parameter_of("gpio/virtual/vgpio 1").exists, true);
}

TEST(a_failed_write_to_the_tree, for_the_last_physical_port_is_the_result_of_its_step)
{
    unit unit;
    unit.ember().gpis(2).virtuals(1);
    for (int i = 0; i < 2; ++i) {
        const std::string port = "physical/gpio_" + std::to_string(i);
        unit.set(port + "/type", 2).set(port + "/trigger", "Eth Link Down").set(port + "/invert_trigger", "1");
    }
    unit.fail("ember set gpio/physical/gpio 2/status");
    EXPECT_EQ(unit.start(), -1);
    EXPECT_TRUE(unit.logged("0 zel_gpio_init: init_phys_gpio failed"));
    EXPECT_EQ(unit.level(102), 1);
}

TEST(a_failed_write_to_the_tree, for_a_relay_or_virtual_port_at_start_up_is_logged_only)
{
    unit unit;
    unit.ember().relays(2).virtuals(2);
    for (const char *const relay : {"relay/relay_0", "relay/relay_1"})
        unit.set_json(relay, R"({"triggers": "Eth Link Down", "trigger_invert": "1"})");
    for (const char *const port : {"virtual/vgpio_0", "virtual/vgpio_1"})
        unit.set_json(port, R"({"type": 2, "trigger": "Eth Link Down", "invert_trigger": "1"})");
    unit.fail("ember set");
    EXPECT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.level(201), 1);
    EXPECT_EQ(unit.level(202), 1);
    EXPECT_EQ(unit.sent("sdisc", 9).size(), 2U);
}

TEST(a_port_whose_settings_cannot_be_loaded, can_be_asked_by_a_controller)
{
    unit unit;
    unit.gpis(1).virtuals(1).ember().fail("json load gpio/virtual/vgpio_0", 1);
    ASSERT_EQ(unit.start(), 0);
    unit.write("gpio/virtual/vgpio 1/status", 1);
    EXPECT_EQ(unit.write("gpio/virtual/vgpio 1/type", 2), 0);
    EXPECT_EQ(unit.write("gpio/virtual/vgpio 1/output triggers", "Eth Link Down"), 0);
    EXPECT_EQ(unit.json("gpio/virtual/vgpio_0/trigger"), "\"Eth Link Down\"");
}

TEST(a_unit_without_physical_ports, corrects_the_count_in_the_file)
{
    unit unit;
    unit.set("physical/phys_gpio_count", 3);
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(zel_gpio_get_phys_gpio_count(), 0);
}

TEST(a_start_that_built_nothing, leaves_the_saved_lists_alone)
{
    unit unit;
    unit.set("on_grid_handlers", "Record").set("on_grid_triggers", "Door").fail("json load gpio/relay", 1);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Play");
    EXPECT_EQ(unit.trigger("Bell"), 0);
    EXPECT_EQ(zel_gpio_rename_trigger("Bell", "Door"), 0);
    EXPECT_EQ(zel_gpio_deregister_handler("Play"), 0);
    EXPECT_EQ(unit.json("gpio/on_grid_handlers"), "\"Record\"");
    EXPECT_EQ(unit.json("gpio/on_grid_triggers"), "\"Door\"");
    unit.stop();
    EXPECT_STREQ(trigger_list[0].name, "Eth Link Down");
    EXPECT_EQ(trigger_list[5].name, nullptr);
}
