// Whole decimal numbers in texts that people or other programs wrote.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zel {

// The number if the text is one from its first to its last byte ('-' in front allowed) and it fits, else nothing.
inline std::optional<int64_t> whole_number(std::string_view text)
{
    int64_t number = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return number;
}

}  // namespace zel
