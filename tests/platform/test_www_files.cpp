// Files below a folder: what is given, what is kept by browsers, and that nothing leads out of the folder.
#include "web_bench.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

using namespace web_test;

namespace {

class web_files : public testing::Test {
protected:
    void SetUp() override
    {
        write_text(path("index.html"), "<!doctype html>" + std::string(3000, ' '));
        write_text(path("js/grid.js"), std::string(5000, ';'));
        write_text(path("with space.txt"), "spaced");
        write_text(path("small.css"), "a{}");
        write_text(path("picture.png"), std::string(9000, 'p'));
        write_text(path(".secret"), "hidden");
        write_text(path(".git/config"), "hidden");
        write_text(path("sub/index.html"), "sub");
        write_text(folder.file("outside.txt"), "outside");
        zel_web_server_config_t config{};
        const std::string pages = folder.file("pages");
        config.folder = pages.c_str();
        server = std::make_unique<running_server>(config);
        browser = std::make_unique<client>(server->port());
    }
    std::string path(const std::string &name) const { return folder.file("pages/" + name); }

    temp_folder folder;
    std::unique_ptr<running_server> server;
    std::unique_ptr<client> browser;
};

TEST_F(web_files, are_given_with_their_type)
{
    const struct { const char *target, *type; size_t size; } rows[] = {
        {"/", "text/html; charset=utf-8", 3015},
        {"/index.html?version=2", "text/html; charset=utf-8", 3015},
        {"/js/grid.js", "text/javascript; charset=utf-8", 5000},
        {"/small.css", "text/css; charset=utf-8", 3},
        {"/picture.png", "image/png", 9000},
        {"/with%20space.txt", "text/plain; charset=utf-8", 6},
        {"/sub/", "text/html; charset=utf-8", 3},
    };
    for (const auto &row : rows) {
        const reply answer = browser->get(row.target);
        EXPECT_EQ(answer.status, 200) << row.target;
        EXPECT_EQ(answer.header("content-type"), row.type);
        EXPECT_EQ(answer.body.size(), row.size) << row.target;
        EXPECT_EQ(answer.header("cache-control"), "no-cache");
        EXPECT_EQ(answer.header("x-content-type-options"), "nosniff");
    }
}

TEST_F(web_files, nothing_leads_out_of_the_folder)
{
    ASSERT_EQ(symlink(folder.file("outside.txt").c_str(), path("link.txt").c_str()), 0);
    ASSERT_EQ(symlink("..", path("up").c_str()), 0);
    ASSERT_EQ(symlink("/etc", path("etc").c_str()), 0);
    ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
    for (const char *target : {"/../outside.txt", "/a/../../outside.txt", "/%2e%2e/outside.txt", "/..%2foutside.txt",
        "/%2e%2e%2foutside.txt",
                               "/js/%2e%2e/index.html", "/link.txt", "/up/outside.txt", "/etc/passwd", "/.secret", "/.git/config",
                               "/%2esecret", "/js", "/sub", "//etc/passwd", "/%2fetc/passwd", "/js//grid.js", "/./index.html",
                                   "/pipe",
                               "/nothing", "/index.html/", "/index.html/x", "/..", "/...", "/\\..\\outside.txt", "/js/"}) {
        const reply answer = browser->get(target);
        EXPECT_EQ(answer.status, 404) << target;
        EXPECT_EQ(answer.body.find("outside"), std::string::npos);
    }
    EXPECT_EQ(browser->get("/index.html%00.txt").status, 400);
}

TEST_F(web_files, are_not_sent_again_while_they_are_the_same)
{
    const reply first = browser->get("/index.html");
    const std::string tag = first.header("etag"), date = first.header("last-modified");
    ASSERT_FALSE(tag.empty());
    const header_list same[] = {{{"If-None-Match", tag}}, {{"If-None-Match", "\"other\", W/" + tag}}, {{"If-None-Match", "*"}},
                                {{"If-Modified-Since", date}}, {{"If-Modified-Since", "Fri, 01 Jan 2100 00:00:00 GMT"}}};
    for (const header_list &headers : same) {
        const reply again = browser->get("/index.html", headers);
        EXPECT_EQ(again.status, 304) << headers[0].second;
        EXPECT_EQ(again.header("etag"), tag);
        EXPECT_EQ(again.header("x-frame-options"), "DENY");
        EXPECT_TRUE(again.body.empty());
    }
    const header_list other[] = {{{"If-None-Match", "\"other\""}}, {{"If-None-Match", "\"other\""}, {"If-Modified-Since", date}},
                                 {{"If-Modified-Since", "Thu, 01 Jan 1970 00:00:00 GMT"}}, {{"If-Modified-Since", "yesterday"}},
                                 {{"If-None-Match", ""}}};
    for (const header_list &headers : other) EXPECT_EQ(browser->get("/index.html", headers).status, 200) << headers[0].second;
    EXPECT_EQ(browser->ask("HEAD", "/index.html", {{"If-None-Match", tag}}).status, 304);
}

TEST_F(web_files, a_changed_file_is_sent_anew)
{
    const std::string tag = browser->get("/js/grid.js").header("etag");
    const std::string packed_tag = browser->get("/js/grid.js", {{"Accept-Encoding", "gzip"}}).header("etag");
    write_text(path("js/grid.js.new"), std::string(4000, '+'));
    std::filesystem::rename(path("js/grid.js.new"), path("js/grid.js"));
    const reply plain = browser->get("/js/grid.js", {{"If-None-Match", tag}});
    EXPECT_EQ(plain.status, 200);
    EXPECT_EQ(plain.body, std::string(4000, '+'));
    const reply packed = browser->get("/js/grid.js", {{"If-None-Match", packed_tag}, {"Accept-Encoding", "gzip"}});
    EXPECT_EQ(packed.status, 200);
    EXPECT_EQ(unpacked(packed.body), std::string(4000, '+'));
}

TEST_F(web_files, are_compressed_where_that_pays)
{
    const reply packed = browser->get("/js/grid.js", {{"Accept-Encoding", "gzip, deflate, br"}});
    EXPECT_EQ(packed.header("content-encoding"), "gzip");
    EXPECT_EQ(packed.header("vary"), "Accept-Encoding");
    EXPECT_EQ(unpacked(packed.body), std::string(5000, ';'));
    const reply plain = browser->get("/js/grid.js");
    EXPECT_EQ(plain.header("vary"), "Accept-Encoding") << "so that no cache gives the one for the other";
    EXPECT_NE(plain.header("etag"), packed.header("etag"));
    EXPECT_EQ(browser->get("/js/grid.js", {{"Accept-Encoding", "gzip"}, {"If-None-Match", packed.header("etag")}}).status, 304);
    for (const char *target : {"/small.css", "/picture.png"}) {
        EXPECT_EQ(browser->get(target, {{"Accept-Encoding", "gzip"}}).header("content-encoding"), "") << target;
    }
    const reply head = browser->ask("HEAD", "/js/grid.js", {{"Accept-Encoding", "gzip"}});
    EXPECT_EQ(head.header("content-encoding"), "gzip");
    EXPECT_EQ(head.header("content-length"), std::to_string(packed.body.size()));
}

TEST_F(web_files, a_file_larger_than_any_buffer_comes_whole)
{
    std::string text;
    for (int i = 0; text.size() < 12000000; ++i) text += std::to_string(i) + " ";
    write_text(path("large.txt"), text);
    EXPECT_EQ(browser->get("/large.txt").body, text);
    EXPECT_EQ(browser->get("/large.txt", {{"Accept-Encoding", "gzip"}}).body, text) << "too large to be packed in between";
}

TEST_F(web_files, a_file_that_cannot_be_read_is_not_there)
{
    if (geteuid() == 0) GTEST_SKIP() << "root reads everything";
    write_text(path("closed.txt"), "closed");
    ASSERT_EQ(chmod(path("closed.txt").c_str(), 0), 0);
    EXPECT_EQ(browser->get("/closed.txt").status, 404);
}

TEST(web_without_files, a_folder_that_is_not_there_gives_no_files_and_a_server_all_the_same)
{
    zel_web_server_config_t config{};
    config.folder = "/nonexistent/pages";
    running_server server(config);
    ASSERT_TRUE(server.open());
    EXPECT_EQ(client(server.port()).get("/").status, 404);
}

}  // namespace
