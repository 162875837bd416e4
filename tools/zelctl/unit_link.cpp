#include "unit_link.h"

#include "common/json_text.h"
#include "common/local_socket.h"
#include "common/unit_root.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

namespace zel {
namespace {

using clock = std::chrono::steady_clock;
constexpr std::chrono::seconds answer_limit{20};
constexpr size_t longest_line = size_t{64} << 20;

std::string unit_socket_path()
{
    return below_unit_root(std::string(socket_folder) + "/unit");
}

[[noreturn]] void fail_to_connect(const std::string &path)
{
    const bool absent = errno == ENOENT || errno == ECONNREFUSED || errno == ENOTDIR;
    if (absent) throw link_problem{not_running, "no unit is running here (" + path + ")"};
    throw link_problem{link_failed, path + ": " + std::strerror(errno)};
}

int milliseconds_left(std::optional<clock::time_point> deadline)
{
    constexpr int64_t longest_wait = 1000000;
    if (!deadline) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, longest_wait));
}

}  // namespace

unit_link::unit_link()
{
    const std::string path = unit_socket_path();
    local_socket_address address;
    if (!make_local_socket_address(path, address)) fail_to_connect(path);
    socket_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket_ || connect(socket_.get(), address.get(), address.length) != 0) fail_to_connect(path);
}

json_handle unit_link::ask(const json_t *request)
{
    const auto text = json_text(request, JSON_COMPACT);
    if (!text) throw std::bad_alloc();
    const std::string line = *text + "\n";
    if (send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        throw link_problem{not_running, "the unit has ended"};
    }
    const auto answer = next_line(clock::now() + answer_limit, -1);
    if (!answer) throw link_problem{link_failed, "the unit does not answer"};
    json_handle parsed(json_loadb(answer->data(), answer->size(), 0, nullptr));
    if (!json_is_object(parsed.get())) throw link_problem{link_failed, "the unit's answer cannot be understood"};
    return parsed;
}

std::optional<std::string> unit_link::buffered_line()
{
    const size_t end = in_.find('\n');
    if (end == std::string::npos) return std::nullopt;
    std::string line = in_.substr(0, end);
    in_.erase(0, end + 1);
    return line;
}

void unit_link::receive()
{
    char buffer[65536];
    const ssize_t got = recv(socket_.get(), buffer, sizeof buffer, 0);
    if (got == 0) throw link_problem{not_running, "the unit has ended"};
    if (got < 0 && errno == EINTR) return;
    if (got < 0) throw link_problem{link_failed, std::strerror(errno)};
    in_.append(buffer, static_cast<size_t>(got));
    if (in_.size() > longest_line) throw link_problem{link_failed, "the unit's answer is too long"};
}

std::optional<std::string> unit_link::next_line(std::optional<clock::time_point> deadline, int signal_fd)
{
    while (true) {
        if (auto line = buffered_line()) return line;
        pollfd waited[] = {{socket_.get(), POLLIN, 0}, {signal_fd, POLLIN, 0}};
        const int ready = poll(waited, std::size(waited), milliseconds_left(deadline));
        if (ready < 0 && errno != EINTR) throw link_problem{link_failed, std::strerror(errno)};
        if (ready > 0 && waited[1].revents != 0) return std::nullopt;
        if (ready > 0 && waited[0].revents != 0) receive();
        else if (deadline && clock::now() >= *deadline) return std::nullopt;
    }
}

}  // namespace zel
