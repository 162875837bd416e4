// A JSON document in a caller's buffer. Once something does not fit, the position stays -1 and nothing more is written.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zel_json.h"

namespace zel {

class json_writer {
public:
    json_writer(char *buf, size_t size, int pos) : buf_(buf), size_(std::min(size, size_t{INT_MAX})), pos_(pos) {}

    void begin_object(const char *name = nullptr) { pos_ = zel_json_writer_new_obj(buf_, size_, pos_, name); }
    void end_object() { pos_ = zel_json_writer_end_obj(buf_, size_, pos_); }
    void begin_array(const char *name) { pos_ = zel_json_writer_new_array(buf_, size_, pos_, name); }
    void end_array() { pos_ = zel_json_writer_end_array(buf_, size_, pos_); }
    void put(const char *name, int32_t value) { pos_ = zel_json_writer_put_int(buf_, size_, pos_, name, value); }
    void put(const char *name, const char *value) { pos_ = zel_json_writer_put_str(buf_, size_, pos_, name, value); }
    void put(const char *name, bool value) { pos_ = zel_json_writer_put_bool(buf_, size_, pos_, name, value); }

    // What such a writer wrote elsewhere: the first `length` bytes of `text`; below 0: it failed there. The whole array is copied
    // where there is room for it, since a length that is known beforehand takes a few instructions only.
    template <size_t Size> void copy(const char (&text)[Size], int length)
    {
        const size_t at = static_cast<size_t>(pos_), count = static_cast<size_t>(length);   // huge if below 0
        const size_t room = at < size_ ? size_ - at : 0;
        if (room > Size) std::memcpy(buf_ + at, text, Size);
        else if (room > count) std::memcpy(buf_ + at, text, count);
        pos_ = room > count ? pos_ + length : -1;
    }

    int position() const { return pos_; }

private:
    char *buf_;
    size_t size_;
    int pos_;
};

}  // namespace zel
