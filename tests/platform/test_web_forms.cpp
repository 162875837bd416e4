#include "captured_stderr.h"
#include "zel_www.h"

#include <climits>
#include <memory>
#include <random>
#include <string>

namespace {

const char *const keys[] = {"name", "index", "a b", "", "state", nullptr};
constexpr int most = 6;

// Parses a copy of `text`; "key=value" of each pair found, in order.
class form {
public:
    explicit form(std::string text, int max_pairs = most) : text_(std::move(text))
    {
        for (auto &pair : pairs) pair = {77, "stale"};
        found = zel_web_get_kvp(text_.data(), keys, pairs, max_pairs);
    }
    std::vector<std::string> values() const
    {
        std::vector<std::string> result;
        for (int i = 0; i < found; ++i) result.push_back(std::string(keys[pairs[i].key]) + "=" + pairs[i].value);
        return result;
    }
    const char *value(int key) const { return zel_web_key_val(key, pairs, most); }

    int found = -1;
    zel_web_kvp_t pairs[most];

private:
    std::string text_;
};

using values = std::vector<std::string>;

int serve(void *, const char *, size_t, const char *, size_t, int *, char **, size_t *, void *, char *, size_t)
{
    return 1;
}

}  // namespace

TEST(web_forms, pairs_come_in_the_order_of_the_text_with_the_index_of_their_key)
{
    const form parsed("index=4&name=Relay&state=1");
    EXPECT_EQ(parsed.values(), (values{"index=4", "name=Relay", "state=1"}));
    EXPECT_EQ(parsed.pairs[0].key, 1);
    EXPECT_STREQ(parsed.value(0), "Relay");
    EXPECT_EQ(parsed.value(2), nullptr);
    EXPECT_EQ(parsed.value(-1), nullptr);
}

TEST(web_forms, unused_pairs_are_emptied)
{
    const form parsed("state=1");
    for (int i = 1; i < most; ++i) {
        EXPECT_EQ(parsed.pairs[i].key, -1);
        EXPECT_EQ(parsed.pairs[i].value, nullptr);
    }
}

TEST(web_forms, plus_and_percent_sequences_are_decoded_in_keys_and_values)
{
    EXPECT_EQ(form("name=On+Air%20%2b%26%3D%C3%BC").values(), (values{"name=On Air +&=\xc3\xbc"}));
    EXPECT_EQ(form("a+b=1&n%61me=2").values(), (values{"a b=1", "name=2"}));
    EXPECT_EQ(form("name=a=b").values(), (values{"name=a=b"}));
}

TEST(web_forms, malformed_percent_sequences_stay_as_they_are)
{
    const struct { const char *text, *value; } table[] = {
        {"name=100%", "100%"}, {"name=%", "%"}, {"name=%4", "%4"}, {"name=%zz", "%zz"}, {"name=%4g%41", "%4gA"},
        {"name=%%41", "%A"}, {"name=%+1", "% 1"}, {"name=%-1", "%-1"}, {"name=%2", "%2"}};
    for (const auto &row : table) EXPECT_STREQ(form(row.text).value(0), row.value) << row.text;
    EXPECT_EQ(form("name=%4&index=1").values(), (values{"name=%4", "index=1"}));
}

TEST(web_forms, an_encoded_zero_byte_cuts_nothing_off)
{
    EXPECT_EQ(form("name=safe%00.txt&index=1").values(), (values{"name=safe%00.txt", "index=1"}));
    EXPECT_EQ(form("name%00x=1").found, 0);
}

TEST(web_forms, pieces_without_an_equals_sign_and_unknown_keys_are_skipped)
{
    EXPECT_EQ(form("name&&other=1&index=2&=e&").values(), (values{"index=2", "=e"}));
    EXPECT_EQ(form("name=").values(), (values{"name="}));
}

TEST(web_forms, of_a_repeated_key_the_first_counts)
{
    EXPECT_EQ(form("name=1&index=5&name=2&n%61me=3").values(), (values{"name=1", "index=5"}));
}

TEST(web_forms, no_more_pairs_are_written_than_there_is_room_for)
{
    const form parsed("name=1&index=2&state=3", 2);
    EXPECT_EQ(parsed.values(), (values{"name=1", "index=2"}));
    EXPECT_EQ(parsed.pairs[2].key, 77);
    EXPECT_EQ(form("name=1", 0).found, 0);
    EXPECT_EQ(form("name=1", -1).found, 0);
}

TEST(web_forms, nothing_is_found_in_nothing)
{
    EXPECT_EQ(form("").found, 0);
    zel_web_kvp_t pairs[1] = {{3, "x"}};
    EXPECT_EQ(zel_web_get_kvp(nullptr, keys, pairs, 1), 0);
    EXPECT_EQ(pairs[0].key, -1);
    char text[] = "name=1";
    EXPECT_EQ(zel_web_get_kvp(text, nullptr, pairs, 1), 0);
    EXPECT_EQ(zel_web_get_kvp(text, keys, nullptr, 1), 0);
}

TEST(web_forms, numbers_are_whole_decimal_and_fit)
{
    const struct { const char *text; int result; long number; } table[] = {
        {"0", 0, 0}, {"42", 0, 42}, {"-7", 0, -7}, {"%2B7", 0, 7}, {"007", 0, 7},
        {"9223372036854775807", sizeof(long) == 8 ? 0 : -1, LONG_MAX},
        {"-9223372036854775808", sizeof(long) == 8 ? 0 : -1, LONG_MIN},
        {"9223372036854775808", -1, 0}, {"-9223372036854775809", -1, 0}, {"99999999999999999999999999", -1, 0},
        {"2147483647", 0, 2147483647}, {"", -1, 0}, {"-", -1, 0}, {"%2B", -1, 0}, {"%2B-1", -1, 0}, {"%2B%2B1", -1, 0},
        {"-%2B1", -1, 0}, {"--1", -1, 0}, {"1.5", -1, 0}, {"1e3", -1, 0}, {"0x10", -1, 0}, {"12a", -1, 0}, {"+1", -1, 0},
        {"1+", -1, 0}, {"1%00", -1, 0}, {"nan", -1, 0}};
    for (const auto &row : table) {
        const form parsed("index=" + std::string(row.text));
        long number = 4711;
        EXPECT_EQ(zel_web_key_valtol(1, parsed.pairs, most, &number), row.result) << row.text;
        EXPECT_EQ(number, row.result == 0 ? row.number : 4711) << row.text;
    }
    const form none("name=1");
    long number = 4711;
    EXPECT_EQ(zel_web_key_valtol(1, none.pairs, most, &number), -1);
    EXPECT_EQ(zel_web_key_valtol(0, none.pairs, most, nullptr), -1);
    EXPECT_EQ(zel_web_key_valtol(0, nullptr, most, &number), -1);
    EXPECT_EQ(number, 4711);
}

TEST(web_forms, any_bytes_are_taken_without_harm)
{
    std::mt19937 random(7);
    const std::string alphabet = "%%%%&&==+0aF4name\xff\xc3";
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 40, ' ');
        for (char &byte : text) byte = alphabet[random() % alphabet.size()];
        // A heap copy of the exact size, so that a read or write beyond its end is seen by the address sanitizer.
        const std::unique_ptr<char[]> exact(new char[text.size() + 1]);
        memcpy(exact.get(), text.c_str(), text.size() + 1);
        zel_web_kvp_t pairs[most];
        const int found = zel_web_get_kvp(exact.get(), keys, pairs, most);
        for (int i = 0; i < found; ++i) {
            ASSERT_GE(pairs[i].value, exact.get());
            ASSERT_LE(pairs[i].value + strlen(pairs[i].value), exact.get() + text.size());
        }
    }
}

TEST(web_handlers, a_handler_is_found_by_its_whole_path)
{
    static const zel_web_url_handler_t grid{"/cgi/gpioGrid.cgi", serve}, other{"/cgi/gpioConn.cgi", serve};
    EXPECT_EQ(zel_web_server_add_handler(&grid), 0);
    EXPECT_EQ(zel_web_server_add_handler(&other), 0);
    EXPECT_EQ(zel_web_server_find_handler("/cgi/gpioGrid.cgi"), &grid);
    EXPECT_EQ(zel_web_server_find_handler("/cgi/gpioConn.cgi"), &other);
    EXPECT_EQ(zel_web_server_find_handler("/cgi/gpioGrid.cgi/"), nullptr);
    EXPECT_EQ(zel_web_server_find_handler("/cgi/gpioGrid"), nullptr);
    EXPECT_EQ(zel_web_server_find_handler(nullptr), nullptr);
}

TEST(web_handlers, a_second_handler_for_a_path_is_refused_and_the_first_stays)
{
    static const zel_web_url_handler_t first{"/twice", serve}, second{"/twice", serve};
    captured_stderr log;
    EXPECT_EQ(zel_web_server_add_handler(&first), 0);
    EXPECT_EQ(zel_web_server_add_handler(&second), -1);
    EXPECT_EQ(zel_web_server_find_handler("/twice"), &first);
    EXPECT_NE(log.next().find("/twice refused: the path has a handler already"), std::string::npos);
}

TEST(web_handlers, records_that_could_not_serve_are_refused)
{
    captured_stderr log;
    const zel_web_url_handler_t table[] = {{nullptr, serve}, {"", serve}, {"relative", serve}, {"/fine", nullptr}};
    for (const auto &handler : table) EXPECT_LT(zel_web_server_add_handler(&handler), 0);
    EXPECT_LT(zel_web_server_add_handler(nullptr), 0);
    EXPECT_EQ(zel_web_server_find_handler("/fine"), nullptr);
    EXPECT_EQ(log.all().size(), 5u);
}

TEST(web_handlers, a_full_table_refuses_and_keeps_what_it_has)
{
    captured_stderr log;
    static std::vector<std::string> paths;
    static std::vector<zel_web_url_handler_t> handlers;
    for (int i = 0; i < 100; ++i) paths.push_back("/many/" + std::to_string(i));
    for (const std::string &path : paths) handlers.push_back({path.c_str(), serve});
    size_t added = 0;
    while (added < handlers.size() && zel_web_server_add_handler(&handlers[added]) == 0) ++added;
    EXPECT_GT(added, 50u);
    EXPECT_LE(added, 64u);
    EXPECT_NE(log.next().find("too many handlers"), std::string::npos);
    EXPECT_EQ(zel_web_server_find_handler(paths[0].c_str()), &handlers[0]);
    EXPECT_EQ(zel_web_server_find_handler(paths[added].c_str()), nullptr);
}
