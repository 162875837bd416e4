// What changed in the unit since it was looked at last, for pages that show it without asking again and again.
//
// The library tells neither its ports' levels nor that somebody rewired it; both are seen by writing its grid documents anew and
// comparing their texts with the last ones. Texts that differ in states only tell of levels, any other difference of the grid.
#pragma once

#include "unit_parts.h"

#include <array>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

class live_changes {
public:
    // `data` is JSON.
    using sink = std::function<void(const char *event, const std::string &data)>;

    explicit live_changes(const unit_parts &unit) : unit_(unit) {}

    // What is so now is known; only what changes from here on is told.
    void begin();
    // Tells what changed since the last call.
    void tell(const sink &out);

private:
    enum kind { triggers, handlers, ports, sources, relays, pins, leds, buttons, kind_count };
    using levels = std::map<int, int>;   // id, 0 or 1
    using level_tables = std::array<levels, kind_count>;
    struct snapshot {
        std::array<std::string, 3> texts;   // of the grid, and of what is not on it
        level_tables now;
    };
    snapshot look() const;
    void take_document_levels(snapshot &shot) const;
    void take_table_levels(level_tables &now) const;
    void take_panel_levels(level_tables &now) const;
    std::string write(const char *query, const std::string &last) const;

    const unit_parts &unit_;
    snapshot last_;
    mutable std::vector<char> buffer_;
};

// Whether two grid documents differ in nothing but states. The texts are as the library writes them.
bool differ_in_states_only(std::string_view a, std::string_view b);

}  // namespace zel
