// The server's HTTP: requests of every form, well made and not, over real sockets.
#include "captured_stderr.h"
#include "web_bench.h"
#include "zel_debug.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

using namespace web_test;

namespace {

// What the handlers of the library were called with last.
struct call {
    std::string query, body;
    size_t size = 0;
    bool query_is_null = true, body_is_null = true;
};
call last_call;
std::atomic<int> calls{0};
std::atomic<size_t> wanted_size{0};
std::atomic<int> wanted_status{200};

int echo(void *, const char *query, size_t query_len, const char *body, size_t body_len, int *status, char **reply,
         size_t *reply_len,
         void *, char *buf, size_t size)
{
    ++calls;
    last_call = {std::string(query != nullptr ? query : "", query_len), std::string(body != nullptr ? body : "", body_len), size,
                 query == nullptr, body == nullptr};
    *status = wanted_status;
    if (wanted_size > size) {
        *status = 501;
        return 1;
    }
    if (wanted_size > 0) {
        std::memset(buf, 'x', wanted_size);
        *reply = buf;
        *reply_len = wanted_size;
        return 1;
    }
    const std::string text = "{\"query\":\"" + last_call.query + "\",\"body\":\"" + last_call.body + "\"}";
    std::memcpy(buf, text.data(), text.size());
    *reply = buf;
    *reply_len = text.size();
    return 1;
}
const zel_web_url_handler_t echo_handler{"/cgi/echo.cgi", echo};

void answer_document(void *, const zel_web_request_t *request, zel_web_reply_t *reply)
{
    const std::string query = request->query;
    if (query == "silent") return;
    if (query == "nonsense") {
        EXPECT_EQ(zel_web_reply_text(reply, 99, "text/plain", "x", 1), -1);
        EXPECT_EQ(zel_web_reply_text(reply, 200, nullptr, "x", 1), -1);
        EXPECT_EQ(zel_web_reply_text(nullptr, 200, "text/plain", "x", 1), -1);
        EXPECT_EQ(zel_web_reply_text(reply, 200, "text/plain", nullptr, 1), -1);
        return;
    }
    const std::string text = query == "long" ? std::string(20000, 'a') : std::string(request->method) + " " + request->path +
        " " + request->body;
    (void)zel_web_reply_text(reply, query == "teapot" ? 418 : 200, "text/plain; charset=utf-8", text.data(), text.size());
}

void set_up(zel_web_server_t *server)
{
    if (zel_web_server_find_handler(echo_handler.path) == nullptr) zel_web_server_add_handler(&echo_handler);
    EXPECT_EQ(zel_web_server_add_document(server, "/api/both", ZEL_WEB_GET | ZEL_WEB_POST, answer_document, nullptr), 0);
    EXPECT_EQ(zel_web_server_add_document(server, "/api/get", ZEL_WEB_GET, answer_document, nullptr), 0);
    EXPECT_EQ(zel_web_server_add_document(server, "/api/post", ZEL_WEB_POST, answer_document, nullptr), 0);
}

class web_http : public testing::Test {
protected:
    void SetUp() override
    {
        calls = 0;
        wanted_size = 0;
        wanted_status = 200;
    }
    void start(zel_web_server_config_t config = {}) { server = std::make_unique<running_server>(config, set_up); }
    client connect() { return client(server->port()); }

    std::unique_ptr<running_server> server;
};

TEST_F(web_http, one_connection_serves_one_request_after_another)
{
    start();
    client each = connect();
    for (int i = 0; i < 20; ++i) {
        const reply answer = each.get("/api/both");
        ASSERT_EQ(answer.status, 200);
        EXPECT_EQ(answer.body, "GET /api/both ");
    }
}

TEST_F(web_http, requests_sent_in_one_breath_are_answered_in_their_order)
{
    start();
    client each = connect();
    const std::string rest = " HTTP/1.1\r\nHost: " + each.host() + "\r\n\r\n";
    each.send("GET /cgi/echo.cgi?1" + rest + "GET /cgi/echo.cgi?2" + rest + "GET /cgi/echo.cgi?3" + rest);
    for (const char *number : {"1", "2", "3"}) EXPECT_EQ(each.next().body, std::string("{\"query\":\"") + number +
                                                         "\",\"body\":\"\"}");
}

TEST_F(web_http, a_handler_gets_query_and_form_as_they_were_sent)
{
    start();
    client each = connect();
    EXPECT_EQ(each.get("/cgi/echo.cgi?a=%00b+c&d=%zz?").status, 200);
    EXPECT_EQ(last_call.query, "a=%00b+c&d=%zz?");
    EXPECT_TRUE(last_call.body_is_null);
    EXPECT_EQ(each.post("/cgi/echo.cgi", "x=%41&y=+").status, 200);
    EXPECT_EQ(last_call.body, "x=%41&y=+");
    EXPECT_TRUE(last_call.query_is_null);
    EXPECT_EQ(each.get("/cgi/echo.cgi").header("content-type"), "application/json");
}

TEST_F(web_http, a_handlers_status_is_given_as_it_is)
{
    start();
    client each = connect();
    wanted_status = 501;
    const reply refused = each.post("/cgi/echo.cgi", "a=b");
    EXPECT_EQ(refused.status, 501);
    EXPECT_EQ(refused.body, "{\"query\":\"\",\"body\":\"a=b\"}");
    wanted_status = 7;
    EXPECT_EQ(each.get("/cgi/echo.cgi?a").status, 500);
}

TEST_F(web_http, a_handler_gets_a_larger_buffer_until_its_text_fits)
{
    start();
    client each = connect();
    wanted_size = 20000000;
    const reply large = each.get("/cgi/echo.cgi?all");
    EXPECT_EQ(large.status, 200);
    EXPECT_EQ(large.body.size(), 20000000u);
    const int before = calls;
    EXPECT_EQ(each.get("/cgi/echo.cgi?all").body.size(), 20000000u);
    EXPECT_EQ(calls, before + 1) << "the size is known from then on";
    wanted_size = size_t{200} << 20;
    EXPECT_EQ(each.get("/cgi/echo.cgi?all").status, 501);
}

TEST_F(web_http, a_form_is_given_to_its_handler_once_only)
{
    start();
    client each = connect();
    wanted_size = 2000000;
    EXPECT_EQ(each.post("/cgi/echo.cgi", "a=b").status, 501);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(each.get("/cgi/echo.cgi").status, 501) << "nor is a GET without a query repeated: it asks for nothing";
    EXPECT_EQ(calls, 2);
}

TEST_F(web_http, head_says_what_get_would_and_has_no_body)
{
    start();
    client each = connect();
    const reply head = each.ask("HEAD", "/cgi/echo.cgi?q");
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.header("content-length"), std::to_string(each.get("/cgi/echo.cgi?q").body.size()));
    EXPECT_EQ(each.ask("HEAD", "/nothing").status, 404);
    EXPECT_EQ(each.get("/api/get").status, 200) << "the connection goes on";
}

TEST_F(web_http, documents_answer_the_methods_that_they_have)
{
    start();
    client each = connect();
    EXPECT_EQ(each.get("/api/both").body, "GET /api/both ");
    EXPECT_EQ(each.post("/api/both", "a=1").body, "POST /api/both a=1");
    EXPECT_EQ(each.get("/api/both?teapot").status, 418);
    EXPECT_EQ(each.get("/api/both?silent").status, 500);
    EXPECT_EQ(each.get("/api/both?nonsense").status, 500);
    const struct { const char *method, *target, *allowed; } rows[] = {
        {"POST", "/api/get", "GET, HEAD"}, {"GET", "/api/post", "POST"}, {"PUT", "/api/both", "GET, HEAD, POST"},
        {"DELETE", "/", "GET, HEAD"}, {"OPTIONS", "/cgi/echo.cgi", "GET, HEAD, POST"}, {"POST", "/nothing", "GET, HEAD"},
        {"TRACE", "/api/get", "GET, HEAD"},
    };
    for (const auto &row : rows) {
        client other = connect();
        const reply answer = other.ask(row.method, row.target, {{"Origin", "http://" + other.host()}});
        EXPECT_EQ(answer.status, 405) << row.method << row.target;
        EXPECT_EQ(answer.header("allow"), row.allowed) << row.method << row.target;
    }
}

TEST_F(web_http, a_refused_request_does_not_end_the_connection)
{
    start();
    client each = connect();
    EXPECT_EQ(each.get("/nothing").status, 404);
    EXPECT_EQ(each.get("/api/post").status, 405);
    EXPECT_EQ(each.get("/api/get", {{"Origin", "http://evil.example"}}).status, 403);
    EXPECT_EQ(each.get("/%00").status, 400);
    EXPECT_EQ(each.get("/api/get").status, 200);
}

TEST_F(web_http, a_form_that_is_too_long_is_refused_before_or_after_it_came)
{
    start();
    {
        client each = connect();
        EXPECT_EQ(each.post("/api/both", std::string(65536, 'a')).status, 200);
        EXPECT_EQ(each.post("/api/both", std::string(65537, 'a')).status, 413);
    }
    client huge = connect();
    huge.send("POST /api/both HTTP/1.1\r\nHost: " + huge.host() + "\r\nOrigin: http://" + huge.host() +
              "\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: 99999999999999999999\r\n\r\n");
    const int status = huge.next().status;
    EXPECT_TRUE(status == 413 || status == 400) << status;
    client chunked = connect();
    chunked.send("POST /api/both HTTP/1.1\r\nHost: " + chunked.host() + "\r\nOrigin: http://" + chunked.host() +
                 "\r\nContent-Type: application/x-www-form-urlencoded\r\nTransfer-Encoding: chunked\r\n\r\n");
    for (int i = 0; i < 10; ++i) chunked.send("2000\r\n" + std::string(0x2000, 'b') + "\r\n");
    chunked.send("0\r\n\r\n");
    EXPECT_EQ(chunked.next().status, 413);
}

TEST_F(web_http, a_form_may_come_in_chunks_and_after_being_asked_for)
{
    start();
    client each = connect();
    const std::string head = "POST /api/both HTTP/1.1\r\nHost: " + each.host() + "\r\nOrigin: http://" + each.host() +
                             "\r\nContent-Type: Application/X-WWW-Form-urlencoded; charset=UTF-8\r\n";
    each.send(head + "Transfer-Encoding: chunked\r\n\r\n3\r\na=1\r\n4\r\n&b=2\r\n0\r\n\r\n");
    EXPECT_EQ(each.next().body, "POST /api/both a=1&b=2");
    each.send(head + "Expect: 100-continue\r\nContent-Length: 3\r\n\r\n");
    char first[12] = "";
    ASSERT_EQ(recv(each.fd(), first, sizeof first, MSG_WAITALL | MSG_PEEK), 12);
    EXPECT_EQ(std::string(first, 12), "HTTP/1.1 100");
    each.send("c=3");
    EXPECT_EQ(each.next().body, "POST /api/both c=3");
}

TEST_F(web_http, a_body_that_a_get_brings_along_is_not_looked_at)
{
    start();
    client each = connect();
    EXPECT_EQ(each.ask("GET", "/api/both", {}, std::string(100000, 'x')).body, "GET /api/both ");
    EXPECT_EQ(each.get("/api/both").status, 200);
}

TEST_F(web_http, only_forms_are_taken)
{
    start();
    for (const char *type : {"", "text/plain", "application/json", "multipart/form-data; boundary=x",
        "application/x-www-form-urlencodedx"}) {
        client each = connect();
        header_list headers{{"Origin", "http://" + each.host()}};
        if (*type != '\0') headers.emplace_back("Content-Type", type);
        EXPECT_EQ(each.ask("POST", "/api/both", headers, "a=b").status, 415) << type;
    }
}

TEST_F(web_http, requests_that_contradict_themselves_are_refused)
{
    start();
    const std::string host = "Host: 127.0.0.1\r\n";
    const struct { std::string request; int status; } rows[] = {
        {"GET /api/get HTTP/1.1\r\n\r\n", 400},
        {"GET /api/get HTTP/1.0\r\n\r\n", 400},
        {"GET /api/get HTTP/1.1\r\n" + host + "Host: other\r\n\r\n", 400},
        {"GET /api/get HTTP/1.1\r\n" + host + "Content-Length: 1\r\nContent-Length: 2\r\n\r\nab", 400},
        {"GET /api/get HTTP/1.1\r\n" + host + "Content-Length: 0\r\nContent-Length: 0\r\n\r\n", 400},
        {"GET /api/get HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\nContent-Length: 3\r\n\r\n0\r\n\r\n", 400},
        {"GET /api/get HTTP/1.1\r\n" + host + "Origin: http://127.0.0.1\r\nOrigin: http://evil\r\n\r\n", 400},
        {"GET api/get HTTP/1.1\r\n" + host + "\r\n", 400},
        {"GET http://127.0.0.1/api/get HTTP/1.1\r\n" + host + "\r\n", 400},
        {"GET /api/get%00 HTTP/1.1\r\n" + host + "\r\n", 400},
        {"GET /%zz HTTP/1.1\r\n" + host + "\r\n", 400},
        {"GET /% HTTP/1.1\r\n" + host + "\r\n", 400},
        {"GET /%4 HTTP/1.1\r\n" + host + "\r\n", 400},
        {"GET /" + std::string(40000, 'a') + " HTTP/1.1\r\n" + host + "\r\n", 414},
        {"GET /api/get HTTP/1.1\r\n" + host + "X: " + std::string(40000, 'a') + "\r\n\r\n", 431},
        {"GET /api/get HTTP/3.7\r\n" + host + "\r\n", 505},
    };
    for (const auto &row : rows) {
        client each = connect();
        each.send(row.request);
        EXPECT_EQ(each.next().status, row.status) << row.request.substr(0, 120);
    }
    EXPECT_EQ(connect().get("/api/get").status, 200);
}

TEST_F(web_http, garbage_ends_its_own_connection_only)
{
    zel_web_server_config_t config{};
    config.idle_ms = 1000;
    start(config);
    for (const std::string &garbage : {std::string(5000, '\0'), std::string("\r\n\r\n\r\n"),
        std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11),
                                       std::string(100000, 'A'), std::string("GET\r\n\r\n")}) {
        client each = connect();
        each.send(garbage);
        each.end_sending();
        while (each.next().status != 0) {}
    }
    EXPECT_EQ(connect().get("/api/get").status, 200);
}

TEST_F(web_http, a_client_that_ends_its_side_is_answered_all_the_same)
{
    start();
    client each = connect();
    each.send("GET /api/get HTTP/1.1\r\nHost: " + each.host() + "\r\n\r\n");
    each.end_sending();
    EXPECT_EQ(each.next().body, "GET /api/get ");
    EXPECT_TRUE(each.ends());
}

TEST_F(web_http, connection_close_is_honoured)
{
    start();
    client each = connect();
    EXPECT_EQ(each.get("/api/get", {{"Connection", "close"}}).status, 200);
    EXPECT_TRUE(each.ends());
}

TEST_F(web_http, a_request_that_never_becomes_whole_is_given_up)
{
    zel_web_server_config_t config{};
    config.request_ms = 400;
    start(config);
    client each = connect();
    each.send("GET /api/get HTTP/1.1\r\nHost: ");
    pollfd ended{each.fd(), POLLIN, 0};
    while (poll(&ended, 1, 50) == 0) each.send("a");   // never silent for long
    EXPECT_TRUE(each.ends());
    EXPECT_EQ(connect().get("/api/get").status, 200);
}

TEST_F(web_http, a_silent_connection_is_closed)
{
    zel_web_server_config_t config{};
    config.idle_ms = 1000;
    start(config);
    client before = connect(), after = connect();
    EXPECT_EQ(after.get("/api/get").status, 200);
    EXPECT_TRUE(before.ends());
    EXPECT_TRUE(after.ends());
}

TEST_F(web_http, a_reply_that_nobody_fetches_is_given_up)
{
    zel_web_server_config_t config{};
    config.reply_ms = 300;
    config.connections_max = 1;
    start(config);
    client each = connect();
    const int small = 4096;
    setsockopt(each.fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    wanted_size = 30000000;
    each.send("GET /cgi/echo.cgi?all HTTP/1.1\r\nHost: " + each.host() + "\r\n\r\n");
    client next = connect();   // whose turn comes when the other one is given up
    EXPECT_EQ(next.get("/api/get").status, 200);
}

TEST_F(web_http, connections_beyond_the_limit_wait_for_their_turn)
{
    zel_web_server_config_t config{};
    config.connections_max = 4;
    start(config);
    std::vector<client> all;
    for (int i = 0; i < 12; ++i) all.emplace_back(server->port());
    for (client &each : all) {
        each.send("GET /api/get HTTP/1.1\r\nHost: " + each.host() + "\r\nConnection: close\r\n\r\n");
        EXPECT_EQ(each.next().status, 200);
    }
}

TEST_F(web_http, every_reply_carries_the_headers_that_protect_the_page)
{
    start();
    const struct { const char *method, *target; header_list headers; int status; } rows[] = {
        {"GET", "/api/get", {}, 200},
        {"HEAD", "/api/get", {}, 200},
        {"GET", "/cgi/echo.cgi?a", {}, 200},
        {"GET", "/nothing", {}, 404},
        {"PUT", "/api/get", {}, 405},
        {"GET", "/api/get", {{"Host", "evil.example"}}, 403},
        {"GET", "/%00", {}, 400},
    };
    for (const auto &row : rows) {
        client each = connect();
        const reply answer = each.ask(row.method, row.target, row.headers);
        EXPECT_EQ(answer.status, row.status) << row.target;
        const std::string policy = answer.header("content-security-policy");
        EXPECT_NE(policy.find("default-src 'self'"), std::string::npos);
        EXPECT_NE(policy.find("frame-ancestors 'none'"), std::string::npos);
        EXPECT_EQ(policy.find("unsafe"), std::string::npos);
        EXPECT_EQ(answer.header("x-content-type-options"), "nosniff");
        EXPECT_EQ(answer.header("x-frame-options"), "DENY");
        EXPECT_EQ(answer.header("referrer-policy"), "same-origin");
        EXPECT_FALSE(answer.header("cache-control").empty());
        EXPECT_EQ(answer.headers.count("access-control-allow-origin"), 0u);
    }
}

TEST_F(web_http, what_is_told_before_each_request_is_told_before_it_is_answered)
{
    zel_web_server_config_t config{};
    static int told = 0;
    config.before_request = [](void *number) { ++*static_cast<int *>(number); };
    config.user_data = &told;
    start(config);
    client each = connect();
    (void)each.get("/api/get");
    (void)each.post("/cgi/echo.cgi", "a=b");
    EXPECT_EQ(told, 2);
    (void)each.get("/api/get", {{"Host", "evil.example"}});
    EXPECT_EQ(told, 2) << "a refused request is not answered by the host";
}

TEST_F(web_http, long_texts_are_compressed_for_those_who_take_it)
{
    start();
    client each = connect();
    const std::string text = each.get("/api/both?long").body;
    ASSERT_EQ(text.size(), 20000u);
    const reply packed = each.get("/api/both?long", {{"Accept-Encoding", "br, GZIP;q=0.5"}});
    EXPECT_EQ(packed.header("content-encoding"), "gzip");
    EXPECT_EQ(packed.header("vary"), "Accept-Encoding");
    EXPECT_LT(packed.body.size(), 1000u);
    EXPECT_EQ(unpacked(packed.body), text);
    EXPECT_EQ(each.get("/api/both", {{"Accept-Encoding", "gzip"}}).header("content-encoding"), "") << "a short one does not pay";
    for (const char *other : {"br", "gzip;q=0", "gzip; q=0.000", "identity", ""}) {
        EXPECT_EQ(each.get("/api/both?long", {{"Accept-Encoding", other}}).header("content-encoding"), "") << other;
    }
    wanted_size = 50000;
    const reply handlers = each.get("/cgi/echo.cgi?a", {{"Accept-Encoding", "gzip"}});
    EXPECT_EQ(unpacked(handlers.body), std::string(50000, 'x'));
}

TEST_F(web_http, requests_are_logged_at_detail_level_as_one_plain_line_each)
{
    start();
    zel_debug_set_level(4);
    captured_stderr log;
    {
        client each = connect();
        (void)each.get("/nothing?\x1b[31m");
        (void)each.post("/api/both", "a=secret");
    }
    std::string lines;
    while (lines.find("POST") == std::string::npos) {
        const std::string next = log.next();
        ASSERT_FALSE(next.empty()) << lines;
        lines += next;
    }
    log.restore();
    zel_debug_set_level(2);
    EXPECT_NE(lines.find("detail: end_request: 127.0.0.1 GET /nothing??[31m 404 "), std::string::npos) << lines;
    EXPECT_NE(lines.find("127.0.0.1 POST /api/both 200 "), std::string::npos) << lines;
    EXPECT_EQ(lines.find("secret"), std::string::npos) << "what was sent is nobody's business";
}

TEST_F(web_http, a_port_that_is_taken_gives_no_server)
{
    start();
    zel_web_server_config_t config{};
    config.port = server->port();
    EXPECT_EQ(zel_web_server_open(&config), nullptr);
    config.port = 0;
    config.address = "no address";
    EXPECT_EQ(zel_web_server_open(&config), nullptr);
    EXPECT_EQ(zel_web_server_open(nullptr), nullptr);
}

TEST_F(web_http, a_null_server_does_nothing)
{
    int highest = 3;
    fd_set readable;
    FD_ZERO(&readable);
    zel_web_server_set_fds(nullptr, &readable, &highest);
    EXPECT_EQ(highest, 3);
    zel_web_server_process_fds(nullptr, &readable);
    zel_web_server_close(nullptr);
    EXPECT_EQ(zel_web_server_get_port(nullptr), 0);
    EXPECT_EQ(zel_web_server_needs_login(nullptr), 0);
    EXPECT_EQ(zel_web_server_listener_count(nullptr), 0);
    EXPECT_EQ(zel_web_server_send_event(nullptr, "a", "b"), -1);
    EXPECT_EQ(zel_web_server_add_document(nullptr, "/a", ZEL_WEB_GET, answer_document, nullptr), -1);
    EXPECT_EQ(zel_web_server_set_event_stream(nullptr, "/a", nullptr, nullptr), -1);
}

TEST_F(web_http, documents_that_nobody_could_ask_for_are_refused)
{
    start();
    server->in_loop([](zel_web_server_t *own) {
        EXPECT_EQ(zel_web_server_add_document(own, "/api/get", ZEL_WEB_GET, answer_document, nullptr), -1);
        EXPECT_EQ(zel_web_server_add_document(own, "api", ZEL_WEB_GET, answer_document, nullptr), -1);
        EXPECT_EQ(zel_web_server_add_document(own, "/new", 0, answer_document, nullptr), -1);
        EXPECT_EQ(zel_web_server_add_document(own, "/new", ZEL_WEB_GET, nullptr, nullptr), -1);
        EXPECT_EQ(zel_web_server_add_document(own, nullptr, ZEL_WEB_GET, answer_document, nullptr), -1);
        EXPECT_EQ(zel_web_server_set_event_stream(own, "/api/get", nullptr, nullptr), -1);
        EXPECT_EQ(zel_web_server_set_event_stream(own, "/events", nullptr, nullptr), 0);
        EXPECT_EQ(zel_web_server_set_event_stream(own, "/others", nullptr, nullptr), -1);
        EXPECT_EQ(zel_web_server_add_document(own, "/events", ZEL_WEB_GET, answer_document, nullptr), -1);
    });
}

TEST_F(web_http, the_server_listens_on_ipv6_too)
{
    zel_web_server_config_t config{};
    config.address = "::1";
    running_server own(config, set_up);
    EXPECT_TRUE(own.open());
}

}  // namespace
