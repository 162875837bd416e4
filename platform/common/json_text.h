// A JSON value as text.
#pragma once

#include <jansson.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>

namespace zel {

// `flags` as for jansson's json_dumps. Nothing for a null value, and for want of memory.
inline std::optional<std::string> json_text(const json_t *value, size_t flags)
{
    const std::unique_ptr<char, decltype(&std::free)> text(json_dumps(value, flags), std::free);
    if (!text) return std::nullopt;
    return text.get();
}

}  // namespace zel
