// Memory that runs out while names and lists are made: one line in the log, what was made so far stays, nothing half-done is
// saved.
#include "grid_test.h"
#include "library_allocations.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

void describe(unit &u)
{
    u.gpis(2).relays(1).virtuals(1).set("physical/gpio_0/type", 2).set("physical/gpio_1/type", 1).set("on_grid_handlers", "Lamp");
    u.set("physical/gpio_0/trigger", "").set("physical/gpio_0/invert_trigger", "").set("relay/relay_0/trigger_invert", "");
}

/// Runs `call` with the nth allocation from now on failing, and asks that it did.
template <class F> auto short_of_memory(int nth, const F &call)
{
    fake::fail_allocation(nth);
    const auto result = call();
    EXPECT_TRUE(fake::allocation_failed());
    fake::fail_allocation(-1);
    return result;
}

}  // namespace

TEST(short_memory, a_list_of_triggers_ends_where_it_ran_out_and_is_neither_saved_nor_published)
{
    unit u;
    describe(u);
    u.ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take(), u.forget_sent();
    EXPECT_EQ(short_of_memory(2, [] { return zel::set_gpio_trigger_list(0, "0,1,2,3", "1,0,1,1", 0); }), -1);
    EXPECT_LINES(u.take(), "log 0 build_new_trigger_list: Failed to allocate memory for trigger name");
    EXPECT_EQ(port_list(0), "!Eth Link Down#0 AoIP Link Down#1");
    EXPECT_EQ(zel::gpios[0].active_trigs, 1);
    EXPECT_EQ(short_of_memory(1, [] { return zel::set_relay_trigger_list(0, "0,1,2", "1,1,1", 0); }), -1);
    EXPECT_LINES(u.take(), "log 0 build_new_trigger_list: Failed to allocate memory for trigger name");
    EXPECT_EQ(relay_list(0), "!Eth Link Down#0");
    EXPECT_EQ(zel::relays[0].active_trigs, 1);
    EXPECT_EQ(short_of_memory(0, [] { return zel::set_handler_trigger_list(0, "0,1,2", "1,1,1", 0); }), -1);
    EXPECT_LINES(fake::without(u.take(), {"callback"}),
        "log 0 build_new_trigger_list: Failed to allocate memory for trigger name");
    EXPECT_EQ(handler_triggers(0), "");
    EXPECT_EQ(handler_list[0].active_trigs, 0);
    EXPECT_LINES(told(u));
    EXPECT_EQ(zel::set_gpio_trigger_list(0, "0,1,2,3", "1,0,1,1", 0), 0) << "with memory again it works";
    EXPECT_EQ(zel::gpios[0].num_trigs, 4);
}

TEST(short_memory, a_list_of_handlers_ends_where_it_ran_out_and_is_neither_saved_nor_published)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("A"), u.handler("B");
    u.take(), u.forget_sent();
    EXPECT_EQ(short_of_memory(1, [] { return zel::set_gpio_handler_list(1, "0,1", "1,1", 0); }), -1);
    EXPECT_LINES(u.take(), "log 0 set_gpio_handler_list: Failed to allocate memory for handler name");
    EXPECT_EQ(port_handlers(1), "!A#0");
    EXPECT_LINES(told(u));
}

TEST(short_memory, a_name_that_cannot_be_stored_is_not_registered)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(short_of_memory(0, [&] { return u.handler("Record"); }), -1);
    EXPECT_EQ(short_of_memory(0, [&] { return u.trigger("On Air"); }), -1);
    EXPECT_LINES(u.take(), "log 0 register_handler: Failed to allocate memory to register handler_name 'Record'",
                 "log 0 register_trigger: Failed to allocate memory to register trigger_name 'On Air'");
    EXPECT_EQ(u.handler_id("Record"), -1);
    EXPECT_EQ(u.trigger_id("On Air"), -1);
    EXPECT_EQ(u.handler("Record"), 0);
    EXPECT_EQ(u.trigger("On Air"), 5);
}

TEST(short_memory, a_saved_list_ends_where_it_ran_out_and_the_file_keeps_all_of_it)
{
    unit u;
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "Eth Link Down, AC Power Off, DC Power Off");
    u.set("handler_info/Lamp/trigger_inverts", "0, 1, 1");
    ASSERT_EQ(u.start(), 0);
    u.take();
    EXPECT_EQ(short_of_memory(2, [&] { return u.handler("Lamp"); }), 0);
    EXPECT_TRUE(u.logged("0 get_triggers_for_handler: Failed to allocate memory for trigger name for port"));
    EXPECT_EQ(handler_triggers(0), "Eth Link Down#0");
    EXPECT_EQ(saved(u, "handler_info/Lamp/triggers"), "\"Eth Link Down, AC Power Off, DC Power Off\"");
}

TEST(short_memory, a_handler_that_cannot_take_its_new_name_leaves_a_free_slot)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.take();
    EXPECT_EQ(short_of_memory(0, [] { return zel_gpio_rename_handler("Record", "Tape"); }), -1);
    EXPECT_TRUE(u.logged("0 zel_gpio_rename_handler: Failed to allocate memory for new handler name"));
    EXPECT_EQ(handler_list[0].name, nullptr);
    EXPECT_EQ(u.handler("Disc"), 0);
}

TEST(short_memory, a_trigger_that_cannot_take_its_new_name_says_so)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air");
    u.take();
    EXPECT_EQ(short_of_memory(0, [] { return zel_gpio_rename_trigger("On Air", "Live"); }), -1);
    EXPECT_TRUE(u.logged("0 zel_gpio_rename_trigger: Failed to allocate memory to rename trigger 'On Air' to 'Live'"));
    EXPECT_EQ(zel_gpio_rename_trigger("On Air", "Live"), 0) << "nothing was lost";
}

TEST(short_memory, at_any_moment_of_a_unit_with_connections_crashes_and_leaks_nothing)
{
    const size_t before = fake::allocations_held();
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.handler("Horn"), u.trigger("Lamp"), u.trigger("Horn");
    const int32_t lamp = u.trigger_id("Lamp"), horn = u.trigger_id("Horn");
    int nth = 0;
    for (bool fired = true; fired; ++nth) {
        ASSERT_LT(nth, 1000);
        fake::fail_allocation(nth);
        for (const int32_t id : {0, lamp, horn}) {
            (void)zel::set_trigger_connection(0, 1, 0, id, 1);
            (void)zel::set_trigger_connection(1, 1, 0, id, 0);
            (void)zel::set_trigger_connection(2, 1, id == lamp, id, 1);
        }
        (void)zel::set_gpio_handler_connection(1, 0, 1);
        (void)zel_gpio_rename_trigger("Lamp", "Bulb"), (void)zel_gpio_rename_trigger("Bulb", "Lamp");
        (void)zel_gpio_rename_handler("Horn", "Siren"), (void)zel_gpio_rename_handler("Siren", "Horn");
        (void)zel_gpio_deregister_trigger("Horn"), (void)u.trigger("Horn");
        (void)zel_gpio_deregister_handler("Lamp"), (void)u.handler("Lamp");
        (void)zel_gpio_set_pin_direction(0, 1), (void)zel_gpio_set_pin_direction(0, 2);
        fired = fake::allocation_failed();
        fake::fail_allocation(-1);
        u.raise("Eth Link Down"), u.clear("Eth Link Down");
        for (const char *name : {"Lamp", "Horn"})
            (void)u.trigger(name), (void)u.handler(name);
        u.take(), u.forget_sent();
    }
    EXPECT_GT(nth, 10);
    u.stop();
    EXPECT_EQ(fake::allocations_held(), before);
}
