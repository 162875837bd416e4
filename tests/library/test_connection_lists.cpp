// The lists of triggers: reading them from the file, replacing them from texts, and what follows each change in its order.
#include "grid_test.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

void describe(unit &u)
{
    u.gpis(2).relays(2).virtuals(1).buttons(1);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "").set("physical/gpio_0/invert_trigger", "");
}

struct exchange_case {
    const char *ids, *inverts, *result;
};

/// What the texts give on every kind of owner.
const exchange_case exchange_cases[] = {
    {"0", "0", "Eth Link Down#0"},
    {"3,250,4", "1,1,0", "!DC Power Off#3 PTP Sync Lost#4"},
    {"4,3", "0,1", "PTP Sync Lost#4 !DC Power Off#3"},
    {"null", "0", ""},
    {"0", "null", ""},
    {"null", "null", ""},
    {nullptr, "0", ""},
    {"0", nullptr, ""},
    {"", "", ""},
    {"", "1", ""},
    {"3", "", ""},
    {",,,", "1,1", ""},
    {",3,,4,", "1,0", "!DC Power Off#3 PTP Sync Lost#4"},
    {"3,4", ",1,,0,", "!DC Power Off#3 PTP Sync Lost#4"},
    {"3,4", "1", "!DC Power Off#3"},
    {"3", "1,0,1", "!DC Power Off#3"},
    {"3,3", "0,1", "DC Power Off#3 !DC Power Off#3"},
    {"-1,3", "1,0", "DC Power Off#3"},
    {"199,3", "1,0", "DC Power Off#3"},
    {"200,3", "1,0", "DC Power Off#3"},
    {"4294967299", "0", ""},
    {"-4294967293", "0", ""},
    {"18446744073709551619", "0", ""},
    {"99999999999999999999999999", "0", ""},
    {"3,4,2", "2,-1,x", "!DC Power Off#3 !PTP Sync Lost#4 AC Power Off#2"},
    {"3,4", "4294967296,00", "!DC Power Off#3 PTP Sync Lost#4"},
};

}  // namespace

// ---- Reading at start-up ----

TEST(saved_lists, are_read_with_their_inverts_and_put_their_triggers_on_the_grid)
{
    unit u;
    u.gpis(1).relays(1).virtuals(1).buttons(1);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down, On Air");
    u.set("physical/gpio_0/invert_trigger", "1, 0");
    u.set("virtual/vgpio_0/type", 2).set("virtual/vgpio_0/trigger", "AoIP Link Down").set("virtual/vgpio_0/invert_trigger", "7");
    u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "AC Power Off, , GPI 1");
    u.set("user_buttons/led_1/invert_trigger", "1, 1, 1");
    u.set("relay/relay_0/triggers", "DC Power Off, DC Power Off").set("relay/relay_0/trigger_invert", "0, 1");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(port_list(0), "!Eth Link Down#0 On Air#-1");
    EXPECT_EQ(port_list(1), "!AoIP Link Down#1");
    EXPECT_EQ(port_list(3), "!AC Power Off#2 !#-1 !GPI 1#5");
    EXPECT_EQ(relay_list(0), "DC Power Off#3 !DC Power Off#3");
    for (int32_t id = 0; id < 8; ++id)
        EXPECT_EQ(trigger_list[id].on_grid, id < 4 || id == 5) << id;
    EXPECT_LINES(u.journal_of("json set"), "json set gpio/physical/phys_gpio_count 1", "json set gpio/relay/relay_count 1",
                 "json set gpio/virtual/virtual_gpio_count 1");
}

TEST(saved_lists, without_inverts_an_input_is_completed_and_keeps_all_that_the_file_said)
{
    unit u;
    u.gpis(1).virtuals(1).buttons(1).set("on_grid_handlers", "Play, Other").set("on_grid_triggers", "Door");
    for (const char *object : {"physical/gpio_0", "virtual/vgpio_0", "user_buttons/btn_1"})
        u.set(object + std::string("/type"), 1).set(object + std::string("/handler"), "Record, Play");
    u.set("physical/gpio_0/input_mode", 1).set("user_buttons/btn_1/input_mode", 1);
    u.set("virtual/vgpio_0/vgpo_src", "vGPO1@Studio 2");
    ASSERT_EQ(u.start(), 0);
    for (const int32_t port : {0, 1, 2})
        EXPECT_EQ(port_handlers(port), "Record#-1 Play#-1");
    for (const char *object : {"physical/gpio_0", "virtual/vgpio_0", "user_buttons/btn_1"}) {
        EXPECT_EQ(saved(u, object + std::string("/handler")), "\"Record, Play\"");
        EXPECT_EQ(saved(u, object + std::string("/handler_invert")), "\"0, 0\"");
        EXPECT_EQ(saved(u, object + std::string("/type")), "1");
    }
    EXPECT_EQ(saved(u, "physical/gpio_0/input_mode"), "1");
    EXPECT_EQ(saved(u, "virtual/vgpio_0/vgpo_src"), "\"vGPO1@Studio 2\"");
    EXPECT_EQ(saved(u, "user_buttons/btn_1/input_mode"), "1");
    EXPECT_EQ(saved(u, "on_grid_handlers"), "\"Play, Other\"") << "the host has registered nothing yet";
    EXPECT_EQ(saved(u, "on_grid_triggers"), "\"Door\"");
    EXPECT_STREQ(zel::gpios[1].vgpo_src, "vGPO1@Studio 2");
    EXPECT_EQ(zel::gpios[0].input_mode, 1u);
    u.handler("Other");
    EXPECT_EQ(handler_list[0].on_grid, 1);
}

TEST(saved_lists, without_inverts_an_output_and_a_relay_are_completed)
{
    unit u;
    u.gpis(1).relays(1).virtuals(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "Eth Link Down, On Air");
    u.set("relay/relay_0/triggers", "On Air, Eth Link Down").set_boolean("relay/relay_0/on_grid", false);
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(port_list(0), "Eth Link Down#0 On Air#-1");
    EXPECT_EQ(relay_list(0), "On Air#-1 Eth Link Down#0");
    EXPECT_EQ(saved(u, "physical/gpio_0/trigger"), "\"Eth Link Down, On Air\"");
    EXPECT_EQ(saved(u, "physical/gpio_0/invert_trigger"), "\"0, 0\"");
    EXPECT_EQ(saved(u, "relay/relay_0/triggers"), "\"On Air, Eth Link Down\"");
    EXPECT_EQ(saved(u, "relay/relay_0/trigger_invert"), "\"0, 0\"");
    EXPECT_EQ(saved(u, "relay/relay_0/on_grid"), "false");
}

TEST(saved_lists, of_values_that_are_no_texts_are_empty)
{
    unit u;
    u.gpis(1).relays(1).set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", 7);
    u.set_json("physical/gpio_0/invert_trigger", "[1]");
    u.set_json("relay/relay_0/triggers", "{}").set("relay/relay_0/trigger_invert", 1);
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(port_list(0), "");
    EXPECT_EQ(relay_list(0), "");
}

// ---- Exchange texts ----

TEST(exchange_texts, give_a_port_its_list)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    for (const exchange_case &c : exchange_cases) {
        EXPECT_EQ(zel::set_gpio_trigger_list(0, c.ids, c.inverts, 0), 0);
        EXPECT_EQ(port_list(0), c.result) << (c.ids ? c.ids : "(null)") << " " << (c.inverts ? c.inverts : "(null)");
    }
}

TEST(exchange_texts, give_a_relay_its_list)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    for (const exchange_case &c : exchange_cases) {
        EXPECT_EQ(zel::set_relay_trigger_list(1, c.ids, c.inverts, 0), 0);
        EXPECT_EQ(relay_list(1), c.result) << (c.ids ? c.ids : "(null)") << " " << (c.inverts ? c.inverts : "(null)");
    }
}

TEST(exchange_texts, give_a_handler_its_list)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    for (const exchange_case &c : exchange_cases) {
        EXPECT_EQ(zel::set_handler_trigger_list(0, c.ids, c.inverts, 0), 0);
        EXPECT_EQ(handler_triggers(0), c.result) << (c.ids ? c.ids : "(null)") << " " << (c.inverts ? c.inverts : "(null)");
    }
}

TEST(exchange_texts, give_an_input_its_handlers)
{
    unit u;
    describe(u);
    u.set("physical/gpio_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    for (const char *name : {"A", "B", "C", "DC Power Off", "PTP Sync Lost"})
        u.handler(name);
    for (const exchange_case &c : exchange_cases) {
        std::string expected = c.result;
        for (const auto &[trigger, handler] : {std::pair{"Eth Link Down", "A"}, {"AC Power Off", "C"}})
            if (const size_t at = expected.find(trigger); at != std::string::npos)
                expected.replace(at, std::strlen(trigger), handler);
        EXPECT_EQ(zel::set_gpio_handler_list(1, c.ids, c.inverts, 0), 0);
        EXPECT_EQ(port_handlers(1), expected) << (c.ids ? c.ids : "(null)") << " " << (c.inverts ? c.inverts : "(null)");
    }
}

TEST(exchange_texts, a_rebuilt_list_counts_its_active_entries_anew)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.raise("DC Power Off");
    for (const auto &[ids, inverts, active] :
         {std::tuple{"3,4", "0,0", 1}, {"3,4", "0,1", 2}, {"3,4", "1,0", 0}, {"3,3,3", "0,0,1", 2}}) {
        EXPECT_EQ(zel::set_gpio_trigger_list(0, ids, inverts, 0), 0);
        EXPECT_EQ(zel::set_relay_trigger_list(0, ids, inverts, 0), 0);
        EXPECT_EQ(zel::set_handler_trigger_list(0, ids, inverts, 0), 0);
        EXPECT_EQ(zel::gpios[0].active_trigs, active) << ids << " " << inverts;
        EXPECT_EQ(zel::relays[0].active_trigs, active);
        EXPECT_EQ(handler_list[0].active_trigs, active);
        EXPECT_EQ(zel::gpios[0].state, active != 0);
        EXPECT_EQ(u.level(101), active != 0);
        EXPECT_EQ(u.level(201), active != 0);
        EXPECT_EQ(handler_list[0].state, active != 0);
    }
}

TEST(exchange_texts, names_are_those_of_the_registry_at_that_time)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    const int32_t id = u.trigger_id("On Air");
    ASSERT_EQ(zel::set_relay_trigger_list(0, std::to_string(id).c_str(), "1", 0), 0);
    ASSERT_EQ(zel_gpio_rename_trigger("On Air", "Live"), 0);
    ASSERT_EQ(relay_list(0), "!On Air#" + std::to_string(id));
    ASSERT_EQ(zel::set_trigger_connection(1, 1, 0, 0, 0), 0);
    EXPECT_EQ(relay_list(0), "Eth Link Down#0 !Live#" + std::to_string(id));
    EXPECT_EQ(saved(u, "relay/relay_0/triggers"), "\"Eth Link Down, Live\"");
}

// ---- What follows a change ----

TEST(list_change, of_an_output_is_saved_driven_published_and_sent)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "0,2", "1,0", 0), 0);
    EXPECT_LINES(u.take(), "log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 2)",
        "json set gpio/physical/gpio_0/type 2",
                 "json remove gpio/physical/gpio_0/handler (absent)", "json remove gpio/physical/gpio_0/trigger",
                 "json remove gpio/physical/gpio_0/invert_trigger", "json remove gpio/physical/gpio_0/input_mode (absent)",
                 "json set gpio/physical/gpio_0/trigger \"Eth Link Down, AC Power Off\"",
                 "json set gpio/physical/gpio_0/invert_trigger \"1, 0\"",
                 "json set gpio/on_grid_triggers \"Eth Link Down, AC Power Off\"", "json set gpio/on_grid_handlers \"\"",
                 "pin 101 write 1",
                 "ember set gpio/physical/gpio 1/type 2 (8 bytes)",
                 "ember set gpio/physical/gpio 1/input functions \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 1/output triggers \"!Eth Link Down, AC Power Off\" (29 bytes)",
                 "ember set gpio/physical/gpio 1/active triggers \"!Eth Link Down\" (15 bytes)",
                 "ember set gpio/physical/gpio 1/input mode 0 (8 bytes)", "ember set gpio/physical/gpio 1/status 1 (4 bytes)",
                 "ipc snmp send 7 (696 bytes)");
    EXPECT_LINES(told(u), "7 0");
}

TEST(list_change, of_an_output_that_came_through_the_tree_is_not_written_back_to_its_lists)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "2", "0", 1), 0);
    EXPECT_LINES(u.take_of("ember"), "ember set gpio/physical/gpio 1/type 2 (8 bytes)",
                 "ember set gpio/physical/gpio 1/active triggers \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 1/input mode 0 (8 bytes)",
                 "ember set gpio/physical/gpio 1/status 0 (4 bytes)");
    EXPECT_EQ(zel::set_relay_trigger_list(0, "2", "0", 1), 0);
    EXPECT_LINES(u.take_of("ember"), "ember set gpio/physical/relay 1/status 0 (4 bytes)",
                 "ember set gpio/physical/relay 1/active triggers \"\" (1 bytes)");
}

TEST(list_change, null_texts_empty_an_output_and_switch_it_off)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel::set_gpio_trigger_list(0, "0", "1", 0), 0);
    ASSERT_EQ(u.level(101), 1);
    u.take();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "null", "0", 0), 0);
    EXPECT_LINES(effects(u), "pin 101 write 0", "ipc snmp send 7 (696 bytes)");
    EXPECT_EQ(saved(u, "physical/gpio_0/trigger"), "\"\"");
    EXPECT_EQ(saved(u, "physical/gpio_0/invert_trigger"), "\"\"");
    EXPECT_EQ(zel::gpios[0].state, 0);
}

TEST(list_change, that_cannot_be_saved_drives_and_publishes_nothing)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.fail("json set gpio/physical/gpio_0/type").fail("json set gpio/relay/relay_0/trigger_invert");
    u.take();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "0", "1", 0), -1);
    EXPECT_EQ(zel::set_relay_trigger_list(0, "0", "1", 0), -1);
    EXPECT_LINES(fake::only(u.take(), {"pin", "ember", "ipc"}));
}

TEST(list_change, that_cannot_be_published_is_a_failure_but_the_agent_is_told)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.fail("ember set gpio/physical/gpio 1/status").fail("ember set gpio/physical/relay 1/active triggers");
    u.forget_sent();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "0", "1", 0), -1);
    EXPECT_EQ(zel::set_relay_trigger_list(0, "0", "1", 0), -1);
    EXPECT_LINES(told(u), "7 0", "11 0");
    EXPECT_EQ(u.level(101), 1);
    EXPECT_EQ(u.level(201), 1);
}

TEST(list_change, of_a_gpi_output_leaves_a_level_that_udp_commands_drive)
{
    unit u;
    describe(u);
    u.udp(true);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel_gpio_set_udp_pin(0, 1), 1);
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "0", "0", 0), 0);
    EXPECT_EQ(zel::gpios[0].state, 1);
    EXPECT_EQ(zel::gpios[0].active_trigs, 0);
    EXPECT_LINES(u.take_of("pin"));
    EXPECT_LINES(told(u), "7 0");
    EXPECT_EQ(zel::set_relay_trigger_list(0, "0", "1", 0), 0);
    EXPECT_EQ(u.level(201), 1) << "relays are no business of UDP commands";
    u.udp(false);
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "0", "0", 0), 0);
    EXPECT_LINES(u.take_of("pin 101"), "pin 101 write 0");
}

TEST(list_change, of_a_virtual_output_sets_its_level)
{
    unit u;
    describe(u);
    u.udp(true).set("virtual/vgpio_0/type", 2);
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_gpio_trigger_list(2, "0", "1", 0), 0);
    EXPECT_EQ(zel::gpios[2].state, 1);
    EXPECT_LINES(effects(u), "ipc snmp send 8 (696 bytes)");
    EXPECT_LINES(told(u), "8 0");
}

TEST(list_change, of_an_led_evaluates_its_handler)
{
    unit u;
    describe(u);
    u.set("user_buttons/led_1/type", 2);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.led_handler(0), 0);
    u.take();
    EXPECT_EQ(zel::set_gpio_trigger_list(4, "0,1", "1,1", 0), 0);
    EXPECT_LINES(effects(u), "callback User LED 1 source 4 state 1 context 0", "ipc snmp send 10 (696 bytes)");
    EXPECT_EQ(handler_list[0].active_trigs, 2);
    EXPECT_EQ(zel::gpios[4].state, 1);
    EXPECT_EQ(zel::set_gpio_trigger_list(4, "", "", 0), 0);
    EXPECT_LINES(effects(u), "callback User LED 1 source 4 state 0 context 0", "ipc snmp send 10 (696 bytes)");
    EXPECT_EQ(zel::gpios[4].state, 0);
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(list_change, of_a_relay_is_saved_driven_published_and_sent)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_relay_trigger_list(1, "4,0", "1,0", 0), 0);
    EXPECT_LINES(u.take(), "json set gpio/relay/relay_1/triggers \"PTP Sync Lost, Eth Link Down\"",
                 "json set gpio/relay/relay_1/trigger_invert \"1, 0\"", "pin 202 write 1",
                 "ember set gpio/physical/relay 2/output triggers \"PTP Sync Lost, Eth Link Down\" (29 bytes)",
                 "ember set gpio/physical/relay 2/status 1 (4 bytes)",
                 "ember set gpio/physical/relay 2/active triggers \"\" (1 bytes)",
                 "ipc snmp send 11 (416 bytes)");
    EXPECT_LINES(told(u), "11 1");
}

TEST(list_change, of_a_relay_without_a_pin_is_kept_and_sent)
{
    unit u;
    describe(u);
    u.ember().fail("pin 201 open");
    (void)u.start();
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_relay_trigger_list(0, "0", "1", 0), 0);
    EXPECT_EQ(relay_list(0), "!Eth Link Down#0");
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(saved(u, "relay/relay_0/triggers"), "\"Eth Link Down\"");
    EXPECT_LINES(told(u), "11 0");
}

TEST(list_change, of_a_handler_is_saved_and_calls_it_every_time)
{
    unit u;
    describe(u);
    u.set("on_grid_handlers", "Lamp");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_handler_trigger_list(0, "0", "1", 0), 0);
    EXPECT_LINES(u.take(), "log 2 update_handler_json: Updating json entry: 'Lamp'",
                 "json set gpio/handler_info/Lamp/triggers \"Eth Link Down\"",
                 "json set gpio/handler_info/Lamp/trigger_inverts \"1\"",
                 "callback Lamp source 0 state 1 context 0");
    EXPECT_EQ(zel::set_handler_trigger_list(0, "0", "1", 0), 0);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 0");
    EXPECT_EQ(zel::set_handler_trigger_list(0, "null", "null", 0), 0);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 0 context 0");
    EXPECT_LINES(told(u));
}

TEST(list_change, of_a_handler_that_an_input_asserts_leaves_it_on)
{
    unit u;
    describe(u);
    u.set("physical/gpio_1/type", 1).set("physical/gpio_1/handler", "Lamp").set("physical/gpio_1/handler_invert", "1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take();
    EXPECT_EQ(zel::set_handler_trigger_list(0, "0", "0", 0), 0);
    EXPECT_LINES(u.take_of("callback"), "callback Lamp source 0 state 1 context 0");
    EXPECT_EQ(handler_list[0].active_trigs, 0);
}

TEST(list_change, of_a_handler_that_is_not_in_the_file_is_kept_in_memory)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take();
    EXPECT_EQ(zel::set_handler_trigger_list(0, "0", "1", 0), 0);
    EXPECT_LINES(u.take(), "callback Lamp source 0 state 1 context 0");
    EXPECT_EQ(handler_triggers(0), "!Eth Link Down#0");
}

TEST(list_change, of_a_handler_with_no_such_id_is_refused)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    for (const int32_t id : {-1, 200, 201})
        EXPECT_EQ(zel::set_handler_trigger_list(id, "0", "1", 0), -1);
    EXPECT_LINES(u.take(), "log 0 set_handler_trigger_list: handler id -1 not found",
                 "log 0 set_handler_trigger_list: handler id 200 not found",
                 "log 0 set_handler_trigger_list: handler id 201 not found");
}

TEST(list_change, of_an_inputs_handlers_is_saved_evaluated_published_and_sent)
{
    unit u;
    describe(u);
    u.ember().set("physical/gpio_1/type", 1).set("physical/gpio_1/input_mode", 1).set_level(2, 1);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::set_gpio_handler_list(1, "1,0", "0,1", 0), 0);
    EXPECT_LINES(u.take(), "log 4 update_gpio_json: Updating json entry: 'gpio_1' (new type = 1)",
        "json set gpio/physical/gpio_1/type 1",
                 "json remove gpio/physical/gpio_1/handler", "json remove gpio/physical/gpio_1/trigger (absent)",
                 "json remove gpio/physical/gpio_1/invert_trigger (absent)", "json remove gpio/physical/gpio_1/input_mode",
                 "json set gpio/physical/gpio_1/handler \"Play, Record\"",
                 "json set gpio/physical/gpio_1/handler_invert \"0, 1\"",
                 "json set gpio/physical/gpio_1/input_mode 1", "json set gpio/on_grid_triggers \"\"",
                 "json make gpio/handler_info/Record",
                 "json make gpio/handler_info/Play", "json set gpio/on_grid_handlers \"Record, Play\"",
                 "callback Play source 1 state 1 context 1", "callback Record source 1 state 0 context 1",
                 "ember set gpio/physical/gpio 2/type 1 (8 bytes)",
                 "ember set gpio/physical/gpio 2/input functions \"Play, Record\" (13 bytes)",
                 "ember set gpio/physical/gpio 2/output triggers \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 2/active triggers \"\" (1 bytes)",
                 "ember set gpio/physical/gpio 2/input mode 1 (8 bytes)", "ember set gpio/physical/gpio 2/status 1 (4 bytes)",
                 "ipc snmp send 7 (696 bytes)");
    EXPECT_LINES(told(u), "7 1");
}

TEST(list_change_death, owners_that_do_not_exist_are_programming_errors)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    EXPECT_DEATH(zel::set_gpio_trigger_list(5, "0", "0", 0), "index < total_gpio_count");
    EXPECT_DEATH(zel::set_gpio_trigger_list(-1, "0", "0", 0), "index < total_gpio_count");
    EXPECT_DEATH(zel::set_gpio_handler_list(5, "0", "0", 0), "index < total_gpio_count");
    EXPECT_DEATH(zel::set_relay_trigger_list(2, "0", "0", 0), "index < relay_count");
}

TEST(list_change_death, there_must_be_tables)
{
    unit u;
    EXPECT_DEATH(zel::set_gpio_trigger_list(0, "0", "0", 0), "gpios != NULL");
    EXPECT_DEATH(zel::set_gpio_handler_list(0, "0", "0", 0), "gpios != NULL");
    EXPECT_DEATH(zel::set_relay_trigger_list(0, "0", "0", 0), "relays != NULL");
}
