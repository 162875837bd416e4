#include "ber.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace zel::ember::ber {

uint8_t *writer::before(size_t count)
{
    if (count > buffer_.size() - size_) {
        std::vector<uint8_t> larger(std::max<size_t>({256, 2 * buffer_.size(), size_ + count}));
        std::copy(buffer_.end() - static_cast<std::ptrdiff_t>(size_), buffer_.end(),
                  larger.end() - static_cast<std::ptrdiff_t>(size_));
        buffer_.swap(larger);
    }
    size_ += count;
    return buffer_.data() + buffer_.size() - size_;
}

void writer::header(uint8_t tag, size_t mark)
{
    const size_t length = size_ - mark;
    if (length < 0x80) {
        byte(static_cast<uint8_t>(length));
    } else {
        uint8_t count = 0;
        for (size_t rest = length; rest != 0; rest >>= 8, ++count)
            byte(static_cast<uint8_t>(rest));
        byte(0x80 | count);
    }
    byte(tag);
}

void writer::bytes(std::span<const uint8_t> bytes)
{
    if (!bytes.empty())
        std::memcpy(before(bytes.size()), bytes.data(), bytes.size());
}

void writer::integer(int64_t value)
{
    const size_t start = mark();
    // The shift keeps the sign: what is left is all sign bits exactly when the byte just written shows the right sign.
    for (;;) {
        const auto low = static_cast<uint8_t>(value);
        byte(low);
        value >>= 8;
        if (value == (low & 0x80 ? -1 : 0))
            break;
    }
    header(tag_integer, start);
}

void writer::boolean(bool value)
{
    const size_t start = mark();
    byte(value ? 0xFF : 0x00);
    header(tag_boolean, start);
}

void writer::null()
{
    header(tag_null, mark());
}

void writer::utf8(std::string_view text)
{
    const size_t start = mark();
    bytes({reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    header(tag_utf8, start);
}

void writer::path(std::span<const uint32_t> numbers)
{
    const size_t start = mark();
    for (size_t i = numbers.size(); i-- > 0;) {
        uint32_t number = numbers[i];
        byte(number & 0x7F);
        while (number >>= 7)
            byte(static_cast<uint8_t>(0x80 | (number & 0x7F)));
    }
    header(tag_relative_oid, start);
}

// Negative zero is written as zero: common peers drop the whole message over it.
void writer::real(double value)
{
    const size_t start = mark();
    if (std::isnan(value) || std::isinf(value)) {
        byte(std::isnan(value) ? 0x42 : value > 0 ? 0x40 : 0x41);
    } else if (value != 0.0) {
        int exponent = 0;
        const double fraction = std::frexp(std::fabs(value), &exponent);   // in [0.5, 1): one place below 1.xxx
        auto mantissa = static_cast<uint64_t>(std::ldexp(fraction, 53));
        mantissa >>= __builtin_ctzll(mantissa);
        uint8_t top = 0;
        for (; mantissa != 0; mantissa >>= 8)
            byte(top = static_cast<uint8_t>(mantissa));
        if (top & 0x80)
            byte(0);
        int shifted = exponent - 1;
        const bool two_bytes = shifted < -128 || shifted > 127;
        byte(static_cast<uint8_t>(shifted));
        if (two_bytes)
            byte(static_cast<uint8_t>(shifted >> 8));
        byte(static_cast<uint8_t>(0x80 | (value < 0 ? 0x40 : 0) | (two_bytes ? 1 : 0)));
    }
    header(tag_real, start);
}

}  // namespace zel::ember::ber
