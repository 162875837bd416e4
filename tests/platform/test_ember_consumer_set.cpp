// Setting a provider's parameters: a scripted provider, which says what a foreign one might, and our own.

#include "ember_consumer_fixture.h"
#include "ember_scripted_provider.h"
#include "provider.h"

#include <algorithm>
#include <concepts>

using namespace ember_test;

namespace {

class setting_fixture : public consumer_fixture {
protected:
    int set_bytes(const char *path, const void *value, size_t length, uint32_t timeout_ms = 0)
    {
        return zel_ember_set_param(session_, path, 0, timeout_ms, nullptr, value, length, &set_listener_, on_done);
    }
    template <std::integral integer> int set(const char *path, integer value) { return set_bytes(path, &value, sizeof(value)); }
    int set(const char *path, const std::string &value) { return set_bytes(path, value.c_str(), value.size() + 1); }

    // Told in one list with what is followed, marked as being a result.
    static void on_done(void *user_data, const char *path, uint32_t kind, const void *value)
    {
        auto *self = *static_cast<setting_fixture **>(user_data);
        EXPECT_EQ(kind == 0, value == nullptr);
        on_value(static_cast<consumer_fixture *>(self), (std::string("set ") + path).c_str(), kind, value);
    }

    setting_fixture *set_listener_ = this;
};

// A provider with a parameter of each kind below "unit"(1).
class ember_consumer_set : public setting_fixture {
protected:
    ember_consumer_set()
    {
        shown type = integer(1, "type", 2);
        type.entries = "disabled\ninput\noutput";
        type.type = 6;
        shown fixed = boolean(5, "fixed", true);
        fixed.access = ember::glow::access_read;
        shown gain{6, true, "gain", [](auto &w) { w.real(1.5); }, 2, "", -1};
        shown trigger{7, true, "trigger", nullptr, 5, "", -1};
        shown secret{8, true, "secret", nullptr, 3, "", -1};
        secret.access = ember::glow::access_write;
        offer({writable(type), writable(boolean(2, "status", true)), writable(string(3, "name", "Door")),
               writable(integer(4, "level", -5)), fixed, writable(gain), writable(trigger), secret, boolean(9, "unsaid", true)});
        also_ = [this] { provider_.serve(); };
    }
    ~ember_consumer_set() override { end(); }

    void offer(const std::vector<shown> &parameters)
    {
        provider_.answers["root"] = {build::directory({}, {node(1, "unit")})};
        provider_.answers["1"] = {build::directory({1}, parameters)};
        for (const auto &p : parameters)
            provider_.answers["1." + std::to_string(p.number)] = {build::flat({1}, {p})};
    }
    void linked()
    {
        start(provider_.address());
        ASSERT_TRUE(until_told({"up"}));
        told_.clear();
    }
    void say(const shown &e) { provider_.peer.send(build::flat({1}, {e})); }
    [[nodiscard]] bool until_sent(size_t count)
    {
        return until([&] { return provider_.sets.size() >= count; });
    }

    scripted_provider provider_;
};

}  // namespace

TEST_F(ember_consumer_set, each_kind_is_sent_as_the_parameter_has_it_and_the_report_is_the_result)
{
    struct { const char *path, *sent; shown report; const char *result; } const cases[] = {
        {"unit/type", "parameter 1.1 value=1", integer(1, "", 1), "set unit/type = 1 (6)"},
        {"/unit/status", "parameter 1.2 value=false", boolean(2, "", false), "set /unit/status = 0 (4)"},
        {"unit/name", "parameter 1.3 value='Gate'", string(3, "", "Gate"), "set unit/name = 'Gate'"},
        {"unit/level", "parameter 1.4 value=-1099511627776", integer(4, "", -(int64_t{1} << 40)),
         "set unit/level = -1099511627776 (1)"},
        {"unit/trigger", "parameter 1.7 value=1", integer(7, "", 1), "set unit/trigger = 1 (5)"},
        {"unit/secret", "parameter 1.8 value='key'", string(8, "", "key"), "set unit/secret = 'key'"},
    };
    for (const auto &c : cases)
        provider_.set_answers[c.sent] = {build::flat({1}, {bare(c.report)})};
    linked();
    EXPECT_EQ(set("unit/type", int8_t{1}), 0);
    EXPECT_EQ(set("/unit/status", int16_t{0}), 0);
    EXPECT_EQ(set("unit/name", "Gate"), 0);
    EXPECT_EQ(set("unit/level", -(int64_t{1} << 40)), 0);
    EXPECT_EQ(set("unit/trigger", int32_t{1}), 0);
    EXPECT_EQ(set("unit/secret", "key"), 0);
    ASSERT_TRUE(until([&] { return told_.size() == std::size(cases); }));
    lines sent, results;
    for (const auto &c : cases) {
        sent.push_back(c.sent);
        results.push_back(c.result);
    }
    EXPECT_EQ(provider_.sets, sent);
    EXPECT_EQ(told_, results);
}

TEST_F(ember_consumer_set, a_value_is_the_leanest_message_that_every_provider_takes)
{
    ember::ber::writer w;
    ember::glow::value level;
    level.kind = ember::glow::value_kind::boolean;
    const std::vector<uint32_t> where{1, 1, 1, 1, 7};
    ember::glow::write_value(w, where, level);
    EXPECT_EQ(to_hex(w.message()), "60 18 6b 16 a0 14 69 12 a0 07 0d 05 01 01 01 01 07 a1 07 31 05 a2 03 01 01 00");
}

TEST_F(ember_consumer_set, the_parameter_is_found_like_one_that_is_followed_and_only_once)
{
    linked();
    (void)set("unit/status", int8_t{0});
    ASSERT_TRUE(until_sent(1));
    EXPECT_EQ(provider_.asked, (lines{"root", "1", "1.2"}));
    say(bare(boolean(2, "", false)));
    ASSERT_TRUE(until_told({"set unit/status = 0 (4)"}));
    (void)set("unit/status", int8_t{1});
    ASSERT_TRUE(until_sent(2));
    EXPECT_EQ(provider_.asked.size(), 3u);
    say(boolean(2, "status", true));
    EXPECT_TRUE(until_told({"set unit/status = 0 (4)", "set unit/status = 1 (4)"}));
}

TEST_F(ember_consumer_set, any_number_but_zero_is_true)
{
    linked();
    (void)set("unit/status", int32_t{256});
    ASSERT_TRUE(until_sent(1));
    EXPECT_EQ(provider_.sets, lines{"parameter 1.2 value=true"});
}

TEST_F(ember_consumer_set, a_refused_value_is_answered_with_the_present_one)
{
    provider_.set_answers["parameter 1.1 value=9"] = {build::flat({1}, {bare(integer(1, "", 2))})};
    linked();
    (void)set("unit/type", int32_t{9});
    EXPECT_TRUE(until_told({"set unit/type = 2 (6)"}));
}

TEST_F(ember_consumer_set, a_report_without_a_value_or_of_another_parameter_is_no_result)
{
    linked();
    (void)set("unit/status", int8_t{0});
    ASSERT_TRUE(until_sent(1));
    shown silent = boolean(2, "status", false);
    silent.value = nullptr;
    say(silent);
    say(bare(integer(1, "", 1)));
    say(bare(boolean(2, "", false)));
    EXPECT_TRUE(until_told({"set unit/status = 0 (4)"}));
}

TEST_F(ember_consumer_set, the_first_report_counts_even_if_another_follows_in_the_same_message)
{
    provider_.set_answers["parameter 1.2 value=false"] =
        {build::flat({1}, {bare(boolean(2, "", false)), bare(boolean(2, "", true))})};
    linked();
    (void)follow("unit/status");
    ASSERT_TRUE(until_told({"unit/status = 1 (4)"}));
    (void)set("unit/status", int8_t{0});
    EXPECT_TRUE(until_told({"unit/status = 1 (4)", "unit/status = 0 (4)", "set unit/status = 0 (4)", "unit/status = 1 (4)"}));
}

TEST_F(ember_consumer_set, a_null_value_reported_is_none)
{
    linked();
    (void)set("unit/status", int8_t{0});
    ASSERT_TRUE(until_sent(1));
    shown none = boolean(2, "", true);
    none.value = [](auto &w) { w.null(); };
    say(bare(none));
    EXPECT_TRUE(until_told({"set unit/status = none"}));
}

TEST_F(ember_consumer_set, nothing_is_sent_to_what_is_not_writable_or_of_another_kind)
{
    linked();
    (void)set("unit/fixed", int8_t{0});
    (void)set("unit/unsaid", int8_t{0});        // may be read only, unless the provider says otherwise
    (void)set("unit/gain", int8_t{2});
    (void)set("unit/name", int32_t{1});
    (void)set("unit/level", "many");            // five bytes are no number
    (void)set("unit/secret", int64_t{1});
    (void)set("unit", int8_t{1});
    ASSERT_TRUE(until([&] { return told_.size() == 7; }));
    std::ranges::sort(told_);
    EXPECT_EQ(told_, (lines{"set unit = none", "set unit/fixed = none", "set unit/gain = none", "set unit/level = none",
                            "set unit/name = none", "set unit/secret = none", "set unit/unsaid = none"}));
    EXPECT_EQ(provider_.sets, lines{});
}

TEST_F(ember_consumer_set, what_is_not_there_is_looked_for_each_time)
{
    linked();
    (void)set("unit/nothing", int8_t{1});
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 1; }));
    EXPECT_EQ(told_, lines{"set unit/nothing = none"});
    EXPECT_LT(fake_now, 1000 + 3000);           // it is known before the time is over
    offer({writable(boolean(2, "nothing", true))});
    (void)set("unit/nothing", int8_t{0});
    ASSERT_TRUE(until_sent(1));
    EXPECT_EQ(provider_.sets, lines{"parameter 1.2 value=false"});
}

TEST_F(ember_consumer_set, gives_up_after_three_seconds_or_the_time_that_was_given)
{
    linked();
    const int8_t off = 0;
    (void)set("unit/status", off);
    (void)set_bytes("unit/level", &off, 1, 700);
    ASSERT_TRUE(until_sent(2));
    pass(650);
    EXPECT_EQ(told_, lines{});
    pass(100);
    EXPECT_EQ(told_, lines{"set unit/level = none"});
    pass(2200);
    EXPECT_EQ(told_.size(), 1u);
    pass(100);
    EXPECT_EQ(told_, (lines{"set unit/level = none", "set unit/status = none"}));
    say(bare(boolean(2, "", false)));           // too late
    (void)follow("unit/status");
    EXPECT_TRUE(until([&] { return told_.size() == 3; }));
    EXPECT_EQ(told_.back().substr(0, 12), "unit/status ");
}

TEST_F(ember_consumer_set, a_provider_that_does_not_answer_at_first_is_asked_again_within_the_time)
{
    provider_.answers["1"].clear();
    linked();
    const int8_t off = 0;
    (void)set_bytes("unit/status", &off, 1, 20000);
    ASSERT_TRUE(until([&] { return provider_.asked.size() == 2; }));
    pass(4000);
    EXPECT_EQ(told_, lines{});
    offer({writable(boolean(2, "status", true))});
    ASSERT_TRUE(until([&] { pass(50); return provider_.sets.size() == 1; }));
}

TEST_F(ember_consumer_set, waits_for_a_connection_and_no_longer_than_its_time)
{
    provider_.close_down();
    start(provider_.address());
    (void)set("unit/status", int8_t{0});
    pass(2900);
    EXPECT_EQ(told_, lines{});
    pass(200);
    EXPECT_EQ(told_, lines{"set unit/status = none"});
    (void)set("unit/status", int8_t{0});
    provider_.open();
    ASSERT_TRUE(until([&] { pass(50); return provider_.sets.size() == 1; }));
}

TEST_F(ember_consumer_set, a_lost_connection_ends_all_that_is_under_way_and_nothing_is_sent_twice)
{
    provider_.answers["1.4"].clear();
    linked();
    (void)set("unit/status", int8_t{0});
    ASSERT_TRUE(until_sent(1));
    (void)set("unit/level", int8_t{0});         // still looked for
    ASSERT_TRUE(until([&] { return provider_.asked.back() == "1.4"; }));
    provider_.peer.close();
    ASSERT_TRUE(until([&] { pass(50); return told_.size() == 4; }));
    EXPECT_EQ(told_, (lines{"set unit/status = none", "set unit/level = none", "down", "up"}));
    pass(1000);
    EXPECT_EQ(provider_.sets.size(), 1u);
}

TEST_F(ember_consumer_set, a_parameter_that_goes_offline_or_becomes_another_one_has_no_result)
{
    linked();
    (void)set("unit/status", int8_t{0});
    (void)set("unit/type", int8_t{0});
    ASSERT_TRUE(until_sent(2));
    say(offline(boolean(2, "status", true)));
    say(writable(integer(1, "other", 1)));
    EXPECT_TRUE(until_told({"set unit/status = none", "set unit/type = none"}));
}

TEST_F(ember_consumer_set, values_for_one_parameter_go_out_one_after_the_other)
{
    linked();
    (void)set("unit/level", int8_t{1});
    (void)set("unit/level", int8_t{2});
    (void)set("unit/status", int8_t{0});
    ASSERT_TRUE(until_sent(2));
    pass(200);
    EXPECT_EQ(provider_.sets, (lines{"parameter 1.4 value=1", "parameter 1.2 value=false"}));
    say(bare(integer(4, "", 1)));
    ASSERT_TRUE(until_sent(3));
    EXPECT_EQ(provider_.sets.back(), "parameter 1.4 value=2");
    EXPECT_EQ(told_, lines{"set unit/level = 1 (1)"});
    say(bare(integer(4, "", 2)));
    EXPECT_TRUE(until_told({"set unit/level = 1 (1)", "set unit/level = 2 (1)"}));
}

TEST_F(ember_consumer_set, as_many_as_64_are_under_way_and_each_has_its_result)
{
    linked();
    for (int64_t i = 0; i < 64; ++i) {
        provider_.set_answers["parameter 1.4 value=" + std::to_string(i)] = {build::flat({1}, {bare(integer(4, "", i))})};
        ASSERT_EQ(set("unit/level", i), 0);
    }
    EXPECT_EQ(set("unit/level", int64_t{64}), -1);
    ASSERT_TRUE(until([&] { return told_.size() == 64; }));
    for (size_t i = 0; i < 64; ++i)
        EXPECT_EQ(told_[i], "set unit/level = " + std::to_string(i) + " (1)");
    EXPECT_EQ(set("unit/level", int64_t{64}), 0);
}

TEST_F(ember_consumer_set, large_texts_wait_for_room_and_do_not_cost_the_connection)
{
    std::vector<shown> texts;
    for (uint32_t i = 1; i <= 64; ++i)
        texts.push_back(writable(string(i, "t" + std::to_string(i), "")));
    offer(texts);
    linked();
    for (const auto &t : texts)                 // found before, so that all could be sent at once
        ASSERT_EQ(follow(("unit/" + t.identifier).c_str()), 0);
    ASSERT_TRUE(until([&] { return told_.size() == 64; }));
    told_.clear();
    const std::string text(16383, '\xFF');      // each byte is escaped
    for (const auto &t : texts)
        ASSERT_EQ(set(("unit/" + t.identifier).c_str(), text), 0);
    ASSERT_TRUE(until_sent(64));
    EXPECT_EQ(provider_.connections, 1u);
    EXPECT_EQ(told_, lines{});
    for (const auto &line : provider_.sets)
        EXPECT_EQ(line.size(), line.find(" value=") + 9 + text.size());
}

TEST_F(ember_consumer_set, the_result_need_not_be_wanted)
{
    linked();
    const int8_t off = 0;
    ASSERT_EQ(zel_ember_set_param(session_, "unit/status", 0, 0, nullptr, &off, 1, nullptr, nullptr), 0);
    ASSERT_EQ(zel_ember_set_param(session_, "unit/nothing", 0, 0, nullptr, &off, 1, nullptr, nullptr), 0);
    ASSERT_TRUE(until_sent(1));
    say(bare(boolean(2, "", false)));
    pass(3100);
    EXPECT_EQ(told_, lines{});
}

TEST_F(ember_consumer_set, a_result_may_bring_about_the_next_request_and_the_end_of_the_session)
{
    provider_.set_answers["parameter 1.2 value=false"] = {build::flat({1}, {bare(boolean(2, "", false))})};
    linked();
    int rounds = 0;
    reaction_ = [&](const std::string &line) {
        if (line == "set unit/fixed = none" && ++rounds < 5)
            EXPECT_EQ(set("unit/fixed", int8_t{1}), 0);
        else if (line == "set unit/fixed = none")
            EXPECT_EQ(set("unit/status", int8_t{0}), 0);
        else
            end();
    };
    (void)set("unit/fixed", int8_t{1});
    ASSERT_TRUE(until([&] { return session_ == nullptr; }));
    EXPECT_EQ(rounds, 5);
    EXPECT_EQ(told_.back(), "set unit/status = 0 (4)");
}

TEST_F(ember_consumer_set, the_session_may_end_in_a_result_whatever_brought_it)
{
    for (const std::string reason : {"refused", "time", "link"}) {
        told_.clear();
        linked();
        reaction_ = [&](const std::string &) { end(); };
        (void)set(reason == "refused" ? "unit/fixed" : "unit/status", int8_t{0});
        (void)set("unit/level", int8_t{0});
        if (reason != "refused") {
            ASSERT_TRUE(until([&] { return provider_.sets.size() >= 2; }));
        }
        if (reason == "link")
            provider_.peer.close();
        ASSERT_TRUE(until([&] { if (reason == "time") pass(50); return session_ == nullptr; }));
        EXPECT_EQ(told_.size(), 1u) << reason;
        provider_.sets.clear();
        reaction_ = nullptr;
    }
}

TEST_F(ember_consumer_set, ending_the_session_before_calls_nobody)
{
    linked();
    (void)set("unit/status", int8_t{0});
    ASSERT_TRUE(until_sent(1));
    end();
    EXPECT_EQ(told_, lines{});
}

TEST_F(ember_consumer_set, refuses_what_is_no_request)
{
    linked();
    const int64_t one = 1;
    const std::string large(16384, 'x');
    zel_ember_element_t other;
    EXPECT_EQ(set_bytes(nullptr, &one, 8), -1);
    EXPECT_EQ(set_bytes("unit/status", nullptr, 8), -1);
    for (const size_t length : {0, 3, 5, 6, 7})
        EXPECT_EQ(set_bytes("unit/status", &one, length), -1) << length;
    EXPECT_EQ(set_bytes("unit/name", "abc", 3), -1);          // no terminating zero
    EXPECT_EQ(set("unit/name", large), -1);
    for (const char *path : {"", "/", "unit//x", "unit/"})
        EXPECT_EQ(set(path, one), -1) << path;
    EXPECT_EQ(zel_ember_set_param(session_, "unit/status", 0, 0, &other, &one, 8, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(nullptr, "unit/status", 0, 0, nullptr, &one, 8, nullptr, nullptr), -1);
}

namespace {

class ember_own_provider_set : public setting_fixture {
protected:
    ember_own_provider_set()
    {
        zel_ember_session_config_t config{};
        provider_ = zel_ember_session_init(&config);
        sessions_.add(provider_);
        auto *unit = zel_ember_add_node(provider_, "unit", nullptr, 0, nullptr);
        status_ = zel_ember_add_boolean_param(provider_, "status", nullptr, 0, 3, 1, this, on_set, unit);
        (void)zel_ember_add_enum_param(provider_, "type", nullptr, 0, 3, 2, "disabled\ninput\noutput", this, on_set, unit);
        (void)zel_ember_add_string_param(provider_, "name", nullptr, 0, 3, "Door", this, on_set, unit);
        (void)zel_ember_add_boolean_param(provider_, "fixed", nullptr, 0, 1, 1, this, on_set, unit);
        start("127.0.0.1:" + std::to_string(zel_ember_get_port(provider_)), 10, ember::monotonic_ms);
    }
    ~ember_own_provider_set() override
    {
        end();
        sessions_.remove(provider_);
        zel_ember_session_term(provider_);
    }
    static int on_set(void *user_data, const char *, uint16_t, zel_ember_element_t *parameter, const void *)
    {
        static_cast<ember_own_provider_set *>(user_data)->given_.push_back(parameter->identifier);
        return 0;
    }

    zel_ember_session_t *provider_ = nullptr;
    zel_ember_element_t *status_ = nullptr;
    lines given_;
};

}  // namespace

TEST_F(ember_own_provider_set, each_kind_arrives_at_the_provider_and_its_followers)
{
    for (const char *path : {"unit/status", "unit/type", "unit/name"})
        ASSERT_EQ(follow(path), 0);
    ASSERT_TRUE(until([&] { return told_.size() == 4; }));
    told_.clear();
    EXPECT_EQ(set("unit/status", int8_t{0}), 0);
    EXPECT_EQ(set("unit/type", int64_t{1}), 0);
    EXPECT_EQ(set("unit/name", "Gate"), 0);
    EXPECT_TRUE(until_told({"unit/status = 0 (4)", "set unit/status = 0 (4)", "unit/type = 1 (6)", "set unit/type = 1 (6)",
                            "unit/name = 'Gate'", "set unit/name = 'Gate'"}));
    EXPECT_EQ(given_, (lines{"status", "type", "name"}));
}

TEST_F(ember_own_provider_set, what_is_set_to_the_value_that_it_has_is_answered_too)
{
    EXPECT_EQ(set("unit/status", int8_t{1}), 0);
    EXPECT_TRUE(until_told({"up", "set unit/status = 1 (4)"}));
}

TEST_F(ember_own_provider_set, read_only_and_missing_parameters_have_no_result)
{
    EXPECT_EQ(set("unit/fixed", int8_t{0}), 0);
    EXPECT_EQ(set("other", int8_t{0}), 0);
    ASSERT_TRUE(until([&] { return told_.size() == 3; }));
    std::ranges::sort(told_);
    EXPECT_EQ(told_, (lines{"set other = none", "set unit/fixed = none", "up"}));
    EXPECT_EQ(given_, lines{});
}

TEST_F(ember_own_provider_set, an_index_that_the_enumeration_lacks_is_answered_with_what_stands)
{
    EXPECT_EQ(set("unit/type", int32_t{7}), 0);
    ASSERT_TRUE(until([&] { return told_.size() == 2; }));
    EXPECT_EQ(told_.back().substr(0, 16), "set unit/type = ");
    EXPECT_NE(told_.back(), "set unit/type = none");
}

TEST_F(ember_own_provider_set, a_provider_takes_no_path)
{
    const int8_t off = 0;
    EXPECT_EQ(zel_ember_set_param(provider_, "unit/status", 0, 0, status_, &off, 1, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(provider_, "unit/status", 0, 0, nullptr, &off, 1, nullptr, nullptr), -1);
    EXPECT_EQ(zel_ember_set_param(provider_, nullptr, 0, 0, status_, &off, 1, nullptr, nullptr), 0);
}
