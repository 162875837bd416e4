#include "provider.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <zel_debug.h>

#include <algorithm>
#include <cstring>

#include "address.h"

namespace zel::ember {

namespace {

constexpr int backlog = 256;
constexpr int accepted_at_once = 16;
// Enough for any answer; without a bound the system would keep megabytes of outdated values for a client that reads slowly.
constexpr int send_buffer = 128 << 10;

}  // namespace

provider::provider(int64_t silence_ms, clock_function clock)
    : zel_ember_session(role::provider, clock), silence_ms_(silence_ms)
{
    clients_.reserve(max_clients);
    const auto frame = [this](std::span<const uint8_t> bytes) {
        message_ref message(pool_.take());
        message.bytes().assign(bytes.begin(), bytes.end());
        return message;
    };
    keep_alive_request_ = frame(s101::keep_alive_request_frame);
    keep_alive_response_ = frame(s101::keep_alive_response_frame);
}

provider::~provider() = default;

std::unique_ptr<provider> provider::create(const zel_ember_session_config_t &config, clock_function clock)
{
    const int64_t silence = config.timeout_s != nullptr && *config.timeout_s > 0 ? int64_t{*config.timeout_s} * 1000
                                                                                  : provider_silence_ms;
    std::unique_ptr<provider> made(new provider(silence, clock));
    const char *address = config.bind_addr != nullptr ? config.bind_addr : "127.0.0.1";
    if (!made->poller_.open(poller::bell::with) || !made->listen_at(address, config.listen_port))
        return nullptr;
    return made;
}

bool provider::listen_at(const char *address, uint16_t port)
{
    socket_address at;
    if (!parse_address(address, port, at)) {
        log_message(0, "%s: '%s' is no address to listen on\n", __func__, address);
        return false;
    }
    listener_.socket.reset(socket(at.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int fd = listener_.socket.get();
    const int on = 1;
    if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 || bind(fd, at.get(), at.length) != 0 ||
        listen(fd, backlog) != 0 || getsockname(fd, reinterpret_cast<sockaddr *>(&at.storage), &at.length) != 0 ||
        !poller_.add(fd, EPOLLIN, listener_)) {
        log_message(0, "%s: Cannot listen on %s port %u: %s\n", __func__, address, port, strerror(errno));
        return false;
    }
    port_ = ntohs(at.storage.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6 &>(at.storage).sin6_port
                                                   : reinterpret_cast<sockaddr_in &>(at.storage).sin_port);
    return true;
}

void provider::accept_clients(uint32_t)
{
    for (int i = 0; i < accepted_at_once; ++i) {
        sockaddr_storage from{};
        socklen_t length = sizeof(from);
        unique_fd accepted(accept4(listener_.socket.get(), reinterpret_cast<sockaddr *>(&from), &length,
                                   SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (accepted) {
            admit(std::move(accepted), from);
        } else {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                log_message(0, "%s: Cannot take a connection: %s; trying again\n", __func__, strerror(errno));
                pause_listening(true);
            }
            return;
        }
    }
}

void provider::admit(unique_fd socket, const sockaddr_storage &address)
{
    (void)setsockopt(socket.get(), SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof(send_buffer));
    try {
        client_owner &self = *this;
        auto client = std::make_unique<provider_client>(self, poller_, std::move(socket), address, round_time());
        if (clients_.size() == max_clients) {
            client->drop("there are too many");
        } else if (client->start()) {
            log_message(4, "%s: %s:%u has connected\n", __func__, client->address(), client->port());
            clients_.push_back(std::move(client));
        }
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: Out of memory for a connection\n", __func__);
    }
}

// A connection that cannot be taken would keep the descriptor ready for ever.
void provider::pause_listening(bool pause)
{
    if (pause == listener_.paused)
        return;
    listener_.paused = pause;
    poller_.change(listener_.socket.get(), pause ? 0u : EPOLLIN, listener_);
}

void provider::run_due()
{
    for (const auto &client : clients_) {
        catch_up(*client);
        client->flush();
    }
    if (round_time() >= next_check_)
        check_clients();
    std::erase_if(clients_, [](const auto &client) { return client->is_dropped(); });
    if (!clients_.empty() || listener_.paused)
        due_at(next_check_);
}

void provider::check_clients()
{
    next_check_ = round_time() + std::clamp<int64_t>(silence_ms_ / 10, 20, 1000);
    pause_listening(false);
    for (const auto &client : clients_) {
        client->check_life(silence_ms_, keep_alive_request_);
        client->flush();
    }
}

// Best effort: what the sockets take at once.
void provider::last_words()
{
    for (const auto &client : clients_) {
        catch_up(*client);
        client->flush();
    }
}

}  // namespace zel::ember
