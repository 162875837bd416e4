#include "zel_json.h"

#include "common/utf8.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <climits>
#include <cstring>

namespace {

// Bytes that stand for themselves inside a JSON string; all others are looked at one by one.
constexpr auto plain = [] {
    std::array<bool, 256> table{};
    for (int byte = 0x20; byte < 0x80; ++byte) table[static_cast<size_t>(byte)] = byte != '"' && byte != '\\';
    return table;
}();

using word = uint64_t;
constexpr word every_byte = 0x0101010101010101;
constexpr word high_bits = 0x80 * every_byte;

// Non-zero when one of the word's bytes is not plain. A borrow can only mark a byte above one that is marked rightly.
word marks_of_special_bytes(word bytes)
{
    const word quote = bytes ^ ('"' * every_byte), backslash = bytes ^ ('\\' * every_byte);
    return ((bytes - 0x20 * every_byte) | (quote - every_byte) | (backslash - every_byte) | bytes) & high_bits;
}

// Copies the plain bytes that `text` begins with, `length` at most, and returns how many.
size_t copy_plain(char *out, const char *text, size_t length)
{
    size_t done = 0;
    for (; done + sizeof(word) <= length; done += sizeof(word)) {
        word bytes;
        std::memcpy(&bytes, text + done, sizeof bytes);
        if (marks_of_special_bytes(bytes) != 0) break;
        std::memcpy(out + done, &bytes, sizeof bytes);
    }
    for (; done < length && plain[static_cast<unsigned char>(text[done])]; ++done) out[done] = text[done];
    return done;
}

// Where the next byte goes; null when something did not fit. `end` is the buffer's last byte, kept for the terminating zero.
// Handed on by value, because two registers are quicker than an object in memory.
struct place {
    char *at;
    char *end;

    explicit operator bool() const { return at != nullptr; }
    size_t room() const { return static_cast<size_t>(end - at); }
};

constexpr place nowhere{nullptr, nullptr};

place place_at(char *buf, size_t size, int pos)
{
    const size_t limit = std::min(size, size_t{INT_MAX});
    if (buf == nullptr || pos < 0 || static_cast<size_t>(pos) >= limit) return nowhere;
    return {buf + pos, buf + limit - 1};
}

inline place put(place out, const char *text, size_t length)
{
    if (!out || out.room() < length) return nowhere;
    std::memcpy(out.at, text, length);
    return {out.at + length, out.end};
}

place put_escape(place out, char byte)
{
    static constexpr char escaped[] = "\"\\\b\f\n\r\t", letters[] = "\"\\bfnrt", hex[] = "0123456789abcdef";
    if (const char *const found = std::strchr(escaped, byte); found != nullptr) {
        const char text[] = {'\\', letters[found - escaped]};
        return put(out, text, sizeof text);
    }
    const char text[] = {'\\', 'u', '0', '0', hex[byte >> 4], hex[byte & 15]};
    return put(out, text, sizeof text);
}

// Puts the character at `text`, plain or not, and moves `text` behind it.
place put_character(place out, const char *&text)
{
    const auto *const bytes = reinterpret_cast<const unsigned char *>(text);
    const zel::utf8_piece piece = zel::utf8_piece_at(bytes);
    const char *const character = text;
    text += piece.length;
    if (!piece.well_formed) return put(out, "\xEF\xBF\xBD", 3);
    if (piece.length > 1 || plain[*bytes]) return put(out, character, static_cast<size_t>(piece.length));
    return put_escape(out, *character);
}

place put_rest_of_string(place out, const char *text)
{
    const char *const end = text + std::strlen(text);
    while (out && text != end) {
        const size_t copied = copy_plain(out.at, text, std::min(static_cast<size_t>(end - text), out.room()));
        text += copied;
        out.at += copied;
        if (text != end) out = put_character(out, text);
    }
    return put(out, "\"", 1);
}

// Copies the plain ones of eight bytes up to the first other one and returns how many.
[[gnu::always_inline]] inline size_t copy_plain_of_eight(char *out, const char *text)
{
#pragma GCC unroll 8
    for (size_t i = 0; i < 8; ++i) {
        if (!plain[static_cast<unsigned char>(text[i])]) return i;
        out[i] = text[i];
    }
    return 8;
}

// Names of members and most values are a few plain bytes: for those, going byte by byte takes less time than finding the
// length first, which pays for longer ones.
place put_string(place out, const char *text)
{
    constexpr size_t short_text = 32;
    if (!out || out.room() < short_text + 2) return put_rest_of_string(put(out, "\"", 1), text);
    *out.at++ = '"';
    size_t copied = 8;
    for (size_t i = 0; i < short_text && copied == 8; i += copied) {
        copied = copy_plain_of_eight(out.at, text);
        out.at += copied;
        text += copied;
    }
    if (*text != '\0') return put_rest_of_string(out, text);
    *out.at++ = '"';
    return out;
}

// What stands before a value: a comma unless it is the first of its kind, and its name.
inline place begin_value(char *buf, size_t size, int pos, const char *name)
{
    place out = place_at(buf, size, pos);
    if (!out) return nowhere;
    const char last = pos == 0 ? '[' : out.at[-1];
    if (last != '[' && last != '{') out = put(out, ",", 1);
    return name == nullptr ? out : put(put_string(out, name), ":", 1);
}

int position(const char *buf, place out)
{
    return out ? static_cast<int>(out.at - buf) : -1;
}

}  // namespace

int zel_json_writer_start(char *buf)
{
    return buf != nullptr ? 0 : -1;
}

int zel_json_writer_new_obj(char *buf, size_t size, int pos, const char *name)
{
    return position(buf, put(begin_value(buf, size, pos, name), "{", 1));
}

int zel_json_writer_new_array(char *buf, size_t size, int pos, const char *name)
{
    return position(buf, put(begin_value(buf, size, pos, name), "[", 1));
}

int zel_json_writer_put_int(char *buf, size_t size, int pos, const char *name, int64_t value)
{
    const place out = begin_value(buf, size, pos, name);
    const auto [stop, error] = std::to_chars(out.at, out.end, value);
    return error == std::errc{} ? position(buf, {stop, out.end}) : -1;
}

int zel_json_writer_put_str(char *buf, size_t size, int pos, const char *name, const char *value)
{
    return position(buf, put_string(begin_value(buf, size, pos, name), value != nullptr ? value : ""));
}

int zel_json_writer_put_bool(char *buf, size_t size, int pos, const char *name, int value)
{
    const place out = begin_value(buf, size, pos, name);
    return position(buf, value ? put(out, "true", 4) : put(out, "false", 5));
}

int zel_json_writer_end_obj(char *buf, size_t size, int pos)
{
    return position(buf, put(place_at(buf, size, pos), "}", 1));
}

int zel_json_writer_end_array(char *buf, size_t size, int pos)
{
    return position(buf, put(place_at(buf, size, pos), "]", 1));
}

int zel_json_writer_finish(char *buf, size_t size, int pos)
{
    if (!place_at(buf, size, pos)) return -1;
    buf[pos] = '\0';
    return pos;
}
