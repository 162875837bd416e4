// Messages of any content to the SNMP agent's decoder and model, and what the tables then show.
//
// Input: messages, each behind its type and its length in two bytes, low byte first. Types 0 and 1 stand for the loss and the
// making of the link, 255 for its being complete.
#include "message_decoder.h"
#include "set_checks.h"
#include "tables.h"

#include <algorithm>
#include <cstring>
#include <set>

using namespace zel::snmpd;

namespace {

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

// What an agent has been told of, which must be what the model has.
struct mirror final : model_observer {
    std::set<std::pair<table_id, uint32_t>> rows;

    void row_appeared(table_id table, uint32_t index) override { require(rows.emplace(table, index).second); }
    void row_changed(table_id table, uint32_t index) override { require(rows.contains({table, index})); }
    void row_gone(table_id table, uint32_t index) override { require(rows.erase({table, index}) == 1); }
    void link_changed(link_state) override {}
};

void take(unit_model &model, uint8_t type, std::span<const std::byte> payload)
{
    if (type == 0) return model.link_lost();
    if (type == 1) return model.link_made();
    if (type == 255) return model.link_complete();
    std::string problem;
    auto decoded = decode_message(type, payload, problem);
    require(decoded.has_value() == problem.empty());
    if (decoded) (void)apply_message(model, std::move(*decoded));
}

void look_at(const unit_model &model, const table &of, uint32_t index)
{
    for (const column &each : of.columns) {
        const cell value = read_cell(model, of, index, each.kind);
        if (const auto *const text = std::get_if<std::string>(&value)) require(text->size() <= 50 * 65);
        if (each.request != 0) (void)check_set(model, of, index, each.kind, value, {});
    }
}

// Users of a trigger, counted afresh.
uint32_t users_of(const unit_model &model, int32_t id)
{
    uint32_t users = 0;
    for (size_t t = 0; t < counted_tables; ++t) {
        const auto table = static_cast<table_id>(t);
        model.for_each(table, [&](uint32_t index) {
            const auto &list = model.row(table, index)->triggers;
            users += std::find(list.begin(), list.end(), id) != list.end();
        });
    }
    return users;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    unit_model model;
    mirror seen;
    model.observe(&seen);
    while (size >= 3) {
        const uint8_t type = data[0];
        const size_t length = std::min<size_t>(data[1] | data[2] << 8, size - 3);
        take(model, type, std::as_bytes(std::span(data + 3, length)));
        data += 3 + length;
        size -= 3 + length;
    }
    size_t rows = 0;
    for (const table &each : mib_tables()) {
        rows += model.size(each.id);
        model.for_each(each.id, [&](uint32_t index) {
            require(seen.rows.contains({each.id, index}));
            look_at(model, each, index);
        });
    }
    require(rows == seen.rows.size());
    for (int32_t id = 0; id < 4; ++id) require(model.listed_by(id) == users_of(model, id));
    return 0;
}
