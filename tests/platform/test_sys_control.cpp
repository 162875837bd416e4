// The control socket of the pins, with real clients.
#include "common/local_socket.h"
#include "fake_gpio_lines.h"
#include "sys_bench.h"
#include "sys_log.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <functional>

namespace {

// One turn of a host's loop, which serves the control socket only.
void turn(int within_ms)
{
    fd_set readfds;
    FD_ZERO(&readfds);
    int maxfd = -1;
    zel_sys_control_set_fds(&readfds, &maxfd);
    timeval limit = {within_ms / 1000, (within_ms % 1000) * 1000};
    if (select(maxfd + 1, &readfds, nullptr, nullptr, &limit) < 0) FD_ZERO(&readfds);
    zel_sys_control_process_fds(&readfds);
}

bool turn_until(const std::function<bool()> &done)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        turn(20);
    }
    return true;
}

class client {
public:
    explicit client(const std::string &root)
    {
        zel::local_socket_address address;
        fd_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        connected_ = zel::make_local_socket_address(root + "/run/zel/pins", address) &&
                     connect(fd_.get(), address.get(), address.length) == 0;
    }
    bool connected() const { return connected_; }
    void send(const std::string &text)
    {
        EXPECT_EQ(::send(fd_.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }
    void end_sending() { shutdown(fd_.get(), SHUT_WR); }
    void close() { fd_.reset(); }

    // The next line, while the host's loop runs; "(closed)" at the end.
    std::string line()
    {
        const bool came = turn_until([this] { return take() || text_.find('\n') != std::string::npos; });
        const size_t end = text_.find('\n');
        if (end == std::string::npos) return came ? "(closed)" : "(nothing)";
        const std::string first = text_.substr(0, end);
        text_.erase(0, end + 1);
        return first;
    }
    std::string ask(const std::string &request)
    {
        send(request + "\n");
        return line();
    }
    // What is there already, without a turn.
    std::string unread()
    {
        take();
        return std::exchange(text_, {});
    }

private:
    bool take()
    {
        char bytes[4096];
        for (;;) {
            const ssize_t got = recv(fd_.get(), bytes, sizeof(bytes), MSG_DONTWAIT);
            if (got <= 0) return got == 0 || errno != EAGAIN;
            text_.append(bytes, static_cast<size_t>(got));
        }
    }

    zel::unique_fd fd_;
    bool connected_ = false;
    std::string text_;
};

class control_socket : public testing::Test {
protected:
    control_socket() { log_lines().clear(); }
    ~control_socket() override { zel_sys_control_close(); }

    void SetUp() override
    {
        ASSERT_EQ(zel_sys_control_open(), 0);
        // Other tests of this process may have left a contact closed.
        for (const int32_t pin : {51, 52, 53}) ASSERT_EQ(zel_sys_sim_press(pin, 0), 0);
    }
    std::string path() const { return unit.path() + "/run/zel/pins"; }

    unit_folder unit;
};

TEST_F(control_socket, presses_releases_and_reads_an_input)
{
    const pin_handle pin = open_pin(51, 0);
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), 3), 0);
    client c(unit.path());
    ASSERT_TRUE(c.connected());
    EXPECT_EQ(c.ask("read 51"), "ok 51 0");
    EXPECT_EQ(c.ask("press 51"), "ok 51 1");
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get())));
    EXPECT_EQ(c.ask("read 51"), "ok 51 1");
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()))) << "asking for a level takes no edge";
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    EXPECT_EQ(c.ask("release 51"), "ok 51 0");
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 0);
}

TEST_F(control_socket, reads_outputs_and_pins_that_are_not_open)
{
    const pin_handle pin = open_pin(151, 2);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    client c(unit.path());
    EXPECT_EQ(c.ask("read 151"), "ok 151 1");
    EXPECT_EQ(c.ask("read 52"), "ok 52 0");
    EXPECT_EQ(c.ask("press 52"), "ok 52 1");
    EXPECT_EQ(c.ask("read 52"), "ok 52 1");
}

TEST_F(control_socket, lists_the_open_pins)
{
    client c(unit.path());
    EXPECT_EQ(c.ask("list"), "ok 0");
    const pin_handle second = open_pin(152, 2), first = open_pin(51, 0);
    EXPECT_EQ(zel_sys_gpio_write(second.get(), 1), 0);
    EXPECT_EQ(c.ask("list"), "ok 2 51:in:0 152:out:1");
}

TEST_F(control_socket, tells_watchers_every_change_and_only_them)
{
    client watcher(unit.path()), other(unit.path());
    EXPECT_EQ(watcher.ask("watch"), "ok watching");
    const pin_handle pin = open_pin(153, 2);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 0), 0);
    EXPECT_EQ(other.ask("press 51"), "ok 51 1");
    EXPECT_EQ(other.ask("press 51"), "ok 51 1");
    EXPECT_EQ(other.ask("release 51"), "ok 51 0");
    EXPECT_EQ(watcher.unread(), "pin 153 out 1\npin 153 out 0\npin 51 in 1\npin 51 in 0\n");
    EXPECT_EQ(other.unread(), "");
    EXPECT_EQ(watcher.ask("help").substr(0, 3), "ok ") << "a watcher may go on asking";
}

TEST_F(control_socket, serves_the_observer_as_well)
{
    int changes = 0;
    zel_sys_set_pin_observer([](void *count, int32_t, int32_t, int) { ++*static_cast<int *>(count); }, &changes);
    client watcher(unit.path());
    EXPECT_EQ(watcher.ask("watch"), "ok watching");
    EXPECT_EQ(zel_sys_sim_press(51, 1), 0);
    zel_sys_set_pin_observer(nullptr, nullptr);
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(watcher.line(), "pin 51 in 1");
}

TEST_F(control_socket, answers_malformed_requests_with_an_error_and_stays)
{
    client c(unit.path());
    for (const char *const request :
         {"", " ", "press", "press x", "press -1", "press 1 2", "press 1x", "press 2147483648", "press +1",
          "press 99999999999999999999", "release", "read", "read one", "list 1", "watch 1", "help me", "Press 1", "presss 1",
          "\x1b[2J", "\xff\xfe"}) {
        SCOPED_TRACE(request);
        EXPECT_EQ(c.ask(request).substr(0, 6), "error ");
    }
    c.send(std::string("read\0 51\n", 9));
    EXPECT_EQ(c.line().substr(0, 6), "error ");
    EXPECT_EQ(c.ask("read 51"), "ok 51 0");
    EXPECT_EQ(c.ask("  read \t 51 \r"), "ok 51 0") << "blanks do not matter";
}

TEST_F(control_socket, answers_requests_in_order_however_they_arrive)
{
    client c(unit.path());
    c.send("re");
    turn(0);
    c.send("ad 51\nhelp\nread 5");
    EXPECT_EQ(c.line(), "ok 51 0");
    EXPECT_EQ(c.line().substr(0, 8), "ok press");
    c.send("2\n");
    EXPECT_EQ(c.line(), "ok 52 0");
}

TEST_F(control_socket, answers_a_client_that_sends_nothing_more)
{
    client c(unit.path());
    c.send("read 51\nread 52\nunfinished");
    c.end_sending();
    EXPECT_EQ(c.line(), "ok 51 0");
    EXPECT_EQ(c.line(), "ok 52 0");
    EXPECT_EQ(c.line(), "(closed)");
}

TEST_F(control_socket, drops_a_client_whose_line_does_not_end)
{
    client good(unit.path()), bad(unit.path());
    const std::string longest = "help" + std::string(123, ' ');
    EXPECT_EQ(good.ask(longest).substr(0, 8), "ok press") << "127 bytes are allowed";
    bad.send(longest + " ");
    EXPECT_EQ(bad.line(), "error line too long");
    EXPECT_EQ(bad.line(), "(closed)");
    EXPECT_EQ(good.ask("read 51"), "ok 51 0");
}

TEST_F(control_socket, leaves_a_turn_to_the_pins_after_each_contact_that_moved)
{
    const pin_handle pin = open_pin(51, 0);
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), 3), 0);
    client c(unit.path()), other(unit.path());
    c.send("press 51\nrelease 51\n");
    other.send("press 52\n");
    std::vector<int> levels;
    EXPECT_TRUE(turn_until([&] {
        // The host looks at its pins after the control socket, which is the harder order.
        if (exceptional(zel_sys_gpio_fd(pin.get()))) levels.push_back(zel_sys_gpio_read(pin.get()));
        return levels.size() == 2;
    }));
    EXPECT_EQ(levels, (std::vector<int>{1, 0}));
    EXPECT_EQ(c.line(), "ok 51 1");
    EXPECT_EQ(c.line(), "ok 51 0");
    EXPECT_EQ(other.line(), "ok 52 1");
}

TEST_F(control_socket, sends_a_client_too_many_away_and_serves_the_next_once_one_has_left)
{
    std::vector<client> clients;
    for (int i = 0; i < 16; ++i) clients.emplace_back(unit.path());
    for (client &c : clients) EXPECT_EQ(c.ask("read 51"), "ok 51 0");
    client further(unit.path());
    EXPECT_EQ(further.line(), "error too many clients");
    EXPECT_EQ(further.line(), "(closed)");
    clients.pop_back();
    turn(100);
    client next(unit.path());
    EXPECT_EQ(next.ask("read 51"), "ok 51 0");
    EXPECT_EQ(clients.front().ask("read 51"), "ok 51 0");
}

TEST_F(control_socket, drops_a_watcher_that_does_not_read_and_keeps_the_others)
{
    client slow(unit.path()), quick(unit.path());
    EXPECT_EQ(slow.ask("watch"), "ok watching");
    EXPECT_EQ(quick.ask("watch"), "ok watching");
    const pin_handle pin = open_pin(153, 2);
    int changes = 0;
    while (count_logged(1, {"does not read"}) == 0 && changes < 1000000) {
        ++changes;
        ASSERT_EQ(zel_sys_gpio_write(pin.get(), changes % 2), 0);
        ASSERT_EQ(quick.unread(), changes % 2 != 0 ? "pin 153 out 1\n" : "pin 153 out 0\n") << "change " << changes;
    }
    EXPECT_EQ(count_logged(1, {"does not read"}), 1);
    std::string last;
    for (std::string line = slow.line(); line != "(closed)" && line != "(nothing)"; line = slow.line()) last = line;
    EXPECT_EQ(last.substr(0, 12), "pin 153 out ") << "what was sent before can still be read";
    EXPECT_EQ(quick.ask("read 153"), std::string("ok 153 ") + (changes % 2 != 0 ? "1" : "0"));
}

TEST_F(control_socket, drops_a_client_that_asks_without_reading)
{
    client greedy(unit.path()), other(unit.path());
    for (int i = 0; i < 100000 && count_logged(1, {"does not read"}) == 0; ++i) {
        greedy.send("help\n");
        turn(0);
    }
    EXPECT_EQ(count_logged(1, {"does not read"}), 1);
    EXPECT_EQ(other.ask("read 51"), "ok 51 0");
}

TEST_F(control_socket, survives_clients_that_vanish_with_answers_under_way)
{
    for (int i = 0; i < 50; ++i) {
        client c(unit.path());
        c.send("watch\nlist\npress 51\nrelease 51\nhelp\n");
        if (i % 2 != 0) turn(0);
        c.close();
        turn(0);
    }
    client c(unit.path());
    EXPECT_EQ(c.ask("read 52"), "ok 52 0");
}

TEST_F(control_socket, sends_clients_away_while_no_descriptor_is_left_instead_of_waking_the_loop_for_ever)
{
    client before(unit.path());
    EXPECT_EQ(before.ask("read 51"), "ok 51 0");
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    client waiting(unit.path());
    std::vector<zel::unique_fd> filling;
    const rlimit low = {200, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
    do filling.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    while (filling.back());
    EXPECT_EQ(waiting.line(), "(closed)");
    EXPECT_EQ(count_logged(1, {"No descriptor is left"}), 1);
    EXPECT_EQ(before.ask("read 51"), "ok 51 0");
    filling.clear();
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    client after(unit.path());
    EXPECT_EQ(after.ask("read 51"), "ok 51 0");
}

TEST_F(control_socket, is_for_the_owner_only)
{
    struct stat file, folder;
    ASSERT_EQ(stat(path().c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0600u);
    ASSERT_EQ(stat((unit.path() + "/run/zel").c_str(), &folder), 0);
    EXPECT_EQ(folder.st_mode & 0077, 0u);
}

TEST_F(control_socket, offers_one_descriptor_while_it_is_open_and_none_after)
{
    fd_set readfds;
    FD_ZERO(&readfds);
    int maxfd = -1;
    zel_sys_control_set_fds(&readfds, &maxfd);
    int set = 0;
    for (int fd = 0; fd < FD_SETSIZE; ++fd) set += FD_ISSET(fd, &readfds) ? 1 : 0;
    EXPECT_EQ(set, 1);
    EXPECT_TRUE(FD_ISSET(maxfd, &readfds));

    client c(unit.path());
    zel_sys_control_close();
    EXPECT_EQ(c.line(), "(closed)");
    EXPECT_EQ(access(path().c_str(), F_OK), -1);
    FD_ZERO(&readfds);
    maxfd = -1;
    zel_sys_control_set_fds(&readfds, &maxfd);
    EXPECT_EQ(maxfd, -1);
    zel_sys_control_process_fds(&readfds);
    zel_sys_control_close();
    EXPECT_EQ(zel_sys_sim_press(51, 1), 0) << "changes go on without it";
    EXPECT_EQ(zel_sys_control_open(), 0);
    client again(unit.path());
    EXPECT_EQ(again.ask("read 51"), "ok 51 1");
}

TEST_F(control_socket, opens_once)
{
    EXPECT_EQ(zel_sys_control_open(), -1);
    client c(unit.path());
    EXPECT_EQ(c.ask("read 51"), "ok 51 0") << "the refused call disturbed it";
}

// Another process that has the control socket of the same unit open until it is told to end, or ends at once without closing it.
class other_process {
public:
    explicit other_process(bool stays)
    {
        int up[2], down[2];
        if (pipe2(up, O_CLOEXEC) != 0 || pipe2(down, O_CLOEXEC) != 0) ADD_FAILURE() << "no pipes";
        child_ = fork();
        if (child_ == 0) {
            const char opened = zel_sys_control_open() == 0 ? '1' : '0';
            char end;
            close(down[1]);
            if (write(up[1], &opened, 1) != 1 || (stays && read(down[0], &end, 1) < 0)) _exit(2);
            _exit(0);
        }
        close(up[1]);
        close(down[0]);
        up_.reset(up[0]);
        down_.reset(down[1]);
    }
    ~other_process() { end(); }
    bool opened() const
    {
        char answer = 0;
        return read(up_.get(), &answer, 1) == 1 && answer == '1';
    }
    void end()
    {
        down_.reset();
        if (child_ > 0) waitpid(std::exchange(child_, -1), nullptr, 0);
    }

private:
    pid_t child_ = -1;
    zel::unique_fd up_, down_;
};

class control_socket_file : public testing::Test {
protected:
    control_socket_file() { log_lines().clear(); }
    ~control_socket_file() override { zel_sys_control_close(); }
    std::string path() const { return unit.path() + "/run/zel/pins"; }
    unit_folder unit;
};

TEST_F(control_socket_file, of_a_dead_process_is_replaced)
{
    other_process dead(false);
    ASSERT_TRUE(dead.opened());
    dead.end();
    ASSERT_EQ(access(path().c_str(), F_OK), 0);
    EXPECT_FALSE(client(unit.path()).connected());
    ASSERT_EQ(zel_sys_control_open(), 0);
    client c(unit.path());
    EXPECT_EQ(c.ask("read 54"), "ok 54 0");
}

TEST_F(control_socket_file, of_a_running_process_is_left_alone)
{
    other_process running(true);
    ASSERT_TRUE(running.opened());
    EXPECT_EQ(zel_sys_control_open(), -1);
    EXPECT_EQ(count_logged(0, {path(), "running process"}), 1);
    EXPECT_TRUE(client(unit.path()).connected()) << "the other's socket is gone";
    running.end();
    EXPECT_EQ(zel_sys_control_open(), 0);
}

TEST_F(control_socket_file, belongs_to_a_running_process_even_if_somebody_removed_it)
{
    other_process running(true);
    ASSERT_TRUE(running.opened());
    ASSERT_EQ(unlink(path().c_str()), 0);
    EXPECT_EQ(zel_sys_control_open(), -1) << "two processes that start at once must not both get it";
    running.end();
    EXPECT_EQ(zel_sys_control_open(), 0);
}

TEST_F(control_socket_file, of_a_stranger_who_listens_there_is_left_alone)
{
    ASSERT_TRUE(std::filesystem::create_directories(unit.path() + "/run/zel"));
    zel::local_socket_address address;
    ASSERT_TRUE(zel::make_local_socket_address(path(), address));
    const zel::unique_fd stranger(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(stranger.get(), address.get(), address.length), 0);
    ASSERT_EQ(listen(stranger.get(), 1), 0);
    EXPECT_EQ(zel_sys_control_open(), -1);
    EXPECT_TRUE(client(unit.path()).connected());
}

TEST_F(control_socket_file, is_no_replacement_for_another_file)
{
    write_text(path(), "precious");
    EXPECT_EQ(zel_sys_control_open(), -1);
    EXPECT_EQ(text_of(path()), "precious");
    EXPECT_EQ(count_logged(0, {path(), "no socket"}), 1);
}

TEST_F(control_socket_file, cannot_be_made_where_a_file_stands_in_the_way_of_its_folder)
{
    write_text(unit.path() + "/run", "");
    EXPECT_EQ(zel_sys_control_open(), -1);
    EXPECT_EQ(count_logged(0, {path()}), 1);
    EXPECT_EQ(zel_sys_sim_press(55, 1), 0) << "pins go on without it";
    EXPECT_EQ(zel_sys_sim_press(55, 0), 0);
}

TEST_F(control_socket_file, may_have_a_path_longer_than_an_address)
{
    const std::string deep = unit.path() + "/" + std::string(100, 'd') + "/" + std::string(100, 'e');
    ASSERT_TRUE(std::filesystem::create_directories(deep));
    setenv("ZEL_ROOT", deep.c_str(), 1);
    ASSERT_EQ(zel_sys_control_open(), 0);
    client c(deep);
    ASSERT_TRUE(c.connected());
    EXPECT_EQ(c.ask("read 54"), "ok 54 0");
    {
        other_process second(false);
        EXPECT_FALSE(second.opened());
    }
    zel_sys_control_close();
    EXPECT_EQ(access((deep + "/run/zel/pins").c_str(), F_OK), -1);
}

// These need somebody else: root, who can become another user, or lines that can be made up. Left out where that is not so.
class control_socket_of_root : public control_socket, public testing::WithParamInterface<int> {};

TEST_P(control_socket_of_root, sends_another_user_away)
{
    ASSERT_EQ(chmod(path().c_str(), 0666), 0);  // as if the file's mode did not keep him out already
    for (const char *const folder : {"", "/run", "/run/zel"}) ASSERT_EQ(chmod((unit.path() + folder).c_str(), 0755), 0);
    const pid_t child = fork();
    if (child == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
        zel::local_socket_address address;
        const zel::unique_fd fd(socket(AF_UNIX, SOCK_STREAM, 0));
        if (!zel::make_local_socket_address(path(), address) || connect(fd.get(), address.get(), address.length) != 0) _exit(3);
        (void)send(fd.get(), "press 51\n", 9, MSG_NOSIGNAL);
        pollfd readable = {fd.get(), POLLIN, 0};
        if (poll(&readable, 1, patience_ms) != 1) _exit(4);
        char byte;
        _exit(recv(fd.get(), &byte, 1, 0) > 0 ? 5 : 0);
    }
    int status = -1;
    EXPECT_TRUE(turn_until([&] { return waitpid(child, &status, WNOHANG) == child; }));
    EXPECT_EQ(status, 0);
    EXPECT_EQ(zel_sys_sim_level(51), 0);
    EXPECT_EQ(count_logged(1, {"of user 65534"}), 1);
    client own(unit.path());
    EXPECT_EQ(own.ask("read 51"), "ok 51 0");
}

std::vector<int> once_for_root()
{
    return geteuid() == 0 ? std::vector<int>{0} : std::vector<int>{};
}
INSTANTIATE_TEST_SUITE_P(as, control_socket_of_root, testing::ValuesIn(once_for_root()), [](const auto &) { return "root"; });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(control_socket_of_root);

class control_socket_of_lines : public testing::TestWithParam<int> {};

TEST_P(control_socket_of_lines, reads_and_watches_them_but_does_not_press_them)
{
    const unit_folder unit(R"({"pin_backend": "kernel"})");
    fake_gpio_lines lines;
    setenv("ZEL_SYSFS_GPIO", lines.folder().c_str(), 1);
    ASSERT_EQ(zel_sys_control_open(), 0);
    const pin_handle input = open_pin(504, 0), output = open_pin(505, 2);
    client c(unit.path());
    EXPECT_EQ(c.ask("watch"), "ok watching");
    EXPECT_EQ(c.ask("press 504"), "error pin 504 is not simulated");
    EXPECT_EQ(c.ask("read 506"), "error pin 506 is not open");
    lines.set_line(0, 1);
    EXPECT_EQ(zel_sys_gpio_read(input.get()), 1);
    EXPECT_EQ(c.line(), "pin 504 in 1");
    EXPECT_EQ(zel_sys_gpio_write(output.get(), 1), 0);
    EXPECT_EQ(c.line(), "pin 505 out 1");
    EXPECT_EQ(c.ask("list"), "ok 2 504:in:1 505:out:1");
    EXPECT_EQ(c.ask("read 504"), "ok 504 1");
    zel_sys_control_close();
    unsetenv("ZEL_SYSFS_GPIO");
}

std::vector<int> once_where_lines_can_be_made_up()
{
    return fuse_mount::possible() ? std::vector<int>{0} : std::vector<int>{};
}
INSTANTIATE_TEST_SUITE_P(made_up, control_socket_of_lines, testing::ValuesIn(once_where_lines_can_be_made_up()),
                         [](const auto &) { return "fuse"; });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(control_socket_of_lines);

}  // namespace
