#include "ember_support.h"

#include <random>

using namespace ember_test;
namespace glow = zel::ember::glow;
namespace ber = zel::ember::ber;

namespace {

const std::string entries = "disabled\ninput\noutput";

lines read_hex(std::string_view text) { return reader::read(from_hex(text)); }

// Reads a container and writes what was read, with lengths of our own.
void copy_container(ber::reader &from, bytes &to)
{
    ber::item found;
    while (from.next(found)) {
        bytes contents = copy_of(found.contents);
        if (found.is_constructed() && from.enter()) {
            copy_container(from, contents);
            from.leave();
        }
        ber::writer w;
        w.bytes(contents);
        w.header(found.tag, 0);
        to = to + copy_of(w.message());
    }
}

}  // namespace

TEST(ember_glow, requests_of_peers_for_the_root_directory_are_understood)
{
    EXPECT_EQ(said_in(peer_frames::root_directory_sofie), lines{"command root 32"});
    EXPECT_EQ(said_in(peer_frames::root_directory_nep), lines{"command root 32"});
}

TEST(ember_glow, replies_of_peers_are_understood)
{
    EXPECT_EQ(said_in(peer_frames::root_reply), lines{"node 1 id=unit"});
    EXPECT_EQ(said_in(peer_frames::node_reply), (lines{"node 1 children", "node 1.1 id=gpio"}));
    EXPECT_EQ(said_in(peer_frames::childless_reply), lines{"node 1.1.6"});
    EXPECT_EQ(said_in(peer_frames::enumeration_reply),
              lines{"parameter 1.1.1.1.1 id=type value=0 access=3 entries=" + entries + " type=6"});
}

TEST(ember_glow, messages_of_peers_are_read_and_written_again_byte_for_byte)
{
    for (const bytes &frame : peer_frames::of_definite_lengths) {
        const bytes message = messages_in(frame).at(0);
        ber::reader reader(message);
        bytes copy;
        copy_container(reader, copy);
        EXPECT_FALSE(reader.failed());
        EXPECT_EQ(to_hex(copy), to_hex(message));
    }
}

TEST(ember_glow, a_nested_request_names_every_node_on_the_way)
{
    EXPECT_EQ(said_in(peer_frames::nested_directory), (lines{"node 1 children", "node 1.1 children", "command 1.1 32"}));
}

TEST(ember_glow, a_request_may_carry_contents)
{
    EXPECT_EQ(said_in(peer_frames::directory_with_value),
              (lines{"parameter 1.1.1.1.1 id=type value=0 access=3 entries=" + entries + " type=6 children",
                     "command 1.1.1.1.1 32"}));
}

TEST(ember_glow, sets_of_peers_are_understood)
{
    EXPECT_EQ(said_in(peer_frames::nested_set),
              (lines{"node 1 children", "node 1.1 children", "node 1.1.1 children", "node 1.1.1.1 children",
                     "parameter 1.1.1.1.7 value=false type=4"}));
    EXPECT_EQ(said_in(peer_frames::whole_set), lines{"parameter 1.1.1.1.7 id=status value=false access=3 type=4"});
}

TEST(ember_glow, notices_of_peers_are_understood)
{
    EXPECT_EQ(said_in(peer_frames::notice_boolean), lines{"parameter 1.1.1.1.7 value=false"});
    EXPECT_EQ(said_in(peer_frames::notice_integer), lines{"parameter 1.1.1.1.1 value=2"});
}

TEST(ember_glow, indefinite_lengths_over_two_frames_are_understood)
{
    EXPECT_EQ(said_in(peer_frames::indefinite_first + peer_frames::indefinite_second),
              (lines{"node 1.1 id=user buttons", "parameter 1.300 id=type value=1 access=3 entries=" + entries}));
}

TEST(ember_glow, commands_are_written_as_peers_write_them)
{
    ber::writer w;
    glow::write_command(w, {}, false, glow::command_get_directory);
    EXPECT_EQ(to_hex(w.message()), to_hex(messages_in(peer_frames::root_directory_sofie).at(0)));
    w.clear();
    const uint32_t where[] = {1, 1, 1, 1, 1};
    glow::write_command(w, where, true, glow::command_get_directory);
    EXPECT_EQ(to_hex(w.message()), "60 1c 6b 1a a0 18 69 16 a0 07 0d 05 01 01 01 01 01 a2 0b 64 09 a0 07 62 05 a0 03 02 01 20");
    EXPECT_EQ(reader::read(w.message()), (lines{"parameter 1.1.1.1.1 children", "command 1.1.1.1.1 32"}));
}

TEST(ember_glow, what_is_not_needed_is_stepped_over)
{
    // A matrix, a function, a template and a stream collection around one node.
    EXPECT_EQ(read_hex("60 80 6b 80 a0 05 6d 03 02 01 01 a0 05 73 03 02 01 01 a0 80 78 80 a1 05 63 03 02 01 01 00 00 00 00 "
                       "a0 07 63 05 a0 03 02 01 07 00 00 00 00"),
              lines{"node 7"});
    EXPECT_EQ(read_hex("60 0f 66 0d a0 0b 65 09 a0 03 02 01 01 a1 02 05 00"), lines{});
}

TEST(ember_glow, unknown_fields_and_fields_in_any_order_are_no_obstacle)
{
    // contents: type, an unknown field 42, value, identifier; an unknown field of the element before and behind them
    EXPECT_EQ(read_hex("60 80 6b 80 a0 80 69 80 a0 03 0d 01 05 bf 50 02 05 00 a1 80 31 80 ad 03 02 01 04 bf 2a 02 05 00 "
                       "a2 03 01 01 01 a0 03 0c 01 78 a9 03 02 01 01 00 00 00 00 00 00 00 00 00 00 00 00"),
              lines{"parameter 5 id=x value=true type=4"});
}

TEST(ember_glow, a_field_of_the_wrong_type_counts_as_absent)
{
    // identifier as integer, access as text
    EXPECT_EQ(read_hex("60 19 6b 17 a0 15 69 13 a0 03 0d 01 05 a1 0c 31 0a a0 03 02 01 01 a5 03 0c 01 33"), lines{"parameter 5"});
}

TEST(ember_glow, a_value_that_is_none_is_null)
{
    EXPECT_EQ(read_hex("60 13 6b 11 a0 0f 69 0d a0 03 0d 01 05 a1 06 31 04 a2 02 05 00"), lines{"parameter 5 value=null"});
    EXPECT_EQ(read_hex("60 13 6b 11 a0 0f 69 0d a0 03 0d 01 05 a1 06 31 04 a2 02 02 00"), lines{"parameter 5 value=null"});
    EXPECT_EQ(read_hex("60 13 6b 11 a0 0f 69 0d a0 03 0d 01 05 a1 06 31 04 a2 02 01 00"), lines{"parameter 5 value=null"});
    EXPECT_EQ(read_hex("60 13 6b 11 a0 0f 69 0d a0 03 0d 01 05 a1 06 31 04 a2 02 04 00"), lines{"parameter 5 value=octets"});
}

TEST(ember_glow, elements_without_a_place_are_left_out)
{
    EXPECT_EQ(read_hex("60 0c 6b 0a a0 08 63 06 a1 04 31 02 a0 00"), lines{});                 // no number
    EXPECT_EQ(read_hex("60 0b 6b 09 a0 07 6a 05 a0 03 0d 01 81"), lines{});                    // a path that does not end
    EXPECT_EQ(read_hex("60 09 6b 07 a0 05 6a 03 a0 02 0d 00"), lines{"broken"});               // lengths that do not match
    EXPECT_EQ(read_hex("60 0a 6b 08 a0 06 6a 04 a0 02 0d 00"), lines{});                       // an empty path
    EXPECT_EQ(read_hex("60 0b 6b 09 a0 07 63 05 a0 03 02 01 ff"), lines{});                    // a negative number
}

TEST(ember_glow, a_path_of_more_than_32_numbers_is_left_out)
{
    for (const uint32_t length : {32u, 33u}) {
        ber::writer w;
        const std::vector<uint32_t> where(length, 3);
        glow::close_qualified(w, false, where, 0);
        glow::close_root(w, 0);
        EXPECT_EQ(reader::read(w.message()).size(), length == 32 ? 1u : 0u);
    }
}

TEST(ember_glow, an_empty_message_says_nothing)
{
    for (const char *text : {"60 00", "60 02 6b 00", "60 80 00 00", ""})
        EXPECT_EQ(read_hex(text), lines{}) << text;
}

TEST(ember_glow, random_bytes_never_do_harm)
{
    std::mt19937 random(3);
    const bytes seeds[] = {messages_in(peer_frames::nested_set).at(0), messages_in(peer_frames::enumeration_reply).at(0),
                           messages_in(peer_frames::indefinite_first + peer_frames::indefinite_second).at(0)};
    size_t said = 0;
    for (int round = 0; round < 30000; ++round) {
        bytes message = seeds[round % 3];
        for (unsigned i = 0; i < 1 + random() % 4; ++i)
            message[random() % message.size()] = static_cast<uint8_t>(random());
        said += reader::read(message).size();
    }
    EXPECT_GT(said, 0u);
}
