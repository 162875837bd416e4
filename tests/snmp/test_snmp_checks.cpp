// What a SET refuses, object by object.
#include "set_checks.h"
#include "wire_records.h"

#include <gtest/gtest.h>

using namespace zel::snmpd;

namespace {

// Row 0 of each table is an input, row 1 an output, row 2 disabled; LEDs are outputs.
struct small_unit {
    unit_model model;

    small_unit()
    {
        model.link_made();
        for (const table_id table : {table_id::gpi, table_id::cough, table_id::network, table_id::button, table_id::led,
                                     table_id::relay}) {
            EXPECT_TRUE(model.set_count(table, 3));
            for (const auto &[index, type] : {std::pair{0u, type_input}, {1u, type_output}, {2u, type_disabled}}) {
                port_row row;
                row.type = table == table_id::led || table == table_id::relay ? type_output : type;
                EXPECT_TRUE(model.set_row(table, index, row));
            }
        }
        EXPECT_TRUE(model.set_name(table_id::trigger, 0, "On Air"));
        EXPECT_TRUE(model.set_name(table_id::trigger, 9, "GPI 1"));
        EXPECT_TRUE(model.set_name(table_id::handler, 0, "Record"));
        EXPECT_TRUE(model.set_name(table_id::source, 4, "vGPO1@Studio 2"));
        model.link_complete();
    }
    set_verdict check(table_id table, uint32_t index, column_kind kind, cell value, set_context context = {}) const
    {
        return check_set(model, mib_table(table), index, kind, value, context);
    }
};

using kind = column_kind;
using verdict = set_verdict;

}  // namespace

struct number_case {
    table_id table;
    uint32_t index;
    column_kind kind;
    int32_t value;
    set_verdict expected;
};
const number_case number_cases[] = {
    {table_id::gpi, 0, kind::type, 2, verdict::good},          {table_id::gpi, 0, kind::type, 3, verdict::wrong_value},
    {table_id::gpi, 0, kind::type, -1, verdict::wrong_value},  {table_id::cough, 0, kind::type, 0, verdict::good},
    {table_id::cough, 0, kind::type, 2, verdict::wrong_value}, {table_id::network, 2, kind::type, 1, verdict::good},
    {table_id::led, 0, kind::type, 0, verdict::good},          {table_id::led, 0, kind::type, 1, verdict::wrong_value},
    {table_id::button, 0, kind::type, 1, verdict::wrong_value},{table_id::button, 0, kind::type, 0, verdict::good},
    {table_id::gpi, 0, kind::mode, 1, verdict::good},          {table_id::gpi, 0, kind::mode, 2, verdict::wrong_value},
    {table_id::gpi, 1, kind::mode, 1, verdict::inconsistent},  {table_id::gpi, 2, kind::mode, 1, verdict::inconsistent},
    {table_id::gpi, 1, kind::state, 1, verdict::good},         {table_id::gpi, 1, kind::state, 2, verdict::wrong_value},
    {table_id::gpi, 0, kind::state, 1, verdict::inconsistent}, {table_id::network, 2, kind::state, 1, verdict::inconsistent},
    {table_id::network, 1, kind::state, 0, verdict::good},     {table_id::led, 0, kind::state, 1, verdict::good},
    {table_id::led, 0, kind::state, -1, verdict::wrong_value},
};

TEST(set_checks, of_numbers)
{
    const small_unit unit;
    for (const number_case &c : number_cases) {
        EXPECT_EQ(unit.check(c.table, c.index, c.kind, c.value), c.expected)
            << mib_table(c.table).name << " " << c.index << " " << static_cast<int>(c.kind) << " " << c.value;
    }
}

struct text_case {
    table_id table;
    uint32_t index;
    column_kind kind;
    std::string value;
    set_verdict expected;
};
const text_case text_cases[] = {
    {table_id::gpi, 1, kind::triggers, "", verdict::good},
    {table_id::gpi, 1, kind::triggers, "On Air,GPI 1", verdict::good},
    {table_id::gpi, 1, kind::triggers, "  !On Air, !GPI 1", verdict::good},
    {table_id::gpi, 1, kind::triggers, "On Air ", verdict::inconsistent},
    {table_id::gpi, 1, kind::triggers, "On Air,", verdict::inconsistent},
    {table_id::gpi, 1, kind::triggers, ",On Air", verdict::inconsistent},
    {table_id::gpi, 1, kind::triggers, ",", verdict::inconsistent},
    {table_id::gpi, 1, kind::triggers, "Nobody", verdict::inconsistent},
    {table_id::gpi, 1, kind::triggers, std::string(64, 'x'), verdict::wrong_length},
    {table_id::gpi, 1, kind::triggers, std::string("On Air\0x", 8), verdict::wrong_value},
    {table_id::gpi, 0, kind::triggers, "On Air", verdict::inconsistent},
    {table_id::gpi, 2, kind::triggers, "On Air", verdict::inconsistent},
    {table_id::relay, 0, kind::triggers, "On Air", verdict::good},
    {table_id::relay, 0, kind::triggers, "!On Air", verdict::inconsistent},
    {table_id::led, 0, kind::triggers, "!On Air", verdict::good},
    {table_id::gpi, 0, kind::handlers, "Record", verdict::good},
    {table_id::gpi, 0, kind::handlers, "On Air", verdict::inconsistent},
    {table_id::gpi, 1, kind::handlers, "Record", verdict::inconsistent},
    {table_id::cough, 0, kind::handlers, "", verdict::good},
    {table_id::network, 0, kind::source, "vGPO1@Studio 2", verdict::good},
    {table_id::network, 0, kind::source, "", verdict::good},
    {table_id::network, 0, kind::source, "vGPO1@Nowhere", verdict::inconsistent},
    {table_id::network, 1, kind::source, "vGPO1@Studio 2", verdict::inconsistent},
    {table_id::network, 0, kind::source, std::string(64, 'x'), verdict::wrong_length},
};

TEST(set_checks, of_texts)
{
    const small_unit unit;
    for (const text_case &c : text_cases) {
        EXPECT_EQ(unit.check(c.table, c.index, c.kind, c.value), c.expected) << mib_table(c.table).name << " '" << c.value << "'";
    }
}

TEST(set_checks, want_the_object_s_own_type)
{
    const small_unit unit;
    EXPECT_EQ(unit.check(table_id::gpi, 0, kind::type, std::string("1")), verdict::wrong_type);
    EXPECT_EQ(unit.check(table_id::gpi, 1, kind::triggers, 1), verdict::wrong_type);
}

TEST(set_checks, let_types_and_lists_come_alone_only)
{
    const small_unit unit;
    const set_context beside_others{false, false};
    EXPECT_EQ(unit.check(table_id::gpi, 0, kind::type, 1, beside_others), verdict::inconsistent);
    EXPECT_EQ(unit.check(table_id::gpi, 1, kind::triggers, std::string(), beside_others), verdict::inconsistent);
    EXPECT_EQ(unit.check(table_id::gpi, 0, kind::mode, 1, beside_others), verdict::good);
    EXPECT_EQ(unit.check(table_id::network, 1, kind::state, 1, beside_others), verdict::good);
    EXPECT_EQ(unit.check(table_id::network, 0, kind::source, std::string(), beside_others), verdict::good);
}

TEST(set_checks, leave_ports_alone_that_datagrams_drive)
{
    const small_unit unit;
    EXPECT_EQ(unit.check(table_id::gpi, 1, kind::state, 1, {true, true}), verdict::inconsistent);
    EXPECT_EQ(unit.check(table_id::network, 1, kind::state, 1, {true, true}), verdict::good);
}

TEST(set_checks, find_nothing_available_while_the_unit_is_away)
{
    small_unit unit;
    unit.model.link_lost();
    EXPECT_EQ(unit.check(table_id::gpi, 0, kind::mode, 1), verdict::unavailable);
    EXPECT_EQ(unit.check(table_id::gpi, 0, kind::mode, 7), verdict::wrong_value);
    unit.model.link_made();
    EXPECT_EQ(unit.check(table_id::gpi, 0, kind::mode, 1), verdict::unavailable);
}

// The request of each writable object, and that no other object is writable.
TEST(tables, say_which_request_each_object_becomes)
{
    std::string text;
    for (const table &each : mib_tables()) {
        for (const column &where : each.columns) {
            if (where.request != 0) text += std::to_string(where.request) + " ";
        }
    }
    EXPECT_EQ(text, "15 19 16 17 20 21 22 23 24 25 27 28 29 30 31 32 34 35 ");
}
