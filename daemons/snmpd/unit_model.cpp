#include "unit_model.h"

#include <algorithm>
#include <utility>

namespace zel::snmpd {

void unit_model::change_link(link_state state)
{
    if (link_ == state) return;
    link_ = state;
    if (observer_ != nullptr) observer_->link_changed(state);
}

void unit_model::mark_stale()
{
    for (row_map &rows : rows_) {
        for (auto &[index, row] : rows) row.fresh = false;
    }
    for (name_map &names : names_) {
        for (auto &[id, row] : names) row.fresh = false;
    }
}

void unit_model::link_made()
{
    mark_stale();
    change_link(link_state::synchronising);
}

void unit_model::link_lost()
{
    mark_stale();
    change_link(link_state::away);
}

void unit_model::link_complete()
{
    if (link_ != link_state::synchronising) return;
    for (size_t table = 0; table < table_count; ++table) remove_stale(static_cast<table_id>(table));
    change_link(link_state::present);
}

namespace {

template <typename map>
std::vector<uint32_t> stale_ones(const map &rows)
{
    std::vector<uint32_t> stale;
    for (const auto &[index, row] : rows) {
        if (!row.fresh) stale.push_back(index);
    }
    return stale;
}

}  // namespace

void unit_model::remove_stale(table_id table)
{
    if (is_counted(table)) {
        for (const uint32_t index : stale_ones(rows_[at(table)])) remove_row(table, index);
    } else {
        for (const uint32_t id : stale_ones(names_of(table))) remove_name(table, id);
    }
}

bool unit_model::set_count(table_id table, uint32_t count)
{
    if (!is_counted(table) || count > most_rows) return false;
    counts_[at(table)] = count;
    row_map &rows = rows_[at(table)];
    while (!rows.empty() && rows.rbegin()->first >= count) remove_row(table, rows.rbegin()->first);
    return true;
}

bool unit_model::set_row(table_id table, uint32_t index, port_row row)
{
    if (!is_counted(table) || index >= counts_[at(table)]) return false;
    row.fresh = link_ != link_state::away;
    const auto [place, is_new] = rows_[at(table)].try_emplace(index);
    if (!is_new && place->second == row) return true;
    count_uses_of(place->second, false);
    const port_row before = std::exchange(place->second, std::move(row));
    count_uses_of(place->second, true);
    if (observer_ == nullptr) return true;
    is_new ? observer_->row_appeared(table, index) : observer_->row_changed(table, index);
    tell_uses(before.active, place->second.active);
    return true;
}

bool unit_model::set_name(table_id table, uint32_t id, std::string name)
{
    if (is_counted(table)) return false;
    name_map &names = names_of(table);
    const auto place = names.find(id);
    if (name.empty()) {
        if (place != names.end()) remove_name(table, id);
        return true;
    }
    if (place == names.end() && names.size() >= most_rows) return false;
    const bool is_new = place == names.end();
    const bool renamed = !is_new && place->second.name != name;
    names[id] = {std::move(name), link_ != link_state::away};
    if (observer_ == nullptr) return true;
    if (is_new) observer_->row_appeared(table, id);
    if (renamed) observer_->row_changed(table, id);
    return true;
}

const port_row *unit_model::row(table_id table, uint32_t index) const
{
    if (!is_counted(table)) return nullptr;
    const auto place = rows_[at(table)].find(index);
    return place == rows_[at(table)].end() ? nullptr : &place->second;
}

const name_row *unit_model::name(table_id table, uint32_t id) const
{
    if (is_counted(table)) return nullptr;
    const auto place = names_of(table).find(id);
    return place == names_of(table).end() ? nullptr : &place->second;
}

int64_t unit_model::id_of(table_id table, const std::string &name) const
{
    if (is_counted(table)) return -1;
    const auto place = std::ranges::find_if(names_of(table), [&](const auto &each) { return each.second.name == name; });
    return place == names_of(table).end() ? -1 : static_cast<int64_t>(place->first);
}

size_t unit_model::size(table_id table) const
{
    return is_counted(table) ? rows_[at(table)].size() : names_of(table).size();
}

uint32_t unit_model::followers_of(const std::string &source) const
{
    return static_cast<uint32_t>(
        std::ranges::count_if(rows_[at(table_id::network)], [&](const auto &each) { return each.second.source == source; }));
}

void unit_model::remove_row(table_id table, uint32_t index)
{
    const auto taken = rows_[at(table)].extract(index);
    if (taken.empty()) return;
    count_uses_of(taken.mapped(), false);
    if (observer_ == nullptr) return;
    observer_->row_gone(table, index);
    tell_uses(taken.mapped().active, {});
}

void unit_model::remove_name(table_id table, uint32_t id)
{
    const auto taken = names_of(table).extract(id);
    if (!taken.empty() && observer_ != nullptr) observer_->row_gone(table, id);
}

uint32_t unit_model::use_of(const uses &counted, int32_t id)
{
    const auto place = counted.find(id);
    return place == counted.end() ? 0 : place->second;
}

// A list that names an id twice is one user of it.
void unit_model::count_uses(uses &counted, const std::vector<int32_t> &ids, bool add)
{
    for (size_t k = 0; k < ids.size(); ++k) {
        const auto here = ids.begin() + static_cast<std::ptrdiff_t>(k);
        if (ids[k] < 0 || std::find(ids.begin(), here, ids[k]) != here) continue;
        if (add) ++counted[ids[k]];
        else if (--counted[ids[k]] == 0) counted.erase(ids[k]);
    }
}

void unit_model::count_uses_of(const port_row &row, bool add)
{
    count_uses(listed_, row.triggers, add);
    count_uses(active_, row.active, add);
    count_uses(driven_, row.handlers, add);
}

// A trigger's row shows where the trigger is active.
void unit_model::tell_uses(const std::vector<int32_t> &before, const std::vector<int32_t> &after)
{
    const auto tell_those_not_in = [&](const std::vector<int32_t> &ids, const std::vector<int32_t> &others) {
        for (const int32_t id : ids) {
            const bool changed = id >= 0 && std::ranges::find(others, id) == others.end();
            if (changed && name(table_id::trigger, static_cast<uint32_t>(id)) != nullptr) {
                observer_->row_changed(table_id::trigger, static_cast<uint32_t>(id));
            }
        }
    };
    tell_those_not_in(before, after);
    tell_those_not_in(after, before);
}

}  // namespace zel::snmpd
