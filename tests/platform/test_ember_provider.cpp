#include "ember_provider_fixture.h"

using namespace ember_test;

namespace {

using ember_provider = provider_fixture;

const std::string status_full = " id=status value=true access=3 type=4";
const std::string type_full = std::string(" id=type value=0 access=3 entries=") + type_entries + " type=6";
const std::string status_path = "parameter 1.1.1.1.7", type_path = "parameter 1.1.1.1.1";

}  // namespace

// Directories

TEST_F(ember_provider, answers_the_root_directory_as_other_implementations_do)
{
    auto peer = connected();
    peer.write(peer_frames::root_directory_sofie);
    settle(peer);
    EXPECT_EQ(to_hex(peer.stream()), to_hex(peer_frames::root_reply + peer_frames::keep_alive_response));
}

TEST_F(ember_provider, answers_a_node_with_its_children_inside_it)
{
    auto peer = connected();
    peer.send(build::get_directory({1}));
    settle(peer);
    EXPECT_EQ(to_hex(peer.stream()), to_hex(peer_frames::node_reply + peer_frames::keep_alive_response));
}

TEST_F(ember_provider, answers_a_node_without_children_bare)
{
    auto peer = connected();
    peer.send(build::get_directory({1, 1, 6}));
    settle(peer);
    EXPECT_EQ(to_hex(peer.stream()), to_hex(peer_frames::childless_reply + peer_frames::keep_alive_response));
}

TEST_F(ember_provider, answers_a_nested_request)
{
    auto peer = connected();
    peer.write(peer_frames::nested_directory);
    settle(peer);
    const lines said = peer.said();
    EXPECT_EQ(said, (lines{"node 1.1 children", "node 1.1.1 id=physical", "node 1.1.2 id=virtual", "node 1.1.3 id=user buttons",
                           "node 1.1.4 id=handlers", "node 1.1.5 id=triggers", "node 1.1.6 id=vgpio sources"}));
}

TEST_F(ember_provider, shows_full_contents_of_parameters_in_a_directory)
{
    auto peer = connected();
    const lines said = answer(peer, build::get_directory({1, 1, 1, 1}));
    ASSERT_EQ(said.size(), 8u);
    EXPECT_EQ(said[0], "node 1.1.1.1 children");
    EXPECT_EQ(said[1], type_path + type_full);
    EXPECT_EQ(said[2], "parameter 1.1.1.1.2 id=input functions value='Record' access=3 type=3");
    EXPECT_EQ(said[3], "parameter 1.1.1.1.3 id=output triggers value='' access=1 type=3");
    EXPECT_EQ(said[7], status_path + status_full);
}

TEST_F(ember_provider, answers_a_parameter_with_full_contents_and_no_children_and_takes_no_value_from_the_request)
{
    auto peer = connected();
    set_integer(type_, 2);
    peer.write(peer_frames::directory_with_value);    // says value 0
    settle(peer);
    EXPECT_EQ(peer.said(), lines{type_path + " id=type value=2 access=3 entries=" + type_entries + " type=6"});
    EXPECT_EQ(calls_, lines{});
}

TEST_F(ember_provider, answers_a_parameter_as_other_implementations_do)
{
    auto peer = connected();
    peer.write(peer_frames::directory_with_value);
    settle(peer);
    ASSERT_EQ(peer.messages().size(), 1u);
    EXPECT_EQ(to_hex(peer.messages()[0]), to_hex(messages_in(peer_frames::enumeration_reply).at(0)));
}

TEST_F(ember_provider, every_frame_it_sends_is_one_that_every_peer_takes)
{
    set_text(functions_, std::string(5000, '\xC3') + "\xFE\xFF");
    auto peer = connected();
    for (const auto &where : {build::get_directory({}), build::get_directory({1, 1, 1, 1}), build::get_directory({1, 1, 6}),
                              build::get_directory({9}), build::set_integer({1, 1, 1, 1, 1}, 2)})
        peer.send(where);
    settle(peer);
    fake_now += 10000;                                  // it asks for a sign of life
    zel_ember_process_fds(session_, nullptr);
    settle(peer);
    const auto frames = frames_in(peer.stream());
    EXPECT_GE(frames.size(), 12u);
    for (const bytes &frame : frames) {
        ASSERT_GE(frame.size(), 6u);
        EXPECT_EQ(ember::s101::checksum(0xFFFF, frame), 0xF0B8);
        EXPECT_EQ(to_hex(std::span(frame).first(2)) + " " + to_hex(std::span(frame).subspan(3, 1)), "00 0e 01");
        EXPECT_LE(frame[2], 2);                          // never the provider's state, which a common consumer stumbles over
        EXPECT_LE(frame.size(), 9u + 1000 + 2);          // small peers lose what is longer
    }
}

TEST_F(ember_provider, goes_on_answering_a_consumer_that_asks_without_end)
{
    auto peer = connected();
    size_t answers = 0;
    const bytes request = framed(build::get_directory({1, 1, 6})) + framed(build::get_directory({1, 1, 1, 1, 7}));
    for (int round = 0; round < 100; ++round) {
        for (int i = 0; i < 25; ++i)
            peer.write(request);
        answers += heard(peer).size();
    }
    EXPECT_EQ(answers, 5000u);
}

TEST_F(ember_provider, goes_by_the_path_when_a_parameter_is_asked_as_a_node_and_the_reverse)
{
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::get_directory({1, 1, 1, 1, 7}, false)), lines{status_path + status_full});
    EXPECT_EQ(answer(peer, build::get_directory({1}, true)), (lines{"node 1 children", "node 1.1 id=gpio"}));
}

TEST_F(ember_provider, answers_every_request_of_one_message)
{
    ember::ber::writer w;
    const std::vector<std::vector<uint32_t>> wanted{{1, 1, 6}, {1}, {1, 1, 1, 1, 7}};
    for (const auto &where : wanted) {
        const size_t mark = w.mark();
        ember::glow::put_integer(w, 0, 32);
        w.header(ember::ber::application(2), mark);
        ember::glow::close_entry(w, mark);
        ember::glow::close_children(w, mark);
        ember::glow::close_qualified(w, false, where, mark);
    }
    ember::glow::close_root(w, 0);
    auto peer = connected();
    EXPECT_EQ(answer(peer, copy_of(w.message())),
              (lines{status_path + status_full, "node 1 children", "node 1.1 id=gpio", "node 1.1.6"}));
}

TEST_F(ember_provider, says_nothing_about_paths_that_do_not_exist)
{
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::get_directory({9})), lines{});
    EXPECT_EQ(answer(peer, build::get_directory({1, 1, 1, 1, 7, 1})), lines{});
    EXPECT_EQ(answer(peer, build::set_integer({1, 1, 1, 1, 99}, 1)), lines{});
    EXPECT_EQ(answer(peer, build::set_integer({1, 1, 1, 1}, 1)), lines{});        // a node has no value
    EXPECT_EQ(answer(peer, build::get_directory({0x80000001})), lines{});
}

TEST_F(ember_provider, leaves_out_a_description_that_repeats_the_identifier)
{
    zel_ember_add_node(session_, "desk", "desk", 0, nullptr);
    zel_ember_add_node(session_, "rack", "Room 5", 0, nullptr);
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::get_directory({})),
              (lines{"node 1 id=unit", "node 2 id=desk", "node 3 id=rack description=Room 5"}));
}

// Sets

TEST_F(ember_provider, stores_a_value_first_and_calls_back_then)
{
    int64_t stored = -1;
    reaction_ = [&](zel_ember_element_t *parameter) { stored = parameter->integer; return -1; };
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::set_integer({1, 1, 1, 1, 1}, 2)), lines{type_path + " value=2 type=6"});
    EXPECT_EQ(stored, 2);
    EXPECT_EQ(calls_, lines{"type=2"});
    EXPECT_EQ(caller_, "127.0.0.1");
}

TEST_F(ember_provider, understands_the_sets_of_peers)
{
    auto peer = connected();
    peer.write(peer_frames::nested_set);
    EXPECT_EQ(heard(peer), lines{status_path + " value=false type=4"});
    set_integer(status_, 1);
    peer.write(peer_frames::whole_set);
    EXPECT_EQ(heard(peer), lines{status_path + " value=false type=4"});
    set_integer(status_, 1);
    peer.write(peer_frames::notice_boolean);
    EXPECT_EQ(heard(peer), lines{status_path + " value=false type=4"});
    EXPECT_EQ(calls_, (lines{"status=0", "status=0", "status=0"}));
}

TEST_F(ember_provider, takes_a_set_with_an_empty_collection_of_children)
{
    ember::ber::writer w;
    const size_t children = w.mark();
    ember::glow::close_children(w, children);
    const size_t contents = w.mark();
    ember::glow::put_integer(w, ember::glow::parameter_field::value, 1);
    ember::glow::close_contents(w, contents);
    const uint32_t where[] = {1, 1, 1, 1, 1};
    ember::glow::close_qualified(w, true, where, 0);
    ember::glow::close_root(w, 0);
    auto peer = connected();
    EXPECT_EQ(answer(peer, copy_of(w.message())), lines{type_path + " value=1 type=6"});
    EXPECT_EQ(calls_, lines{"type=1"});
}

TEST_F(ember_provider, converts_values_to_the_type_of_the_parameter)
{
    auto peer = connected();
    (void)answer(peer, build::set_integer({1, 1, 1, 1, 7}, 0));
    (void)answer(peer, build::set_integer({1, 1, 1, 1, 7}, 5));
    (void)answer(peer, build::set_boolean({1, 1, 1, 1, 1}, true));
    (void)answer(peer, build::set({1, 1, 1, 1, 1}, [](auto &w) { w.real(2.0); }));
    (void)answer(peer, build::set_text({1, 1, 1, 1, 2}, "Studio \xc3\xa4"));
    EXPECT_EQ(calls_, (lines{"status=0", "status=1", "type=1", "type=2", "input functions=Studio \xc3\xa4"}));
}

TEST_F(ember_provider, answers_what_it_refuses_with_the_present_value_to_the_writer_only)
{
    auto writer = connected(), other = connected();
    look(other, {1, 1, 1, 1});
    const std::string type_now = type_path + " value=0 type=6", text_now = "parameter 1.1.1.1.2 value='Record' type=3";
    EXPECT_EQ(answer(writer, build::set_text({1, 1, 1, 1, 1}, "2")), lines{type_now});
    EXPECT_EQ(answer(writer, build::set({1, 1, 1, 1, 1}, [](auto &w) { w.null(); })), lines{type_now});
    EXPECT_EQ(answer(writer, build::set({1, 1, 1, 1, 1}, [](auto &w) { w.real(1.5); })), lines{type_now});
    EXPECT_EQ(answer(writer, build::set_integer({1, 1, 1, 1, 2}, 1)), lines{text_now});
    EXPECT_EQ(answer(writer, build::set_text({1, 1, 1, 1, 2}, std::string_view("a\0b", 3))), lines{text_now});
    EXPECT_EQ(answer(writer, build::set_text({1, 1, 1, 1, 2}, "caf\xe9")), lines{text_now});
    EXPECT_EQ(answer(writer, build::set_text({1, 1, 1, 1, 3}, "x")), lines{"parameter 1.1.1.1.3 value='' type=3"});   // read only
    EXPECT_EQ(calls_, lines{});
    EXPECT_EQ(heard(other), lines{});
}

TEST_F(ember_provider, keeps_an_index_that_the_enumeration_does_not_have)
{
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::set_integer({1, 1, 1, 1, 1}, 7)), lines{type_path + " value=7 type=6"});
    EXPECT_EQ(calls_, lines{"type=7"});
}

TEST_F(ember_provider, tells_every_subscriber_once_and_the_writer_too)
{
    auto writer = connected(), by_parent = connected(), by_parameter = connected(), stranger = connected();
    look(writer, {1, 1, 1, 1});
    look(writer, {1, 1, 1, 1, 7});
    look(by_parent, {1, 1, 1, 1});
    look(by_parameter, {1, 1, 1, 1, 7});
    look(stranger, {1, 1, 1});
    const lines expected{status_path + " value=false type=4"};
    EXPECT_EQ(answer(writer, build::set_boolean({1, 1, 1, 1, 7}, false)), expected);
    EXPECT_EQ(heard(by_parent), expected);
    EXPECT_EQ(heard(by_parameter), expected);
    EXPECT_EQ(heard(stranger), lines{});
}

TEST_F(ember_provider, a_notice_is_the_path_the_value_and_the_type_and_nothing_else)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    set_integer(status_, 0);
    set_integer(type_, 2);
    settle(peer);
    ASSERT_EQ(peer.messages().size(), 2u);
    EXPECT_EQ(to_hex(peer.messages()[0]),
              "60 1d 6b 1b a0 19 69 17 a0 07 0d 05 01 01 01 01 07 a1 0c 31 0a a2 03 01 01 00 ad 03 02 01 04");
    EXPECT_EQ(to_hex(peer.messages()[1]),
              "60 1d 6b 1b a0 19 69 17 a0 07 0d 05 01 01 01 01 01 a1 0c 31 0a a2 03 02 01 02 ad 03 02 01 06");
}

TEST_F(ember_provider, tells_the_value_that_stands_after_the_callback)
{
    reaction_ = [&](zel_ember_element_t *) { return set_integer(type_, 0) + set_text(functions_, "Play"); };
    auto writer = connected(), other = connected();
    look(other, {1, 1, 1, 1});
    EXPECT_EQ(answer(writer, build::set_integer({1, 1, 1, 1, 1}, 2)), lines{type_path + " value=0 type=6"});
    EXPECT_EQ(heard(other), (lines{"parameter 1.1.1.1.2 value='Play' type=3", type_path + " value=0 type=6"}));
}

TEST_F(ember_provider, a_callback_may_remove_the_parameter_that_was_set)
{
    reaction_ = [&](zel_ember_element_t *parameter) { return zel_ember_remove_element(session_, parameter); };
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    EXPECT_EQ(answer(peer, build::set_boolean({1, 1, 1, 1, 7}, false)),
              lines{status_path + " id=status value=false access=3 offline type=4"});
    EXPECT_EQ(answer(peer, build::set_boolean({1, 1, 1, 1, 7}, true)), lines{});
}

TEST_F(ember_provider, a_callback_may_replace_the_parameter_that_was_set)
{
    reaction_ = [&](zel_ember_element_t *parameter) {
        zel_ember_remove_element(session_, parameter);
        status_ = zel_ember_add_boolean_param(session_, "status", nullptr, 0, 3, 1, this, on_set, port_);
        return 0;
    };
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    EXPECT_EQ(answer(peer, build::set_boolean({1, 1, 1, 1, 7}, false)),
              (lines{status_path + " id=status value=false access=3 offline type=4",
                     status_path + " id=status value=true access=3 online type=4"}));
}

TEST_F(ember_provider, a_callback_may_remove_the_whole_tree_and_serve_the_session_and_go_on)
{
    reaction_ = [&](zel_ember_element_t *) {
        zel_ember_process_fds(session_, nullptr);
        return zel_ember_remove_element(session_, unit_);
    };
    auto peer = connected();
    peer.send(build::set_boolean({1, 1, 1, 1, 7}, false));
    peer.send(build::set_boolean({1, 1, 1, 1, 7}, true));
    EXPECT_EQ(heard(peer), lines{});
    EXPECT_EQ(calls_, lines{"status=0"});
    EXPECT_EQ(answer(peer, build::get_directory({})), lines{});
}

TEST_F(ember_provider, a_callback_may_end_the_session)
{
    reaction_ = [&](zel_ember_element_t *) {
        sessions_.remove(session_);
        zel_ember_session_term(std::exchange(session_, nullptr));
        return 0;
    };
    auto peer = connected();
    peer.send(build::set_boolean({1, 1, 1, 1, 7}, false));
    peer.send(build::set_boolean({1, 1, 1, 1, 7}, true));
    EXPECT_TRUE(sessions_.until([&] { return session_ == nullptr; }));
    EXPECT_TRUE(sessions_.until([&] { return peer.is_closed(); }));
    EXPECT_EQ(calls_, lines{"status=0"});
}

// Changes by the application

TEST_F(ember_provider, tells_every_change_in_its_order_but_no_repetition)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    for (const int64_t value : {0, 0, 1, 1, 0})
        EXPECT_EQ(set_integer(status_, value), 0);
    EXPECT_EQ(heard(peer), (lines{status_path + " value=false type=4", status_path + " value=true type=4",
                                  status_path + " value=false type=4"}));
}

TEST_F(ember_provider, accepts_native_integers_of_every_length)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    const int8_t one = 1;
    const int16_t two = 2;
    const int32_t minus = -1;
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, type_, &one, 1, nullptr, nullptr), 0);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, type_, &two, 2, nullptr, nullptr), 0);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, type_, &minus, 4, nullptr, nullptr), 0);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, type_, &minus, 3, nullptr, nullptr), -1);
    EXPECT_EQ(heard(peer), (lines{type_path + " value=1 type=6", type_path + " value=2 type=6", type_path + " value=-1 type=6"}));
}

TEST_F(ember_provider, refuses_what_it_cannot_do)
{
    const int64_t one = 1;
    EXPECT_EQ(zel_ember_set_param(nullptr, nullptr, 0, 0, type_, &one, 8, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, nullptr, &one, 8, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, type_, nullptr, 8, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, unit_, &one, 8, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(session_, nullptr, 0, 0, functions_, "abc", 3, nullptr, nullptr), -1);   // no terminating zero
    EXPECT_EQ(zel_ember_remove_element(nullptr, unit_), -1);
    EXPECT_EQ(zel_ember_remove_element(session_, nullptr), -1);
    EXPECT_EQ(zel_ember_get_param(session_, "unit", nullptr, [](void *, const char *, uint32_t, const void *) {}), -1);
    EXPECT_EQ(zel_ember_add_node(nullptr, "x", nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(zel_ember_add_node(session_, nullptr, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(zel_ember_add_node(session_, "x", nullptr, -1, nullptr), nullptr);
    EXPECT_EQ(zel_ember_add_node(session_, "x", nullptr, 0, type_), nullptr);
    EXPECT_EQ(zel_ember_add_string_param(session_, "x", nullptr, 0, 4, "", nullptr, nullptr, unit_), nullptr);
    zel_ember_session_term(nullptr);
    zel_ember_process_fds(nullptr, nullptr);
}

TEST_F(ember_provider, refuses_identifiers_that_peers_cannot_deal_with)
{
    for (const char *name : {"", "a/b", "1", "9 lives", "gpio", " x"})
        EXPECT_EQ(zel_ember_add_node(session_, name, nullptr, 0, unit_), nullptr) << name;
    for (const char *name : {"_x", "X", "user buttons", "\xc3\xa4"})
        EXPECT_NE(zel_ember_add_node(session_, name, nullptr, 0, unit_), nullptr) << name;
}

TEST_F(ember_provider, sends_no_empty_last_entry_of_an_enumeration)
{
    zel_ember_add_enum_param(session_, "mode", nullptr, 0, 3, 0, "a\nb\n\n", nullptr, nullptr, unit_);
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::get_directory({1})).back(), "parameter 1.2 id=mode value=0 access=3 entries=a\nb type=6");
}

// Elements that come and go

TEST_F(ember_provider, announces_a_new_element_to_those_who_asked_its_parent)
{
    auto looking = connected(), stranger = connected();
    look(looking, {1, 1, 6});
    look(stranger, {1, 1});
    auto *added = text("v-0", sources_, "Door");
    EXPECT_EQ(heard(looking), lines{"parameter 1.1.6.1 id=v-0 value='Door' access=1 type=3"});
    EXPECT_EQ(heard(stranger), lines{});
    set_text(added, "Gate");
    EXPECT_EQ(heard(looking), lines{"parameter 1.1.6.1 value='Gate' type=3"});
    (void)node("later", gpio_);
    EXPECT_EQ(heard(stranger), lines{"node 1.1.7 id=later"});
}

TEST_F(ember_provider, says_farewell_with_everything_that_peers_would_forget)
{
    auto peer = connected();
    look(peer, {1, 1});
    look(peer, {1, 1, 6});
    auto *added = text("v-0", sources_, "Door");
    (void)heard(peer);
    EXPECT_EQ(zel_ember_remove_element(session_, added), 0);
    EXPECT_EQ(heard(peer), lines{"parameter 1.1.6.1 id=v-0 value='Door' access=1 offline type=3"});
    EXPECT_EQ(zel_ember_remove_element(session_, sources_), 0);
    EXPECT_EQ(heard(peer), lines{"node 1.1.6 id=vgpio sources offline"});
    EXPECT_EQ(answer(peer, build::get_directory({1, 1, 6})), lines{});
}

TEST_F(ember_provider, says_farewell_to_those_who_look_at_what_is_below)
{
    auto inside = connected(), above = connected();
    look(inside, {1, 1, 1, 1, 7});
    look(above, {1, 1});
    look(above, {1, 1, 1, 1});
    EXPECT_EQ(zel_ember_remove_element(session_, physical_), 0);
    EXPECT_EQ(heard(inside), lines{status_path + " id=status value=true access=3 offline type=4"});
    EXPECT_EQ(heard(above), lines{"node 1.1.1 id=physical offline"});
}

TEST_F(ember_provider, an_element_that_returns_has_its_number_again_and_is_online)
{
    auto peer = connected();
    look(peer, {1, 1, 6});
    auto *first = text("v-0", sources_, "a");
    (void)text("v-1", sources_, "b");
    zel_ember_remove_element(session_, first);
    (void)text("v-2", sources_, "c");
    (void)heard(peer);
    (void)text("v-0", sources_, "d");
    const std::string back = "parameter 1.1.6.1 id=v-0 value='d' access=1 online type=3";
    EXPECT_EQ(heard(peer), lines{back});
    const lines directory = answer(peer, build::get_directory({1, 1, 6}));
    ASSERT_EQ(directory.size(), 4u);
    EXPECT_EQ(directory[1], back);
    EXPECT_EQ(directory[2], "parameter 1.1.6.2 id=v-1 value='b' access=1 type=3");
}

TEST_F(ember_provider, a_node_that_returns_is_online)
{
    auto peer = connected();
    look(peer, {1, 1});
    zel_ember_remove_element(session_, sources_);
    (void)heard(peer);
    sources_ = node("vgpio sources", gpio_);
    EXPECT_EQ(heard(peer), lines{"node 1.1.6 id=vgpio sources online"});
    (void)text("v-0", sources_, "a");
    EXPECT_EQ(answer(peer, build::get_directory({1, 1, 6})),
              (lines{"node 1.1.6 children", "parameter 1.1.6.1 id=v-0 value='a' access=1 type=3"}));
}

TEST_F(ember_provider, a_number_never_comes_back_as_another_kind_of_element)
{
    auto *first = text("x", sources_, "a");
    EXPECT_EQ(first->number, 1);
    zel_ember_remove_element(session_, first);
    auto *as_node = node("x", sources_);
    EXPECT_EQ(as_node->number, 2);
    zel_ember_remove_element(session_, as_node);
    EXPECT_EQ(text("x", sources_, "a")->number, 3);
}

TEST_F(ember_provider, a_number_once_given_is_never_given_to_another_identifier)
{
    auto *first = zel_ember_add_node(session_, "a", nullptr, 5, unit_);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(zel_ember_add_node(session_, "b", nullptr, 5, unit_), nullptr);
    zel_ember_remove_element(session_, first);
    EXPECT_EQ(zel_ember_add_node(session_, "b", nullptr, 5, unit_), nullptr);
    auto *again = zel_ember_add_node(session_, "a", nullptr, 5, unit_);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->number, 5);
}

TEST_F(ember_provider, numbers_are_remembered_below_a_node_that_was_removed)
{
    zel_ember_remove_element(session_, gpio_);
    gpio_ = node("gpio", unit_);
    EXPECT_EQ(gpio_->number, 1);
    EXPECT_EQ(node("something new", gpio_)->number, 7);
    EXPECT_EQ(node("triggers", gpio_)->number, 5);
}

TEST_F(ember_provider, gives_the_next_free_number_around_those_that_were_asked_for)
{
    EXPECT_EQ(zel_ember_add_node(session_, "a", nullptr, 3, unit_)->number, 3);
    EXPECT_EQ(node("b", unit_)->number, 2);
    EXPECT_EQ(node("c", unit_)->number, 4);
    EXPECT_EQ(zel_ember_add_node(session_, "d", nullptr, INT32_MAX, unit_)->number, INT32_MAX);
    EXPECT_EQ(node("e", unit_)->number, 5);
    EXPECT_EQ(zel_ember_add_node(session_, "e", nullptr, 9, unit_), nullptr);
}

// Subscriptions

TEST_F(ember_provider, a_subscription_to_a_parameter_is_not_answered_but_counts)
{
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::command({1, 1, 1, 1, 7}, 30, true)), lines{});
    set_integer(status_, 0);
    EXPECT_EQ(heard(peer), lines{status_path + " value=false type=4"});
    EXPECT_EQ(answer(peer, build::command({1, 1, 1, 1, 7}, 31, true)), lines{});
    set_integer(status_, 1);
    EXPECT_EQ(heard(peer), lines{});
}

TEST_F(ember_provider, to_unsubscribe_from_a_node_ends_all_news_of_its_children)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    look(peer, {1, 1, 1, 1, 1});
    (void)answer(peer, build::command({1, 1, 1, 1}, 31));
    set_integer(status_, 0);
    set_integer(type_, 1);
    EXPECT_EQ(heard(peer), lines{});
    look(peer, {1, 1, 1, 1});
    set_integer(status_, 1);
    EXPECT_EQ(heard(peer), lines{status_path + " value=true type=4"});
}

TEST_F(ember_provider, to_unsubscribe_from_one_child_leaves_the_others)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    (void)answer(peer, build::command({1, 1, 1, 1, 7}, 31, true));
    set_integer(status_, 0);
    set_integer(type_, 1);
    EXPECT_EQ(heard(peer), lines{type_path + " value=1 type=6"});
}

TEST_F(ember_provider, a_new_element_in_an_old_place_of_the_tables_starts_without_subscribers)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1, 7});
    zel_ember_remove_element(session_, status_);
    (void)heard(peer);
    auto *other = text("elsewhere", unit_);
    set_text(other, "new");
    EXPECT_EQ(heard(peer), lines{});
}

// Paths

TEST_F(ember_provider, a_path_is_the_identifiers_from_the_root)
{
    char buffer[64] = "";
    EXPECT_EQ(zel_ember_get_path(session_, status_, buffer, sizeof(buffer)), 0);
    EXPECT_STREQ(buffer, "/unit/gpio/physical/gpio 1/status");
    const size_t length = strlen(buffer);
    EXPECT_EQ(zel_ember_get_path(session_, status_, buffer, length + 1), 0);
    strcpy(buffer, "untouched");
    EXPECT_NE(zel_ember_get_path(session_, status_, buffer, length), 0);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_NE(zel_ember_get_path(session_, nullptr, buffer, sizeof(buffer)), 0);
    EXPECT_NE(zel_ember_get_path(nullptr, status_, buffer, sizeof(buffer)), 0);
}
