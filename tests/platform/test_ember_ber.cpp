#include "ember_support.h"

#include <cmath>
#include <random>

using namespace ember_test;
namespace ber = zel::ember::ber;

namespace {

template <typename put> std::string written(put &&with)
{
    ber::writer w;
    with(w);
    return to_hex(w.message());
}

// Contents of the one primitive value that `text` holds.
bytes contents_of(std::string_view text)
{
    const bytes message = from_hex(text);
    ber::reader r(message);
    ber::item found;
    EXPECT_TRUE(r.next(found)) << text;
    return copy_of(found.contents);
}

// The structure of a message, one line: "30(02:05 31(0c:6162))".
std::string structure(ber::reader &r)
{
    std::string out;
    char tag[8];
    for (ber::item found; r.next(found);) {
        snprintf(tag, sizeof(tag), "%s%02x", out.empty() ? "" : " ", found.tag);
        out += tag;
        if (found.is_constructed() && r.enter()) {
            out += "(" + structure(r) + ")";
            r.leave();
        } else {
            std::string hex = to_hex(found.contents);
            std::erase(hex, ' ');
            out += ":" + hex;
        }
    }
    return out;
}

std::string structure(std::string_view text)
{
    const bytes message = from_hex(text);
    ber::reader r(message);
    const std::string out = structure(r);
    return r.failed() ? "broken" : out;
}

struct integer_case { int64_t value; const char *encoded; };
constexpr integer_case integers[] = {
    {0, "02 01 00"}, {1, "02 01 01"}, {-1, "02 01 ff"}, {127, "02 01 7f"}, {128, "02 02 00 80"}, {-128, "02 01 80"},
    {-129, "02 02 ff 7f"}, {255, "02 02 00 ff"}, {256, "02 02 01 00"}, {32767, "02 02 7f ff"}, {32768, "02 03 00 80 00"},
    {INT32_MAX, "02 04 7f ff ff ff"}, {INT32_MIN, "02 04 80 00 00 00"}, {int64_t{1} << 31, "02 05 00 80 00 00 00"},
    {INT64_MAX, "02 08 7f ff ff ff ff ff ff ff"}, {INT64_MIN, "02 08 80 00 00 00 00 00 00 00"},
};

struct real_case { double value; const char *encoded; };
const real_case reals[] = {
    {0.0, "09 00"}, {1.0, "09 03 80 00 01"}, {3.0, "09 03 80 01 03"}, {-2.5, "09 03 c0 01 05"},
    {0.1, "09 09 80 fc 0c cc cc cc cc cc cd"}, {255.0, "09 04 80 07 00 ff"}, {256.0, "09 03 80 08 01"},
    {HUGE_VAL, "09 01 40"}, {-HUGE_VAL, "09 01 41"}, {std::ldexp(1.0, 300), "09 04 81 01 2c 01"},
    {std::ldexp(-3.0, -300), "09 04 c1 fe d5 03"},
};

}  // namespace

TEST(ember_ber, integers_are_written_minimal_and_read_back)
{
    for (const auto &[value, encoded] : integers) {
        EXPECT_EQ(written([v = value](auto &w) { w.integer(v); }), encoded);
        EXPECT_EQ(ber::to_integer(contents_of(encoded)), value);
    }
}

TEST(ember_ber, random_integers_survive)
{
    std::mt19937_64 random(7);
    for (int i = 0; i < 20000; ++i) {
        const auto value = static_cast<int64_t>(random() >> (random() % 64)) * (i % 2 ? 1 : -1);
        ber::writer w;
        w.integer(value);
        const auto contents = w.message().subspan(2);
        ASSERT_EQ(ber::to_integer(contents), value);
        // Minimal: the first nine bits are not all alike.
        if (contents.size() > 1) {
            ASSERT_FALSE((contents[0] == 0 && !(contents[1] & 0x80)) || (contents[0] == 0xFF && (contents[1] & 0x80)));
        }
    }
}

TEST(ember_ber, integers_longer_than_needed_are_read_and_longer_than_eight_bytes_are_not)
{
    EXPECT_EQ(ber::to_integer(from_hex("ff ff ff ff ff ff ff ff")), -1);
    EXPECT_EQ(ber::to_integer(from_hex("00 00 00 05")), 5);
    EXPECT_EQ(ber::to_integer(from_hex("00 00 00 00 00 00 00 00 05")), std::nullopt);
    EXPECT_EQ(ber::to_integer({}), std::nullopt);
}

TEST(ember_ber, reals_have_the_exponent_of_their_leading_bit)
{
    for (const auto &[value, encoded] : reals) {
        EXPECT_EQ(written([&, v = value](auto &w) { w.real(v); }), encoded);
        EXPECT_EQ(ber::to_real(contents_of(encoded)), value);
    }
}

TEST(ember_ber, random_reals_survive)
{
    std::mt19937_64 random(11);
    for (int i = 0; i < 20000; ++i) {
        const double value = std::ldexp(static_cast<double>(random()) - 9e18, static_cast<int>(random() % 1900) - 1000);
        ber::writer w;
        w.real(value);
        ASSERT_EQ(ber::to_real(w.message().subspan(2)), value);
    }
}

TEST(ember_ber, special_reals_are_read_and_negative_zero_is_never_sent)
{
    EXPECT_TRUE(std::isnan(*ber::to_real(from_hex("42"))));
    EXPECT_TRUE(std::signbit(*ber::to_real(from_hex("43"))));
    EXPECT_EQ(written([](auto &w) { w.real(-0.0); }), "09 00");
    EXPECT_EQ(written([](auto &w) { w.real(NAN); }), "09 01 42");
    EXPECT_EQ(ber::to_real(from_hex("80 01 00 03")), 3.0);     // a leading zero byte of the mantissa
    for (const char *broken : {"80", "80 01", "83 00 00 00 01 01", "44", "80 00 01 02 03 04 05 06 07 08 09"})
        EXPECT_EQ(ber::to_real(from_hex(broken)), std::nullopt) << broken;
}

TEST(ember_ber, booleans_are_sent_as_all_ones_and_texts_may_be_empty)
{
    EXPECT_EQ(written([](auto &w) { w.boolean(true); }), "01 01 ff");
    EXPECT_EQ(written([](auto &w) { w.boolean(false); }), "01 01 00");
    EXPECT_EQ(written([](auto &w) { w.utf8(""); }), "0c 00");
    EXPECT_EQ(written([](auto &w) { w.utf8("unit"); }), "0c 04 75 6e 69 74");
    EXPECT_EQ(written([](auto &w) { w.null(); }), "05 00");
}

TEST(ember_ber, paths_have_seven_bits_to_a_byte)
{
    const uint32_t numbers[] = {1, 127, 128, 300, UINT32_MAX, 0};
    EXPECT_EQ(written([&](auto &w) { w.path(numbers); }), "0d 0c 01 7f 81 00 82 2c 8f ff ff ff 7f 00");
    uint32_t read[32];
    ASSERT_EQ(ber::to_path(from_hex("01 7f 81 00 82 2c 8f ff ff ff 7f 00"), read), 6u);
    EXPECT_TRUE(std::equal(std::begin(numbers), std::end(numbers), read));
}

TEST(ember_ber, paths_that_do_not_end_or_do_not_fit_are_refused)
{
    uint32_t read[2];
    EXPECT_EQ(ber::to_path(from_hex("01 82"), read), std::nullopt);
    EXPECT_EQ(ber::to_path(from_hex("01 02 03"), read), std::nullopt);
    EXPECT_EQ(ber::to_path(from_hex("90 80 80 80 00"), read), std::nullopt);
    EXPECT_EQ(ber::to_path({}, read), 0u);
}

TEST(ember_ber, lengths_are_written_minimal)
{
    for (const size_t length : {0u, 127u, 128u, 255u, 256u, 65535u, 65536u}) {
        ber::writer w;
        w.utf8(std::string(length, 'x'));
        const size_t header = length < 128 ? 2 : length < 256 ? 3 : length < 65536 ? 4 : 5;
        EXPECT_EQ(w.message().size(), header + length);
        ber::reader r(w.message());
        ber::item found;
        ASSERT_TRUE(r.next(found));
        EXPECT_EQ(found.contents.size(), length);
    }
}

TEST(ember_ber, lengths_of_any_form_are_read_alike)
{
    for (const char *message : {"a2 03 02 01 05", "a2 81 03 02 01 05", "a2 84 00 00 00 04 02 81 01 05", "a2 80 02 01 05 00 00",
                                "a2 80 02 84 00 00 00 01 05 00 00"})
        EXPECT_EQ(structure(message), "a2(02:05)") << message;
}

TEST(ember_ber, indefinite_and_definite_lengths_may_be_nested_in_each_other)
{
    EXPECT_EQ(structure("30 80 31 06 a0 80 05 00 00 00 30 80 00 00 00 00 02 01 07"), "30(31(a0(05:)) 30()) 02:07");
}

TEST(ember_ber, what_is_not_entered_is_stepped_over)
{
    for (const char *text : {"30 80 31 80 02 01 01 00 00 0c 02 00 00 30 03 02 01 00 00 00 02 01 07", "30 03 02 01 09 02 01 07"}) {
        const bytes message = from_hex(text);
        ber::reader r(message);
        ber::item found;
        ASSERT_TRUE(r.next(found));
        EXPECT_EQ(found.tag, 0x30);
        ASSERT_TRUE(r.next(found)) << text;
        EXPECT_EQ(to_hex(found.contents), "07");
        EXPECT_FALSE(r.next(found));
        EXPECT_FALSE(r.failed());
    }
}

TEST(ember_ber, a_container_left_early_is_stepped_over_to_its_end)
{
    for (const char *text : {"30 80 02 01 01 31 80 02 01 02 00 00 00 00 02 01 07", "30 08 02 01 01 31 03 02 01 02 02 01 07"}) {
        const bytes message = from_hex(text);
        ber::reader r(message);
        ber::item found;
        ASSERT_TRUE(r.next(found) && r.enter() && r.next(found));
        r.leave();
        ASSERT_TRUE(r.next(found)) << text;
        EXPECT_EQ(to_hex(found.contents), "07");
    }
}

TEST(ember_ber, tags_of_several_bytes_are_stepped_over)
{
    EXPECT_EQ(structure("5f 81 01 01 aa 02 01 05"), "1f:aa 02:05");
    EXPECT_EQ(structure("bf 22 03 02 01 01 02 01 05"), "3f(02:01) 02:05");
    EXPECT_EQ(structure("5f ff ff ff ff ff 01 01 aa"), "broken");
}

TEST(ember_ber, a_message_cut_short_is_broken_wherever_it_is_cut)
{
    for (const auto *frame : {&peer_frames::enumeration_reply, &peer_frames::nested_set}) {
        const bytes message = messages_in(*frame).at(0);
        EXPECT_EQ(ber::check(message), ber::verdict::sound);
        for (size_t length = 1; length < message.size(); ++length)
            EXPECT_EQ(ber::check(std::span(message).first(length)), ber::verdict::broken) << length;
    }
    const bytes indefinite = messages_in(peer_frames::indefinite_first + peer_frames::indefinite_second).at(0);
    EXPECT_EQ(ber::check(indefinite), ber::verdict::sound);
    for (size_t length = 1; length < indefinite.size(); ++length)
        EXPECT_EQ(ber::check(std::span(indefinite).first(length)), ber::verdict::broken) << length;
}

TEST(ember_ber, broken_lengths_are_noticed)
{
    for (const char *text : {"30", "30 05 02 01 01", "02 80 01 00 00", "30 85 00 00 00 00 03 02 01 01", "30 84 ff ff ff ff 00",
                             "30 82 01", "30 03 02 02 01", "30 80 02 01 01", "30 80 02 01 01 00"})
        EXPECT_EQ(structure(text), "broken") << text;
}

TEST(ember_ber, depth_is_bounded_in_both_forms)
{
    for (const size_t depth : {size_t{65}, ber::max_depth, ber::max_depth + 1}) {
        const auto expected = depth <= ber::max_depth ? ber::verdict::sound : ber::verdict::too_deep;
        ber::writer w;
        for (size_t i = 0; i < depth; ++i)
            w.header(0x30, 0);
        EXPECT_EQ(ber::check(w.message()), expected) << depth;
        bytes indefinite;
        for (size_t i = 0; i < depth; ++i)
            indefinite = std::move(indefinite) + bytes{0x30, 0x80};
        indefinite.resize(indefinite.size() + 2 * depth);
        EXPECT_EQ(ber::check(indefinite), expected) << depth;
    }
}

TEST(ember_ber, stepping_over_endless_nesting_ends)
{
    bytes hostile;
    for (int i = 0; i < 50000; ++i)
        hostile.insert(hostile.end(), {0x30, 0x80});
    ber::reader r(hostile);
    ber::item found;
    ASSERT_TRUE(r.next(found));
    EXPECT_FALSE(r.next(found));
    EXPECT_TRUE(r.failed() && r.too_deep());
}

TEST(ember_ber, a_writer_cleared_writes_the_same_again)
{
    ber::writer w;
    for (int round = 0; round < 3; ++round) {
        w.clear();
        w.utf8(std::string(1000, 'y'));
        w.integer(round);
        EXPECT_EQ(w.message().size(), 3 + 1004u);
        EXPECT_EQ(w.message()[2], round);
    }
}
