// Well-formed UTF-8, as RFC 3629 defines it: no overlong forms, no surrogates, nothing above U+10FFFF.
#pragma once

#include <cstdint>

namespace zel {

// One character, or, when not well formed, the longest start of a sequence that cannot go on: what one replacement
// character stands for.
struct utf8_piece {
    int length;  // 1 to 4
    bool well_formed;
};

// The piece at `text`. Reads at most up to the first byte that does not belong to it, so a terminating zero is all the end
// that the text needs.
inline utf8_piece utf8_piece_at(const unsigned char *text)
{
    const auto continues = [](unsigned char byte) { return (byte & 0xC0) == 0x80; };
    const unsigned char first = text[0];
    if (first < 0x80) return {1, true};
    if (first < 0xC2 || first > 0xF4) return {1, false};
    // The second byte's range is narrower behind four of the first bytes; that is what excludes the forms named above.
    const unsigned char low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (text[1] < low || text[1] > high) return {1, false};
    if (first < 0xE0) return {2, true};
    if (!continues(text[2])) return {2, false};
    if (first < 0xF0) return {3, true};
    return continues(text[3]) ? utf8_piece{4, true} : utf8_piece{3, false};
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
