#include "control_socket.h"

#include "common/local_socket.h"
#include "common/unit_root.h"
#include "zel_debug.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zel {
namespace {

bool has_line(const control_client &client)
{
    return !client.dead && client.in.find('\n') != std::string::npos;
}

// A client with a long answer still to read is served again when it has read it.
bool is_served(const control_client &client)
{
    return has_line(client) && (client.watches || client.out.empty());
}

// The folder and the socket's mode keep others out already; this holds where someone opened them up.
bool is_same_user(int fd)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return false;
    return peer.uid == geteuid() || peer.uid == 0;
}

}  // namespace

control_socket::~control_socket()
{
    close();
}

bool control_socket::open(reactor &loop, const std::string &path, service answer)
{
    loop_ = &loop;
    answer_ = std::move(answer);
    local_socket_address address;
    if (!make_folder_of(path) || !make_local_socket_address(path, address)) return false;
    if (unlink(path.c_str()) != 0 && errno != ENOENT) return false;
    spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    listener_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener_ || !spare_ || fchmod(listener_.get(), 0600) != 0) return false;
    if (bind(listener_.get(), address.get(), address.length) != 0) return false;
    path_ = path;
    return chmod(path.c_str(), 0600) == 0 && listen(listener_.get(), most_clients) == 0 &&
           loop.add(listener_.get(), EPOLLIN, [this](uint32_t) { accept_clients(); });
}

void control_socket::close()
{
    flush();
    for (const client_ref &client : clients_) loop_->remove(client->fd.get());
    clients_.clear();
    if (!listener_) return;
    loop_->remove(listener_.get());
    listener_.reset();
    if (!path_.empty()) (void)unlink(path_.c_str());
}

void control_socket::turn_away(int fd, const char *why) const
{
    const std::string line = std::string(R"({"ok":false,"error":")") + why + "\"}\n";
    (void)!::send(fd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    log_message(1, "%s: A client of the control socket was turned away: %s\n", __func__, why);
}

void control_socket::accept_clients()
{
    while (listener_) {
        unique_fd fd(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!fd && (errno == EMFILE || errno == ENFILE)) {
            // Without a descriptor for it the client would stay in the queue and wake the loop for ever.
            spare_.reset();
            fd.reset(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            if (fd) turn_away(fd.get(), "the unit is out of descriptors");
            fd.reset();
            spare_.reset(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            return;
        }
        if (!fd) return;
        if (!is_same_user(fd.get())) turn_away(fd.get(), "this is another user's unit");
        else if (clients_.size() >= most_clients) turn_away(fd.get(), "too many clients");
        else {
            auto client = std::make_shared<control_client>();
            client->fd = std::move(fd);
            if (loop_->add(client->fd.get(), EPOLLIN, [this, client](uint32_t events) { ready(client, events); })) {
                clients_.push_back(std::move(client));
            }
        }
    }
}

void control_socket::ready(const client_ref &client, uint32_t events)
{
    if ((events & EPOLLIN) != 0) receive(*client);
    else if ((events & (EPOLLERR | EPOLLHUP)) != 0) client->dead = true;
    if ((events & EPOLLOUT) != 0) send(*client);
}

void control_socket::receive(control_client &client)
{
    char buffer[longest_request];
    const ssize_t got = recv(client.fd.get(), buffer, sizeof buffer, 0);
    if (got < 0) {
        client.dead = errno != EAGAIN && errno != EINTR;
        return;
    }
    client.ended = got == 0;
    client.in.append(buffer, static_cast<size_t>(got));
    if (client.in.size() > longest_request && client.in.find('\n') >= longest_request) refuse_overlong(client);
}

void control_socket::refuse_overlong(control_client &client)
{
    log_message(1, "%s: A client of the control socket sent an overlong request\n", __func__);
    client.out += "{\"ok\":false,\"error\":\"the request is too long\"}\n";
    client.in.clear();
    client.ended = true;
    client.watches = false;
}

void control_socket::send(control_client &client)
{
    while (!client.out.empty() && !client.dead) {
        const ssize_t sent = ::send(client.fd.get(), client.out.data(), client.out.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) client.out.erase(0, static_cast<size_t>(sent));
        else if (errno == EAGAIN) return;
        else if (errno != EINTR) client.dead = true;
    }
}

// A client that sent all it has to say, or has requests waiting here already, is not read from: its line must not grow.
void control_socket::wait_for(const client_ref &client)
{
    const uint32_t reading = client->ended || has_line(*client) ? 0 : static_cast<uint32_t>(EPOLLIN);
    const uint32_t writing = client->out.empty() ? 0 : static_cast<uint32_t>(EPOLLOUT);
    if (client->interest == (reading | writing)) return;
    client->interest = reading | writing;
    if (!loop_->change(client->fd.get(), client->interest)) client->dead = true;
}

bool control_socket::anybody_watches() const
{
    return std::ranges::any_of(clients_, [](const client_ref &each) { return each->watches && !each->dead; });
}

void control_socket::broadcast(const std::string &line, bool is_call)
{
    for (const client_ref &client : clients_) {
        if (!client->watches || client->dead || (is_call && !client->watches_calls)) continue;
        if (client->out.size() + line.size() >= longest_watch_queue) {
            log_message(1, "%s: A watching client fell too far behind and is let go\n", __func__);
            client->dead = true;
            continue;
        }
        client->out.append(line).push_back('\n');
    }
}

bool control_socket::request_waits() const
{
    return std::ranges::any_of(clients_, [](const client_ref &each) { return is_served(*each); });
}

void control_socket::serve_one()
{
    for (size_t tried = 0; tried < clients_.size(); ++tried) {
        const client_ref client = clients_[next_++ % clients_.size()];
        if (!is_served(*client)) continue;
        const size_t end = client->in.find('\n');
        const std::string line = client->in.substr(0, end);
        client->in.erase(0, end + 1);
        client->out += answer_(line, *client) + "\n";
        return;
    }
}

void control_socket::flush()
{
    for (const client_ref &client : clients_) {
        send(*client);
        const bool finished = client->ended && !has_line(*client) && client->out.empty() && !client->watches;
        if (finished) client->dead = true;
        if (!client->dead) wait_for(client);
        if (client->dead) loop_->remove(client->fd.get());
    }
    std::erase_if(clients_, [](const client_ref &each) { return each->dead; });
}

}  // namespace zel
