#include "control_clients.h"

#include "control_requests.h"
#include "zel_debug.h"

#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

namespace zel {

void control_clients::add(unique_fd socket)
{
    if (clients_.size() >= most_clients) {
        static constexpr char text[] = "error too many clients\n";
        (void)send(socket.get(), text, sizeof(text) - 1, MSG_DONTWAIT | MSG_NOSIGNAL);
        log_message(1, "%s: More than %zu clients, one is sent away\n", __func__, most_clients);
        return;
    }
    const uint64_t id = ++last_id_;
    epoll_event event = {EPOLLIN, {.u64 = id}};
    client &added = clients_[id];
    added.socket = std::move(socket);
    if (epoll_ctl(epoll_, EPOLL_CTL_ADD, added.socket.get(), &event) != 0) lose(added, std::strerror(errno));
}

bool control_clients::serve(uint64_t id, uint32_t events) noexcept
{
    const auto found = clients_.find(id);
    if (found == clients_.end() || found->second.lost) return false;
    client &served = found->second;
    bool moved = false;
    try {
        if ((events & EPOLLOUT) != 0) flush(served);
        if ((events & ~EPOLLOUT) != 0) moved = receive(served);
    } catch (const std::exception &failure) {
        lose(served, failure.what());  // one of its answers is missing
    }
    if (!served.lost) wait_for(id, served);
    return moved;
}

// What follows the first line stays in the socket, where it makes the next turn of the host's loop come.
bool control_clients::receive(client &from)
{
    char bytes[longest_request + 1];
    const ssize_t seen = recv(from.socket.get(), bytes, sizeof(bytes), MSG_DONTWAIT | MSG_PEEK);
    if (seen == 0 || (seen < 0 && errno != EAGAIN && errno != EINTR)) lose(from, nullptr);
    if (seen <= 0) return false;
    const std::string_view all(bytes, static_cast<size_t>(seen));
    const std::string_view line = all.substr(0, all.find('\n') + 1);  // all of it, where there is no line feed
    const std::string_view taken = line.empty() ? all : line;
    (void)recv(from.socket.get(), bytes, taken.size(), MSG_DONTWAIT);
    return take(from, taken);
}

bool control_clients::take(client &from, std::string_view bytes)
{
    const bool whole = bytes.ends_with('\n');
    if (whole) bytes.remove_suffix(1);
    from.request += bytes;
    if (from.request.size() > longest_request) {
        put(from, "error line too long\n");
        lose(from, "its line is too long");
        return false;
    }
    if (!whole) return false;
    request_effects effects;
    put(from, answer_request(std::exchange(from.request, {}), effects) + "\n");
    from.watching = from.watching || effects.watches;
    return effects.moves_contact;
}

void control_clients::put(client &to, const std::string &text)
{
    if (to.lost) return;
    to.unread += text;
    flush(to);
    if (to.unread.size() > most_unread) lose(to, "it does not read what it asked for");
}

void control_clients::flush(client &to)
{
    while (!to.unread.empty()) {
        const ssize_t sent = send(to.socket.get(), to.unread.data(), to.unread.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0) to.unread.erase(0, static_cast<size_t>(sent));
        else if (errno == EAGAIN) return;
        else if (errno != EINTR) return lose(to, nullptr);
    }
}

// Its place is kept until drop_lost(), since the caller may be walking over the clients; shut down, its descriptor wakes the
// host's loop, which comes to drop it.
void control_clients::lose(client &gone, const char *why) noexcept
{
    if (why != nullptr) log_message(1, "%s: A client is dropped: %s\n", __func__, why);
    gone.lost = true;
    (void)shutdown(gone.socket.get(), SHUT_RDWR);
}

void control_clients::wait_for(uint64_t id, const client &waiting)
{
    epoll_event event = {EPOLLIN, {.u64 = id}};
    if (!waiting.unread.empty()) event.events |= EPOLLOUT;
    (void)epoll_ctl(epoll_, EPOLL_CTL_MOD, waiting.socket.get(), &event);
}

void control_clients::tell_change(int32_t pin, int32_t direction, int level) noexcept
{
    for (auto &[id, watcher] : clients_) {
        if (!watcher.watching || watcher.lost) continue;
        try {
            put(watcher, change_text(pin, direction, level));
            if (!watcher.lost && !watcher.unread.empty()) wait_for(id, watcher);
        } catch (const std::exception &failure) {
            lose(watcher, failure.what());  // it would miss a change
        }
    }
}

void control_clients::drop_lost()
{
    std::erase_if(clients_, [](const auto &entry) { return entry.second.lost; });
}

}  // namespace zel
