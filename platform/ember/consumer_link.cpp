#include "consumer_link.h"

#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <zel_debug.h>

#include <exception>

namespace zel::ember {

bool consumer_link::connect(const socket_address &to)
{
    socket_.reset(socket(to.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!socket_)
        return false;
    const int on = 1;
    (void)setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if ((::connect(socket_.get(), to.get(), to.length) != 0 && errno != EINPROGRESS) ||
        !poller_.add(socket_.get(), interest_ = EPOLLIN | EPOLLOUT, *this)) {
        socket_.reset();
        return false;
    }
    return true;
}

void consumer_link::close()
{
    if (!is_open())
        return;
    poller_.remove(socket_.get());
    socket_.reset();
}

// Out of memory in the middle of a stream means that the rest of it cannot be understood.
void consumer_link::on_ready(uint32_t events)
{
    try {
        serve(events);
    } catch (const std::exception &) {
        log_message(0, "%s: Closing the connection: out of memory\n", __func__);
        close();
    }
}

void consumer_link::serve(uint32_t events)
{
    if (!is_open())
        return;
    if (!up_)
        finish_connecting();
    else if (events & EPOLLOUT)
        blocked_ = false;
    if (is_up() && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)))
        receive();
    if (is_up())
        flush();
}

void consumer_link::finish_connecting()
{
    int error = 0;
    socklen_t length = sizeof(error);
    if (getsockopt(socket_.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) {
        close();
        return;
    }
    sockaddr_storage peer{};
    socklen_t peer_length = sizeof(peer);
    if (getpeername(socket_.get(), reinterpret_cast<sockaddr *>(&peer), &peer_length) != 0)
        return;      // not yet
    up_ = true;
    last_received_ = last_sent_ = now_;
    wait_for(EPOLLIN);
    owner_.on_link_up(*this);
}

void consumer_link::receive()
{
    uint8_t buffer[8192];
    const ssize_t got = recv(socket_.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
    if (got > 0) {
        last_received_ = now_;
        heard_ = true;
        consume({buffer, static_cast<size_t>(got)});
    } else if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
        close();
    }
}

void consumer_link::consume(std::span<const uint8_t> bytes)
{
    while (!bytes.empty() && is_open()) {
        s101::event what;
        bytes = bytes.subspan(decoder_.feed(bytes, what));
        if (what == s101::event::message) {
            owner_.on_link_message(*this, decoder_.message());
        } else if (what == s101::event::keep_alive_request) {
            send_frames(s101::keep_alive_response_frame);
        } else if (what == s101::event::too_long) {
            log_message(1, "%s: Closing the connection: a message of the provider is too long\n", __func__);
            close();
        }
    }
    decoder_.trim();
}

void consumer_link::send_frames(std::span<const uint8_t> frames)
{
    if (!is_up())
        return;
    if (output_.size() + frames.size() > max_output) {
        log_message(1, "%s: Closing the connection: the provider reads nothing\n", __func__);
        close();
        return;
    }
    output_.insert(output_.end(), frames.begin(), frames.end());
    last_sent_ = now_;
}

void consumer_link::send_message(std::span<const uint8_t> message)
{
    std::vector<uint8_t> frames;
    s101::append_message(frames, message);
    send_frames(frames);
}

bool consumer_link::has_room_for(size_t message_size)
{
    constexpr size_t reserve = 4096;
    const size_t limit = max_output - reserve - 3 * message_size;     // twice for escaping, the rest for what frames it
    if (output_.size() > limit)
        flush();
    return is_up() && output_.size() <= limit;
}

void consumer_link::flush()
{
    while (is_up() && !output_.empty() && !blocked_) {
        const ssize_t sent = send(socket_.get(), output_.data(), output_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0)
            output_.erase(output_.begin(), output_.begin() + sent);
        else if (errno == EAGAIN || errno == EWOULDBLOCK)
            blocked_ = true;
        else if (errno != EINTR)
            close();
    }
    if (is_up())
        wait_for(EPOLLIN | (blocked_ ? EPOLLOUT : 0u));
}

void consumer_link::wait_for(uint32_t events)
{
    if (events == interest_)
        return;
    interest_ = events;
    poller_.change(socket_.get(), events, *this);
}

}  // namespace zel::ember
