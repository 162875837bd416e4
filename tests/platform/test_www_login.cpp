// Logging in: the users file, right and wrong passwords, and that nobody else waits meanwhile.
#include "users_file.h"
#include "web_bench.h"

#include <crypt.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <filesystem>

using namespace web_test;

namespace {

std::string base64(const std::string &text)
{
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < text.size(); i += 3) {
        unsigned group = 0;
        for (size_t k = 0; k < 3; ++k) group = group << 8 | (i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : 0u);
        for (size_t k = 0; k < 4; ++k) out += i + k <= text.size() ? digits[group >> (18 - 6 * k) & 63] : '=';
    }
    return out;
}

header_list as(const std::string &user, const std::string &password)
{
    return {{"Authorization", "Basic " + base64(user + ":" + password)}};
}

void answer(void *, const zel_web_request_t *, zel_web_reply_t *reply)
{
    (void)zel_web_reply_text(reply, 200, "text/plain", "done", 4);
}

class web_login : public testing::Test {
protected:
    void start()
    {
        zel_web_server_config_t config{};
        config.users_file = users.c_str();
        server = std::make_unique<running_server>(config, [](zel_web_server_t *own) {
            EXPECT_EQ(zel_web_server_add_document(own, "/api", ZEL_WEB_GET | ZEL_WEB_POST, answer, nullptr), 0);
            EXPECT_EQ(zel_web_server_set_event_stream(own, "/events", nullptr, nullptr), 0);
        });
    }
    reply get(const header_list &headers = {}) { return client(server->port()).get("/api", headers); }
    // A hash whose check takes as long as the rounds say.
    void add_slow_user(const std::string &name, const std::string &password, int rounds)
    {
        crypt_data work{};
        const std::string setting = "$6$rounds=" + std::to_string(rounds) + "$saltsalt$";
        write_text(users, name + ":" + crypt_r(password.c_str(), setting.c_str(), &work) + "\n");
    }
    int needs_login()
    {
        int needed = -1;
        server->in_loop([&needed](zel_web_server_t *own) { needed = zel_web_server_needs_login(own); });
        return needed;
    }

    temp_folder folder;
    const std::string users = folder.file("users");
    std::unique_ptr<running_server> server;
};

TEST_F(web_login, nobody_has_to_while_there_are_no_users)
{
    start();
    EXPECT_EQ(get().status, 200);
    EXPECT_EQ(needs_login(), 0);
    write_text(users, "# only a comment\n\n");
    EXPECT_EQ(get().status, 200);
}

TEST_F(web_login, everything_asks_for_it_once_there_is_a_user)
{
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "secret"), 0);
    start();
    EXPECT_EQ(needs_login(), 1);
    for (const char *target : {"/api", "/events", "/", "/nothing"}) {
        const reply refused = client(server->port()).get(target);
        EXPECT_EQ(refused.status, 401) << target;
        EXPECT_EQ(refused.header("www-authenticate").substr(0, 6), "Basic ");
        EXPECT_EQ(refused.header("x-frame-options"), "DENY");
    }
    client form(server->port());
    EXPECT_EQ(form.post("/api", "a=b").status, 401);
}

TEST_F(web_login, the_right_password_opens_and_goes_on_opening)
{
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "s:e c\xc3\xa4ret"), 0);
    start();
    client each(server->port());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(each.get("/api", as("anna", "s:e c\xc3\xa4ret")).status, 200);
    client form(server->port());
    EXPECT_EQ(form.post("/api", "a=b", as("anna", "s:e c\xc3\xa4ret")).status, 200);
    client listener(server->port());
    EXPECT_EQ(listener.listen("/events", as("anna", "s:e c\xc3\xa4ret")).status, 200);
}

TEST_F(web_login, wrong_ones_are_refused_and_have_to_wait_ever_longer)
{
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "secret"), 0);
    start();
    EXPECT_EQ(get(as("anna", "wrong")).status, 401);
    const reply hasty = get(as("anna", "secret"));
    EXPECT_EQ(hasty.status, 429) << "even the right one, as long as it is not known";
    EXPECT_EQ(hasty.header("retry-after"), "1");
    EXPECT_EQ(get().status, 401) << "being asked costs nothing";
    int status = 429;
    while (status == 429) status = get(as("nobody", "secret")).status;
    EXPECT_EQ(status, 401) << "there is no such user";
    EXPECT_EQ(get(as("anna", "secret")).header("retry-after"), "2");
    while ((status = get(as("anna", "secret")).status) == 429) {}
    EXPECT_EQ(status, 200);
    EXPECT_EQ(get(as("anna", "wrong")).status, 401);
    EXPECT_EQ(get(as("anna", "secret")).status, 200) << "who is known does not wait for what others get wrong";
}

TEST_F(web_login, what_is_no_password_is_refused)
{
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "secret"), 0);
    start();
    for (const char *header : {"Bearer token", "Basic", "Basic !!", "Basic YW5uYQ==", ""}) {
        EXPECT_EQ(get({{"Authorization", header}}).status, 401) << header;
    }
}

TEST_F(web_login, users_that_are_added_and_removed_meanwhile_count_at_once)
{
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "secret"), 0);
    start();
    EXPECT_EQ(get(as("anna", "secret")).status, 200);
    ASSERT_EQ(zel_web_users_set(users.c_str(), "bert", "other"), 0);
    EXPECT_EQ(get(as("bert", "other")).status, 200);
    EXPECT_EQ(get(as("anna", "secret")).status, 200);
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "new"), 0);
    EXPECT_EQ(get(as("anna", "secret")).status, 401) << "the old password was known, and is no more";
    zel::web::user_table table;
    std::string problem;
    ASSERT_EQ(zel::web::read_users(users, table, problem), zel::web::users_state::good);
    table.erase("bert");
    ASSERT_TRUE(zel::web::write_users(users, table));
    EXPECT_NE(get(as("bert", "other")).status, 200);
    std::filesystem::remove(users);
    EXPECT_EQ(get().status, 200);
}

TEST_F(web_login, a_file_that_cannot_be_understood_lets_nobody_in)
{
    for (const std::string &text : {std::string("anna\n"), std::string("anna:\n"), std::string("anna:plain\n"),
        std::string("a b:$6$x$y\n"),
                                    std::string(100000, '#')}) {
        write_text(users, text);
        start();
        EXPECT_EQ(needs_login(), 1) << text.substr(0, 20);
        EXPECT_EQ(get().status, 503);
        EXPECT_EQ(get(as("anna", "")).status, 503);
        EXPECT_EQ(get(as("anna", "plain")).status, 503);
    }
    EXPECT_EQ(zel_web_users_set(users.c_str(), "anna", "secret"), -1) << "nor is it overwritten";
    std::filesystem::remove(users);
    std::filesystem::create_directory(users);
    start();
    EXPECT_EQ(get().status, 503);
}

TEST_F(web_login, nobody_waits_while_a_password_is_checked)
{
    add_slow_user("anna", "secret", 400000);
    start();
    client slow(server->port());
    slow.send("GET /api HTTP/1.1\r\nHost: " + slow.host() + "\r\n" + as("anna", "secret")[0].first + ": " + as("anna",
        "secret")[0].second +
              "\r\n\r\n");
    client other(server->port());
    for (int i = 0; i < 20; ++i) EXPECT_EQ(other.get("/api").status, 401);
    pollfd answered{slow.fd(), POLLIN, 0};
    EXPECT_EQ(poll(&answered, 1, 0), 0) << "the password is still being checked";
    EXPECT_EQ(slow.next().status, 200);
}

TEST_F(web_login, requests_in_one_breath_share_one_check)
{
    add_slow_user("anna", "secret", 100000);
    start();
    std::vector<client> all;
    const auto header = as("anna", "secret")[0];
    for (int i = 0; i < 30; ++i) {
        all.emplace_back(server->port());
        all.back().send("GET /api HTTP/1.1\r\nHost: " + all.back().host() + "\r\n" + header.first + ": " + header.second +
                        "\r\n\r\n");
    }
    for (client &each : all) EXPECT_EQ(each.next().status, 200);
}

TEST_F(web_login, more_passwords_than_can_be_checked_are_told_to_come_again)
{
    add_slow_user("anna", "secret", 300000);
    start();
    std::vector<client> all;
    for (int i = 0; i < 30; ++i) {
        const auto header = as("anna", "guess" + std::to_string(i))[0];
        all.emplace_back(server->port());
        all.back().send("GET /api HTTP/1.1\r\nHost: " + all.back().host() + "\r\n" + header.first + ": " + header.second +
                        "\r\n\r\n");
    }
    int turned_away = 0;
    pollfd first{all.back().fd(), POLLIN, 0};
    (void)poll(&first, 1, 30000);
    if (all.back().next().status == 429) ++turned_away;
    EXPECT_EQ(turned_away, 1);
}

TEST_F(web_login, a_server_that_ends_does_not_wait_for_those_who_wait)
{
    add_slow_user("anna", "secret", 300000);
    start();
    const auto header = as("anna", "secret")[0];
    std::vector<client> all;
    for (int i = 0; i < 3; ++i) {
        all.emplace_back(server->port());
        all.back().send("GET /api HTTP/1.1\r\nHost: " + all.back().host() + "\r\n" + header.first + ": " + header.second +
                        std::to_string(i) + "\r\n\r\n");
    }
    EXPECT_EQ(get().status, 401);   // by now the others are in
    server->stop();
    for (client &each : all) (void)each.next();
}

TEST_F(web_login, the_file_holds_hashes_for_its_owner_only)
{
    ASSERT_EQ(zel_web_users_set(users.c_str(), "anna", "secret"), 0);
    ASSERT_EQ(zel_web_users_set(users.c_str(), "bert", "secret"), 0);
    const std::string text = text_of(users);
    EXPECT_EQ(text.find("secret"), std::string::npos);
    EXPECT_EQ(text.substr(0, 6), "anna:$");
    const size_t bert = text.find("bert:$");
    ASSERT_NE(bert, std::string::npos);
    EXPECT_NE(text.substr(5, bert - 6), text.substr(bert + 5)) << "the same password, another salt";
    struct stat info {};
    ASSERT_EQ(stat(users.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
}

TEST_F(web_login, names_and_passwords_that_cannot_be_kept_are_refused)
{
    for (const char *name : {"", "a:b", "a b", "#a", "\xc3\xa4", "a\n",
        "12345678901234567890123456789012345678901234567890123456789012345"}) {
        EXPECT_EQ(zel_web_users_set(users.c_str(), name, "secret"), -1) << name;
    }
    EXPECT_EQ(zel_web_users_set(users.c_str(), "anna", ""), -1);
    EXPECT_EQ(zel_web_users_set(users.c_str(), "anna", std::string(257, 'a').c_str()), -1);
    EXPECT_EQ(zel_web_users_set(users.c_str(), "anna", nullptr), -1);
    EXPECT_EQ(zel_web_users_set(users.c_str(), nullptr, "secret"), -1);
    EXPECT_EQ(zel_web_users_set(nullptr, "anna", "secret"), -1);
    EXPECT_EQ(zel_web_users_set("/nonexistent/users", "anna", "secret"), -1);
    EXPECT_FALSE(std::filesystem::exists(users));
}

}  // namespace
