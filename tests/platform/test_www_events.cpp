// The stream of events: its order, its bounds, and that a listener who does not read is nobody else's trouble.
#include "web_bench.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <sys/socket.h>

#include <chrono>

using namespace web_test;

namespace {

void greet(void *, zel_web_listener_t *listener)
{
    EXPECT_EQ(zel_web_listener_send(listener, "hello", "{\"unit\":1}"), 0);
    EXPECT_EQ(zel_web_listener_send(listener, "bad\nname", "x"), -1);
    EXPECT_EQ(zel_web_listener_send(listener, "none", nullptr), -1);
}

void set_up(zel_web_server_t *server)
{
    EXPECT_EQ(zel_web_server_set_event_stream(server, "/events", greet, nullptr), 0);
}

class web_events : public testing::Test {
protected:
    void start(zel_web_server_config_t config = {}) { server = std::make_unique<running_server>(config, set_up); }
    // A listener that has been greeted.
    std::unique_ptr<client> listener()
    {
        auto each = std::make_unique<client>(server->port());
        EXPECT_EQ(each->listen("/events").header("content-type"), "text/event-stream");
        EXPECT_EQ(each->event(), "retry: 1000");
        EXPECT_EQ(each->event(), "hello|{\"unit\":1}");
        return each;
    }
    void send(const std::string &name, const std::string &data)
    {
        server->in_loop([&](zel_web_server_t *own) { EXPECT_EQ(zel_web_server_send_event(own, name.c_str(), data.c_str()), 0); });
    }

    std::unique_ptr<running_server> server;
};

TEST_F(web_events, arrive_in_their_order_at_every_listener)
{
    start();
    const auto first = listener(), second = listener();
    EXPECT_EQ(server->listeners(), 2);
    server->in_loop([](zel_web_server_t *own) {
        for (int i = 0; i < 500; ++i) (void)zel_web_server_send_event(own, "levels", std::to_string(i).c_str());
    });
    send("grid", "{}");
    for (client *each : {first.get(), second.get()}) {
        for (int i = 0; i < 500; ++i) ASSERT_EQ(each->event(), "levels|" + std::to_string(i));
        EXPECT_EQ(each->event(), "grid|{}");
    }
}

// Nothing but the event itself makes the host's loop come round here, for nearly a minute.
TEST_F(web_events, are_sent_without_waiting_for_anything_else)
{
    zel_web_server_config_t config{};
    config.alive_ms = 4000000;
    config.request_ms = 4000000;
    config.reply_ms = 4000000;
    start(config);
    const auto each = listener();
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; ++i) {
        send("levels", std::to_string(i));
        EXPECT_EQ(each->event(true), "levels|" + std::to_string(i));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << "not one at each tick of a second";
}

TEST_F(web_events, a_listener_hears_nothing_from_before_it_came)
{
    start();
    send("levels", "early");
    const auto each = listener();
    send("levels", "late");
    EXPECT_EQ(each->event(), "levels|late");
}

TEST_F(web_events, a_text_of_several_lines_stays_one_event)
{
    start();
    const auto each = listener();
    send("host", "one\ntwo\n\nthree");
    EXPECT_EQ(each->event(), "host|one\ntwo\n\nthree");
    send("host", "");
    EXPECT_EQ(each->event(), "host|");
}

TEST_F(web_events, one_that_does_not_read_is_dropped_alone)
{
    start();
    const auto reader = listener(), sleeper = listener();
    const int small = 4096;
    setsockopt(sleeper->fd(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    const std::string data(4000, 'x');
    int sent = 0;
    while (server->listeners() == 2 && sent < 100000) {
        for (int i = 0; i < 10; ++i) send("levels", std::to_string(sent + i) + data);
        for (int i = 0; i < 10; ++i) ASSERT_EQ(reader->event(), "levels|" + std::to_string(sent + i) + data);
        sent += 10;
    }
    EXPECT_EQ(server->listeners(), 1);
    send("grid", "{}");
    EXPECT_EQ(reader->event(), "grid|{}");
    EXPECT_EQ(client(server->port()).get("/nothing").status, 404);
}

TEST_F(web_events, a_burst_that_no_queue_holds_drops_the_listener_and_says_so_to_nobody_else)
{
    start();
    const auto each = listener();
    server->in_loop([](zel_web_server_t *own) {
        const std::string data(100000, 'x');
        for (int i = 0; i < 3; ++i) EXPECT_EQ(zel_web_server_send_event(own, "levels", data.c_str()), 0);
    });
    while (!each->event().empty()) {}
    while (server->listeners() > 0) {}
    const auto again = listener();
    send("grid", "{}");
    EXPECT_EQ(again->event(), "grid|{}");
}

TEST_F(web_events, silence_is_broken_by_a_sign_of_life)
{
    zel_web_server_config_t config{};
    config.alive_ms = 100;
    start(config);
    const auto each = listener();
    EXPECT_EQ(each->event(true), "alive|{}");
    EXPECT_EQ(each->event(true), "alive|{}");
}

TEST_F(web_events, a_listener_stays_longer_than_any_request_may_take)
{
    zel_web_server_config_t config{};
    config.alive_ms = 200;
    config.request_ms = 200;
    config.reply_ms = 200;
    config.idle_ms = 1000;
    start(config);
    const auto each = listener();
    for (int i = 0; i < 8; ++i) EXPECT_EQ(each->event(true), "alive|{}");
}

TEST_F(web_events, a_listener_that_left_is_forgotten)
{
    zel_web_server_config_t config{};
    config.alive_ms = 100;
    start(config);
    {
        const auto each = listener();
        EXPECT_EQ(server->listeners(), 1);
    }
    while (server->listeners() > 0) {}
    send("grid", "{}");
}

// As after a pulled cable: nothing arrives any more, and nobody says so.
void cut_off(const client &each)
{
    sock_filter nothing = BPF_STMT(BPF_RET | BPF_K, 0);
    const sock_fprog program{1, &nothing};
    ASSERT_EQ(setsockopt(each.fd(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program), 0);
}

TEST_F(web_events, a_listener_that_was_cut_off_makes_room)
{
    zel_web_server_config_t config{};
    config.alive_ms = 100;
    start(config);
    const auto lost = listener(), other = listener();
    cut_off(*lost);
    while (server->listeners() > 1) EXPECT_EQ(other->event(true), "alive|{}");
    send("grid", "{}");
    EXPECT_EQ(other->event(), "grid|{}");
}

TEST_F(web_events, one_too_many_is_told_to_come_again)
{
    zel_web_server_config_t config{};
    config.listeners_max = 2;
    config.alive_ms = 100;
    start(config);
    auto first = listener();
    const auto second = listener();
    const reply refused = client(server->port()).get("/events");
    EXPECT_EQ(refused.status, 503);
    EXPECT_FALSE(refused.header("retry-after").empty());
    first.reset();
    while (server->listeners() > 1) {}
    const auto third = listener();
    send("grid", "{}");
    EXPECT_EQ(second->event(), "grid|{}");
}

TEST_F(web_events, the_end_of_the_server_ends_the_stream)
{
    start();
    const auto each = listener();
    server->stop();
    EXPECT_EQ(each->event(), "");
}

TEST_F(web_events, head_and_post_do_not_listen)
{
    start();
    client each(server->port());
    EXPECT_EQ(each.ask("HEAD", "/events").status, 200);
    EXPECT_EQ(server->listeners(), 0);
    EXPECT_EQ(each.post("/events", "a=b").status, 405);
}

TEST_F(web_events, a_name_with_a_line_feed_is_refused)
{
    start();
    server->in_loop([](zel_web_server_t *own) {
        EXPECT_EQ(zel_web_server_send_event(own, "a\nb", "x"), -1);
        EXPECT_EQ(zel_web_server_send_event(own, nullptr, "x"), -1);
        EXPECT_EQ(zel_web_server_send_event(own, "a", nullptr), -1);
        EXPECT_EQ(zel_web_server_send_event(own, "a", "nobody listens"), 0);
    });
}

}  // namespace
