// Well-formed UTF-8, as RFC 3629 defines it: no overlong forms, no surrogates, nothing above U+10FFFF.
#pragma once

#include <cstdint>

namespace zel {

// Length (1 to 4) of the well-formed sequence at `text`, 0 if there is none. Reads at most up to the first byte that does not
// belong to it, so a terminating zero is all the end it needs.
inline int utf8_sequence_length(const unsigned char *text)
{
    const auto continues = [](unsigned char byte) { return (byte & 0xC0) == 0x80; };
    const unsigned char first = text[0];
    if (first < 0x80) return 1;
    if (first < 0xC2 || first > 0xF4) return 0;
    if (first < 0xE0) return continues(text[1]) ? 2 : 0;
    // The second byte's range is narrower behind four of the first bytes; that is what excludes the forms named above.
    const unsigned char low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (text[1] < low || text[1] > high || !continues(text[2])) return 0;
    if (first < 0xF0) return 3;
    return continues(text[3]) ? 4 : 0;
}

// The code point of a well-formed sequence of the given length.
inline uint32_t utf8_code_point(const unsigned char *text, int length)
{
    if (length == 1) return text[0];
    uint32_t point = text[0] & (0xFFu >> (length + 1));
    for (int i = 1; i < length; ++i) point = point << 6 | (text[i] & 0x3Fu);
    return point;
}

}  // namespace zel
