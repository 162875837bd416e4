// Adding, updating and removing one connection, and the locks of mirrored connections.
#include <algorithm>
#include <utility>

#include "grid_test.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

enum { of_port = 0, of_relay = 1, of_handler = 2 };

void describe(unit &u)
{
    u.gpis(2).relays(1).virtuals(1).buttons(1);
    u.set("physical/gpio_0/type", 2).set("physical/gpio_0/trigger", "On Air, Eth Link Down");
    u.set("physical/gpio_0/invert_trigger", "1, 0");
    u.set("physical/gpio_1/type", 1).set("physical/gpio_1/handler", "Record, Play").set("physical/gpio_1/handler_invert", "0, 1");
    u.set("relay/relay_0/triggers", "On Air, Eth Link Down").set("relay/relay_0/trigger_invert", "1, 0");
    u.set("on_grid_handlers", "Lamp").set("handler_info/Lamp/triggers", "On Air, Eth Link Down");
    u.set("handler_info/Lamp/trigger_inverts", "1, 0");
}

std::string list(int owner)
{
    return owner == of_port ? port_list(0) : owner == of_relay ? relay_list(0) : handler_triggers(0);
}

int32_t change(int owner, int add, int32_t trigger, uint8_t invert) { return zel::set_trigger_connection(owner, add, 0, trigger,
    invert); }

}  // namespace

class connection_of_each_owner : public testing::TestWithParam<int> {};

TEST_P(connection_of_each_owner, a_new_one_goes_first_and_entries_of_unknown_triggers_vanish)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(u.handler("Lamp"), 0);
    ASSERT_EQ(list(GetParam()), "!On Air#-1 Eth Link Down#0");
    EXPECT_EQ(change(GetParam(), 1, 2, 1), 0);
    EXPECT_EQ(list(GetParam()), "!AC Power Off#2 Eth Link Down#0");
    EXPECT_EQ(change(GetParam(), 1, 4, 0), 0);
    EXPECT_EQ(list(GetParam()), "PTP Sync Lost#4 !AC Power Off#2 Eth Link Down#0");
}

TEST_P(connection_of_each_owner, one_that_exists_keeps_its_place_and_takes_the_invert)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.trigger("On Air"), u.handler("Lamp");
    const std::string id = std::to_string(u.trigger_id("On Air"));
    EXPECT_EQ(change(GetParam(), 1, 0, 1), 0);
    EXPECT_EQ(list(GetParam()), "!On Air#" + id + " !Eth Link Down#0");
    EXPECT_EQ(change(GetParam(), 1, 0, 0), 0);
    EXPECT_EQ(list(GetParam()), "!On Air#" + id + " Eth Link Down#0");
    EXPECT_EQ(change(GetParam(), 1, 0, 200), 0);
    EXPECT_EQ(list(GetParam()), "!On Air#" + id + " !Eth Link Down#0") << "any invert but 0 is 1";
}

TEST_P(connection_of_each_owner, a_removed_one_takes_entries_of_unknown_triggers_along)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    ASSERT_EQ(list(GetParam()), "!On Air#-1 Eth Link Down#0");
    EXPECT_EQ(change(GetParam(), 0, 0, 0), 0);
    EXPECT_EQ(list(GetParam()), "");
}

TEST_P(connection_of_each_owner, removing_what_is_not_listed_changes_and_saves_nothing)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take();
    for (const int32_t id : {1, 5, 199, 200, -2, INT32_MAX, INT32_MIN})
        EXPECT_EQ(change(GetParam(), 0, id, 0), -1) << id;
    EXPECT_EQ(list(GetParam()), "!On Air#-1 Eth Link Down#0");
    EXPECT_LINES(u.take());
}

TEST_P(connection_of_each_owner, no_trigger_is_no_connection)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take();
    EXPECT_EQ(change(GetParam(), 1, -1, 0), -1);
    EXPECT_EQ(change(GetParam(), 0, -1, 0), -1) << "an entry of an unknown trigger is not addressed by its -1";
    EXPECT_EQ(list(GetParam()), "!On Air#-1 Eth Link Down#0");
    EXPECT_LINES(u.take());
}

TEST_P(connection_of_each_owner, an_unknown_trigger_is_not_listed)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    for (const int32_t id : {199, 200, INT32_MAX, INT32_MIN}) {
        (void)change(GetParam(), 1, id, 1);
        EXPECT_EQ(list(GetParam()).find("#" + std::to_string(id)), std::string::npos);
    }
    EXPECT_NE(list(GetParam()).find("Eth Link Down#0"), std::string::npos);
}

TEST_P(connection_of_each_owner, an_owner_that_does_not_exist_is_refused)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    u.take();
    for (const int32_t index : {-1, 5, 199, 200, INT32_MAX, INT32_MIN})
        for (const int add : {0, 1})
            EXPECT_EQ(zel::set_trigger_connection(GetParam(), add, index, 0, 0), -1) << index;
    EXPECT_LINES(u.take());
}

TEST_P(connection_of_each_owner, one_of_200_is_replaced_when_another_is_added_to_a_full_list)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp");
    std::string ids = "0", inverts = "0";
    for (int i = 1; i < 200; ++i)
        ids += ",0", inverts += ",0";
    ASSERT_EQ(GetParam() == of_port    ? zel::set_gpio_trigger_list(0, ids.c_str(), inverts.c_str(), 0)
              : GetParam() == of_relay ? zel::set_relay_trigger_list(0, ids.c_str(), inverts.c_str(), 0)
                                    : zel::set_handler_trigger_list(0, ids.c_str(), inverts.c_str(), 0),
              0);
    EXPECT_EQ(change(GetParam(), 1, 4, 1), 0);
    const std::string text = list(GetParam());
    EXPECT_EQ(std::count(text.begin(), text.end(), '#'), 200);
    EXPECT_EQ(text.find("!PTP Sync Lost#4 Eth"), 0u);
}

INSTANTIATE_TEST_SUITE_P(owners, connection_of_each_owner, testing::Values(of_port, of_relay, of_handler),
                         [](const auto &owner) { return std::string(owner.param == of_port ? "port" : owner.param == of_relay
                             ? "relay" : "handler"); });

TEST(connection, of_an_unknown_kind_of_owner_is_refused)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    for (const int32_t owner : {-1, 3, 100, INT32_MAX})
        EXPECT_EQ(zel::set_trigger_connection(owner, 1, 0, 0, 0), -1);
}

TEST(connection, of_a_handler_slot_that_is_free_is_refused)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(zel::set_trigger_connection(of_handler, 1, 0, 0, 0), -1);
}

TEST(connection, of_a_button_is_driven_by_the_trigger_on_both_edges)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    ASSERT_EQ(zel::set_trigger_connection(of_port, 1, 3, 0, 0), 0);
    EXPECT_EQ(zel::gpios[3].state, 0);
    u.raise("Eth Link Down");
    EXPECT_EQ(zel::gpios[3].state, 1);
    u.clear("Eth Link Down");
    EXPECT_EQ(zel::gpios[3].state, 0);
}

// ---- Inputs and their handlers ----

TEST(handler_connection, a_new_one_goes_first_and_entries_of_unknown_handlers_vanish)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Play"), u.handler("Stop");
    ASSERT_EQ(port_handlers(1), "Record#-1 !Play#0");
    EXPECT_EQ(zel::set_gpio_handler_connection(1, 1, 1), 0);
    EXPECT_EQ(port_handlers(1), "!Stop#1 !Play#0");
    EXPECT_EQ(saved(u, "physical/gpio_1/handler"), "\"Stop, Play\"");
    EXPECT_EQ(saved(u, "physical/gpio_1/handler_invert"), "\"1, 1\"");
    EXPECT_EQ(handler_list[1].state, 1);
    EXPECT_EQ(handler_list[1].on_grid, 1);
}

TEST(handler_connection, one_that_exists_keeps_its_place_and_takes_the_invert)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    EXPECT_EQ(zel::set_gpio_handler_connection(1, 1, 0), 0);
    EXPECT_EQ(port_handlers(1), "Record#0 Play#1");
    EXPECT_EQ(handler_list[1].state, 0);
    EXPECT_EQ(zel::set_gpio_handler_connection(1, 0, 1), 0);
    EXPECT_EQ(port_handlers(1), "!Record#0 Play#1");
    EXPECT_EQ(handler_list[0].state, 1);
}

TEST(handler_connection, a_port_or_handler_that_does_not_exist_is_refused)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    u.take();
    for (const int32_t index : {-1, 5, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(zel::set_gpio_handler_connection(index, 0, 0), -1);
        EXPECT_EQ(zel::remove_gpio_handler_connection(index, 0), -1);
    }
    EXPECT_EQ(zel::set_gpio_handler_connection(1, -1, 0), -1);
    for (const int32_t id : {-1, 2, 199, 200, INT32_MAX})
        EXPECT_EQ(zel::remove_gpio_handler_connection(1, id), -1);
    EXPECT_LINES(u.take());
    EXPECT_EQ(port_handlers(1), "Record#0 !Play#1");
}

TEST(handler_connection, a_removed_one_is_released_before_the_list_is_rebuilt)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    ASSERT_EQ(handler_list[1].port_mask, 2u);
    u.take(), u.forget_sent();
    EXPECT_EQ(zel::remove_gpio_handler_connection(1, 1), 0);
    EXPECT_LINES(u.take(), "callback Play source 1 state 0 context 0",
        "log 4 update_gpio_json: Updating json entry: 'gpio_1' (new type = 1)",
                 "json set gpio/physical/gpio_1/type 1", "json remove gpio/physical/gpio_1/handler",
                 "json remove gpio/physical/gpio_1/trigger (absent)", "json remove gpio/physical/gpio_1/invert_trigger (absent)",
                 "json remove gpio/physical/gpio_1/input_mode (absent)", "json set gpio/physical/gpio_1/handler \"Record\"",
                 "json set gpio/physical/gpio_1/handler_invert \"0\"", "json set gpio/physical/gpio_1/input_mode 0",
                 "json set gpio/on_grid_triggers \"Eth Link Down\"", "json make gpio/handler_info/Record",
                 "json make gpio/handler_info/Play",
                 "json set gpio/on_grid_handlers \"Record, Play\"", "callback Record source 1 state 0 context 0",
                 "ipc snmp send 7 (696 bytes)");
    EXPECT_EQ(handler_list[1].port_mask, 0u);
    EXPECT_LINES(told(u), "7 1");
}

TEST(handler_connection, a_removed_handler_stays_on_while_a_trigger_or_another_input_keeps_it_on)
{
    unit u;
    describe(u);
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler", "Record, Play");
    u.set("user_buttons/btn_1/handler_invert", "1, 1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, 0, 0, 1), 0);
    ASSERT_EQ(handler_list[1].port_mask, 0xAu);
    u.take();
    EXPECT_EQ(zel::remove_gpio_handler_connection(1, 1), 0);
    EXPECT_EQ(handler_list[1].state, 1) << "by the button";
    EXPECT_EQ(zel::remove_gpio_handler_connection(3, 0), 0);
    EXPECT_EQ(handler_list[0].state, 1) << "by its trigger";
    EXPECT_EQ(handler_list[0].port_mask, 0u);
    EXPECT_LINES(fake::only(u.take(), {"callback Play source 1", "callback Record source 3"}),
        "callback Play source 1 state 1 context 0",
                 "callback Record source 3 state 1 context 0");
}

TEST(handler_connection, a_callback_may_change_the_list_that_is_being_rebuilt)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    bool armed = false;
    u.handler("Record");
    u.handler("Play", [&](int32_t, uint8_t, uintptr_t) {
        if (std::exchange(armed, false))
            u.handler("Stop"), zel_gpio_deregister_handler("Record");
    });
    armed = true;
    EXPECT_EQ(zel::remove_gpio_handler_connection(1, 1), 0);
    EXPECT_EQ(port_handlers(1), "");
    EXPECT_EQ(saved(u, "physical/gpio_1/handler"), "\"\"");
}

// ---- Mirrored connections: the trigger A drives the handler B, and the trigger B the handler A ----

namespace {

/// Handlers and triggers A and B, and C; A is handler 0 and trigger 5.
void register_pairs(unit &u)
{
    for (const char *name : {"A", "B", "C"})
        u.handler(name), u.trigger(name);
    u.take();
}

constexpr int32_t handler_a = 0, handler_b = 1, handler_c = 2, trigger_a = 5, trigger_b = 6, trigger_c = 7;

}  // namespace

TEST(mirrored_connection, takes_the_inverts_of_its_mirror_and_locks_both)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    register_pairs(u);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 1), 0);
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 1);
    EXPECT_EQ(zel::set_trigger_connection(of_handler, 1, handler_b, trigger_a, 0), 0);
    EXPECT_EQ(handler_triggers(handler_a), "!B#6");
    EXPECT_EQ(handler_triggers(handler_b), "!A#5");
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 0);
    EXPECT_EQ(handler_list[handler_b].allow_invert[0], 0);
    EXPECT_EQ(handler_list[handler_b].active_trigs, 1) << "counted with the invert it took over";
}

TEST(mirrored_connection, removing_either_unlocks_the_other)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    register_pairs(u);
    for (const auto &[removed, trigger, kept] : {std::tuple{handler_a, trigger_b, handler_b}, {handler_b, trigger_a,
        handler_a}}) {
        ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 0), 0);
        ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_b, trigger_a, 0), 0);
        ASSERT_EQ(handler_list[handler_a].allow_invert[0], 0);
        ASSERT_EQ(handler_list[handler_b].allow_invert[0], 0);
        EXPECT_EQ(zel::set_trigger_connection(of_handler, 0, removed, trigger, 0), 0);
        EXPECT_EQ(handler_triggers(removed), "");
        EXPECT_EQ(handler_list[removed].allow_invert[0], 1);
        EXPECT_EQ(handler_list[kept].num_trigs, 1);
        EXPECT_EQ(handler_list[kept].allow_invert[0], 1);
    }
}

TEST(mirrored_connection, keeps_the_lock_while_other_connections_come_and_go)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    register_pairs(u);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 1), 0);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_b, trigger_a, 1), 0);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_b, trigger_c, 0), 0);
    EXPECT_EQ(handler_triggers(handler_b), "C#7 !A#5");
    EXPECT_EQ(handler_list[handler_b].allow_invert[0], 1);
    EXPECT_EQ(handler_list[handler_b].allow_invert[1], 0);
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 0);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 0, handler_b, trigger_c, 0), 0);
    EXPECT_EQ(handler_triggers(handler_b), "!A#5");
    EXPECT_EQ(handler_list[handler_b].allow_invert[0], 0);
    EXPECT_EQ(handler_list[handler_b].allow_invert[1], 1);
}

TEST(mirrored_connection, cannot_be_inverted_from_one_side)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    register_pairs(u);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 0), 0);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_b, trigger_a, 0), 0);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 1), 0);
    EXPECT_EQ(handler_triggers(handler_a), "B#6");
    EXPECT_EQ(handler_triggers(handler_b), "A#5");
}

TEST(mirrored_connection, is_also_found_when_a_trigger_is_registered_late)
{
    unit u;
    u.set("on_grid_handlers", "A, B").set("handler_info/A/triggers", "B").set("handler_info/A/trigger_inverts", "1");
    u.set("handler_info/B/triggers", "A").set("handler_info/B/trigger_inverts", "0");
    ASSERT_EQ(u.start(), 0);
    u.handler("A"), u.handler("B");
    u.trigger("B");
    EXPECT_EQ(handler_triggers(0), "!B#5");
    EXPECT_EQ(handler_list[0].allow_invert[0], 1) << "its mirror is not bound yet";
    u.take();
    u.trigger("A");
    EXPECT_EQ(handler_triggers(1), "!A#6") << "the saved invert gives way to that of the mirror";
    EXPECT_EQ(handler_list[0].allow_invert[0], 0);
    EXPECT_EQ(handler_list[1].allow_invert[0], 0);
    EXPECT_LINES(u.take_of("callback"), "callback B source 1 state 1 context 0");
    EXPECT_EQ(saved(u, "handler_info/B/trigger_inverts"), "\"0\"") << "nothing is saved by this";
}

TEST(mirrored_connection, needs_both_names_on_both_sides)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    register_pairs(u);
    u.trigger("Only Trigger"), u.handler("Only Handler");
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 1), 0);
    uint8_t invert = 0;
    EXPECT_EQ(zel::check_paired_connection(1, u.trigger_id("Only Trigger"), handler_b, &invert), 1);
    EXPECT_EQ(zel::check_paired_connection(1, trigger_a, u.handler_id("Only Handler"), &invert), 1);
    EXPECT_EQ(zel::check_paired_connection(1, trigger_c, handler_b, &invert), 1) << "C does not list B";
    EXPECT_EQ(zel::check_paired_connection(1, trigger_a, handler_c, &invert), 1) << "A does not list C";
    for (const int32_t id : {-1, 100, 200, INT32_MAX, INT32_MIN}) {
        EXPECT_EQ(zel::check_paired_connection(1, id, handler_b, &invert), 1);
        EXPECT_EQ(zel::check_paired_connection(0, trigger_a, id, nullptr), 1);
    }
    EXPECT_EQ(invert, 0);
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 1);
    EXPECT_EQ(zel::check_paired_connection(1, trigger_a, handler_b, nullptr), 1) << "without an invert nothing is locked";
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 1);
    EXPECT_EQ(zel::check_paired_connection(1, trigger_a, handler_b, &invert), 0);
    EXPECT_EQ(invert, 1);
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 0);
    EXPECT_EQ(zel::check_paired_connection(0, trigger_a, handler_b, nullptr), 1);
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 1);
}

TEST(mirrored_connection, ports_and_relays_have_none)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Lamp"), u.trigger("Lamp");
    ASSERT_EQ(zel::set_trigger_connection(of_relay, 1, 0, u.trigger_id("Lamp"), 1), 0);
    EXPECT_EQ(handler_list[0].allow_invert[0], 1);
    EXPECT_EQ(relay_list(0), "!Lamp#" + std::to_string(u.trigger_id("Lamp")) + " Eth Link Down#0");
}

TEST(mirrored_connection, a_lost_half_leaves_the_other_unlocked)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    register_pairs(u);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_a, trigger_b, 1), 0);
    ASSERT_EQ(zel::set_trigger_connection(of_handler, 1, handler_b, trigger_a, 1), 0);
    ASSERT_EQ(zel_gpio_deregister_trigger("A"), 0);
    EXPECT_EQ(handler_triggers(handler_b), "");
    EXPECT_EQ(handler_triggers(handler_a), "!B#6");
    EXPECT_EQ(handler_list[handler_a].allow_invert[0], 1);
}
