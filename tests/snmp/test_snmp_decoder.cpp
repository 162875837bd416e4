// Messages that make sense, and those that do not.
#include "message_decoder.h"
#include "wire_records.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

using namespace zel::snmpd;

namespace {

template <typename record>
std::optional<unit_message> decode(uint8_t type, const record &value, size_t length = sizeof(record))
{
    std::vector<std::byte> bytes(std::max(length, sizeof value));
    std::memcpy(bytes.data(), &value, sizeof value);
    std::string problem;
    auto decoded = decode_message(type, std::span(bytes).first(length), problem);
    EXPECT_EQ(decoded.has_value(), problem.empty()) << problem;
    return decoded;
}

wire_port good_port()
{
    wire_port port{};
    port.index = 2;
    port.type = type_output;
    port.trigger_ids[0] = 4;
    port.trigger_ids[1] = -1;
    port.trigger_count = 2;
    port.active_ids[0] = 4;
    port.active_count = 1;
    port.state = 1;
    return port;
}

struct size_row {
    uint8_t type;
    size_t size;
};
const size_row sizes[] = {{2, 4}, {3, 4}, {4, 4}, {5, 4}, {6, 4}, {7, 696}, {8, 696}, {9, 696}, {10, 696}, {11, 416},
                          {12, 68}, {13, 68}, {14, 68}, {36, 12}};

}  // namespace

TEST(decoder, takes_messages_of_exactly_their_size)
{
    for (const auto &[type, size] : sizes) {
        const std::vector<std::byte> zeros(size + 1);
        std::string problem;
        EXPECT_TRUE(decode_message(type, std::span(zeros).first(size), problem)) << int{type} << problem;
        for (const size_t wrong : {size_t{0}, size - 1, size + 1}) {
            EXPECT_FALSE(decode_message(type, std::span(zeros).first(wrong), problem)) << int{type};
            EXPECT_EQ(problem, std::to_string(wrong) + " bytes instead of " + std::to_string(size));
        }
    }
}

TEST(decoder, refuses_types_that_no_unit_sends)
{
    const std::vector<std::byte> zeros(65536);
    for (int type = 0; type < 256; ++type) {
        const bool known = std::ranges::any_of(sizes, [&](const size_row &row) { return row.type == type; });
        std::string problem;
        if (!known) { EXPECT_FALSE(decode_message(static_cast<uint8_t>(type), zeros, problem)) << type; }
    }
}

TEST(decoder, takes_a_port_apart)
{
    const auto decoded = decode(wire_virtual, good_port());
    ASSERT_TRUE(decoded);
    const auto &port = std::get<row_message>(*decoded);
    EXPECT_EQ(port.table, table_id::network);
    EXPECT_EQ(port.index, 2u);
    EXPECT_EQ(port.row.type, type_output);
    EXPECT_EQ(port.row.triggers, (std::vector<int32_t>{4, -1}));
    EXPECT_EQ(port.row.active, std::vector<int32_t>{4});
    EXPECT_EQ(port.row.state, 1);
}

TEST(decoder, tells_cough_ports_from_others_by_their_flag)
{
    wire_port port = good_port();
    EXPECT_EQ(std::get<row_message>(*decode(wire_physical, port)).table, table_id::gpi);
    port.cough = 1;
    EXPECT_EQ(std::get<row_message>(*decode(wire_physical, port)).table, table_id::cough);
}

TEST(decoder, keeps_the_true_count_of_a_list_that_is_longer_than_a_message)
{
    wire_port port = good_port();
    port.trigger_count = 200;
    port.active_count = 60;
    const port_row row = std::get<row_message>(*decode(wire_physical, port)).row;
    EXPECT_EQ(row.triggers.size(), wire_slots);
    EXPECT_EQ(row.trigger_count, 200u);
    EXPECT_EQ(row.active.size(), wire_slots);
    EXPECT_EQ(row.active_count, 60u);
}

TEST(decoder, refuses_values_that_a_port_never_has)
{
    const auto refused = [](auto change) {
        wire_port port = good_port();
        change(port);
        return !decode(wire_physical, port);
    };
    EXPECT_TRUE(refused([](wire_port &p) { p.index = -1; }));
    EXPECT_TRUE(refused([](wire_port &p) { p.type = 3; }));
    EXPECT_TRUE(refused([](wire_port &p) { p.type = -1; }));
    EXPECT_TRUE(refused([](wire_port &p) { p.mode = 2; }));
    EXPECT_TRUE(refused([](wire_port &p) { p.handler_count = -1; }));
    EXPECT_TRUE(refused([](wire_port &p) { p.trigger_count = INT32_MIN; }));
    EXPECT_TRUE(refused([](wire_port &p) { p.active_count = -5; }));
    wire_relay relay{};
    relay.trigger_count = -1;
    EXPECT_FALSE(decode(wire_relay_info, relay));
    relay = {};
    relay.index = -1;
    EXPECT_FALSE(decode(wire_relay_info, relay));
    EXPECT_FALSE(decode(wire_trigger, wire_name{-1, {}}));
    EXPECT_FALSE(decode(wire_gpi_count, uint32_t{most_rows + 1}));
    EXPECT_FALSE(decode(wire_gpi_count, UINT32_MAX));
}

TEST(decoder, ends_a_name_without_terminator_with_its_field)
{
    wire_name name{};
    name.id = 7;
    std::memset(name.name, 'x', sizeof name.name);
    const auto decoded = decode(wire_trigger, name);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(std::get<name_message>(*decoded).name, std::string(64, 'x'));
    wire_port port = good_port();
    std::memset(port.source, 'y', sizeof port.source);
    EXPECT_EQ(std::get<row_message>(*decode(wire_virtual, port)).row.source, std::string(64, 'y'));
}

TEST(decoder, gives_each_button_its_led)
{
    unit_model model;
    model.link_made();
    EXPECT_TRUE(apply_message(model, *decode(wire_button_count, uint32_t{2})));
    wire_port led = good_port();
    led.index = 1;
    EXPECT_TRUE(apply_message(model, *decode(wire_led, led)));
    EXPECT_TRUE(apply_message(model, *decode(wire_button, led)));
    led.index = 2;
    EXPECT_FALSE(apply_message(model, *decode(wire_led, led)));
    EXPECT_EQ(model.size(table_id::led), 1u);
}
