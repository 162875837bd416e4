// GPI ports driven by datagrams.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

using namespace zel;
using namespace zel::test;

namespace {

std::string udp_settings(const char *enabled)
{
    return std::string(R"(, "udp_commands": {"enabled": )") + enabled + R"(, "address": ")" + own_address() +
           R"(", "port": 5010}, "virtual_count": 1, "pins": [{"in_pin": 1, "out_pin": 101}, {"in_pin": 2, "out_pin": 102},
           {"in_pin": 3, "out_pin": 103}, {"in_pin": 4, "cough": true}], "handlers": [{"name": "Record"}])";
}

class udp_client {
public:
    udp_client() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in unit{};
        unit.sin_family = AF_INET;
        unit.sin_port = htons(5010);
        (void)inet_pton(AF_INET, own_address().c_str(), &unit.sin_addr);
        (void)!connect(fd_.get(), reinterpret_cast<sockaddr *>(&unit), sizeof unit);
    }
    std::string ask(const std::string &datagram) const
    {
        (void)!send(fd_.get(), datagram.data(), datagram.size(), 0);
        pollfd waited{fd_.get(), POLLIN, 0};
        const auto limit = std::chrono::duration_cast<std::chrono::milliseconds>(patience).count();
        if (poll(&waited, 1, static_cast<int>(limit)) <= 0) return "no answer";
        char text[4096];
        const ssize_t got = recv(fd_.get(), text, sizeof text, 0);
        return got < 0 ? "no answer" : std::string(text, static_cast<size_t>(got));
    }

private:
    unique_fd fd_;
};

class udp_unit : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
        ASSERT_EQ(zelctl(root, {"set-port", "GPI 1", "input", "--mode", "momentary"}).status, 0);
        ASSERT_EQ(zelctl(root, {"set-port", "GPI 2", "output"}).status, 0);
        ASSERT_EQ(zelctl(root, {"connect", "GPI 1", "Record"}).status, 0);
        ASSERT_TRUE(is_ok(watcher.ask(R"({"request":"watch"})")));
    }
    void TearDown() override { EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest(); }

    unit_root root{udp_settings("true")};
    unit_process unit{root};
    control_link watcher{root};
    udp_client client;
};

}  // namespace

TEST_F(udp_unit, commands_and_their_answers)
{
    const std::pair<const char *, const char *> rows[] = {
        {"pin 1?", "ok 0\n"},
        {"pin 1 1\n", "ok\n"},
        {"pin 1?", "ok 1\n"},
        {"  pin\t1  0\r\n", "ok\n"},
        {"pin 1?\npin 2 1\npin 2?\n", "ok 0\nok\nok 1\n"},
        {"pin 3 1", "error the port is disabled\n"},
        {"pin 4 1", "error no such GPI port\n"},  // a cough port is none
        {"pin 0 1", "error no such GPI port\n"},
        {"pin 9?", "error no such GPI port\n"},
        {"pin -1 1", "error no such GPI port\n"},
        {"pin 99999999999 1", "error no such GPI port\n"},
        {"pin 1 2", "error the value must be from 0 to 1\n"},
        {"pin 1 x", "error the value must be from 0 to 1\n"},
        {"direction 1?", "ok 1\n"},
        {"direction 2?", "ok 2\n"},
        {"direction 3?", "ok 0\n"},
        {"direction 3 1", "ok\n"},
        {"direction 3?", "ok 1\n"},
        {"direction 3 0", "ok\n"},
        {"direction 3 0", "ok\n"},
        {"direction 3 3", "error the value must be from 0 to 2\n"},
        {"lamp 1 1", "error no such command\n"},
        {"pin 1", "error expected: pin N 0|1, pin N?, direction N 0|1|2 or direction N?\n"},
        {"pin 1 1 1", "error expected: pin N 0|1, pin N?, direction N 0|1|2 or direction N?\n"},
        {"\n\n", "error empty datagram\n"},
        {"", "error empty datagram\n"},
    };
    for (const auto &[datagram, answer] : rows) EXPECT_EQ(client.ask(datagram), answer) << datagram;
    EXPECT_EQ(client.ask(std::string(513, 'x')), "error datagram too long\n");
    std::string many;
    for (int i = 0; i < 17; ++i) many += "pin 1?\n";
    EXPECT_EQ(client.ask(many), "error too many lines\n");
}

TEST_F(udp_unit, a_level_drives_the_handler_and_every_edge_counts)
{
    EXPECT_EQ(client.ask("pin 1 1\npin 1 0\n"), "ok\nok\n");
    std::vector<std::string> kinds;
    for (int i = 0; i < 6; ++i) {
        const json_handle line = watcher.next();
        const std::string kind = text_of(line, "change");
        kinds.push_back(kind + " " + std::to_string(number_of(line, kind == "udp" ? "level" : "state")));
    }
    EXPECT_EQ(kinds, (std::vector<std::string>{"udp 1", "handler 1", "event 1", "udp 0", "handler 0", "event 0"}));
}

TEST_F(udp_unit, an_output_is_driven_at_once)
{
    EXPECT_EQ(client.ask("pin 2 1"), "ok\n");
    json_handle line = watcher.next();
    if (text_of(line, "change") == "udp") line = watcher.next();
    EXPECT_EQ(number_of(line, "pin"), 102);
    EXPECT_EQ(number_of(line, "level"), 1);
}

TEST_F(udp_unit, a_press_is_noted_as_ignored)
{
    const json_handle answer = control_link(root).ask(R"({"request":"press","pin":1})");
    EXPECT_TRUE(is_ok(answer));
    EXPECT_EQ(text_of(answer, "note"), "the port is driven by UDP commands; its pin is ignored");
}

TEST(udp_commands, are_not_received_unless_enabled)
{
    const unit_root root(udp_settings("false"));
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    // The port is free, so that the test itself can take it.
    const unique_fd own(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(5010);
    (void)inet_pton(AF_INET, own_address().c_str(), &address.sin_addr);
    EXPECT_EQ(bind(own.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    EXPECT_EQ(unit.stop(), 0);
}
