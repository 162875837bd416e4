// The daemon's parts by themselves: texts, records, its memory, its loop, its command line and its clock.
#include "child_process.h"
#include "event_loop.h"
#include "kept_state.h"
#include "messages.h"
#include "process_identity.h"
#include "running_unit.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

using namespace zel::sdiscd;
using zel::test::temp_folder;
using zel::test::write_file;
using strings = std::vector<std::string>;

namespace {

std::string problem;

std::optional<strings> txt(const std::string &text)
{
    problem.clear();
    return read_txt(text, problem);
}

template <class record>
std::string text_of(const record &of, size_t length = sizeof(record))
{
    return std::string(reinterpret_cast<const char *>(&of), sizeof of).substr(0, length);
}

publish_record good_publish()
{
    publish_record record{};
    record.interface = 2;
    record.port = 9000;
    std::strcpy(record.name, "vGPO1@A");
    std::strcpy(record.type, "_zelvgpo._tcp");
    std::strcpy(record.txt, "\"path=/a/b\"");
    return record;
}

bool is_read(const publish_record &record)
{
    publish_order order;
    return read_publish(text_of(record), order, problem);
}

}  // namespace

TEST(service_text, names_have_1_to_63_bytes_of_utf8)
{
    EXPECT_TRUE(is_service_name("vGPO1@Studio 1.2\t\"x\""));
    EXPECT_TRUE(is_service_name(std::string(63, 'x')));
    EXPECT_TRUE(is_service_name("St\xc3\xbc" "dio"));
    for (const std::string &bad : {std::string(), std::string(64, 'x'), std::string("\xc3"), std::string("a\0b", 3)}) {
        EXPECT_FALSE(is_service_name(bad)) << bad;
    }
}

TEST(service_text, types_are_a_name_and_a_protocol)
{
    for (const char *good : {"_zelvgpo._tcp", "_a._udp", "_abcdefghijklmno._tcp", "_a-1._tcp"}) EXPECT_TRUE(is_service_type(good)) << good;
    for (const char *bad : {"", ".", "_", "zelvgpo._tcp", "_zelvgpo", "_zelvgpo.", "_._tcp", "_zelvgpo._sctp", "_zel vgpo._tcp",
                            "_abcdefghijklmnop._tcp", "_a._tcp.local", "_a._sub._tcp"}) {
        EXPECT_FALSE(is_service_type(bad)) << bad;
    }
}

TEST(service_text, only_the_local_domain_is_known)
{
    for (const char *good : {"", "local", "local."}) EXPECT_TRUE(is_local_domain(good));
    for (const char *bad : {".", "example.org", "LOCAL.x"}) EXPECT_FALSE(is_local_domain(bad));
}

TEST(service_text, txt_texts_are_strings_in_quotes)
{
    EXPECT_EQ(txt("\"path=/a/b\""), strings{"path=/a/b"});
    EXPECT_EQ(txt("\"path=/a b\" \"altport=9001\""), (strings{"path=/a b", "altport=9001"}));
    EXPECT_EQ(txt("path=/a altport=9001"), (strings{"path=/a", "altport=9001"}));
    EXPECT_EQ(txt(""), strings{});
    EXPECT_EQ(txt("  \"\"  "), strings{});
    EXPECT_EQ(txt("\"a\\\"b\\\\c\\d\""), strings{"a\"b\\c\\d"});
}

TEST(service_text, txt_texts_that_are_none_are_refused_with_a_reason)
{
    for (const char *bad : {"\"", "\"path=/a", "\"a\" \"b", "\"a\\\""}) {
        EXPECT_EQ(txt(bad), std::nullopt) << bad;
        EXPECT_EQ(problem, "a quote of the TXT text is not closed");
    }
    EXPECT_EQ(txt("\"path=" + std::string(250, 'p') + "\"")->front().size(), 255u);
    EXPECT_EQ(txt("\"path=" + std::string(251, 'p') + "\""), std::nullopt);
    EXPECT_EQ(problem, "a TXT string has 256 bytes and may have 255");
}

TEST(service_text, what_is_written_is_read_back)
{
    const strings all{"path=/a/b", "with \"quotes\" and \\ and \\\\", "St\xc3\xbc" "dio"};
    EXPECT_EQ(txt(write_txt(all, 1000)), all);
}

TEST(service_text, written_texts_end_at_a_whole_string_and_hold_no_control_characters)
{
    EXPECT_EQ(write_txt({"abc", "def"}, 11), "\"abc\" \"def\"");
    EXPECT_EQ(write_txt({"abc", "def"}, 10), "\"abc\"");
    EXPECT_EQ(write_txt({"abc", "def"}, 4), "");
    EXPECT_EQ(write_txt({std::string("a\0\n\x7f", 4)}, 100), "\"a\\000\\010\\127\"");
}

TEST(service_details, that_no_follower_could_use_are_faulty)
{
    const auto fault = [](const char *address, uint16_t port = 9000, bool loopback = false) {
        return fault_of({"host", address, port, {}}, loopback);
    };
    EXPECT_EQ(fault("10.0.0.1"), "");
    EXPECT_EQ(fault("169.254.1.1"), "");
    EXPECT_EQ(fault("127.0.0.2", 9000, true), "");
    for (const char *bad : {"", "::1", "fe80::1", "0.0.0.0", "0.1.2.3", "224.0.0.251", "255.255.255.255", "127.0.0.1", "host"}) {
        EXPECT_NE(fault(bad), "") << bad;
    }
    EXPECT_NE(fault("10.0.0.1", 0), "");
}

TEST(sdisc_records, a_publish_record_is_read)
{
    publish_order order;
    ASSERT_TRUE(read_publish(text_of(good_publish()), order, problem)) << problem;
    EXPECT_EQ(order.interface, 2);
    EXPECT_EQ(order.service, (service_id{"_zelvgpo._tcp", "vGPO1@A"}));
    EXPECT_EQ(order.port, 9000);
    EXPECT_EQ(order.txt, strings{"path=/a/b"});
}

TEST(sdisc_records, a_record_may_be_longer_but_not_shorter_than_its_fields)
{
    publish_order order;
    EXPECT_TRUE(read_publish(text_of(good_publish()) + "more", order, problem));
    EXPECT_TRUE(read_publish(text_of(good_publish(), 1222), order, problem));
    EXPECT_FALSE(read_publish(text_of(good_publish(), 1221), order, problem));
    EXPECT_EQ(problem, "too short (1221 bytes)");
    EXPECT_FALSE(read_publish(text_of(good_publish()) + std::string(4000, 'x'), order, problem));
    EXPECT_EQ(problem, "too long (5224 bytes)");
    lookup_order lookup;
    EXPECT_FALSE(read_lookup(std::string(68, '\0'), lookup, problem));
    resolve_order resolve;
    EXPECT_FALSE(read_resolve(std::string(196, '\0'), resolve, problem));
}

TEST(sdisc_records, a_text_without_a_terminator_ends_with_its_field)
{
    publish_record record = good_publish();
    std::memset(record.name, 'n', sizeof record.name);
    EXPECT_FALSE(is_read(record)) << "64 bytes are too many for a service's name";
    record.name[63] = '\0';
    EXPECT_TRUE(is_read(record)) << problem;
    std::memset(record.txt, 'p', sizeof record.txt);
    EXPECT_FALSE(is_read(record));
    EXPECT_EQ(problem, "a TXT string has 1024 bytes and may have 255");
}

TEST(sdisc_records, a_name_that_was_cut_inside_a_character_loses_the_rest_of_it)
{
    const std::string a_umlaut = "\xc3\xa4", euro = "\xe2\x82\xac", clef = "\xf0\x9d\x84\x9e";
    for (const std::string &last : {a_umlaut, euro, clef}) {
        for (size_t kept = 1; kept < last.size(); ++kept) {
            const std::string whole(63 - kept, 'n'), cut = whole + last.substr(0, kept);
            publish_record record = good_publish();
            std::memcpy(record.name, cut.c_str(), cut.size() + 1);
            publish_order order;
            ASSERT_TRUE(read_publish(text_of(record), order, problem)) << problem;
            EXPECT_EQ(order.service.name, whole);
            std::string taken_back;
            ASSERT_TRUE(read_unpublish(cut, taken_back, problem)) << problem;
            EXPECT_EQ(taken_back, whole);
        }
        const std::string fits = std::string(63 - last.size(), 'n') + last;
        EXPECT_EQ(without_cut_character(fits), fits);
    }
    std::string name;
    EXPECT_FALSE(read_unpublish("short\xc3", name, problem)) << "nothing cut this one";
    EXPECT_FALSE(read_unpublish(std::string(60, 'n') + "\x84\x84\x84", name, problem));
}

TEST(sdisc_records, each_field_of_a_publish_record_is_checked)
{
    const auto with = [](auto change) {
        publish_record record = good_publish();
        change(record);
        return is_read(record);
    };
    EXPECT_FALSE(with([](publish_record &r) { r.port = 0; }));
    EXPECT_FALSE(with([](publish_record &r) { r.name[0] = '\0'; }));
    EXPECT_FALSE(with([](publish_record &r) { r.name[0] = '\xff'; }));
    EXPECT_FALSE(with([](publish_record &r) { r.type[0] = 'x'; }));
    EXPECT_FALSE(with([](publish_record &r) { std::strcpy(r.domain, "example.org"); }));
    EXPECT_FALSE(with([](publish_record &r) { r.txt[1] = '\n'; }));
    EXPECT_FALSE(with([](publish_record &r) { r.txt[1] = '\xff'; }));
    EXPECT_TRUE(with([](publish_record &r) { std::strcpy(r.domain, "local"); }));
    EXPECT_TRUE(with([](publish_record &r) { r.interface = -5; }));
}

TEST(sdisc_records, an_unpublish_text_ends_at_its_terminator_or_with_the_message)
{
    std::string name;
    EXPECT_TRUE(read_unpublish(std::string("vGPO1@A\0junk", 12), name, problem));
    EXPECT_EQ(name, "vGPO1@A");
    EXPECT_TRUE(read_unpublish("vGPO1@A", name, problem));
    EXPECT_FALSE(read_unpublish("", name, problem));
    EXPECT_FALSE(read_unpublish(std::string(64, 'x'), name, problem));
    EXPECT_FALSE(read_unpublish(std::string(5000, '\0'), name, problem));
}

TEST(sdisc_records, a_browse_record_comes_back_as_a_resolve_request)
{
    resolve_order order;
    const browse_record record = make_browse_record(3, {"_zelvgpo._tcp", std::string(63, 'n')});
    ASSERT_TRUE(read_resolve(text_of(record), order, problem)) << problem;
    EXPECT_EQ(order.interface, 3);
    EXPECT_EQ(order.service.name, std::string(63, 'n'));
}

TEST(sdisc_records, details_that_are_too_long_for_their_fields_are_cut)
{
    const service_details details{std::string(200, 'h'), "10.0.0.1", 9000, strings(20, std::string(255, 't'))};
    const resolve_record record = make_resolve_record(1, {"_zelvgpo._tcp", "n"}, details);
    EXPECT_EQ(strnlen(record.host, sizeof record.host), sizeof record.host - 1);
    EXPECT_LT(strnlen(record.txt, sizeof record.txt), sizeof record.txt);
    EXPECT_EQ(read_txt(record.txt, problem)->size(), 3u);
}

class kept_file : public testing::Test {
protected:
    temp_folder folder;
    const std::string path = folder.path() + "/run/zel/state";
    std::string complaint;

    static std::vector<kept_client> some()
    {
        kept_client one{"zel_gpio", {4711, 123456789}, {{"eth0", "_zelvgpo._tcp"}}, {}, {}};
        one.announcements.push_back({{"#7", {"_zelvgpo._tcp", "vGPO1@\"A\" \\ \xe2\x82\xac"}}, 9000, {"path=/a \"b\"", "altport=1"}});
        one.told[{"_zelvgpo._tcp", "vGPO1@B"}] = {"eth0", true, 0xfedcba9876543210u, false};
        return {one, kept_client{"other", {1, 2}, {}, {}, {}}};
    }
};

TEST_F(kept_file, what_is_written_is_read_back)
{
    ASSERT_TRUE(write_kept(path, some()));
    const std::vector<kept_client> back = read_kept(path, complaint);
    EXPECT_EQ(complaint, "");
    ASSERT_EQ(back.size(), 2u);
    EXPECT_EQ(back[0].name, "zel_gpio");
    EXPECT_EQ(back[0].process, (process_identity{4711, 123456789}));
    EXPECT_EQ(back[0].questions, some()[0].questions);
    EXPECT_EQ(back[0].announcements, some()[0].announcements);
    ASSERT_EQ(back[0].told.size(), 1u);
    EXPECT_EQ(back[0].told.begin()->second.details_sum, 0xfedcba9876543210u);
    EXPECT_EQ(back[0].told.begin()->second.interface, "eth0");
}

TEST_F(kept_file, a_missing_file_is_nothing_kept)
{
    EXPECT_TRUE(read_kept(path, complaint).empty());
    EXPECT_EQ(complaint, "");
}

TEST_F(kept_file, a_file_that_is_none_is_left_aside_with_one_line)
{
    for (const char *text : {"", "{", "[]", "\xff\xff", "{\"clients\": 5}"}) {
        write_file(path, text);
        complaint.clear();
        EXPECT_TRUE(read_kept(path, complaint).empty());
    }
    write_file(path, "{");
    (void)read_kept(path, complaint);
    EXPECT_NE(complaint, "");
}

TEST_F(kept_file, entries_that_make_no_sense_are_left_out_and_the_others_are_taken)
{
    write_file(path, R"({"clients": [7, {"name": ""}, {"name": "good", "looks_for": [{"interface": "lo", "type": "no type"}, 3],
        "publishes": [{"interface": "lo", "type": "_a._tcp", "name": "n", "port": 70000, "txt": ""},
                      {"interface": "lo", "type": "_a._tcp", "name": "n", "port": 7, "txt": "\"open"},
                      {"interface": "", "type": "_a._tcp", "name": "n", "port": 7, "txt": ""},
                      {"interface": "lo", "type": "_a._tcp", "name": "kept", "port": 7, "txt": ""}]}]})");
    const auto back = read_kept(path, complaint);
    EXPECT_NE(complaint, "");
    ASSERT_EQ(back.size(), 1u);
    EXPECT_TRUE(back[0].questions.empty());
    ASSERT_EQ(back[0].announcements.size(), 1u);
    EXPECT_EQ(back[0].announcements[0].place.service.name, "kept");
}

TEST_F(kept_file, what_was_written_before_the_machine_was_started_anew_counts_no_more)
{
    ASSERT_TRUE(write_kept(path, some()));
    std::string text = zel::test::read_file(path);
    const size_t at = text.find("\"machine_start\": \"");
    ASSERT_NE(at, std::string::npos) << text;
    char &digit = text[at + std::strlen("\"machine_start\": \"")];
    digit = digit == '0' ? '1' : '0';
    write_file(path, text);
    EXPECT_TRUE(read_kept(path, complaint).empty());
    EXPECT_EQ(complaint, "");
}

TEST_F(kept_file, nothing_is_left_behind_where_nothing_can_be_written)
{
    write_file(folder.path() + "/run", "not a folder");
    EXPECT_FALSE(write_kept(path, some()));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST(process, is_known_by_its_start_and_not_by_its_number_alone)
{
    const process_identity own = identify_process(getpid());
    EXPECT_NE(own.started, 0u);
    EXPECT_TRUE(is_running(own));
    EXPECT_FALSE(is_running({own.pid, own.started + 1}));
    EXPECT_FALSE(is_running({0, 0}));
    EXPECT_FALSE(is_running({-1, 0}));
    const pid_t child = fork();
    if (child == 0) pause();
    const process_identity seen = identify_process(child);
    EXPECT_TRUE(is_running(seen));
    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    EXPECT_FALSE(is_running(seen));
}

class loop : public testing::Test {
protected:
    event_loop events;
    const AvahiPoll *api = events.api();
    struct noted {
        loop *self;
        AvahiTimeout *timeout = nullptr;
        AvahiWatch *watch = nullptr;
        int calls = 0;
        bool frees_itself = false;
        noted *frees_other = nullptr;
    };
    static timeval in_ms(int ms)
    {
        timeval time{};
        (void)gettimeofday(&time, nullptr);
        const timeval more{ms / 1000, ms % 1000 * 1000};
        timeradd(&time, &more, &time);
        return time;
    }
    static void on_timeout(AvahiTimeout *timeout, void *user_data)
    {
        auto *const note = static_cast<noted *>(user_data);
        ++note->calls;
        if (note->frees_itself) note->self->api->timeout_free(timeout);
        if (note->frees_other != nullptr) note->self->api->timeout_free(note->frees_other->timeout);
    }
    static void on_watch(AvahiWatch *watch, int, AvahiWatchEvent, void *user_data)
    {
        auto *const note = static_cast<noted *>(user_data);
        ++note->calls;
        if (note->frees_itself) note->self->api->watch_free(watch);
        if (note->frees_other != nullptr) note->self->api->watch_free(note->frees_other->watch);
    }
    void add_timeout(noted &note, int ms)
    {
        const timeval due = in_ms(ms);
        note.timeout = api->timeout_new(api, &due, on_timeout, &note);
    }
};

TEST_F(loop, a_timeout_is_called_once_when_it_is_due)
{
    noted note{this};
    add_timeout(note, 20);
    while (note.calls == 0) ASSERT_TRUE(events.turn(std::nullopt));
    ASSERT_TRUE(events.turn(now_ms() + 30));
    EXPECT_EQ(note.calls, 1);
    const timeval again = in_ms(0);
    api->timeout_update(note.timeout, &again);
    ASSERT_TRUE(events.turn(now_ms() + 1000));
    EXPECT_EQ(note.calls, 2);
    const timeval never = in_ms(0);
    api->timeout_update(note.timeout, &never);
    api->timeout_update(note.timeout, nullptr);
    ASSERT_TRUE(events.turn(now_ms()));
    EXPECT_EQ(note.calls, 2);
}

TEST_F(loop, what_is_freed_inside_a_callback_is_not_called_any_more)
{
    noted second{this}, first{this, nullptr, nullptr, 0, true, &second};
    add_timeout(first, 0);
    add_timeout(second, 0);
    ASSERT_TRUE(events.turn(now_ms()));
    ASSERT_TRUE(events.turn(now_ms()));
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(events.timeout_count(), 0u);
}

TEST_F(loop, a_watch_that_is_freed_by_another_ones_callback_is_not_called_any_more)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    noted second{this}, first{this, nullptr, nullptr, 0, true, &second};
    first.watch = api->watch_new(api, ends[0], AVAHI_WATCH_IN, on_watch, &first);
    second.watch = api->watch_new(api, ends[0], AVAHI_WATCH_IN, on_watch, &second);
    ASSERT_TRUE(events.turn(now_ms() + 1000));
    ASSERT_TRUE(events.turn(now_ms()));
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(events.watch_count(), 0u);
    close(ends[0]);
    close(ends[1]);
}

TEST_F(loop, watches_say_what_happened_and_can_wait_for_something_else)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    static AvahiWatchEvent seen;
    seen = AvahiWatchEvent{};
    const auto note = [](AvahiWatch *watch, int, AvahiWatchEvent event, void *user_data) {
        EXPECT_EQ(static_cast<const AvahiPoll *>(user_data)->watch_get_events(watch), event);
        seen = event;
    };
    AvahiWatch *const watch = api->watch_new(api, ends[1], AVAHI_WATCH_IN, note, const_cast<AvahiPoll *>(api));
    ASSERT_TRUE(events.turn(now_ms()));
    EXPECT_EQ(seen, 0);
    api->watch_update(watch, AVAHI_WATCH_OUT);
    ASSERT_TRUE(events.turn(now_ms()));
    EXPECT_EQ(seen, AVAHI_WATCH_OUT);
    close(ends[0]);
    ASSERT_TRUE(events.turn(now_ms()));
    EXPECT_NE(seen & AVAHI_WATCH_ERR, 0);
    close(ends[1]);
}

TEST(program, defines_the_clock_that_its_libraries_read)
{
    const auto symbols = zel::test::run({"nm", "-D", "--defined-only", ZEL_SDISCD});
    ASSERT_EQ(symbols.status, 0) << symbols.err;
    EXPECT_NE(symbols.out.find(" T gettimeofday\n"), std::string::npos) << symbols.out;
    const auto needed = zel::test::run({"nm", "-D", "--undefined-only", ZEL_AVAHI_COMMON});
    ASSERT_EQ(needed.status, 0) << needed.err;
    EXPECT_NE(needed.out.find("gettimeofday"), std::string::npos) << "the library reads another clock now";
}

TEST(program, is_alone_in_defining_that_clock)
{
    for (const char *library : {ZEL_IPC_LIBRARY, ZEL_DEBUG_LIBRARY}) {
        const auto symbols = zel::test::run({"nm", "-D", "--defined-only", library});
        EXPECT_EQ(symbols.status, 0);
        EXPECT_EQ(symbols.out.find("gettimeofday"), std::string::npos);
    }
}

TEST(program, says_in_one_line_what_is_wrong_with_its_command_line)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--nonsense"}, "zel_sdiscd: unknown argument \"--nonsense\" (try --help)\n"},
        {{"--root"}, "zel_sdiscd: --root needs a value (try --help)\n"},
        {{"--ttl", "5"}, "zel_sdiscd: --ttl must be a whole number from 10 to 4500, not \"5\" (try --help)\n"},
        {{"--ttl=x"}, "zel_sdiscd: --ttl must be a whole number from 10 to 4500, not \"x\" (try --help)\n"},
        {{"--log-level=loud"}, "zel_sdiscd: there is no log level \"loud\" (try --help)\n"},
        {{"--backend=avahi"}, "zel_sdiscd: there is no back end \"avahi\"; it is \"embedded\" (try --help)\n"},
    };
    for (const auto &[words, line] : cases) {
        std::vector<std::string> all{ZEL_SDISCD};
        all.insert(all.end(), words.begin(), words.end());
        const auto result = zel::test::run(all);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, line);
    }
}

TEST(program, tells_its_usage_and_version)
{
    const auto help = zel::test::run({ZEL_SDISCD, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.starts_with("usage: zel_sdiscd "));
    const auto version = zel::test::run({ZEL_SDISCD, "--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_TRUE(version.out.starts_with("zel_sdiscd 1."));
}

TEST(program, refuses_roots_that_do_not_exist_and_settings_with_mistakes)
{
    const auto nowhere = zel::test::run({ZEL_SDISCD, "--root", "/nonexistent"});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_EQ(nowhere.err, "zel_sdiscd: /nonexistent: No such file or directory\n");
    temp_folder folder;
    write_file(folder.path() + "/etc/zel/unit.json", "{\"servers\": {\"discovery\": 5}}");
    const auto mistaken = zel::test::run({ZEL_SDISCD, "--root", folder.path()});
    EXPECT_EQ(mistaken.status, 3);
    EXPECT_NE(mistaken.err.find("servers/discovery"), std::string::npos) << mistaken.err;
}
