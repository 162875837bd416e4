// S101: how a stream of bytes is cut into frames, and how several frames make one message. Only the escaping variant is
// spoken. Knows nothing of what a message contains.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace zel::ember::s101 {

constexpr uint8_t begin_of_frame = 0xFE;
constexpr uint8_t end_of_frame = 0xFF;
constexpr uint8_t escape = 0xFD;
constexpr uint8_t escape_bit = 0x20;
constexpr uint8_t first_reserved = 0xF8;   // this byte and all above it never appear unescaped inside a frame

// Small peers receive into 1024 bytes and lose longer frames, header and checksum included.
constexpr size_t max_payload_sent = 1000;

// Both are complete frames.
inline constexpr std::array<uint8_t, 8> keep_alive_request_frame{0xFE, 0x00, 0x0E, 0x01, 0x01, 0x94, 0xE4, 0xFF};
inline constexpr std::array<uint8_t, 9> keep_alive_response_frame{0xFE, 0x00, 0x0E, 0x02, 0x01, 0xFD, 0xDC, 0xCE, 0xFF};

// One step of the frame checksum; start with 0xFFFF, transmit the inverted result, low byte first.
uint16_t checksum(uint16_t so_far, std::span<const uint8_t> bytes);

// Append the frames that carry `message` to `out`. Throws std::bad_alloc.
void append_message(std::vector<uint8_t> &out, std::span<const uint8_t> message);

enum class event : uint8_t {
    none,                  // all bytes were consumed
    message,               // a whole message stands in message()
    keep_alive_request,
    keep_alive_response,
    too_long               // a frame or a message exceeds the bound: the peer is to be dropped
};

// Finds frames in a stream that may be cut anywhere. Broken frames are dropped, the rest of the stream still counts.
class decoder {
public:
    explicit decoder(size_t max_message) : max_message_(max_message) {}

    // Consume bytes until something is complete; returns how many were consumed. Throws std::bad_alloc.
    size_t feed(std::span<const uint8_t> bytes, event &what);

    // The message that feed() reported; valid until the next call of feed().
    std::span<const uint8_t> message() const { return {message_.data(), message_.size()}; }

    // Give memory of an unusually long message back. Call only between messages.
    void trim();

private:
    enum class state : uint8_t { outside, inside, escaped };

    event special_byte(uint8_t byte);
    event end_frame();
    event data_frame(std::span<const uint8_t> content);
    size_t append_plain_run(std::span<const uint8_t> bytes);

    const size_t max_message_;
    state state_ = state::outside;
    bool collecting_ = false;          // a first frame was seen
    std::vector<uint8_t> frame_;       // unescaped, checksum included
    std::vector<uint8_t> message_;
};

}  // namespace zel::ember::s101
