#include "log_line.h"

#include "common/utf8.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace zel::log {
namespace {

constexpr char cut_mark[] = "...";
constexpr size_t text_max = line_max - sizeof cut_mark;  // the mark's zero makes room for the line feed

const char *level_word(int level)
{
    static constexpr const char *words[] = {"error", "warning", "information"};
    return level < 0 ? words[0] : level < 3 ? words[level] : "detail";
}

// The calendar is worked out here because gmtime_r takes a lock of libc's, which may be held at a fork.
void stamp(line &out, int level, const char *program)
{
    using namespace std::chrono;
    timespec wall, monotonic;
    clock_gettime(CLOCK_REALTIME, &wall);
    clock_gettime(CLOCK_MONOTONIC, &monotonic);
    const sys_seconds now{seconds{wall.tv_sec}};
    const sys_days day = floor<days>(now);
    const year_month_day date{day};
    const hh_mm_ss time{now - day};
    out.length = static_cast<size_t>(std::snprintf(
        out.text, sizeof out.text, "%04d-%02u-%02uT%02d:%02d:%02d.%03ldZ %lld.%06ld %s[%d] %s: ", static_cast<int>(date.year()),
        static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
        static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()), wall.tv_nsec / 1000000,
        static_cast<long long>(monotonic.tv_sec), monotonic.tv_nsec / 1000, program, getpid(), level_word(level)));
}

// Characters that move the cursor or change the direction of what follows would let a name from the network forge a line.
bool deceives(uint32_t point)
{
    return point < 0x20 || (point >= 0x7F && point < 0xA0) || point == 0x200E || point == 0x200F ||
           (point >= 0x2028 && point <= 0x202E) || (point >= 0x2066 && point <= 0x2069);
}

size_t escaped(char (&out)[8], uint32_t value)
{
    const char *const format = value == '\n' ? "\\n" : value == '\t' ? "\\t" : value == '\r' ? "\\r" : nullptr;
    if (format != nullptr) return std::strlen(std::strcpy(out, format));
    return static_cast<size_t>(value > 0xFF ? std::snprintf(out, sizeof out, "\\u%04x", static_cast<unsigned>(value & 0xFFFF))
                                            : std::snprintf(out, sizeof out, "\\x%02x", static_cast<unsigned>(value & 0xFF)));
}

// Appends a whole piece or nothing.
bool append(line &out, const char *piece, size_t size)
{
    if (out.length + size > text_max) return false;
    std::memcpy(out.text + out.length, piece, size);
    out.length += size;
    return true;
}

// Appends one character of the text visibly; its size in the text, or 0 when it does not fit.
size_t append_character(line &out, const char *text)
{
    const auto *const bytes = reinterpret_cast<const unsigned char *>(text);
    const utf8_piece piece = utf8_piece_at(bytes);
    const size_t size = piece.well_formed ? static_cast<size_t>(piece.length) : 1;
    const uint32_t point = utf8_code_point(bytes, static_cast<int>(size));
    char escape[8];
    if (piece.well_formed && !deceives(point)) return append(out, text, size) ? size : 0;
    return append(out, escape, escaped(escape, point)) ? size : 0;
}

}  // namespace

void compose(line &out, int level, const char *program, const char *text)
{
    stamp(out, level, program);
    const char *const end = text + std::strlen(text);
    const char *const last = end != text && end[-1] == '\n' ? end - 1 : end;
    while (text < last) {
        const size_t used = append_character(out, text);
        if (used == 0) break;
        text += used;
    }
    if (text < last) {
        std::memcpy(out.text + out.length, cut_mark, sizeof cut_mark - 1);
        out.length += sizeof cut_mark - 1;
    }
    out.text[out.length++] = '\n';
}

}  // namespace zel::log
