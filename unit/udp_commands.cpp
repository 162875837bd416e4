#include "udp_commands.h"

#include "common/whole_number.h"
#include "zel_debug.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace zel {
namespace {

constexpr size_t longest_datagram = 512;
constexpr size_t most_lines = 16;

struct socket_address {
    sockaddr_storage storage{};
    socklen_t length = 0;
    sockaddr *get() { return reinterpret_cast<sockaddr *>(&storage); }
};

socket_address address_of(const endpoint_settings &where)
{
    socket_address address;
    auto *const v4 = reinterpret_cast<sockaddr_in *>(&address.storage);
    auto *const v6 = reinterpret_cast<sockaddr_in6 *>(&address.storage);
    const in_port_t port = htons(static_cast<uint16_t>(where.port));
    if (inet_pton(AF_INET, where.address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = port;
        address.length = sizeof *v4;
    } else if (inet_pton(AF_INET6, where.address.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = port;
        address.length = sizeof *v6;
    }
    return address;
}

std::vector<std::string_view> pieces_of(std::string_view text, std::string_view separators)
{
    std::vector<std::string_view> pieces;
    while (true) {
        const size_t begin = text.find_first_not_of(separators);
        if (begin == std::string_view::npos) return pieces;
        text.remove_prefix(begin);
        const size_t end = text.find_first_of(separators);
        pieces.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end);
    }
}

const char *ask_pin(int32_t index, int32_t &value)
{
    uint8_t level = 0;
    if (zel_gpio_get_udp_pin(index, &level) != 0) return "no such GPI port";
    value = level;
    return nullptr;
}

const char *ask_direction(int32_t index, int32_t &value)
{
    uint32_t direction = 0;
    if (zel_gpio_get_pin_direction(index, &direction) != 0) return "no such GPI port";
    value = static_cast<int32_t>(direction);
    return nullptr;
}

const char *set_pin(int32_t index, int32_t value)
{
    const int32_t result = zel_gpio_set_udp_pin(index, static_cast<uint8_t>(value));
    return result > 0 ? nullptr : result == 0 ? "the port is disabled" : "no such GPI port";
}

const char *set_direction(int32_t index, int32_t value)
{
    return zel_gpio_set_pin_direction(index, static_cast<uint32_t>(value)) >= 0 ? nullptr : "refused";
}

// Each command asks or sets one value of a GPI port; the workers return null or what is wrong.
struct command_row {
    std::string_view word;
    int32_t highest;
    const char *(*ask)(int32_t index, int32_t &value);
    const char *(*set)(int32_t index, int32_t value);
};
constexpr command_row commands[] = {{"pin", 1, ask_pin, set_pin}, {"direction", 2, ask_direction, set_direction}};

std::string error_answer(const std::string &text)
{
    return "error " + text;
}

std::string answer_to_question(const command_row &row, int32_t number)
{
    int32_t value = 0;
    const char *const wrong = row.ask(number - 1, value);
    return wrong != nullptr ? error_answer(wrong) : "ok " + std::to_string(value);
}

// The library takes a level up in its next pass; without one now, a second command for the port would replace it unseen.
void run_library_pass()
{
    fd_set readable, exceptional;
    FD_ZERO(&readable);
    FD_ZERO(&exceptional);
    zel_gpio_process_fds(&readable, &exceptional);
}

}  // namespace

bool udp_commands::open(reactor &loop, const endpoint_settings &where)
{
    loop_ = &loop;
    socket_address address = address_of(where);
    socket_.reset(socket(address.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool ready = socket_ && bind(socket_.get(), address.get(), address.length) == 0 &&
                       loop.add(socket_.get(), EPOLLIN, [this](uint32_t) { receive(); });
    if (ready) return true;
    log_message(0, "%s: UDP commands cannot be received on %s port %d: %s\n", __func__, where.address.c_str(), where.port,
                std::strerror(errno));
    socket_.reset();
    return false;
}

void udp_commands::close()
{
    if (!socket_) return;
    loop_->remove(socket_.get());
    socket_.reset();
}

void udp_commands::receive()
{
    constexpr int at_most = 32;  // datagrams per turn, so that a flood leaves time for everything else
    for (int count = 0; count < at_most; ++count) {
        char buffer[longest_datagram];
        socket_address sender;
        sender.length = sizeof sender.storage;
        const ssize_t got = recvfrom(socket_.get(), buffer, sizeof buffer, MSG_TRUNC, sender.get(), &sender.length);
        if (got < 0) return;
        const bool too_long = static_cast<size_t>(got) > sizeof buffer;
        const std::string answer = too_long ? error_answer("datagram too long\n")
                                            : answer_to({buffer, static_cast<size_t>(got)});
        (void)sendto(socket_.get(), answer.data(), answer.size(), MSG_DONTWAIT, sender.get(), sender.length);
    }
}

std::string udp_commands::answer_to(std::string_view datagram)
{
    const auto lines = pieces_of(datagram, "\r\n");
    if (lines.empty()) return error_answer("empty datagram\n");
    if (lines.size() > most_lines) return error_answer("too many lines\n");
    std::string answer;
    for (const std::string_view line : lines) answer += answer_line(line) + "\n";
    return answer;
}

std::string udp_commands::answer_line(std::string_view line)
{
    const bool asks = line.ends_with('?');
    if (asks) line.remove_suffix(1);
    const auto words = pieces_of(line, " \t");
    if (words.size() != (asks ? 2U : 3U)) return error_answer("expected: pin N 0|1, pin N?, direction N 0|1|2 or direction N?");
    const auto row = std::ranges::find(commands, words[0], &command_row::word);
    if (row == std::end(commands)) return error_answer("no such command");
    const auto number = whole_number(words[1]);
    if (!number || *number < 1 || *number > INT32_MAX) return error_answer("no such GPI port");
    const auto port = static_cast<int32_t>(*number);
    if (asks) return answer_to_question(*row, port);
    const int64_t value = whole_number(words[2]).value_or(-1);
    if (value < 0 || value > row->highest) return error_answer("the value must be from 0 to " + std::to_string(row->highest));
    const char *const wrong = row->set(port - 1, static_cast<int32_t>(value));
    if (wrong != nullptr) return error_answer(wrong);
    if (row->set == set_pin) feed_.udp_level(port, static_cast<uint8_t>(value));
    run_library_pass();
    feed_.settle();
    return "ok";
}

}  // namespace zel
