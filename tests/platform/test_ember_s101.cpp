#include "ember_support.h"

using namespace ember_test;
namespace s101 = zel::ember::s101;

namespace {

constexpr size_t bound = 4096;

// What a decoder reports for a stream given in pieces of a size: "message <hex>", "request", "response", "too long".
lines decoded(std::span<const uint8_t> stream, size_t piece = SIZE_MAX, size_t max_message = bound)
{
    lines out;
    s101::decoder decoder(max_message);
    for (size_t from = 0; from < stream.size(); from += std::min(piece, stream.size() - from)) {
        auto part = stream.subspan(from, std::min(piece, stream.size() - from));
        while (!part.empty()) {
            s101::event what;
            part = part.subspan(decoder.feed(part, what));
            switch (what) {
            case s101::event::message: out.push_back("message " + to_hex(decoder.message())); break;
            case s101::event::keep_alive_request: out.push_back("request"); break;
            case s101::event::keep_alive_response: out.push_back("response"); break;
            case s101::event::too_long: out.push_back("too long"); return out;
            default: break;
            }
        }
        if (piece == SIZE_MAX)
            break;
    }
    return out;
}

// A frame with a right checksum around any content.
bytes frame_of(bytes content)
{
    const auto sum = static_cast<uint16_t>(~s101::checksum(0xFFFF, content));
    content.push_back(static_cast<uint8_t>(sum & 0xFF));
    content.push_back(static_cast<uint8_t>(sum >> 8));
    bytes out{0xFE};
    for (const uint8_t byte : content) {
        if (byte >= 0xF8)
            out.push_back(0xFD);
        out.push_back(byte >= 0xF8 ? byte ^ 0x20 : byte);
    }
    out.push_back(0xFF);
    return out;
}

bytes data_frame(uint8_t flags, const bytes &payload, const bytes &application = {0x32, 0x02})
{
    bytes content{0x00, 0x0E, 0x00, 0x01, flags, 0x01, static_cast<uint8_t>(application.size())};
    return frame_of(content + application + payload);
}

const bytes abc{0xAA, 0xBB, 0xCC};
const std::string abc_message = "message aa bb cc";

}  // namespace

TEST(ember_s101, the_checksum_of_the_standard_test_text_is_906e)
{
    const std::string_view text = "123456789";
    const bytes content(text.begin(), text.end());
    const auto sum = static_cast<uint16_t>(~s101::checksum(0xFFFF, content));
    EXPECT_EQ(sum, 0x906E);
}

TEST(ember_s101, content_and_checksum_together_leave_the_same_remainder)
{
    EXPECT_EQ(s101::checksum(0xFFFF, from_hex("00 0e 01 01 94 e4")), 0xF0B8);
    EXPECT_EQ(s101::checksum(0xFFFF, from_hex("00 0e 01 01")), 0x1B6B);
}

TEST(ember_s101, reserved_bytes_of_content_and_checksum_are_escaped)
{
    EXPECT_EQ(to_hex(frame_of({0xFF, 0x00, 0xF9, 0x01})), "fe fd df 00 fd d9 01 95 83 ff");
    // The same byte inside a message: the frame holds no reserved byte between its ends but escapes.
    bytes all;
    for (unsigned byte = 0; byte < 256; ++byte)
        all.push_back(static_cast<uint8_t>(byte));
    const bytes sent = framed(all);
    for (size_t i = 1; i + 1 < sent.size(); ++i)
        EXPECT_TRUE(sent[i] < 0xF8 || sent[i] == 0xFD) << i;
    EXPECT_EQ(messages_in(sent), std::vector<bytes>{all});
}

TEST(ember_s101, keep_alive_frames_are_those_of_all_peers)
{
    EXPECT_EQ(copy_of(s101::keep_alive_request_frame), peer_frames::keep_alive_request);
    EXPECT_EQ(copy_of(s101::keep_alive_response_frame), peer_frames::keep_alive_response);
    EXPECT_EQ(decoded(peer_frames::keep_alive_request + peer_frames::keep_alive_response), (lines{"request", "response"}));
}

TEST(ember_s101, frames_of_peers_are_taken_apart_and_made_again_byte_for_byte)
{
    for (const auto &list : {peer_frames::of_definite_lengths, peer_frames::others})
        for (const bytes &frame : list) {
            bytes content = frames_in(frame).at(0);
            ASSERT_GT(content.size(), 5u);
            content.resize(content.size() - 2);       // its checksum, which frame_of() reckons anew
            EXPECT_EQ(to_hex(frame_of(content)), to_hex(frame));
        }
}

TEST(ember_s101, a_short_message_makes_the_frame_that_other_implementations_make)
{
    for (const auto &frame : {peer_frames::root_reply, peer_frames::node_reply, peer_frames::childless_reply,
                              peer_frames::notice_boolean, peer_frames::notice_integer}) {
        const auto messages = messages_in(frame);
        ASSERT_EQ(messages.size(), 1u);
        EXPECT_EQ(to_hex(framed(messages[0])), to_hex(frame));
    }
}

TEST(ember_s101, a_long_message_goes_out_in_frames_that_fit_a_small_receiver)
{
    bytes message(5001, 0xFF);     // every byte escaped
    const bytes sent = framed(message);
    size_t unescaped = 0, frames = 0;
    for (size_t i = 0; i < sent.size(); ++i) {
        if (sent[i] == 0xFE)
            unescaped = 0, ++frames;
        else if (sent[i] != 0xFD)
            ++unescaped;
        EXPECT_LE(unescaped, 1024u - 2);
    }
    EXPECT_EQ(frames, 6u);
    EXPECT_EQ(messages_in(sent), std::vector<bytes>{message});
}

TEST(ember_s101, an_empty_message_is_one_whole_frame)
{
    EXPECT_EQ(decoded(framed({})), lines{"message "});
}

TEST(ember_s101, a_stream_may_be_cut_anywhere)
{
    const bytes stream = peer_frames::keep_alive_request + peer_frames::indefinite_first + peer_frames::keep_alive_response +
                         peer_frames::indefinite_second + peer_frames::root_directory_nep;
    const lines whole = decoded(stream);
    ASSERT_EQ(whole.size(), 4u);
    for (size_t piece = 1; piece < stream.size(); ++piece)
        EXPECT_EQ(decoded(stream, piece), whole) << piece;
}

TEST(ember_s101, two_thousand_frames_in_one_read_are_all_found)
{
    bytes stream;
    for (int i = 0; i < 2000; ++i)
        stream = std::move(stream) + peer_frames::keep_alive_request;
    EXPECT_EQ(decoded(stream), lines(2000, "request"));
}

TEST(ember_s101, bytes_between_frames_are_ignored)
{
    EXPECT_EQ(decoded(bytes{0x00, 0xFF, 0xFD, 0x20, 0xF8, 0x01, 0x04} + peer_frames::keep_alive_request + bytes{0x13, 0xFF}),
              lines{"request"});
}

TEST(ember_s101, the_length_prefixed_variant_does_not_disturb_what_follows)
{
    EXPECT_EQ(decoded(from_hex("f8 01 04 00 0e 01 01") + peer_frames::keep_alive_request), lines{"request"});
}

TEST(ember_s101, a_frame_with_a_wrong_checksum_is_dropped_and_the_next_one_counts)
{
    for (size_t at = 1; at + 1 < peer_frames::keep_alive_request.size(); ++at) {
        bytes wrong = peer_frames::keep_alive_request;
        wrong[at] ^= 0x01;
        EXPECT_EQ(decoded(wrong + peer_frames::keep_alive_response), lines{"response"}) << at;
    }
}

TEST(ember_s101, a_frame_begun_anew_forgets_what_was_collected)
{
    EXPECT_EQ(decoded(from_hex("fe 00 0e 00") + peer_frames::keep_alive_request), lines{"request"});
    EXPECT_EQ(decoded(from_hex("fe 00 0e 00 fd") + peer_frames::keep_alive_request), lines{"request"});
}

TEST(ember_s101, a_frame_that_ends_inside_an_escape_is_dropped)
{
    EXPECT_EQ(decoded(from_hex("fe 00 0e 01 01 94 e4 fd ff") + peer_frames::keep_alive_request), lines{"request"});
}

TEST(ember_s101, a_reserved_byte_that_is_not_escaped_spoils_its_frame_only)
{
    for (uint8_t reserved = 0xF8; reserved <= 0xFC; ++reserved) {
        bytes spoilt = data_frame(0xC0, abc);
        spoilt.insert(spoilt.begin() + 5, reserved);
        EXPECT_EQ(decoded(spoilt + peer_frames::keep_alive_request), lines{"request"});
    }
}

TEST(ember_s101, frames_that_are_too_short_are_dropped)
{
    EXPECT_EQ(decoded(from_hex("fe ff fe 00 ff fe ff") + frame_of({0x00, 0x0E, 0x01}) + frame_of({}) +
                      frame_of({0x00, 0x0E, 0x00, 0x01}) +
                      frame_of({0x00, 0x0E, 0x00, 0x01, 0xC0, 0x01}) + peer_frames::keep_alive_request),
              lines{"request"});
}

TEST(ember_s101, frames_of_other_slots_types_and_formats_are_dropped)
{
    bytes other_slot{0x01, 0x0E, 0x01, 0x01}, other_type{0x00, 0x0F, 0x01, 0x01}, state{0x00, 0x0E, 0x03, 0x01, 0x01};
    bytes other_dtd{0x00, 0x0E, 0x00, 0x01, 0xC0, 0x02, 0x00, 0xAA};
    EXPECT_EQ(decoded(frame_of(other_slot) + frame_of(other_type) + frame_of(state) + frame_of(other_dtd) +
                      frame_of({0x00, 0x0E, 0x63, 0x01}) + peer_frames::keep_alive_request),
              lines{"request"});
}

TEST(ember_s101, another_version_is_accepted)
{
    EXPECT_EQ(decoded(frame_of({0x00, 0x0E, 0x01, 0x07})), lines{"request"});
}

TEST(ember_s101, application_bytes_may_be_absent_or_more_than_two)
{
    EXPECT_EQ(decoded(data_frame(0xC0, abc, {}) + data_frame(0xC0, abc, {1, 2, 3, 4, 5})), (lines{abc_message, abc_message}));
}

TEST(ember_s101, more_application_bytes_announced_than_there_are_spoil_the_frame)
{
    EXPECT_EQ(decoded(frame_of({0x00, 0x0E, 0x00, 0x01, 0xC0, 0x01, 0x09, 0x32, 0x02})), lines{});
}

TEST(ember_s101, frames_of_one_message_are_joined_across_a_keep_alive)
{
    EXPECT_EQ(decoded(data_frame(0x80, {0xAA}) + peer_frames::keep_alive_request + data_frame(0x00, {0xBB}) +
                      data_frame(0x40, {0xCC})),
              (lines{"request", abc_message}));
}

TEST(ember_s101, a_last_frame_without_payload_ends_a_message)
{
    EXPECT_EQ(decoded(data_frame(0x80, abc) + data_frame(0x60, {})), lines{abc_message});
}

TEST(ember_s101, an_empty_frame_adds_nothing)
{
    EXPECT_EQ(decoded(data_frame(0x80, {0xAA}) + data_frame(0x20, {0x99}) + data_frame(0x40, {0xBB, 0xCC})), lines{abc_message});
}

TEST(ember_s101, a_frame_without_a_first_one_before_it_is_ignored)
{
    EXPECT_EQ(decoded(data_frame(0x00, abc) + data_frame(0x40, abc) + data_frame(0xC0, abc) + data_frame(0x40, abc)),
              lines{abc_message});
}

TEST(ember_s101, a_first_frame_drops_an_unfinished_message)
{
    EXPECT_EQ(decoded(data_frame(0x80, {0x11, 0x22}) + data_frame(0x80, {0xAA}) + data_frame(0x40, {0xBB, 0xCC})),
              lines{abc_message});
}

TEST(ember_s101, a_message_of_the_bound_passes_and_one_byte_more_does_not)
{
    EXPECT_EQ(decoded(framed(bytes(bound, 0x11))).size(), 1u);
    EXPECT_EQ(decoded(framed(bytes(bound, 0x11)))[0].substr(0, 10), "message 11");
    EXPECT_EQ(decoded(framed(bytes(bound + 1, 0x11))), lines{"too long"});
}

TEST(ember_s101, a_frame_that_never_ends_is_noticed)
{
    EXPECT_EQ(decoded(bytes{0xFE} + bytes(2 * bound, 0x11), 100), lines{"too long"});
}

TEST(ember_s101, one_frame_may_hold_a_large_message)
{
    const bytes large(250000, 0x55);
    const auto found = decoded(data_frame(0xC0, large), SIZE_MAX, 300000);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].size(), 8 + 3 * large.size() - 1);
}

TEST(ember_s101, memory_of_a_large_message_is_given_back_without_harm)
{
    s101::decoder decoder(1 << 20);
    s101::event what;
    const bytes large = framed(bytes(100000, 0x77));
    for (int round = 0; round < 2; ++round) {
        std::span<const uint8_t> rest = large;
        do
            rest = rest.subspan(decoder.feed(rest, what));
        while (!rest.empty());
        EXPECT_EQ(what, s101::event::message);
        EXPECT_EQ(decoder.message().size(), 100000u);
        decoder.trim();
    }
}
