// The unit's pages: both of the library's endpoints change the unit, and what changes is told to whoever listens.
#include "running_unit.h"
#include "web_bench.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <signal.h>

using namespace zel;
using namespace zel::test;
using web_test::client;
using web_test::header_list;
using web_test::reply;

namespace {

constexpr uint16_t web_port = 8080;

json_handle parsed(const std::string &text)
{
    return json_handle(json_loadb(text.data(), text.size(), 0, nullptr));
}

const json_t *entry_of(const json_t *list, const char *key, int wanted)
{
    for (size_t i = 0; i < json_array_size(list); ++i) {
        const json_t *const each = json_array_get(list, i);
        if (json_integer_value(json_object_get(each, key)) == wanted) return each;
    }
    return nullptr;
}

class unit_web : public testing::Test {
protected:
    void SetUp() override
    {
        write_file(root.config(), studio_config());
        start();
    }
    void TearDown() override
    {
        if (unit && unit->process().pid() > 0) {
            EXPECT_EQ(unit->stop(), 0) << unit->process().err.rest();
        }
    }
    void start(const std::string &level = "warning")
    {
        unit.emplace(root, environment{{"ZEL_LOG_LEVEL", level}});
        ASSERT_TRUE(unit->ready()) << unit->process().err.rest();
    }
    client browser() const { return client(web_port, own_address()); }
    json_handle get(const std::string &target) const
    {
        const reply answer = browser().get(target);
        EXPECT_EQ(answer.status, 200) << target << answer.body;
        return parsed(answer.body);
    }
    int post(const std::string &target, const std::string &form) const { return browser().post(target, form).status; }
    // Where the input of that name drives the relay.
    bool is_connected(const char *input_class, int input, const char *output_class, int output) const
    {
        const json_handle grid = get("/cgi/gpioGrid.cgi?grid=1");
        const json_t *const list = json_object_get(grid.get(), "connections");
        for (size_t i = 0; i < json_array_size(list); ++i) {
            const json_t *const each = json_array_get(list, i);
            const auto text = [each](const char *key) { return std::string(json_string_value(json_object_get(each, key))); };
            const auto number = [each](const char *key) { return json_integer_value(json_object_get(each, key)); };
            if (text("input_class") == input_class && number("input_id") == input && text("output_class") == output_class &&
                number("output_id") == output) {
                return true;
            }
        }
        return false;
    }

    unit_root root{studio_settings()};
    std::optional<unit_process> unit;
};

class listener {
public:
    explicit listener(client connection) : client_(std::move(connection))
    {
        EXPECT_EQ(client_.listen("/api/events").status, 200);
        EXPECT_EQ(client_.event(), "retry: 1000");
        hello = client_.event();
    }
    // The data of the next event of that name that holds `part`.
    std::string await(const std::string &name, const std::string &part = "")
    {
        for (std::string each = client_.event(); !each.empty(); each = client_.event()) {
            if (each.starts_with(name + "|") && each.find(part) != std::string::npos) return each.substr(name.size() + 1);
        }
        return "the stream ended";
    }
    std::string next() { return client_.event(); }

    std::string hello;

private:
    client client_;
};

TEST_F(unit_web, says_what_the_unit_is)
{
    const json_handle unit_document = get("/api/unit");
    EXPECT_EQ(text_of(unit_document, "friendly_name"), "Studio 1");
    EXPECT_EQ(text_of(unit_document, "product_id"), "ZEL-SOFT");
    EXPECT_EQ(text_of(unit_document, "pin_backend"), "sim");
    EXPECT_EQ(text_of(unit_document, "serial").size(), 12u);
    EXPECT_TRUE(json_is_false(json_object_get(unit_document.get(), "web_login")));
}

TEST_F(unit_web, the_status_says_where_the_pages_are)
{
    const json_handle answer = control_link(root).ask(R"({"request":"unit"})");
    const json_t *const web = json_object_get(json_object_get(answer.get(), "unit"), "web");
    EXPECT_TRUE(json_is_true(json_object_get(web, "open")));
    EXPECT_EQ(json_integer_value(json_object_get(web, "port")), web_port);
    EXPECT_NE(zelctl(root, {"status"}).out.find(own_address() + " port 8080"), std::string::npos);
}

TEST_F(unit_web, the_panel_lists_what_can_be_pressed_and_seen)
{
    const json_handle panel = get("/api/panel");
    EXPECT_TRUE(json_is_true(json_object_get(panel.get(), "simulated")));
    const json_t *const pin = entry_of(json_object_get(panel.get(), "pins"), "pin", 1);
    ASSERT_NE(pin, nullptr);
    EXPECT_STREQ(json_string_value(json_object_get(pin, "direction")), "in");
    EXPECT_EQ(json_integer_value(json_object_get(pin, "port")), 0);
    EXPECT_STREQ(json_string_value(json_object_get(pin, "name")), "Physical Port 1");
    EXPECT_EQ(json_array_size(json_object_get(panel.get(), "relays")), 8u);
    EXPECT_EQ(json_array_size(json_object_get(panel.get(), "buttons")), 4u);
    EXPECT_EQ(json_array_size(json_object_get(panel.get(), "leds")), 4u);
    EXPECT_EQ(entry_of(json_object_get(panel.get(), "pins"), "pin", 201), nullptr) << "pins of relays stand with the relays";
}

TEST_F(unit_web, a_press_on_the_panel_is_told_as_what_it_did)
{
    listener page(browser());
    EXPECT_EQ(page.hello.substr(0, 8), "hello|{\"");
    EXPECT_EQ(post("/api/panel", "pin=1&level=active"), 200);
    EXPECT_NE(page.await("host", "\"change\":\"pin\"").find("\"name\":\"GPI 1\""), std::string::npos);
    EXPECT_NE(page.await("host", "\"change\":\"handler\"").find("\"name\":\"Record\""), std::string::npos);
    const json_handle panel = get("/api/panel");
    EXPECT_EQ(json_integer_value(json_object_get(entry_of(json_object_get(panel.get(), "pins"), "pin", 1), "level")), 1);
    EXPECT_TRUE(json_is_true(json_object_get(entry_of(json_object_get(panel.get(), "relays"), "index", 0), "on")));
    const std::string levels = page.await("levels", "\"relays\":[[0,1]]");
    EXPECT_NE(levels.find("\"handlers\":[[0,1]]"), std::string::npos) << levels;
    EXPECT_NE(levels.find("\"pins\":[[1,1]]"), std::string::npos) << levels;
    EXPECT_EQ(post("/api/panel", "pin=1&level=inactive"), 200);
    EXPECT_NE(page.await("levels", "\"relays\":[[0,0]]").find("\"pins\":[[1,0]]"), std::string::npos);
}

TEST_F(unit_web, a_press_and_release_in_one_breath_are_both_seen)
{
    listener page(browser());
    client each = browser();
    const auto form = [&each](const std::string &body) {
        return "POST /api/panel HTTP/1.1\r\nHost: " + each.host() + "\r\nOrigin: http://" + each.host() +
               "\r\nContent-Type: application/x-www-form-urlencoded\r\nContent-Length: " + std::to_string(body.size()) +
                   "\r\n\r\n" + body;
    };
    each.send(form("pin=1&level=active") + form("pin=1&level=inactive"));
    EXPECT_EQ(each.next().status, 200);
    EXPECT_EQ(each.next().status, 200);
    EXPECT_NE(page.await("host", "\"name\":\"Relay 1\"").find("\"level\":1"), std::string::npos);
    EXPECT_NE(page.await("host", "\"name\":\"Relay 1\"").find("\"level\":0"), std::string::npos);
}

TEST_F(unit_web, a_button_flips_its_level_at_each_press)
{
    listener page(browser());
    EXPECT_EQ(post("/api/panel", "button=1&pressed=1"), 200);
    EXPECT_NE(page.await("levels", "\"buttons\":[[1,").find("\"buttons\":[[1,1]]"), std::string::npos);
    EXPECT_EQ(post("/api/panel", "button=1&pressed=0"), 200);
    EXPECT_EQ(post("/api/panel", "button=1&pressed=1"), 200);
    EXPECT_NE(page.await("levels", "\"buttons\":[[1,").find("\"buttons\":[[1,0]]"), std::string::npos);
}

TEST_F(unit_web, presses_that_cannot_be_are_refused_with_one_line)
{
    const struct { const char *form; int status; } rows[] = {
        {"pin=999&level=active", 404}, {"pin=201&level=active", 404}, {"pin=101&level=active", 404}, {"pin=x&level=active", 404},
        {"pin=-1&level=active", 404}, {"pin=99999999999999999999&level=active", 404}, {"pin=1&level=high", 400}, {"pin=1", 400},
        {"button=0&pressed=1", 404}, {"button=5&pressed=1", 404}, {"button=1&pressed=2", 400}, {"button=1", 400}, {"a=b", 400},
            {"", 400},
    };
    for (const auto &row : rows) {
        const reply answer = browser().post("/api/panel", row.form);
        if (row.form[0] == '\0') continue;
        EXPECT_EQ(answer.status, row.status) << row.form;
        const json_handle document = parsed(answer.body);
        EXPECT_FALSE(text_of(document, "error").empty()) << answer.body;
        EXPECT_EQ(answer.body.find('\n'), std::string::npos);
    }
}

TEST_F(unit_web, wiring_in_the_browser_changes_the_unit_and_survives_a_restart)
{
    ASSERT_FALSE(is_connected("physical", 2, "relay", 1));
    EXPECT_EQ(post("/cgi/gpioGrid.cgi", "gpioType=relay&gpioPort=1&newState=2"), 200);
    EXPECT_EQ(post("/cgi/gpioConn.cgi", "action=1&inputClass=physical&inputID=2&outputClass=relay&outputID=1&gpioInvert=1"), 200);
    EXPECT_TRUE(is_connected("physical", 2, "relay", 1));
    EXPECT_EQ(unit->stop(), 0);
    start();
    EXPECT_TRUE(is_connected("physical", 2, "relay", 1));
    EXPECT_EQ(post("/cgi/gpioConn.cgi", "action=0&inputClass=physical&inputID=2&outputClass=relay&outputID=1"), 200);
    EXPECT_FALSE(is_connected("physical", 2, "relay", 1));
}

TEST_F(unit_web, the_librarys_refusals_pass_through)
{
    EXPECT_EQ(post("/cgi/gpioConn.cgi", "action=1&inputClass=event&inputID=0&outputClass=relay"), 501);
    EXPECT_EQ(browser().get("/cgi/gpioGrid.cgi").status, 501);
    EXPECT_EQ(post("/cgi/gpioConn.cgi", "action=1&inputClass=physical&inputID=0&outputClass=event&outputID=3"), 501)
        << "a port is connected to a handler with the status of a failure";
    EXPECT_TRUE(is_connected("physical", 0, "event", 3));
    EXPECT_EQ(browser().ask("POST", "/cgi/gpioConn.cgi", {{"Content-Type", "application/x-www-form-urlencoded"}},
                            "action=1").status, 403);
}

TEST_F(unit_web, wiring_by_others_is_told_as_a_change_of_the_grid)
{
    listener page(browser());
    EXPECT_EQ(zelctl(root, {"connect", "GPI 3", "Relay 2"}).status, 0);
    EXPECT_EQ(page.await("grid"), "{}");
    EXPECT_EQ(zelctl(root, {"event", "On Air", "on"}).status, 0);
    EXPECT_NE(page.await("levels", "\"triggers\"").find("\"triggers\":[["), std::string::npos);
    EXPECT_EQ(zelctl(root, {"press", "2"}).status, 0);
    EXPECT_NE(page.await("levels", "\"pins\":[[2,1]]").find("\"ports\":[[1,1]"), std::string::npos);
}

TEST_F(unit_web, a_page_that_comes_back_after_a_restart_is_greeted_anew)
{
    auto page = std::make_unique<listener>(browser());
    const std::string hello = page->hello;
    EXPECT_EQ(unit->stop(), 0);
    EXPECT_EQ(page->await("grid"), "the stream ended");
    start();
    listener again(browser());
    EXPECT_EQ(again.hello, hello) << "the same unit";
    EXPECT_EQ(post("/api/panel", "pin=2&level=active"), 200);
    EXPECT_NE(again.await("levels", "\"pins\":[[2,1]]").find("[[2,1]]"), std::string::npos);
}

TEST_F(unit_web, gives_the_pages_and_nothing_else_of_the_machine)
{
    const reply page = browser().get("/");
    EXPECT_EQ(page.status, 200);
    EXPECT_EQ(page.header("content-type"), "text/html; charset=utf-8");
    for (const char *target : {"/../../etc/passwd", "/%2e%2e/etc/passwd", "/etc/zel/unit.json", "/CMakeLists.txt"}) {
        EXPECT_EQ(browser().get(target).status, 404) << target;
    }
    EXPECT_EQ(browser().get("/api/unit", {{"Host", "evil.example"}}).status, 403);
}

TEST_F(unit_web, users_that_were_added_have_to_log_in)
{
    const run_result added = run({"/bin/sh", "-c", std::string("echo secret | ") + ZEL_UNIT + " --root " + root.path() +
        " --add-web-user anna"});
    EXPECT_EQ(added.status, 0) << added.err;
    EXPECT_EQ(browser().get("/api/unit").status, 401);
    EXPECT_EQ(browser().get("/api/unit", {{"Authorization", "Basic YW5uYTpzZWNyZXQ="}}).status, 200);
    EXPECT_EQ(read_file(root.path() + "/etc/zel/web_users").find("secret"), std::string::npos);
    const run_result refused = run({"/bin/sh", "-c", std::string("echo secret | ") + ZEL_UNIT + " --root " + root.path() +
        " --add-web-user a:b"});
    EXPECT_EQ(refused.status, 1);
    const run_result empty = run({"/bin/sh", "-c", std::string(ZEL_UNIT) + " --root " + root.path() +
        " --add-web-user bert < /dev/null"});
    EXPECT_EQ(empty.status, 1);
    EXPECT_EQ(run({ZEL_UNIT, "--add-web-user"}).status, 2);
}

TEST(unit_web_alone, a_port_that_is_taken_costs_the_pages_only)
{
    const unique_fd taken(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(web_port);
    inet_pton(AF_INET, own_address().c_str(), &at.sin_addr);
    // Connections of tests before, in the same process, may still linger on the address.
    const int on = 1;
    ASSERT_EQ(setsockopt(taken.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    ASSERT_EQ(bind(taken.get(), reinterpret_cast<sockaddr *>(&at), sizeof at), 0);
    ASSERT_EQ(listen(taken.get(), 1), 0);
    const unit_root root(studio_settings());
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    EXPECT_TRUE(unit.process().err.await("the unit runs without its pages"));
    EXPECT_EQ(zelctl(root, {"press", "1"}).status, 0);
    EXPECT_EQ(unit.stop(), 0);
}

// In a network of its own, so that nobody can reach it.
TEST(unit_web_alone, a_unit_that_all_may_reach_warns_until_somebody_must_log_in)
{
    const unit_root root;
    write_file(root.settings(), R"({"servers": {"web": {"address": "0.0.0.0"}}})");
    const std::vector<std::string> alone{"/usr/bin/unshare", "-rn", ZEL_UNIT, "--root", root.path()};
    {
        child_process unit(alone);
        const auto warning = unit.err.await("nobody has to log in");
        ASSERT_TRUE(warning) << unit.err.seen();
        EXPECT_NE(warning->find("warning"), std::string::npos);
        unit.signal(SIGTERM);
        EXPECT_EQ(unit.wait(), 0);
    }
    EXPECT_EQ(run({"/bin/sh", "-c", std::string("echo secret | ") + ZEL_UNIT + " --root " + root.path() +
        " --add-web-user anna"}).status, 0);
    child_process unit(alone);
    EXPECT_TRUE(unit.err.await("is ready"));
    unit.signal(SIGTERM);
    EXPECT_EQ(unit.wait(), 0);
    (void)unit.err.rest();
    EXPECT_EQ(unit.err.seen().find("nobody has to log in"), std::string::npos);
}

TEST(unit_web_alone, lines_of_the_machine_are_not_pressed)
{
    const unit_root root(", \"pin_backend\": \"kernel\", \"pins\": [{\"in_pin\": 1, \"out_pin\": 2}]");
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << "a line that is not there costs its port, not the unit";
    const reply refused = client(web_port, own_address()).post("/api/panel", "pin=1&level=active");
    EXPECT_EQ(refused.status, 409);
    EXPECT_NE(refused.body.find("line of the machine"), std::string::npos);
    EXPECT_EQ(unit.stop(), 0);
}

}  // namespace
