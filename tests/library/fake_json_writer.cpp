// The writer of JSON documents: small, but real.
#include <cstdio>

#include "fake_state.h"

namespace {

/// Appends `text` if it fits with its terminating zero.
int put(char *buf, size_t size, int pos, const std::string &text)
{
    if (pos < 0 || static_cast<size_t>(pos) + text.size() + 1 > size)
        return -1;
    std::memcpy(buf + pos, text.c_str(), text.size() + 1);
    return pos + static_cast<int>(text.size());
}

int sequence_length(const unsigned char *p)
{
    const int length = *p < 0x80 ? 1 : *p >= 0xC2 && *p < 0xE0 ? 2 : (*p & 0xF0) == 0xE0 ? 3 : *p >= 0xF0 && *p < 0xF5 ? 4 : 0;
    for (int i = 1; i < length; ++i)
        if ((p[i] & 0xC0) != 0x80)
            return 0;
    return length;
}

std::string escaped(const char *text)
{
    std::string result = "\"";
    for (const auto *p = reinterpret_cast<const unsigned char *>(text); *p != 0;) {
        const int length = sequence_length(p);
        if (length == 0)
            result += "\xEF\xBF\xBD";
        else if (*p == '"' || *p == '\\')
            result += {'\\', static_cast<char>(*p)};
        else if (*p < 0x20)
            result += fake::format("\\u%04x", *p);
        else
            result.append(reinterpret_cast<const char *>(p), static_cast<size_t>(length));
        p += length == 0 ? 1 : length;
    }
    return result + "\"";
}

/// What stands before a value: a comma behind an earlier one, and its name.
int begin(char *buf, size_t size, int pos, const char *name)
{
    if (pos < 0 || fake::must_fail("writer", true))
        return -1;
    const bool first = pos == 0 || buf[pos - 1] == '{' || buf[pos - 1] == '[';
    return put(buf, size, pos, (first ? "" : ",") + (name == nullptr ? std::string() : escaped(name) + ":"));
}

}  // namespace

extern "C" {

int zel_json_writer_start(char *) { return 0; }

int zel_json_writer_new_obj(char *buf, size_t size, int pos, const char *name)
{
    return put(buf, size, begin(buf, size, pos, name), "{");
}
int zel_json_writer_new_array(char *buf, size_t size, int pos, const char *name)
{
    return put(buf, size, begin(buf, size, pos, name), "[");
}

int zel_json_writer_put_int(char *buf, size_t size, int pos, const char *name, int64_t value)
{
    return put(buf, size, begin(buf, size, pos, name), std::to_string(value));
}

int zel_json_writer_put_str(char *buf, size_t size, int pos, const char *name, const char *value)
{
    return put(buf, size, begin(buf, size, pos, name), value == nullptr ? "null" : escaped(value));
}

int zel_json_writer_put_bool(char *buf, size_t size, int pos, const char *name, int value)
{
    return put(buf, size, begin(buf, size, pos, name), value != 0 ? "true" : "false");
}

int zel_json_writer_end_obj(char *buf, size_t size, int pos) { return put(buf, size, pos, "}"); }
int zel_json_writer_end_array(char *buf, size_t size, int pos) { return put(buf, size, pos, "]"); }
int zel_json_writer_finish(char *buf, size_t size, int pos) { return put(buf, size, pos, ""); }

}  // extern "C"
