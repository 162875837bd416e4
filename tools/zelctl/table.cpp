#include "table.h"

#include <algorithm>

namespace zel {
namespace {

// Characters, not bytes: continuation bytes of UTF-8 take no column.
size_t width_of(std::string_view text)
{
    return static_cast<size_t>(std::ranges::count_if(text, [](char c) { return (c & 0xC0) != 0x80; }));
}

}  // namespace

std::string printable(std::string_view text)
{
    std::string clean(text);
    for (size_t i = 0; i < clean.size(); ++i) {
        const auto c = static_cast<unsigned char>(clean[i]);
        const bool c1 = c == 0xC2 && i + 1 < clean.size() && static_cast<unsigned char>(clean[i + 1]) < 0xA0;
        if (c < 0x20 || c == 0x7f) clean[i] = '?';
        if (c1) clean.replace(i, 2, "?");
    }
    return clean;
}

std::string text_table::text() const
{
    std::vector<size_t> widths;
    for (const auto &row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
    }
    std::string all;
    for (const auto &row : rows_) {
        std::string line;
        for (size_t i = 0; i < row.size(); ++i) line += row[i] + std::string(widths[i] - width_of(row[i]) + 2, ' ');
        all += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return all;
}

}  // namespace zel
