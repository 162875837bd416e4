#include "provider_client.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <zel_debug.h>

#include <algorithm>
#include <cstring>

namespace zel::ember {

namespace {

constexpr size_t many_messages = 64;   // more waiting messages than this are written before the round's end

uint16_t set_names(const sockaddr_storage &from, std::string &text)
{
    char buffer[INET6_ADDRSTRLEN] = "";
    if (from.ss_family == AF_INET6) {
        const auto &v6 = reinterpret_cast<const sockaddr_in6 &>(from);
        text = inet_ntop(AF_INET6, &v6.sin6_addr, buffer, sizeof(buffer)) ? buffer : "";
        return ntohs(v6.sin6_port);
    }
    const auto &v4 = reinterpret_cast<const sockaddr_in &>(from);
    text = inet_ntop(AF_INET, &v4.sin_addr, buffer, sizeof(buffer)) ? buffer : "";
    return ntohs(v4.sin_port);
}

}  // namespace

provider_client::provider_client(client_owner &owner, poller &waits, unique_fd socket, const sockaddr_storage &address,
                                 const int64_t &now)
    : owner_(owner), poller_(waits), socket_(std::move(socket)), now_(now), last_life_(now)
{
    port_ = set_names(address, address_);
}

provider_client::~provider_client()
{
    drop(nullptr);
}

bool provider_client::start()
{
    // Answers consist of several frames now and then; without this each would wait for the peer's delayed acknowledgement.
    const int on = 1;
    (void)setsockopt(socket_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    interest_ = EPOLLIN;
    return poller_.add(socket_.get(), interest_, *this);
}

void provider_client::drop(const char *why)
{
    if (is_dropped())
        return;
    if (why != nullptr)
        log_message(1, "%s: Closing the connection of %s:%u: %s\n", __func__, address(), port(), why);
    poller_.remove(socket_.get());
    socket_.reset();
    output_.clear();
    to_hear_.clear();
}

void provider_client::add_look(uint32_t index, uint8_t bits)
{
    if (index >= looks_.size()) {
        looks_.resize(std::max<size_t>(index + 1, 2 * looks_.size()));
        to_hear_.reserve(looks_.size());
    }
    looks_[index] |= bits;
}

void provider_client::remove_look(uint32_t index, uint8_t bits)
{
    if (index < looks_.size())
        looks_[index] &= static_cast<uint8_t>(~bits);
}

void provider_client::forget(uint32_t index)
{
    if (index >= looks_.size())
        return;
    if (looks_[index] & (must_hear_value | must_hear_everything))
        std::erase(to_hear_, index);
    looks_[index] = 0;
}

void provider_client::must_hear(uint32_t index, look what)
{
    if (is_dropped() || index >= looks_.size())
        return;
    if (!(looks_[index] & (must_hear_value | must_hear_everything)))
        to_hear_.push_back(index);
    looks_[index] |= what;
}

void provider_client::send(const message_ref &message)
{
    if (is_dropped())
        return;
    if (output_.bytes() + message.bytes().size() > max_client_output) {
        drop("it does not read what it asked for");
        return;
    }
    output_.push(message);
    if (!blocked_ && output_.count() > many_messages)
        flush();
}

void provider_client::flush()
{
    if (is_dropped())
        return;
    const auto outcome = blocked_ ? output_queue::outcome::blocked : output_.write_to(socket_.get());
    if (outcome == output_queue::outcome::broken) {
        drop(nullptr);
        return;
    }
    blocked_ = outcome == output_queue::outcome::blocked;
    update_interest();     // also of a blocked client: more may wait than before
}

void provider_client::update_interest()
{
    const uint32_t wanted = (output_.bytes() < enough_output ? EPOLLIN : 0u) | (blocked_ ? EPOLLOUT : 0u);
    if (wanted == interest_)
        return;
    interest_ = wanted;
    poller_.change(socket_.get(), wanted, *this);
}

void provider_client::on_ready(uint32_t events)
{
    try {
        if (!is_dropped() && (events & EPOLLOUT)) {
            const size_t before = output_.bytes();
            blocked_ = false;
            flush();
            if (output_.bytes() < before) {      // a slow reader is alive
                last_life_ = now_;
                asked_for_life_ = never;
            }
        }
        if (!is_dropped() && (events & (EPOLLIN | EPOLLHUP | EPOLLERR)))
            receive();
    } catch (const std::exception &) {
        drop("out of memory");
    }
}

void provider_client::receive()
{
    uint8_t buffer[8192];
    const ssize_t got = recv(socket_.get(), buffer, sizeof(buffer), MSG_DONTWAIT);
    if (got > 0) {
        last_life_ = now_;
        asked_for_life_ = never;
        consume({buffer, static_cast<size_t>(got)});
    } else if (got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)) {
        log_message(4, "%s: %s:%u has closed its connection\n", __func__, address(), port());
        drop(nullptr);
    }
}

void provider_client::consume(std::span<const uint8_t> bytes)
{
    while (!bytes.empty() && !is_dropped()) {
        s101::event what;
        bytes = bytes.subspan(decoder_.feed(bytes, what));
        switch (what) {
        case s101::event::message:
            owner_.on_message(*this, decoder_.message());
            break;
        case s101::event::keep_alive_request:
            owner_.on_keep_alive_request(*this);
            break;
        case s101::event::too_long:
            drop("its message is too long");
            break;
        default:
            break;
        }
    }
    decoder_.trim();
}

void provider_client::check_life(int64_t silence_ms, const message_ref &request)
{
    const int64_t half = silence_ms / 2;
    if (asked_for_life_ != never && now_ - asked_for_life_ >= half) {
        drop("it is silent");
    } else if (asked_for_life_ == never && now_ - last_life_ >= half) {
        asked_for_life_ = now_;
        send(request);
    }
}

}  // namespace zel::ember
