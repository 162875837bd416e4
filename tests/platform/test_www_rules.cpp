// Who may ask: the Host and Origin of a request, and the small parsers behind them.
#include "basic_credentials.h"
#include "compression.h"
#include "keyed_digest.h"
#include "request.h"
#include "request_rules.h"
#include "web_bench.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cstring>

using namespace web_test;
using namespace zel::web;

namespace {

sockaddr_storage at(const char *text)
{
    sockaddr_storage address{};
    if (inet_pton(AF_INET, text, &reinterpret_cast<sockaddr_in &>(address).sin_addr) == 1) address.ss_family = AF_INET;
    else if (inet_pton(AF_INET6, text, &reinterpret_cast<sockaddr_in6 &>(address).sin6_addr) == 1) address.ss_family = AF_INET6;
    return address;
}

TEST(web_host, names_of_this_server_are_accepted_and_no_others)
{
    const char *const others[] = {"Studio.Example.com", nullptr};
    const host_names names(others);
    char own[256] = "";
    gethostname(own, sizeof own - 1);
    const struct { std::string host; const char *local; bool accepted; } rows[] = {
        {"127.0.0.1:8080", "127.0.0.1", true}, {"127.0.0.1", "127.0.0.1", true}, {"localhost:8080", "127.0.0.1", true},
        {"LOCALHOST", "127.0.0.1", true}, {"localhost.", "127.0.0.1", true}, {"[::1]:8080", "127.0.0.1", true},
        {"[::1]", "::1", true}, {"127.0.0.1", "127.3.2.1", true}, {"10.0.0.5:80", "10.0.0.5", true},
        {"10.0.0.5", "::ffff:10.0.0.5", true}, {"[fe80::1]", "fe80::1", true}, {"studio.example.com:8080", "10.0.0.5", true},
        {"studio.example.com.", "10.0.0.5", true}, {own, "10.0.0.5", true}, {std::string(own) + ".local:1", "10.0.0.5", true},
        {"10.0.0.6", "10.0.0.5", false}, {"127.0.0.1", "10.0.0.5", false}, {"10.0.0.5", "127.0.0.1", false},
        {"evil.example", "127.0.0.1", false}, {"localhost.evil.example", "127.0.0.1", false}, {"evil-localhost", "127.0.0.1",
            false},
        {"127.0.0.1.evil.example", "127.0.0.1", false}, {"0x7f.1", "127.0.0.1", false}, {"2130706433", "127.0.0.1", false},
        {"127.1", "127.0.0.1", false}, {"", "127.0.0.1", false}, {":8080", "127.0.0.1", false}, {"[", "127.0.0.1", false},
        {"[]", "127.0.0.1", false}, {"[127.0.0.1", "127.0.0.1", true}, {"localhost@evil.example", "127.0.0.1", false},
        {"::1", "::1", false}, {"0.0.0.0", "127.0.0.1", false},
    };
    for (const auto &row : rows) EXPECT_EQ(names.accept(row.host, at(row.local)), row.accepted) << row.host << " at "
        << row.local;
}

void answer(void *, const zel_web_request_t *, zel_web_reply_t *reply)
{
    (void)zel_web_reply_text(reply, 200, "text/plain", "done", 4);
}

TEST(web_origin, only_the_pages_of_this_server_may_post)
{
    running_server server({}, [](zel_web_server_t *own) {
        EXPECT_EQ(zel_web_server_add_document(own, "/api", ZEL_WEB_GET | ZEL_WEB_POST, answer, nullptr), 0);
    });
    const std::string host = client(server.port()).host(), port = ":" + std::to_string(server.port());
    const struct { const char *method; header_list headers; int status; } rows[] = {
        {"POST", {{"Origin", "http://" + host}}, 200},
        {"POST", {{"Origin", "HTTP://" + host}}, 403},
        {"POST", {{"Origin", "https://" + host}}, 200},
        {"POST", {{"Referer", "http://" + host + "/panel.html?a"}}, 200},
        {"POST", {{"Host", "LocalHost" + port}, {"Origin", "http://localhost" + port}}, 200},
        {"POST", {}, 403},
        {"POST", {{"Origin", "null"}}, 403},
        {"POST", {{"Origin", ""}}, 403},
        {"POST", {{"Origin", "http://127.0.0.1"}}, 403},
        {"POST", {{"Origin", "http://127.0.0.1:1"}}, 403},
        {"POST", {{"Origin", "http://localhost" + port}}, 403},
        {"POST", {{"Origin", "http://evil.example"}}, 403},
        {"POST", {{"Origin", "http://evil.example/" + host}}, 403},
        {"POST", {{"Origin", "http://" + host + ".evil.example"}}, 403},
        {"POST", {{"Origin", "http://evil.example"}, {"Referer", "http://" + host + "/"}}, 403},
        {"POST", {{"Referer", "http://evil.example/http://" + host}}, 403},
        {"POST", {{"Referer", ""}}, 403},
        {"POST", {{"Host", "evil.example"}, {"Origin", "http://evil.example"}}, 403},
        {"GET", {}, 200},
        {"GET", {{"Referer", "http://elsewhere.example/link"}}, 200},
        {"GET", {{"Origin", "http://evil.example"}}, 403},
        {"GET", {{"Origin", "http://" + host}}, 200},
        {"GET", {{"Host", "evil.example"}}, 403},
        {"HEAD", {{"Host", "rebound.example" + port}}, 403},
    };
    for (const auto &row : rows) {
        client each(server.port());
        header_list headers = row.headers;
        if (std::string(row.method) == "POST") headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
        const std::string body = std::string(row.method) == "POST" ? "a=b" : "";
        const std::string first = row.headers.empty() ? "" : row.headers[0].first + ": " + row.headers[0].second;
        EXPECT_EQ(each.ask(row.method, "/api", headers, body).status, row.status) << row.method << " " << first;
    }
}

TEST(web_origin, configured_names_are_names_of_this_server)
{
    const char *const names[] = {"studio.example", nullptr};
    zel_web_server_config_t config{};
    config.names = names;
    running_server server(config, [](zel_web_server_t *own) {
        EXPECT_EQ(zel_web_server_add_document(own, "/api", ZEL_WEB_GET, answer, nullptr), 0);
    });
    EXPECT_EQ(client(server.port()).get("/api", {{"Host", "studio.example:8080"}}).status, 200);
    EXPECT_EQ(client(server.port()).get("/api", {{"Host", "other.example:8080"}}).status, 403);
}

TEST(web_target, is_split_and_decoded_once)
{
    const struct { const char *target; bool good; const char *path, *query; } rows[] = {
        {"/a/b?c=%00&d", true, "/a/b", "c=%00&d"}, {"/%41%2f+?", true, "/A/+", ""}, {"/%2541", true, "/%41", ""}, {"/?a?b",
            true, "/", "a?b"},
        {"/%c3%a4", true, "/\xc3\xa4", ""}, {"a", false, "", ""}, {"", false, "", ""}, {"*", false, "", ""}, {"/%", false, "",
            ""},
        {"/%4", false, "", ""}, {"/%g1", false, "", ""}, {"/%00", false, "", ""}, {"/a%0", false, "", ""},
    };
    for (const auto &row : rows) {
        request each;
        each.target = row.target;
        EXPECT_EQ(each.split_target(), row.good) << row.target;
        if (!row.good) continue;
        EXPECT_EQ(each.path, row.path);
        EXPECT_EQ(each.query, row.query);
    }
}

TEST(web_credentials, are_taken_apart_or_refused)
{
    const auto shown = [](const char *header) {
        const auto given = parse_basic(header);
        return given ? given->user + "|" + given->password : "none";
    };
    EXPECT_EQ(shown("Basic YW5uYTpzZWNyZXQ="), "anna|secret");
    EXPECT_EQ(shown("basic   YW5uYTpzZWNyZXQ"), "anna|secret");
    EXPECT_EQ(shown("Basic YTpiOmM="), "a|b:c");
    EXPECT_EQ(shown("Basic Og=="), "|");
    EXPECT_EQ(shown("Basic w6Q6w7w="), "\xc3\xa4|\xc3\xbc");
    for (const char *bad : {"", "Basic", "Basic ", "Bearer YW5uYTpzZWNyZXQ=", "Basic YW5uYQ==", "Basic !!!!", "Basic YTpiAA==",
        "Basi"}) {
        EXPECT_EQ(shown(bad), "none") << bad;
    }
}

// The published test vectors of SipHash-2-4 with 128 bits: key 00 01 ... 0f, texts of length 0 and 1.
TEST(web_digest, is_the_published_function)
{
    uint64_t key[2];
    unsigned char bytes[16];
    for (unsigned char i = 0; i < 16; ++i) bytes[i] = i;
    std::memcpy(key, bytes, sizeof key);
    const keyed_digest digests({key[0], key[1]});
    const auto hex = [](const digest &value) {
        std::string text;
        for (const uint64_t word : value) {
            for (int i = 0; i < 8; ++i) {
                char two[3];
                std::snprintf(two, sizeof two, "%02x", static_cast<unsigned>(word >> (8 * i) & 0xff));
                text += two;
            }
        }
        return text;
    };
    EXPECT_EQ(hex(digests.of("")), "a3817f04ba25a8e66df67214c7550293");
    EXPECT_EQ(hex(digests.of(std::string_view("\0", 1))), "da87c1d86b99af44347659119b22fc45");
    EXPECT_FALSE(same_digest(digests.of("a"), digests.of("b")));
    EXPECT_TRUE(same_digest(digests.of("a"), digests.of("a")));
    EXPECT_FALSE(same_digest(keyed_digest::with_random_key().of("a"), keyed_digest::with_random_key().of("a")));
}

TEST(web_compression, gives_nothing_where_it_would_not_be_shorter)
{
    EXPECT_FALSE(gzip("a", 6));
    EXPECT_EQ(unpacked(gzip(std::string(10000, 'a'), 1).value_or("")), std::string(10000, 'a'));
    EXPECT_TRUE(is_worth_compressing("application/json", 1400));
    EXPECT_FALSE(is_worth_compressing("application/json", 1399));
    EXPECT_FALSE(is_worth_compressing("image/png", 100000));
    EXPECT_TRUE(takes_gzip("deflate, *"));
    EXPECT_FALSE(takes_gzip("*;q=0"));
    EXPECT_FALSE(takes_gzip(",,;;q=1,"));
}

}  // namespace
