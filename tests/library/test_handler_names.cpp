// Renaming and removing handlers, with all that follows in its order.
#include "grid_test.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

const std::string null_text = address(nullptr);

/// Port 0 drives the saved handlers; the handler Record has a list of its own.
void describe_input(unit &u, const char *handlers, const char *inverts)
{
    u.gpis(1).virtuals(1).relays(1).set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1);
    u.set("physical/gpio_0/handler", handlers).set("physical/gpio_0/handler_invert", inverts);
    u.set("on_grid_handlers", "Record").set("handler_info/Record/triggers", "Eth Link Down");
    u.set("handler_info/Record/trigger_inverts", "1");
}

}  // namespace

// ---- Renaming ----

TEST(handler_rename, follows_its_connections_in_this_order)
{
    unit u;
    describe_input(u, "Record, Play", "0, 1");
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take(), u.forget_sent();
    EXPECT_EQ(zel_gpio_rename_handler("Record", "Tape"), 0);
    EXPECT_LINES(u.take(), "json remove gpio/handler_info/Record", "ember set gpio/handlers/h-0 \"Tape\" (5 bytes)",
                 "log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 1)", "json set gpio/physical/gpio_0/type 1",
                 "json remove gpio/physical/gpio_0/handler", "json remove gpio/physical/gpio_0/trigger (absent)",
                 "json remove gpio/physical/gpio_0/invert_trigger (absent)", "json remove gpio/physical/gpio_0/input_mode",
                 "json set gpio/physical/gpio_0/handler \"Tape, Play\"", "json set gpio/physical/gpio_0/handler_invert \"0, 1\"",
                 "json set gpio/physical/gpio_0/input_mode 1", "json set gpio/on_grid_triggers \"Eth Link Down\"",
                 "json make gpio/handler_info/Tape", "json set gpio/on_grid_handlers \"Tape\"",
                 "log 2 update_handler_json: Updating json entry: 'Tape'",
                 "json set gpio/handler_info/Tape/triggers \"Eth Link Down\"",
                 "json set gpio/handler_info/Tape/trigger_inverts \"1\"", "ipc snmp send 13 (68 bytes)",
                 "json set gpio/on_grid_handlers \"Tape\"");
    EXPECT_LINES(told(u), "13 0 Tape");
    EXPECT_EQ(port_handlers(0), "Tape#0 !Play#-1");
    EXPECT_EQ(saved(u, "handler_info/Record"), "absent");
}

TEST(handler_rename, keeps_the_saved_list_of_a_handler_that_no_port_drives)
{
    unit u;
    describe_input(u, "", "");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    EXPECT_EQ(zel_gpio_rename_handler("Record", "Tape"), 0);
    EXPECT_EQ(saved(u, "handler_info/Tape/triggers"), "\"Eth Link Down\"");
    EXPECT_EQ(saved(u, "handler_info/Tape/trigger_inverts"), "\"1\"");
    EXPECT_EQ(saved(u, "handler_info/Record"), "absent");
    EXPECT_EQ(saved(u, "on_grid_handlers"), "\"Tape\"");
}

TEST(handler_rename, rewrites_a_port_for_each_of_its_entries)
{
    unit u;
    describe_input(u, "Record, Play, Record", "0, 0, 1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take();
    EXPECT_EQ(zel_gpio_rename_handler("Record", "Tape"), 0);
    EXPECT_EQ(port_handlers(0), "Tape#0 Play#-1 !Tape#0");
    EXPECT_EQ(saved(u, "physical/gpio_0/handler"), "\"Tape, Play, Tape\"");
}

TEST(handler_rename, names_that_are_missing_unknown_or_taken_change_nothing)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    u.take();
    const char *const name = "Tape";
    EXPECT_EQ(zel_gpio_rename_handler(nullptr, name), -1);
    EXPECT_EQ(zel_gpio_rename_handler(name, nullptr), -1);
    EXPECT_EQ(zel_gpio_rename_handler("Tape", "Disc"), -1);
    EXPECT_EQ(zel_gpio_rename_handler("Record", "Play"), -1);
    EXPECT_EQ(zel_gpio_rename_handler("Record", "Record"), -1) << "its own name is taken, too";
    EXPECT_LINES(u.take(), "log 0 zel_gpio_rename_handler: Invalid parameter: old_name = " + null_text + ", new_name = " +
        address(name),
                 "log 0 zel_gpio_rename_handler: Invalid parameter: old_name = " + address(name) + ", new_name = " + null_text,
                 "log 0 zel_gpio_rename_handler: Handler: 'Tape' not found",
                 "log 0 zel_gpio_rename_handler: Duplicate handler called 'Play' is already registered",
                 "log 0 zel_gpio_rename_handler: Duplicate handler called 'Record' is already registered");
    EXPECT_STREQ(handler_list[0].name, "Record");
}

TEST(handler_rename, may_be_given_the_librarys_own_text_as_the_old_name)
{
    unit u;
    describe_input(u, "Record", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    EXPECT_EQ(zel_gpio_rename_handler(handler_list[0].name, "Tape"), 0);
    EXPECT_STREQ(handler_list[0].name, "Tape");
    EXPECT_EQ(zel_gpio_rename_handler("Tape", zel::gpios[0].handler_names[0]), -1) << "that is its name already";
    EXPECT_EQ(zel_gpio_rename_handler("Tape", trigger_list[0].name), 0);
    EXPECT_EQ(port_handlers(0), "Eth Link Down#0");
}

TEST(handler_rename, a_tree_that_refuses_the_name_fails_it)
{
    unit u;
    describe_input(u, "Record", "0");
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take();
    u.fail("ember set gpio/handlers/h-0");
    EXPECT_EQ(zel_gpio_rename_handler("Record", "Tape"), -1);
    EXPECT_TRUE(u.logged("0 zel_gpio_rename_handler: Failed to set handler ember parameter"));
    EXPECT_EQ(u.handler_id("Tape"), 0);
}

TEST(handler_rename, its_connections_come_back_after_a_restart_under_the_new_name_only)
{
    unit u;
    describe_input(u, "Record", "1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    ASSERT_EQ(zel_gpio_rename_handler("Record", "Tape"), 0);
    u.take();
    ASSERT_EQ(u.handler("Record"), 1);
    EXPECT_EQ(handler_triggers(1), "");
    EXPECT_EQ(port_handlers(0), "!Tape#0");
    EXPECT_EQ(handler_list[1].on_grid, 0);
}

// ---- Removing ----

TEST(handler_removal, tells_the_agent_disconnects_and_forgets_in_this_order)
{
    unit u;
    describe_input(u, "Play, Record", "0, 0");
    u.ember().set_level(1, 1);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    ASSERT_EQ(zel::set_trigger_connection(2, 1, 0, 2, 0), 0);
    u.take(), u.forget_sent();
    EXPECT_EQ(zel_gpio_deregister_handler("Record"), 0);
    EXPECT_LINES(
        u.take(), "log 4 zel_gpio_deregister_handler: SENDING SNMP HANDLER INFO (index = 0, name = '')",
            "ipc snmp send 13 (68 bytes)",
        "callback Record source 0 state 1 context 1", "log 4 update_gpio_json: Updating json entry: 'gpio_0' (new type = 1)",
        "json set gpio/physical/gpio_0/type 1", "json remove gpio/physical/gpio_0/handler",
        "json remove gpio/physical/gpio_0/trigger (absent)",
        "json remove gpio/physical/gpio_0/invert_trigger (absent)", "json remove gpio/physical/gpio_0/input_mode",
        "json set gpio/physical/gpio_0/handler \"Play\"", "json set gpio/physical/gpio_0/handler_invert \"0\"",
        "json set gpio/physical/gpio_0/input_mode 1", "json set gpio/on_grid_triggers \"Eth Link Down, AC Power Off\"",
        "json make gpio/handler_info/Play", "json set gpio/on_grid_handlers \"Record, Play\"",
        "callback Play source 0 state 1 context 1",
        "ember set gpio/physical/gpio 1/type 1 (8 bytes)", "ember set gpio/physical/gpio 1/input functions \"Play\" (5 bytes)",
        "ember set gpio/physical/gpio 1/output triggers \"\" (1 bytes)",
        "ember set gpio/physical/gpio 1/active triggers \"\" (1 bytes)",
        "ember set gpio/physical/gpio 1/input mode 1 (8 bytes)", "ember set gpio/physical/gpio 1/status 1 (4 bytes)",
        "ipc snmp send 7 (696 bytes)", "log 2 update_handler_json: Updating json entry: 'Record'",
        "json set gpio/handler_info/Record/triggers \"AC Power Off\"", "json set gpio/handler_info/Record/trigger_inverts \"0\"",
        "callback Record source 0 state 0 context 0", "log 2 update_handler_json: Updating json entry: 'Record'",
        "json set gpio/handler_info/Record/triggers \"\"", "json set gpio/handler_info/Record/trigger_inverts \"\"",
        "callback Record source 0 state 0 context 0", "json remove gpio/handler_info/Record", "ember remove gpio/handlers/h-0",
        "json set gpio/on_grid_handlers \"Play\"");
    EXPECT_LINES(told(u), "13 0 ", "7 0");
}

TEST(handler_removal, clears_the_slot_but_keeps_id_and_state)
{
    unit u;
    u.set("on_grid_handlers", "B");
    ASSERT_EQ(u.start(), 0);
    u.handler("A"), u.handler("B");
    ASSERT_EQ(handler_list[1].on_grid, 1);
    ASSERT_EQ(zel_gpio_set_handler_state(1), 0);
    ASSERT_EQ(zel_gpio_deregister_handler("B"), 0);
    EXPECT_EQ(handler_list[1].name, nullptr);
    EXPECT_EQ(handler_list[1].func, nullptr);
    EXPECT_EQ(handler_list[1].arg, nullptr);
    EXPECT_EQ(handler_list[1].on_grid, 0);
    EXPECT_EQ(handler_list[1].id, 1);
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(u.handler_id("B"), -1);
    EXPECT_EQ(zel_gpio_deregister_handler("B"), -1);
}

TEST(handler_removal, a_name_that_is_missing_or_unknown_changes_nothing)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(zel_gpio_deregister_handler(nullptr), -1);
    EXPECT_EQ(zel_gpio_deregister_handler("Record"), -1);
    EXPECT_LINES(u.take(), "log 0 zel_gpio_deregister_handler: handler_name is NULL",
                 "log 0 zel_gpio_deregister_handler: Handler: 'Record' not found");
}

TEST(handler_removal, without_the_agents_link_no_notice_is_logged_or_sent)
{
    unit u;
    u.fail("ipc snmp init");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take();
    EXPECT_EQ(zel_gpio_deregister_handler("Record"), 0);
    EXPECT_LINES(fake::without(u.take(), {"json"}));
}

TEST(handler_removal, takes_it_out_of_the_lists_of_all_ports)
{
    unit u;
    u.gpis(2).buttons(1);
    for (const char *object : {"physical/gpio_0", "physical/gpio_1", "user_buttons/btn_1"}) {
        u.set(object + std::string("/type"), 1).set(object + std::string("/handler"), "Record, Play");
        u.set(object + std::string("/handler_invert"), "1, 1");
    }
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    ASSERT_EQ(handler_list[0].port_mask, 7u);
    u.take();
    EXPECT_EQ(zel_gpio_deregister_handler("Record"), 0);
    EXPECT_LINES(u.take_of("callback Record"), "callback Record source 0 state 1 context 0",
        "callback Record source 1 state 1 context 0",
                 "callback Record source 2 state 0 context 0");
    for (const int32_t port : {0, 1, 2})
        EXPECT_EQ(port_handlers(port), "!Play#1");
    EXPECT_EQ(saved(u, "user_buttons/btn_1/handler"), "\"Play\"");
}

TEST(handler_removal, of_an_led_handler_leaves_an_led_that_still_follows_its_triggers)
{
    unit u;
    u.virtuals(1).buttons(1).ember().set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Eth Link Down");
    u.set("user_buttons/led_1/invert_trigger", "0");
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.led_handler(0), 0);
    EXPECT_EQ(zel_gpio_deregister_handler("User LED 1"), 0);
    EXPECT_EQ(port_handlers(2), "");
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[2].state, 1);
}

TEST(handler_removal, who_takes_the_slot_inherits_no_connection)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, On Air");
    u.set("handler_info/Lamp/trigger_inverts", "1, 1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    ASSERT_EQ(zel_gpio_deregister_handler("Lamp"), 0);
    ASSERT_EQ(u.handler("Horn"), 0);
    EXPECT_EQ(handler_triggers(0), "");
    u.take();
    u.trigger("On Air"), u.raise("On Air"), u.raise("Eth Link Down");
    EXPECT_LINES(u.take_of("callback"));
}

TEST(handler_removal, entries_of_unknown_triggers_do_not_stay_behind)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "On Air, Door");
    u.set("handler_info/Lamp/trigger_inverts", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    ASSERT_EQ(zel_gpio_deregister_handler("Lamp"), 0);
    ASSERT_EQ(u.handler("Horn"), 0);
    u.trigger("On Air");
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_EQ(handler_list[0].state, 0);
}

TEST(handler_removal, is_forgotten_by_the_file_and_comes_back_with_nothing)
{
    unit u;
    describe_input(u, "Record", "1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    ASSERT_EQ(zel_gpio_deregister_handler("Record"), 0);
    EXPECT_EQ(saved(u, "handler_info"), "{}");
    EXPECT_EQ(saved(u, "on_grid_handlers"), "\"\"");
    EXPECT_EQ(saved(u, "physical/gpio_0/handler"), "\"\"");
    ASSERT_EQ(u.handler("Record"), 0);
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_EQ(handler_list[0].on_grid, 0);
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST(handler_removal, of_one_of_two_equal_names_leaves_the_other_one_working)
{
    unit u;
    u.set("on_grid_handlers", "Record");
    ASSERT_EQ(u.start(), 0);
    u.handler("Play"), u.handler("Record");
    ASSERT_EQ(zel_gpio_deregister_handler("Play"), 0);
    ASSERT_EQ(u.handler("Record"), 0) << "names behind the free slot are not compared";
    ASSERT_EQ(zel_gpio_deregister_handler("Record"), 0);
    EXPECT_EQ(u.handler_id("Record"), 1);
    EXPECT_EQ(zel::set_trigger_connection(2, 1, 1, 0, 1), 0) << "the object of that name is gone, and is made again";
    EXPECT_EQ(handler_triggers(1), "!Eth Link Down#0");
    EXPECT_EQ(saved(u, "handler_info/Record/triggers"), "\"Eth Link Down\"");
}

TEST(handler_rename, of_one_of_two_equal_names_leaves_the_other_one_working)
{
    unit u;
    u.set("on_grid_handlers", "Record");
    ASSERT_EQ(u.start(), 0);
    u.handler("Play"), u.handler("Record");
    ASSERT_EQ(zel_gpio_deregister_handler("Play"), 0);
    ASSERT_EQ(u.handler("Record"), 0);
    ASSERT_EQ(zel_gpio_rename_handler("Record", "Tape"), 0);
    EXPECT_EQ(zel::set_trigger_connection(2, 1, 1, 0, 1), 0);
    EXPECT_EQ(handler_triggers(1), "!Eth Link Down#0");
    EXPECT_EQ(saved(u, "handler_info/Record/triggers"), "\"Eth Link Down\"");
}

TEST(handler_removal, may_be_given_the_librarys_own_text)
{
    unit u;
    describe_input(u, "Record", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    EXPECT_EQ(zel_gpio_deregister_handler(zel::gpios[0].handler_names[0]), 0);
    EXPECT_EQ(handler_list[0].name, nullptr);
    EXPECT_EQ(saved(u, "handler_info/Record"), "absent");
    ASSERT_EQ(u.handler("Play"), 0);
    EXPECT_EQ(zel_gpio_deregister_handler(handler_list[0].name), 0);
    EXPECT_EQ(handler_list[0].name, nullptr);
}
