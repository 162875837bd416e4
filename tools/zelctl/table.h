// Tables for people: columns aligned, one row per line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zel {

class text_table {
public:
    explicit text_table(std::vector<std::string> heads) : rows_{std::move(heads)} {}

    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }
    bool empty() const { return rows_.size() == 1; }
    std::string text() const;

private:
    std::vector<std::vector<std::string>> rows_;  // the first is the head
};

// Names come from other units too; what would steer a terminal becomes '?'.
std::string printable(std::string_view text);

}  // namespace zel
