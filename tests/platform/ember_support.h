// What the tests of Ember+ share: bytes as they are printed in protocol documents, messages as readable lines, a raw peer on
// a socket, and waiting for what is to come instead of sleeping.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <zel_ember.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "glow.h"
#include "s101.h"
#include "session.h"

namespace ember_test {

using bytes = std::vector<uint8_t>;
using lines = std::vector<std::string>;
namespace ember = zel::ember;

inline bytes from_hex(std::string_view text)
{
    bytes out;
    unsigned value = 0, digits = 0;
    for (const char c : text) {
        if (c == ' ' || c == '\n')
            continue;
        value = value * 16 + static_cast<unsigned>(c <= '9' ? c - '0' : c - 'a' + 10);
        if (++digits % 2 == 0) {
            out.push_back(static_cast<uint8_t>(value));
            value = 0;
        }
    }
    return out;
}

inline std::string to_hex(std::span<const uint8_t> from)
{
    std::string out;
    char piece[4];
    for (const uint8_t byte : from) {
        snprintf(piece, sizeof(piece), "%s%02x", out.empty() ? "" : " ", byte);
        out += piece;
    }
    return out;
}

inline bytes copy_of(std::span<const uint8_t> from) { return {from.begin(), from.end()}; }

inline bytes framed(std::span<const uint8_t> message)
{
    bytes out;
    ember::s101::append_message(out, message);
    return out;
}

// Every message that a stream carries.
inline std::vector<bytes> messages_in(std::span<const uint8_t> stream)
{
    std::vector<bytes> out;
    ember::s101::decoder decoder(size_t{8} << 20);
    while (!stream.empty()) {
        ember::s101::event what;
        stream = stream.subspan(decoder.feed(stream, what));
        if (what == ember::s101::event::message)
            out.push_back(copy_of(decoder.message()));
    }
    return out;
}

inline std::string text_of(const ember::glow::path &where)
{
    std::string out;
    for (const uint32_t number : where.view())
        out += (out.empty() ? "" : ".") + std::to_string(number);
    return out.empty() ? "root" : out;
}

inline std::string text_of(const ember::glow::value &value)
{
    switch (value.kind) {
    case ember::glow::value_kind::integer: return std::to_string(value.integer);
    case ember::glow::value_kind::boolean: return value.integer ? "true" : "false";
    case ember::glow::value_kind::text: return "'" + std::string(value.text) + "'";
    case ember::glow::value_kind::octets: return "octets";
    case ember::glow::value_kind::real: return std::to_string(value.real);
    case ember::glow::value_kind::null: return "null";
    default: return "absent";
    }
}

// A message in readable lines: "parameter 1.2 id=status value=true access=3 type=4", "command 1.2 32".
class reader final : public ember::glow::sink {
public:
    static lines read(std::span<const uint8_t> message)
    {
        reader r;
        if (!ember::glow::read_message(message, r))
            r.found_.push_back("broken");
        return r.found_;
    }

private:
    void element_begin(const ember::glow::element &e) override
    {
        std::string line = (e.is_parameter ? "parameter " : "node ") + text_of(e.where);
        const auto &c = e.contents;
        if (c.identifier) line += " id=" + std::string(*c.identifier);
        if (c.description) line += " description=" + std::string(*c.description);
        if (c.current.kind != ember::glow::value_kind::absent) line += " value=" + text_of(c.current);
        if (c.access) line += " access=" + std::to_string(*c.access);
        if (c.enumeration) line += " entries=" + std::string(*c.enumeration);
        if (c.online) line += *c.online ? " online" : " offline";
        if (c.type) line += " type=" + std::to_string(*c.type);
        if (e.has_children) line += " children";
        found_.push_back(line);
    }
    void on_command(const ember::glow::path &where, int64_t number) override
    {
        found_.push_back("command " + text_of(where) + " " + std::to_string(number));
    }

    lines found_;
};

// Messages as peers build them.
namespace build {

inline bytes command(std::initializer_list<uint32_t> where, int64_t number, bool is_parameter = false)
{
    ember::ber::writer w;
    ember::glow::write_command(w, {where.begin(), where.size()}, is_parameter, number);
    return copy_of(w.message());
}

inline bytes get_directory(std::initializer_list<uint32_t> where, bool is_parameter = false)
{
    return command(where, ember::glow::command_get_directory, is_parameter);
}

// QualifiedParameter with a value that `put` writes.
inline bytes set(std::initializer_list<uint32_t> where, const std::function<void(ember::ber::writer &)> &put)
{
    ember::ber::writer w;
    const size_t mark = w.mark();
    put(w);
    w.header(ember::ber::context(ember::glow::parameter_field::value), mark);
    ember::glow::close_contents(w, mark);
    ember::glow::close_qualified(w, true, {where.begin(), where.size()}, mark);
    ember::glow::close_root(w, mark);
    return copy_of(w.message());
}
inline bytes set_integer(std::initializer_list<uint32_t> where, int64_t value)
{
    return set(where, [&](auto &w) { w.integer(value); });
}
inline bytes set_boolean(std::initializer_list<uint32_t> where, bool value)
{
    return set(where, [&](auto &w) { w.boolean(value); });
}
inline bytes set_text(std::initializer_list<uint32_t> where, std::string_view value)
{
    return set(where, [&](auto &w) { w.utf8(value); });
}

}  // namespace build

// A clock that tests move.
inline int64_t fake_now = 1000;
inline int64_t fake_clock() { return fake_now; }

// Sessions that are served while a test waits. One that its own callback ends is to be taken out by the test.
class loop {
public:
    void add(zel_ember_session_t *session) { sessions_.push_back(session); }
    void remove(zel_ember_session_t *session) { std::erase(sessions_, session); }
    // One round with whatever is ready, waiting for it a little.
    void turn(int wait_ms = 20)
    {
        std::vector<pollfd> fds;
        for (auto *session : sessions_)
            fds.push_back({session->fd(), POLLIN, 0});
        (void)poll(fds.data(), fds.size(), wait_ms);
        const auto served = sessions_;
        for (auto *session : served)
            if (std::find(sessions_.begin(), sessions_.end(), session) != sessions_.end())
                zel_ember_process_fds(session, nullptr);
    }
    // Until `done`, or for so long that something must be wrong.
    [[nodiscard]] bool until(const std::function<bool()> &done, int limit_ms = 20000)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
        while (!done()) {
            if (std::chrono::steady_clock::now() > end)
                return false;
            turn();
        }
        return true;
    }

private:
    std::vector<zel_ember_session_t *> sessions_;
};

// A peer that is nothing but a socket.
class raw_peer {
public:
    raw_peer() = default;
    explicit raw_peer(zel::unique_fd socket) : socket_(std::move(socket)) {}

    static raw_peer connected_to(uint16_t port, int receive_buffer = 0)
    {
        zel::unique_fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (receive_buffer > 0)
            (void)setsockopt(socket.get(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof(receive_buffer));
        const int on = 1;
        (void)setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(port);
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (connect(socket.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)) != 0)
            ADD_FAILURE() << "no connection to port " << port;
        return raw_peer(std::move(socket));
    }

    int fd() const { return socket_.get(); }
    explicit operator bool() const { return static_cast<bool>(socket_); }
    void close() { socket_.reset(); }
    bool is_closed() { take(); return closed_; }

    void write(std::span<const uint8_t> data)
    {
        (void)!::send(socket_.get(), data.data(), data.size(), MSG_NOSIGNAL);
    }
    void send(std::span<const uint8_t> message) { write(framed(message)); }

    // All bytes that have arrived so far.
    const bytes &stream() { take(); return stream_; }
    std::vector<bytes> messages() { take(); return messages_in(stream_); }
    lines said()
    {
        lines out;
        for (const auto &message : messages())
            for (auto &line : reader::read(message))
                out.push_back(std::move(line));
        return out;
    }
    void forget() { take(); stream_.clear(); }

private:
    void take()
    {
        uint8_t buffer[65536];
        for (;;) {
            const ssize_t got = socket_ ? recv(socket_.get(), buffer, sizeof(buffer), MSG_DONTWAIT) : 0;
            if (got > 0) {
                stream_.insert(stream_.end(), buffer, buffer + got);
            } else {
                closed_ |= got == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
                return;
            }
        }
    }

    zel::unique_fd socket_;
    bytes stream_;
    bool closed_ = false;
};

// The contents of every frame in a stream, checksum included: taken apart here, not by what is tested.
inline std::vector<bytes> frames_in(std::span<const uint8_t> stream)
{
    std::vector<bytes> out;
    for (size_t i = 0; i < stream.size(); ++i) {
        EXPECT_EQ(stream[i], 0xFE);
        bytes content;
        while (++i < stream.size() && stream[i] != 0xFF)
            content.push_back(stream[i] == 0xFD ? stream[++i] ^ 0x20 : stream[i]);
        out.push_back(content);
    }
    return out;
}

// Frames as peers emit them.
namespace peer_frames {
inline const bytes root_directory_sofie =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 0b 6b 09 a0 07 62 05 a0 03 02 01 20 b4 ec ff");
inline const bytes root_directory_nep =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 10 6b 0e a0 0c 62 0a a0 03 02 01 20 a1 03 02 01 fd df 94 8f ff");
inline const bytes root_reply =
    from_hex("fe 00 0e 00 01 c0 01 02 32 02 60 17 6b 15 a0 13 63 11 a0 03 02 01 01 a1 0a 31 08 a0 06 0c 04 75 6e 69 74 d9 70 ff");
inline const bytes nested_directory =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 2a 6b 28 a0 26 63 24 a0 03 02 01 01 a2 1d 64 1b a0 19 63 17 a0 03 02 01 01 a2 10 "
             "64 0e a0 0c 62 0a a0 03 02 01 20 a1 03 02 01 fd df 50 9e ff");
inline const bytes node_reply =
    from_hex("fe 00 0e 00 01 c0 01 02 32 02 60 24 6b 22 a0 20 6a 1e a0 03 0d 01 01 a2 17 64 15 a0 13 63 11 a0 03 02 01 01 a1 0a "
             "31 08 a0 06 0c 04 67 70 69 6f b6 38 ff");
inline const bytes childless_reply =
    from_hex("fe 00 0e 00 01 c0 01 02 32 02 60 0d 6b 0b a0 09 6a 07 a0 05 0d 03 01 01 06 53 29 ff");
inline const bytes enumeration_reply =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 43 6b 41 a0 3f 69 3d a0 07 0d 05 01 01 01 01 01 a1 32 31 30 a0 06 0c 04 74 79 70 "
             "65 a2 03 02 01 00 a5 03 02 01 03 a7 17 0c 15 64 69 73 61 62 6c 65 64 0a 69 6e 70 75 74 0a 6f 75 74 70 75 74 ad 03 "
             "02 01 06 de 52 ff");
inline const bytes directory_with_value =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 50 6b 4e a0 4c 69 4a a0 07 0d 05 01 01 01 01 01 a1 32 31 30 a0 06 0c 04 74 79 70 "
             "65 a2 03 02 01 00 a5 03 02 01 03 a7 17 0c 15 64 69 73 61 62 6c 65 64 0a 69 6e 70 75 74 0a 6f 75 74 70 75 74 ad 03 "
             "02 01 06 a2 0b 64 09 a0 07 62 05 a0 03 02 01 20 5f b0 ff");
inline const bytes nested_set =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 4d 6b 4b a0 49 63 47 a0 03 02 01 01 a2 40 64 3e a0 3c 63 3a a0 03 02 01 01 a2 33 "
             "64 31 a0 2f 63 2d a0 03 02 01 01 a2 26 64 24 a0 22 63 20 a0 03 02 01 01 a2 19 64 17 a0 15 61 13 a0 03 02 01 07 a1 "
             "0c 31 0a a2 03 01 01 00 ad 03 02 01 04 c1 01 ff");
inline const bytes whole_set =
    from_hex("fe 00 0e 00 01 c0 01 02 1f 02 60 2c 6b 2a a0 28 69 26 a0 07 0d 05 01 01 01 01 07 a1 1b 31 19 a0 08 0c 06 73 74 61 "
             "74 75 73 a2 03 01 01 00 a5 03 02 01 03 ad 03 02 01 04 03 fd df ff");
inline const bytes notice_boolean =
    from_hex("fe 00 0e 00 01 c0 01 02 32 02 60 18 6b 16 a0 14 69 12 a0 07 0d 05 01 01 01 01 07 a1 07 31 05 a2 03 01 01 00 1c b8 "
             "ff");
inline const bytes notice_integer =
    from_hex("fe 00 0e 00 01 c0 01 02 32 02 60 18 6b 16 a0 14 69 12 a0 07 0d 05 01 01 01 01 01 a1 07 31 05 a2 03 02 01 02 b8 9c "
             "ff");
inline const bytes indefinite_first =
    from_hex("fe 00 0e 00 01 80 01 02 32 02 60 80 6b 80 a0 80 6a 80 a0 04 0d 02 01 01 a1 80 31 80 a0 0e 0c 0c 75 73 65 72 20 62 "
             "75 74 74 6f 6e 73 00 00 00 00 00 00 00 00 31 60 ff");
inline const bytes indefinite_second =
    from_hex("fe 00 0e 00 01 40 01 02 32 02 a0 80 69 80 a0 05 0d 03 01 82 2c a1 80 31 80 a0 06 0c 04 74 79 70 65 a2 03 02 01 01 "
             "a5 03 02 01 03 a7 17 0c 15 64 69 73 61 62 6c 65 64 0a 69 6e 70 75 74 0a 6f 75 74 70 75 74 00 00 00 00 00 00 00 00 "
             "00 00 00 00 a1 c1 ff");
inline const bytes keep_alive_request = from_hex("fe 00 0e 01 01 94 e4 ff");
inline const bytes keep_alive_response = from_hex("fe 00 0e 02 01 fd dc ce ff");

inline const std::vector<bytes> of_definite_lengths{root_directory_sofie, root_directory_nep, root_reply, nested_directory,
                                                    node_reply, childless_reply, enumeration_reply, directory_with_value,
                                                    nested_set, whole_set, notice_boolean, notice_integer};
inline const std::vector<bytes> others{indefinite_first, indefinite_second, keep_alive_request, keep_alive_response};
}  // namespace peer_frames

inline bytes operator+(bytes left, const bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline lines said_in(const bytes &stream)
{
    lines out;
    for (const auto &message : messages_in(stream))
        for (auto &line : reader::read(message))
            out.push_back(std::move(line));
    return out;
}

}  // namespace ember_test
