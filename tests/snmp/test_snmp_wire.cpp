// The library's messages, taken apart by the agent: two descriptions of the same bytes, written apart.
#include "grid_test.h"
#include "message_decoder.h"
#include "tables.h"
#include "vgpo_units.h"

#include <gtest/gtest.h>

using namespace vgpo_units;
using fake::unit;
using namespace zel::snmpd;

namespace {

/// GPI 0 input, GPI 1 output, cough 2, vGPI 3, vGPO 4, button 5, LED 6, relays 0 and 1.
void start_all(unit &u)
{
    u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(2);
    u.set("on_grid_handlers", "Record");
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_0/handler", "Nobody, Record");
    u.set("physical/gpio_0/handler_invert", "0, 0");
    u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", "Eth Link Down, Nobody, AoIP Link Down");
    u.set("physical/gpio_1/invert_trigger", "0, 0, 1");
    u.set("physical/gpio_2/type", 1).set("physical/gpio_2/handler_invert", "");
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_0/handler_invert", "");
    u.set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/invert_trigger", "");
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler_invert", "");
    u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Eth Link Down");
    u.set("user_buttons/led_1/invert_trigger", "1");
    u.set("relay/relay_0/triggers", "Eth Link Down, AoIP Link Down").set("relay/relay_0/trigger_invert", "1, 0");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.led_handler(0);
    resolve(u, near);
}

/// What an agent that listened from the start knows by now.
unit_model told_by(unit &u)
{
    unit_model model;
    model.link_made();
    for (const auto &message : u.sent("snmp")) {
        std::string problem;
        auto decoded = decode_message(static_cast<uint8_t>(message.type),
                                      std::as_bytes(std::span(message.payload.data(), message.payload.size())), problem);
        EXPECT_TRUE(decoded) << int(message.type) << ": " << problem;
        if (decoded) { EXPECT_TRUE(apply_message(model, std::move(*decoded))) << int(message.type); }
    }
    model.link_complete();
    return model;
}

std::string shown(const unit_model &model, table_id table, uint32_t index)
{
    std::string text;
    const zel::snmpd::table &of = mib_table(table);
    for (const column &each : of.columns) {
        const cell value = read_cell(model, of, index, each.kind);
        if (const auto *const number = std::get_if<int32_t>(&value)) text += std::to_string(*number);
        if (const auto *const number = std::get_if<unsigned_value>(&value)) text += std::to_string(number->value);
        if (const auto *const words = std::get_if<std::string>(&value)) text += *words;
        text += '|';
    }
    return text;
}

}  // namespace

TEST(the_library_s_messages, say_the_same_to_the_agent)
{
    unit u;
    start_all(u);
    const unit_model model = told_by(u);
    EXPECT_EQ(shown(model, table_id::gpi, 0), "GPI 1|1|1|Record|2||0||0|0|2|");
    EXPECT_EQ(shown(model, table_id::gpi, 1), "GPO 2|2|0||0|Eth Link Down,AoIP Link Down|3|AoIP Link Down|1|1|2|");
    EXPECT_EQ(shown(model, table_id::cough, 0), "COUGH 1|1|1||0|0|2|");
    EXPECT_EQ(shown(model, table_id::network, 0), "vGPI 1|1|0||0||0||0|vGPO1@Studio 2|1|0|2|");
    EXPECT_EQ(shown(model, table_id::network, 1), "vGPO 2|2|0||0||0||0||2|0|2|");
    EXPECT_EQ(shown(model, table_id::button, 0), "User Button 1|1|0||0|0|2|");
    EXPECT_EQ(shown(model, table_id::led, 0), "User LED 1|2|Eth Link Down|1|Eth Link Down|1|1|2|");
    EXPECT_EQ(shown(model, table_id::relay, 0), "Relay 1|Eth Link Down,AoIP Link Down|2|Eth Link Down|1|1|2|");
    EXPECT_EQ(shown(model, table_id::relay, 1), "Relay 2||0||0|0|2|");
    EXPECT_EQ(shown(model, table_id::trigger, 0), "Eth Link Down|0|3|2|2|");
    EXPECT_EQ(model.name(table_id::trigger, 5)->name, "GPI 1");
    EXPECT_EQ(model.size(table_id::source), 1u);
}

TEST(the_library_s_messages, follow_every_change)
{
    unit u;
    start_all(u);
    zel_gpio_notify_trigger_event(0, 1);
    unit_model model = told_by(u);
    EXPECT_EQ(model.row(table_id::relay, 0)->state, 0);
    EXPECT_EQ(model.row(table_id::gpi, 1)->active, (std::vector<int32_t>{0, 1}));
    ASSERT_EQ(zel_gpio_deregister_handler("Record"), 0);
    model = told_by(u);
    EXPECT_LT(model.id_of(table_id::handler, "Record"), 0);
    EXPECT_EQ(model.row(table_id::gpi, 0)->handlers.size(), model.row(table_id::gpi, 0)->handler_count);
}

TEST(the_library_s_messages, cut_names_where_the_agent_expects_it)
{
    unit u;
    start_all(u);
    ASSERT_GE(zel_gpio_register_trigger(std::string(70, 'n').c_str()), 5);
    EXPECT_GE(told_by(u).id_of(table_id::trigger, std::string(64, 'n')), 0);
}
