#include "ber.h"

#include <cmath>
#include <limits>

namespace zel::ember::ber {

namespace {

constexpr uint8_t indefinite_length = 0x80;
constexpr size_t max_length_bytes = 4;
constexpr size_t max_tag_bytes = 5;

int64_t sign_extended(std::span<const uint8_t> bytes)
{
    uint64_t value = bytes[0] & 0x80 ? ~uint64_t{0} : 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return static_cast<int64_t>(value);
}

std::optional<double> special_real(uint8_t first)
{
    switch (first) {
    case 0x40: return std::numeric_limits<double>::infinity();
    case 0x41: return -std::numeric_limits<double>::infinity();
    case 0x42: return std::numeric_limits<double>::quiet_NaN();
    case 0x43: return -0.0;
    default: return std::nullopt;
    }
}

}  // namespace

bool reader::fail()
{
    failed_ = true;
    pending_ = false;
    return false;
}

bool reader::read_long_tag(const uint8_t *end)
{
    for (size_t i = 0; i < max_tag_bytes && at_ < end; ++i)
        if (!(*at_++ & 0x80))
            return true;
    return fail();
}

bool reader::read_length(header &h, const uint8_t *end)
{
    if (at_ == end)
        return fail();
    const uint8_t first = *at_++;
    h.indefinite = first == indefinite_length;
    h.length = first;
    if (first < 0x80)
        return true;
    if (h.indefinite)
        return h.tag & constructed ? true : fail();
    const size_t count = first & 0x7F;
    if (count > max_length_bytes || count > static_cast<size_t>(end - at_))
        return fail();
    h.length = 0;
    for (size_t i = 0; i < count; ++i)
        h.length = h.length << 8 | *at_++;
    return true;
}

bool reader::read_header(header &h, const uint8_t *end)
{
    if (at_ == end)
        return fail();
    h.tag = *at_++;
    if ((h.tag & 0x1F) == 0x1F) {
        if (!read_long_tag(end))
            return false;
        h.tag = static_cast<uint8_t>(tag_other | (h.tag & constructed));
    }
    if (!read_length(h, end))
        return false;
    if (!h.indefinite && h.length > static_cast<size_t>(end - at_))
        return fail();
    return true;
}

bool reader::at_end_mark(const level &l) const
{
    return l.end - at_ >= 2 && at_[0] == 0 && at_[1] == 0;
}

bool reader::next(item &found)
{
    skip_pending();
    const level &l = levels_[depth_];
    if (failed_ || (l.indefinite ? at_end_mark(l) : at_ == l.end))
        return false;
    header h{};
    if (!read_header(h, l.end))
        return false;
    found = {h.tag, {}};
    if (h.tag & constructed) {
        pending_ = true;
        pending_header_ = h;
    } else {
        found.contents = {at_, h.length};
        at_ += h.length;
    }
    return true;
}

bool reader::enter()
{
    if (failed_ || !pending_)
        return false;
    if (depth_ == max_depth) {
        too_deep_ = true;
        return fail();
    }
    const uint8_t *end = pending_header_.indefinite ? levels_[depth_].end : at_ + pending_header_.length;
    levels_[++depth_] = {end, pending_header_.indefinite};
    pending_ = false;
    return true;
}

void reader::leave()
{
    item rest;
    while (next(rest))
        ;
    if (!failed_ && levels_[depth_].indefinite)
        at_ += 2;
    --depth_;
}

void reader::skip_pending()
{
    if (!pending_)
        return;
    pending_ = false;
    if (!pending_header_.indefinite)
        at_ += pending_header_.length;
    else if (!skip_indefinite())
        fail();
}

// Containers of known length are stepped over whole, so one pass and a counter are enough.
bool reader::skip_indefinite()
{
    const level &l = levels_[depth_];
    for (size_t open = 1; open > 0;) {
        if (at_end_mark(l)) {
            at_ += 2;
            --open;
            continue;
        }
        header h{};
        if (!read_header(h, l.end))
            return false;
        if (h.indefinite)
            ++open;
        else
            at_ += h.length;
        if (open > max_depth) {
            too_deep_ = true;
            return false;
        }
    }
    return true;
}

verdict check(std::span<const uint8_t> message)
{
    reader r(message);
    size_t depth = 0;
    for (item found;;) {
        if (r.next(found)) {
            if (found.is_constructed() && r.enter())
                ++depth;
        } else if (r.failed() || depth == 0) {
            return r.too_deep() ? verdict::too_deep : r.failed() ? verdict::broken : verdict::sound;
        } else {
            r.leave();
            --depth;
        }
    }
}

std::optional<int64_t> to_integer(std::span<const uint8_t> contents)
{
    if (contents.empty() || contents.size() > sizeof(int64_t))
        return std::nullopt;
    return sign_extended(contents);
}

// The exponent counts from the leading one bit of the mantissa, which is read as a fraction 1.xxx: this is how every
// Ember+ implementation reads it, though the encoding rules would read the mantissa as a whole number.
std::optional<double> to_real(std::span<const uint8_t> contents)
{
    if (contents.empty())
        return 0.0;
    const uint8_t first = contents[0];
    if (!(first & 0x80))
        return special_real(first);
    const size_t exponent_size = (first & 0x03) + 1u;
    if (exponent_size > 3 || contents.size() < 2 + exponent_size)
        return std::nullopt;
    const int64_t exponent = sign_extended(contents.subspan(1, exponent_size));
    auto mantissa_bytes = contents.subspan(1 + exponent_size);
    while (mantissa_bytes.size() > 1 && mantissa_bytes[0] == 0)
        mantissa_bytes = mantissa_bytes.subspan(1);
    if (mantissa_bytes.size() > sizeof(uint64_t))
        return std::nullopt;
    uint64_t mantissa = 0;
    for (const uint8_t byte : mantissa_bytes)
        mantissa = mantissa << 8 | byte;
    if (mantissa == 0)
        return 0.0;
    const int leading_bit = 63 - __builtin_clzll(mantissa);
    const double size = std::ldexp(static_cast<double>(mantissa), static_cast<int>(exponent) - leading_bit);
    return first & 0x40 ? -size : size;
}

std::optional<size_t> to_path(std::span<const uint8_t> contents, std::span<uint32_t> path)
{
    size_t count = 0;
    uint64_t number = 0;
    bool inside = false;
    for (const uint8_t byte : contents) {
        number = number << 7 | (byte & 0x7F);
        inside = byte & 0x80;
        if (number > UINT32_MAX || count == path.size())
            return std::nullopt;
        if (inside)
            continue;
        path[count++] = static_cast<uint32_t>(number);
        number = 0;
    }
    return inside ? std::nullopt : std::optional(count);
}

}  // namespace zel::ember::ber
