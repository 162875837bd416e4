// Values as applications hand them over: native integers of every width.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zel::ember {

template <typename integer> int64_t load_native(const void *value)
{
    integer native;
    std::memcpy(&native, value, sizeof(native));
    return native;
}

// False for a length that no native integer has.
inline bool load_integer(const void *value, size_t length, int64_t &out)
{
    switch (length) {
    case 1: out = load_native<int8_t>(value); return true;
    case 2: out = load_native<int16_t>(value); return true;
    case 4: out = load_native<int32_t>(value); return true;
    case 8: out = load_native<int64_t>(value); return true;
    default: return false;
    }
}

}  // namespace zel::ember
