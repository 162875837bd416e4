// Lists of 200 connections with names of 64 characters: none is lost on the way through texts, file, tree and messages.
#include <algorithm>
#include <cstdio>

#include "child_process.h"
#include "grid_test.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;

namespace {

constexpr int full = 200;

/// Names in the table, then ids and inverts of all of it in the exchange form; every third is inverted.
struct full_list {
    std::string ids, inverts, names, saved_inverts, tree;

    template <class record> explicit full_list(const record *table)
    {
        for (int id = 0; id < full; ++id) {
            const bool inverted = id % 3 == 0;
            ids += (id > 0 ? "," : "") + std::to_string(id);
            inverts += (id > 0 ? "," : "") + std::to_string(inverted);
            names += (id > 0 ? ", " : "") + std::string(table[id].name);
            saved_inverts += (id > 0 ? ", " : "") + std::to_string(inverted);
            tree += (id > 0 ? ", " : "") + std::string(inverted ? "!" : "") + table[id].name;
        }
    }
};

/// Fills both tables with names of 64 characters, as far as they are the host's to name.
void fill_tables(unit &u)
{
    for (int id = 0; id < full; ++id)
        if (trigger_list[id].name == nullptr) {
            ASSERT_EQ(u.trigger(long_name("Trigger", id)), id);
        }
    for (int id = 0; id < full; ++id)
        ASSERT_EQ(u.handler(long_name("Handler", id)), id);
}

void describe(unit &u)
{
    u.gpis(2).relays(1).virtuals(1).ember().set("physical/gpio_0/type", 2).set("physical/gpio_1/type", 1);
}

std::string quoted(const std::string &text) { return "\"" + text + "\""; }

}  // namespace

TEST(full_lists, of_triggers_are_taken_over_saved_and_published_whole)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    const full_list all(trigger_list);
    handler_list[7].on_grid = 1;
    ASSERT_EQ(zel::set_gpio_handler_connection(1, 7, 0), 0) << "gives the handler its object in the file";
    u.take();
    EXPECT_EQ(zel::set_gpio_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::set_relay_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::set_handler_trigger_list(7, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::gpios[0].num_trigs, full);
    EXPECT_EQ(zel::gpios[0].active_trigs, 67);
    EXPECT_EQ(zel::relays[0].active_trigs, 67);
    EXPECT_EQ(handler_list[7].active_trigs, 67);
    EXPECT_EQ(saved(u, "physical/gpio_0/trigger"), quoted(all.names));
    EXPECT_EQ(saved(u, "physical/gpio_0/invert_trigger"), quoted(all.saved_inverts));
    EXPECT_EQ(saved(u, "relay/relay_0/triggers"), quoted(all.names));
    EXPECT_EQ(saved(u, "relay/relay_0/trigger_invert"), quoted(all.saved_inverts));
    const std::string handler = "handler_info/" + std::string(handler_list[7].name);
    EXPECT_EQ(saved(u, handler + "/triggers"), quoted(all.names));
    EXPECT_EQ(saved(u, handler + "/trigger_inverts"), quoted(all.saved_inverts));
    EXPECT_EQ(saved(u, "on_grid_triggers"), quoted(all.names));
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/output triggers"), all.tree);
    EXPECT_EQ(u.value_of("gpio/physical/relay 1/output triggers"), all.names);
    EXPECT_EQ(u.count_of("log 0") + u.count_of("log 1"), 0);
}

TEST(full_lists, of_handlers_are_taken_over_saved_and_published_whole)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    const full_list all(handler_list);
    u.take();
    EXPECT_EQ(zel::set_gpio_handler_list(1, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::gpios[1].num_handlers, full);
    EXPECT_EQ(saved(u, "physical/gpio_1/handler"), quoted(all.names));
    EXPECT_EQ(saved(u, "physical/gpio_1/handler_invert"), quoted(all.saved_inverts));
    EXPECT_EQ(saved(u, "on_grid_handlers"), quoted(all.names));
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/input functions"), all.names);
    EXPECT_EQ(u.count_of("log 0") + u.count_of("log 1"), 0);
    EXPECT_EQ(zel::remove_gpio_handler_connection(1, 100), 0);
    EXPECT_EQ(zel::gpios[1].num_handlers, full - 1);
}

TEST(full_lists, longer_ones_end_after_200_entries)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    std::string ids = "1", inverts = "1";
    for (int i = 1; i < 1000; ++i)
        ids += "," + std::to_string(i % full), inverts += ",1";
    EXPECT_EQ(zel::set_gpio_trigger_list(0, ids.c_str(), inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::set_relay_trigger_list(0, ids.c_str(), inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::set_handler_trigger_list(7, ids.c_str(), inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::set_gpio_handler_list(1, ids.c_str(), inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::gpios[0].num_trigs, full);
    EXPECT_EQ(zel::relays[0].num_trigs, full);
    EXPECT_EQ(handler_list[7].num_trigs, full);
    EXPECT_EQ(zel::gpios[1].num_handlers, full);
    EXPECT_EQ(zel::gpios[0].trig_ids[199], 199);
    EXPECT_EQ(zel::gpios[0].active_trigs, full);
    EXPECT_EQ(zel::gpios[1].handlers[199], &handler_list[199]);
}

TEST(full_lists, are_built_up_and_taken_apart_one_connection_at_a_time)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    for (int id = 0; id < full; ++id)
        ASSERT_EQ(zel::set_trigger_connection(1, 1, 0, id, id % 3 == 0), 0);
    ASSERT_EQ(zel::relays[0].num_trigs, full);
    for (int k = 0; k < full; ++k) {
        EXPECT_EQ(zel::relays[0].trig_ids[k], full - 1 - k);
        EXPECT_EQ(zel::relays[0].trig_inv[k], (full - 1 - k) % 3 == 0);
    }
    ASSERT_EQ(zel::set_trigger_connection(1, 1, 0, 100, 1), 0);
    EXPECT_EQ(zel::relays[0].num_trigs, full) << "an update adds nothing";
    for (int id = 0; id < full; ++id)
        ASSERT_EQ(zel::set_trigger_connection(1, 0, 0, id, 0), 0);
    EXPECT_EQ(zel::relays[0].num_trigs, 0);
    EXPECT_EQ(u.level(201), 0);
}

namespace {

void fill_everything_and_stop(std::FILE *file)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    const full_list all(trigger_list), handlers(handler_list);
    ASSERT_EQ(zel::set_gpio_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    ASSERT_EQ(zel::set_relay_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    ASSERT_EQ(zel::set_gpio_handler_list(1, handlers.ids.c_str(), handlers.inverts.c_str(), 0), 0);
    ASSERT_EQ(zel::set_handler_trigger_list(7, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    u.stop();
    const std::string text = u.json("");
    ASSERT_EQ(std::fwrite(text.data(), 1, text.size(), file), text.size());
    ASSERT_EQ(std::fflush(file), 0);
}

std::string contents(std::FILE *file)
{
    std::rewind(file);
    std::string text;
    char part[4096];
    for (size_t got; (got = std::fread(part, 1, sizeof part, file)) > 0;)
        text.append(part, got);
    return text;
}

void expect_everything_back(std::FILE *file)
{
    unit u;
    describe(u);
    u.config(contents(file));
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    EXPECT_EQ(zel::gpios[0].active_trigs, 67);
    EXPECT_EQ(zel::relays[0].active_trigs, 67);
    EXPECT_EQ(handler_list[7].active_trigs, 67);
    for (int k = 0; k < full; ++k) {
        EXPECT_EQ(zel::gpios[0].trig_ids[k], k);
        EXPECT_EQ(zel::relays[0].trig_ids[k], k);
        EXPECT_EQ(zel::relays[0].trig_inv[k], k % 3 == 0);
        EXPECT_EQ(zel::gpios[1].handlers[k], &handler_list[k]);
        EXPECT_EQ(zel::gpios[1].handler_inv[k], k % 3 == 0);
        EXPECT_EQ(handler_list[7].trig_ids[k], k);
        EXPECT_EQ(handler_list[k].on_grid, 1);
    }
}

}  // namespace

TEST(full_lists, come_back_whole_after_a_restart)
{
    std::FILE *const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_CHILD_SUCCEEDS(fill_everything_and_stop(file));
    EXPECT_CHILD_SUCCEEDS(expect_everything_back(file));
    std::fclose(file);
}

TEST(full_lists, of_names_that_are_too_long_end_at_a_whole_entry_and_are_logged)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    lines names;
    for (int id = 0; id < full; ++id) {
        if (trigger_list[id].name == nullptr) {
            ASSERT_EQ(u.trigger(std::to_string(id) + std::string(300, 'x') + "."), id);
        }
        names.push_back(trigger_list[id].name);
    }
    const full_list all(trigger_list);
    u.take();
    EXPECT_EQ(zel::set_relay_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    EXPECT_EQ(zel::relays[0].num_trigs, full) << "in memory nothing is missing";
    EXPECT_EQ(zel::relays[0].active_trigs, 67);
    const std::string text = saved(u, "relay/relay_0/triggers");
    const size_t last = text.rfind(", ") + 2;
    EXPECT_NE(std::find(names.begin(), names.end(), text.substr(last, text.size() - last - 1)),
        names.end()) << "the last entry is whole";
    EXPECT_TRUE(all.names.size() + 2 == text.size() || u.count_of("log 0") + u.count_of("log 1") > 0);
    const std::string shown = u.value_of("gpio/physical/relay 1/output triggers");
    EXPECT_NE(std::find(names.begin(), names.end(), shown.substr(shown.rfind(", ") + 2)), names.end());
}

TEST(full_lists, the_agent_gets_the_first_50_entries_and_the_true_counts)
{
    unit u;
    describe(u);
    ASSERT_EQ(u.start(), 0);
    fill_tables(u);
    const full_list all(trigger_list), handlers(handler_list);
    u.forget_sent();
    ASSERT_EQ(zel::set_gpio_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    ASSERT_EQ(zel::set_relay_trigger_list(0, all.ids.c_str(), all.inverts.c_str(), 0), 0);
    ASSERT_EQ(zel::set_gpio_handler_list(1, handlers.ids.c_str(), handlers.inverts.c_str(), 0), 0);
    const auto messages = u.sent("snmp");
    ASSERT_EQ(messages.size(), 3u);
    for (int k = 0; k < 50; ++k) {
        EXPECT_EQ(messages[0].int_at(216 + 4 * static_cast<size_t>(k)), k);
        EXPECT_EQ(messages[0].int_at(420 + 4 * static_cast<size_t>(k)), 3 * k);
        EXPECT_EQ(messages[1].int_at(4 + 4 * static_cast<size_t>(k)), k);
        EXPECT_EQ(messages[1].int_at(208 + 4 * static_cast<size_t>(k)), 3 * k);
        EXPECT_EQ(messages[2].int_at(12 + 4 * static_cast<size_t>(k)), k);
    }
    EXPECT_EQ(messages[0].int_at(416), full);
    EXPECT_EQ(messages[0].int_at(620), 67);
    EXPECT_EQ(messages[1].int_at(204), full);
    EXPECT_EQ(messages[1].int_at(408), 67);
    EXPECT_EQ(messages[1].int_at(412), 1);
    EXPECT_EQ(messages[2].int_at(212), full);
}
