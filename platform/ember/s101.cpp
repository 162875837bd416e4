#include "s101.h"

#include <algorithm>

namespace zel::ember::s101 {

namespace {

constexpr uint8_t slot = 0x00;
constexpr uint8_t message_type = 0x0E;
constexpr uint8_t version = 0x01;
constexpr uint8_t dtd_glow = 0x01;
constexpr uint8_t glow_minor = 50, glow_major = 2;

enum command : uint8_t { command_ember = 0, command_keep_alive_request = 1, command_keep_alive_response = 2 };
enum flag : uint8_t { flag_first = 0x80, flag_last = 0x40, flag_empty = 0x20 };

constexpr size_t header_size = 4;        // slot, message type, command, version
constexpr size_t data_header_size = 7;   // and flags, DTD, number of application bytes
constexpr size_t checksum_size = 2;
constexpr uint16_t checksum_start = 0xFFFF;
constexpr uint16_t checksum_of_good_frame = 0xF0B8;
constexpr size_t usual_capacity = 4096;

constexpr std::array<uint16_t, 256> make_table()
{
    std::array<uint16_t, 256> table{};
    for (unsigned i = 0; i < table.size(); ++i) {
        unsigned value = i;
        for (int bit = 0; bit < 8; ++bit)
            value = (value & 1) ? (value >> 1) ^ 0x8408 : value >> 1;
        table[i] = static_cast<uint16_t>(value);
    }
    return table;
}

constexpr auto checksum_table = make_table();
static_assert(checksum_table[1] == 0x1189 && checksum_table[255] == 0x0F78);

uint8_t *put_escaped(uint8_t *to, uint8_t byte)
{
    if (byte >= first_reserved) {
        *to++ = escape;
        byte ^= escape_bit;
    }
    *to++ = byte;
    return to;
}

uint8_t *put_escaped(uint8_t *to, std::span<const uint8_t> bytes)
{
    for (const uint8_t byte : bytes)
        to = put_escaped(to, byte);
    return to;
}

uint8_t *put_frame(uint8_t *to, uint8_t flags, std::span<const uint8_t> payload)
{
    const std::array<uint8_t, 9> header{slot, message_type, command_ember, version, flags, dtd_glow, 2, glow_minor, glow_major};
    const auto sum = static_cast<uint16_t>(~checksum(checksum(checksum_start, header), payload));
    *to++ = begin_of_frame;
    to = put_escaped(to, header);
    to = put_escaped(to, payload);
    to = put_escaped(to, static_cast<uint8_t>(sum & 0xFF));
    to = put_escaped(to, static_cast<uint8_t>(sum >> 8));
    *to++ = end_of_frame;
    return to;
}

}  // namespace

uint16_t checksum(uint16_t so_far, std::span<const uint8_t> bytes)
{
    for (const uint8_t byte : bytes)
        so_far = static_cast<uint16_t>((so_far >> 8) ^ checksum_table[(so_far ^ byte) & 0xFF]);
    return so_far;
}

void append_message(std::vector<uint8_t> &out, std::span<const uint8_t> message)
{
    constexpr size_t frame_overhead = 24;   // header and checksum, all escaped, and both ends
    const size_t frames = std::max<size_t>(1, (message.size() + max_payload_sent - 1) / max_payload_sent);
    const size_t start = out.size();
    out.resize(start + 2 * message.size() + frames * frame_overhead);
    uint8_t *to = out.data() + start;
    for (size_t i = 0; i < frames; ++i) {
        const size_t offset = i * max_payload_sent;
        const auto payload = message.subspan(offset, std::min(max_payload_sent, message.size() - offset));
        const int flags = (i == 0 ? flag_first : 0) | (i + 1 == frames ? flag_last : 0);
        to = put_frame(to, static_cast<uint8_t>(flags), payload);
    }
    out.resize(static_cast<size_t>(to - out.data()));
}

size_t decoder::feed(std::span<const uint8_t> bytes, event &what)
{
    what = event::none;
    size_t at = 0;
    while (at < bytes.size() && what == event::none) {
        if (state_ == state::outside) {
            const auto found = std::find(bytes.begin() + static_cast<std::ptrdiff_t>(at), bytes.end(), begin_of_frame);
            at = static_cast<size_t>(found - bytes.begin());
            if (at < bytes.size())
                what = special_byte(bytes[at++]);
        } else if (state_ == state::inside && bytes[at] < first_reserved) {
            at += append_plain_run(bytes.subspan(at));
        } else {
            what = special_byte(bytes[at++]);
        }
        if (frame_.size() > max_message_ + 512)   // 512: more than any header with its application bytes
            what = event::too_long;
    }
    return at;
}

size_t decoder::append_plain_run(std::span<const uint8_t> bytes)
{
    const auto end = std::find_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte >= first_reserved; });
    frame_.insert(frame_.end(), bytes.begin(), end);
    return static_cast<size_t>(end - bytes.begin());
}

// A byte that is no plain content of a frame: a reserved one, or the one after an escape.
event decoder::special_byte(uint8_t byte)
{
    switch (byte) {
    case begin_of_frame:
        frame_.clear();
        state_ = state::inside;
        return event::none;
    case end_of_frame: {
        const bool whole = state_ == state::inside;
        state_ = state::outside;
        return whole ? end_frame() : event::none;
    }
    default:
        break;
    }
    if (state_ == state::escaped && byte < first_reserved) {
        frame_.push_back(byte ^ escape_bit);
        state_ = state::inside;
    } else {
        state_ = byte == escape && state_ == state::inside ? state::escaped : state::outside;
    }
    return event::none;
}

event decoder::end_frame()
{
    if (frame_.size() < header_size + checksum_size || checksum(checksum_start, frame_) != checksum_of_good_frame)
        return event::none;
    const std::span<const uint8_t> content(frame_.data(), frame_.size() - checksum_size);
    if (content[0] != slot || content[1] != message_type)
        return event::none;
    switch (content[2]) {
    case command_ember:
        return data_frame(content);
    case command_keep_alive_request:
        return event::keep_alive_request;
    case command_keep_alive_response:
        return event::keep_alive_response;
    default:
        return event::none;
    }
}

event decoder::data_frame(std::span<const uint8_t> content)
{
    if (content.size() < data_header_size || content[5] != dtd_glow || content.size() - data_header_size < content[6])
        return event::none;
    const uint8_t flags = content[4];
    const auto payload = content.subspan(data_header_size + content[6]);
    if (flags & flag_first) {
        message_.clear();
        collecting_ = true;
    }
    if (!collecting_)
        return event::none;
    if (message_.size() + payload.size() > max_message_)
        return event::too_long;
    if (!(flags & flag_empty))
        message_.insert(message_.end(), payload.begin(), payload.end());
    if (!(flags & flag_last))
        return event::none;
    collecting_ = false;
    return event::message;
}

void decoder::trim()
{
    if (message_.capacity() > usual_capacity && !collecting_)
        message_ = {};
    if (frame_.capacity() > usual_capacity && state_ == state::outside)
        frame_ = {};
}

}  // namespace zel::ember::s101
