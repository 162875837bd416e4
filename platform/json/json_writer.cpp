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

word load(const char *text)
{
    word bytes;
    std::memcpy(&bytes, text, sizeof bytes);
    return bytes;
}

// Copies the plain bytes that `text` begins with, `length` at most, and returns how many. May write all `length` bytes.
size_t copy_plain(char *out, const char *text, size_t length)
{
    size_t done = 0;
    for (; done + sizeof(word) <= length; done += sizeof(word)) {
        const word bytes = load(text + done);
        if (marks_of_special_bytes(bytes) != 0) break;
        std::memcpy(out + done, &bytes, sizeof bytes);
    }
    for (; done < length && plain[static_cast<unsigned char>(text[done])]; ++done) out[done] = text[done];
    return done;
}

// Where the next byte goes. The buffer's last byte is kept for the terminating zero: `end` is never written.
class cursor {
public:
    cursor(char *buf, size_t size, int pos) : start_(buf)
    {
        const size_t limit = std::min(size, size_t{INT_MAX});
        if (buf == nullptr || pos < 0 || static_cast<size_t>(pos) >= limit) return;
        at_ = buf + pos;
        end_ = buf + limit - 1;
    }

    bool put(char byte)
    {
        if (at_ == end_) return false;
        *at_++ = byte;
        return true;
    }

    bool put(const char *text, size_t length)
    {
        if (room() < length) return false;
        std::memcpy(at_, text, length);
        at_ += length;
        return true;
    }

    bool put_integer(int64_t value)
    {
        const auto [stop, error] = std::to_chars(at_, end_, value);
        at_ = stop;
        return error == std::errc{};
    }

    bool put_string(const char *text)
    {
        if (!put('"')) return false;
        size_t length = std::strlen(text);
        while (true) {
            const size_t copied = copy_plain(at_, text, std::min(length, room()));
            at_ += copied;
            length -= copied;
            text += copied;
            if (length == 0) return put('"');
            const size_t taken = put_special(text);
            if (taken == 0) return false;
            length -= taken;
            text += taken;
        }
    }

    // What stands before a value: a comma unless it is the first of its kind, and its name.
    bool begin_value(const char *name)
    {
        const char last = at_ == start_ ? '[' : at_[-1];
        if (last != '[' && last != '{' && !put(',')) return false;
        return name == nullptr || (put_string(name) && put(':'));
    }

    explicit operator bool() const { return at_ != nullptr; }
    int position() const { return static_cast<int>(at_ - start_); }

private:
    size_t room() const { return static_cast<size_t>(end_ - at_); }

    // One character that is not plain; its bytes in the text, or 0 when it does not fit (also when it is plain: then the
    // room has ended).
    size_t put_special(const char *text)
    {
        const auto *const bytes = reinterpret_cast<const unsigned char *>(text);
        if (*bytes < 0x80) return put_escape(*text) ? 1 : 0;
        const zel::utf8_piece piece = zel::utf8_piece_at(bytes);
        const size_t length = static_cast<size_t>(piece.length);
        return (piece.well_formed ? put(text, length) : put("\xEF\xBF\xBD", 3)) ? length : 0;
    }

    bool put_escape(char byte)
    {
        static constexpr char escaped[] = "\"\\\b\f\n\r\t", letters[] = "\"\\bfnrt", hex[] = "0123456789abcdef";
        if (plain[static_cast<unsigned char>(byte)]) return false;
        if (const char *const found = std::strchr(escaped, byte); found != nullptr) {
            const char text[] = {'\\', letters[found - escaped]};
            return put(text, sizeof text);
        }
        const char text[] = {'\\', 'u', '0', '0', hex[byte >> 4], hex[byte & 15]};
        return put(text, sizeof text);
    }

    char *const start_;
    char *at_ = nullptr;
    char *end_ = nullptr;
};

int put_name_and(char *buf, size_t size, int pos, const char *name, const char *text, size_t length)
{
    cursor out(buf, size, pos);
    return out && out.begin_value(name) && out.put(text, length) ? out.position() : -1;
}

int put_end(char *buf, size_t size, int pos, char bracket)
{
    cursor out(buf, size, pos);
    return out && out.put(bracket) ? out.position() : -1;
}

}  // namespace

int zel_json_writer_start(char *buf)
{
    return buf != nullptr ? 0 : -1;
}

int zel_json_writer_new_obj(char *buf, size_t size, int pos, const char *name)
{
    return put_name_and(buf, size, pos, name, "{", 1);
}

int zel_json_writer_new_array(char *buf, size_t size, int pos, const char *name)
{
    return put_name_and(buf, size, pos, name, "[", 1);
}

int zel_json_writer_put_int(char *buf, size_t size, int pos, const char *name, int64_t value)
{
    cursor out(buf, size, pos);
    return out && out.begin_value(name) && out.put_integer(value) ? out.position() : -1;
}

int zel_json_writer_put_str(char *buf, size_t size, int pos, const char *name, const char *value)
{
    cursor out(buf, size, pos);
    return out && out.begin_value(name) && out.put_string(value != nullptr ? value : "") ? out.position() : -1;
}

int zel_json_writer_put_bool(char *buf, size_t size, int pos, const char *name, int value)
{
    return value ? put_name_and(buf, size, pos, name, "true", 4) : put_name_and(buf, size, pos, name, "false", 5);
}

int zel_json_writer_end_obj(char *buf, size_t size, int pos)
{
    return put_end(buf, size, pos, '}');
}

int zel_json_writer_end_array(char *buf, size_t size, int pos)
{
    return put_end(buf, size, pos, ']');
}

int zel_json_writer_finish(char *buf, size_t size, int pos)
{
    const cursor out(buf, size, pos);
    if (!out) return -1;
    buf[pos] = '\0';
    return pos;
}
