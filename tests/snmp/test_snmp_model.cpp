// What the agent knows of the unit, through links that come and go.
#include "tables.h"
#include "unit_model.h"

#include <gtest/gtest.h>

using namespace zel::snmpd;

namespace {

struct journal : model_observer {
    std::vector<std::string> lines;

    void note(const char *what, table_id table, uint32_t index)
    {
        lines.push_back(std::string(what) + " " + mib_table(table).name + " " + std::to_string(index));
    }
    void row_appeared(table_id table, uint32_t index) override { note("new", table, index); }
    void row_changed(table_id table, uint32_t index) override { note("changed", table, index); }
    void row_gone(table_id table, uint32_t index) override { note("gone", table, index); }
    void link_changed(link_state state) override { lines.push_back("link " + std::to_string(static_cast<int>(state))); }
    std::vector<std::string> take() { return std::exchange(lines, {}); }
};
using lines = std::vector<std::string>;

port_row output_with(std::vector<int32_t> triggers, std::vector<int32_t> active)
{
    port_row row;
    row.type = type_output;
    row.trigger_count = static_cast<uint32_t>(triggers.size());
    row.active_count = static_cast<uint32_t>(active.size());
    row.state = !active.empty();
    row.triggers = std::move(triggers);
    row.active = std::move(active);
    return row;
}

// Two relays, triggers 0 and 3, all told.
void tell_all(unit_model &model)
{
    model.link_made();
    ASSERT_TRUE(model.set_count(table_id::relay, 2));
    ASSERT_TRUE(model.set_row(table_id::relay, 0, output_with({0, 3}, {3})));
    ASSERT_TRUE(model.set_row(table_id::relay, 1, output_with({3}, {3})));
    ASSERT_TRUE(model.set_name(table_id::trigger, 0, "Eth Link Down"));
    ASSERT_TRUE(model.set_name(table_id::trigger, 3, "On Air"));
    model.link_complete();
}

}  // namespace

TEST(unit_model, tells_each_change_once)
{
    unit_model model;
    journal seen;
    model.observe(&seen);
    tell_all(model);
    EXPECT_EQ(seen.take(), (lines{"link 2", "new zelRelayTable 0", "new zelRelayTable 1", "new zelTriggerTable 0",
                                  "new zelTriggerTable 3", "link 3"}));
    EXPECT_TRUE(model.set_row(table_id::relay, 0, output_with({0, 3}, {3})));
    EXPECT_EQ(seen.take(), lines{});
    EXPECT_TRUE(model.set_row(table_id::relay, 0, output_with({0, 3}, {0})));
    EXPECT_EQ(seen.take(), (lines{"changed zelRelayTable 0", "changed zelTriggerTable 3", "changed zelTriggerTable 0"}));
    EXPECT_TRUE(model.set_name(table_id::trigger, 3, "On Air 2"));
    EXPECT_EQ(seen.take(), lines{"changed zelTriggerTable 3"});
    EXPECT_TRUE(model.set_name(table_id::trigger, 0, ""));
    EXPECT_TRUE(model.set_name(table_id::trigger, 0, ""));
    EXPECT_EQ(seen.take(), lines{"gone zelTriggerTable 0"});
}

TEST(unit_model, counts_who_lists_a_trigger_and_where_it_is_active)
{
    unit_model model;
    tell_all(model);
    EXPECT_EQ(model.listed_by(3), 2u);
    EXPECT_EQ(model.active_in(3), 2u);
    EXPECT_EQ(model.listed_by(0), 1u);
    EXPECT_EQ(model.active_in(0), 0u);
    EXPECT_TRUE(model.set_row(table_id::relay, 1, output_with({3, 3, -1}, {3, 3})));
    EXPECT_EQ(model.listed_by(3), 2u) << "a list that names it twice is one";
    EXPECT_TRUE(model.set_count(table_id::relay, 1));
    EXPECT_EQ(model.listed_by(3), 1u);
    EXPECT_TRUE(model.set_count(table_id::relay, 0));
    EXPECT_EQ(model.listed_by(3), 0u);
    EXPECT_EQ(model.active_in(3), 0u);
}

TEST(unit_model, keeps_everything_as_stale_while_the_unit_is_away)
{
    unit_model model;
    tell_all(model);
    model.link_lost();
    ASSERT_NE(model.row(table_id::relay, 1), nullptr);
    EXPECT_FALSE(model.row(table_id::relay, 1)->fresh);
    EXPECT_FALSE(model.name(table_id::trigger, 3)->fresh);
    EXPECT_EQ(model.row(table_id::relay, 1)->state, 1);
    EXPECT_EQ(model.link(), link_state::away);
    model.link_made();
    EXPECT_FALSE(model.row(table_id::relay, 1)->fresh);
    EXPECT_TRUE(model.set_row(table_id::relay, 1, output_with({3}, {3})));
    EXPECT_TRUE(model.row(table_id::relay, 1)->fresh);
    EXPECT_FALSE(model.row(table_id::relay, 0)->fresh);
}

TEST(unit_model, lets_go_of_what_the_unit_no_longer_has_once_it_has_told_everything)
{
    unit_model model;
    tell_all(model);
    model.link_lost();
    model.link_made();
    EXPECT_TRUE(model.set_count(table_id::relay, 2));
    EXPECT_TRUE(model.set_row(table_id::relay, 0, output_with({}, {})));
    EXPECT_TRUE(model.set_name(table_id::trigger, 0, "Eth Link Down"));
    EXPECT_NE(model.name(table_id::trigger, 3), nullptr);
    model.link_complete();
    EXPECT_EQ(model.name(table_id::trigger, 3), nullptr);
    EXPECT_EQ(model.row(table_id::relay, 1), nullptr);
    EXPECT_EQ(model.size(table_id::relay), 1u);
    EXPECT_EQ(model.size(table_id::trigger), 1u);
}

TEST(unit_model, refuses_rows_that_cannot_be)
{
    unit_model model;
    tell_all(model);
    EXPECT_FALSE(model.set_row(table_id::relay, 2, {}));
    EXPECT_FALSE(model.set_row(table_id::trigger, 0, {}));
    EXPECT_FALSE(model.set_name(table_id::relay, 0, "x"));
    EXPECT_FALSE(model.set_count(table_id::relay, most_rows + 1));
    EXPECT_FALSE(model.set_count(table_id::trigger, 1));
    EXPECT_EQ(model.row(table_id::trigger, 0), nullptr);
    EXPECT_EQ(model.name(table_id::relay, 0), nullptr);
    for (uint32_t id = 0; id < most_rows; ++id) EXPECT_TRUE(model.set_name(table_id::source, id, "x"));
    EXPECT_FALSE(model.set_name(table_id::source, most_rows, "x"));
    EXPECT_TRUE(model.set_name(table_id::source, 0, "y"));
}

TEST(cells, show_names_lists_and_counts)
{
    unit_model model;
    tell_all(model);
    port_row port = output_with({3, 7, -1, 0}, {3});
    port.trigger_count = 70;
    port.source = "vGPO1@Studio 2";
    ASSERT_TRUE(model.set_count(table_id::network, 1));
    ASSERT_TRUE(model.set_row(table_id::network, 0, port));
    const auto shown = [&](column_kind kind) { return read_cell(model, mib_table(table_id::network), 0, kind); };
    const auto text = [&](column_kind kind) { return std::get<std::string>(shown(kind)); };
    const auto number = [&](column_kind kind) { return std::get<int32_t>(shown(kind)); };
    const auto count = [&](column_kind kind) { return std::get<unsigned_value>(shown(kind)).value; };
    EXPECT_EQ(text(column_kind::name), "vGPO 1");
    EXPECT_EQ(text(column_kind::triggers), "On Air,Eth Link Down");
    EXPECT_EQ(count(column_kind::trigger_count), 70u);
    EXPECT_EQ(text(column_kind::active), "On Air");
    EXPECT_EQ(count(column_kind::active_count), 1u);
    EXPECT_EQ(text(column_kind::source), "vGPO1@Studio 2");
    EXPECT_EQ(number(column_kind::source_valid), 2);
    ASSERT_TRUE(model.set_name(table_id::source, 5, "vGPO1@Studio 2"));
    EXPECT_EQ(number(column_kind::source_valid), 1);
    EXPECT_EQ(std::get<unsigned_value>(read_cell(model, mib_table(table_id::source), 5, column_kind::followers)).value, 1u);
    EXPECT_EQ(number(column_kind::state), 1);
    EXPECT_EQ(number(column_kind::stale), 2);
    model.link_lost();
    EXPECT_EQ(number(column_kind::stale), 1);
}
