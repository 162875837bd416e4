// A provider that says exactly what a test wants, in whatever form some peer would say it.
#pragma once

#include <map>

#include "ember_support.h"

namespace ember_test {

// One element as a message shows it.
struct shown {
    uint32_t number;
    bool is_parameter = false;
    std::string identifier;                                   // empty: not said
    std::function<void(ember::ber::writer &)> value;          // null: not said
    int64_t type = -1;                                        // -1: not said
    std::string entries;
    int online = -1;                                          // -1: not said
    int64_t access = -1;                                      // -1: not said
};

inline shown node(uint32_t number, std::string identifier) { return {number, false, std::move(identifier), nullptr, -1, "", -1}; }
inline shown integer(uint32_t number, std::string identifier, int64_t value)
{
    return {number, true, std::move(identifier), [value](auto &w) { w.integer(value); }, 1, "", -1};
}
inline shown boolean(uint32_t number, std::string identifier, bool value)
{
    return {number, true, std::move(identifier), [value](auto &w) { w.boolean(value); }, 4, "", -1};
}
inline shown string(uint32_t number, std::string identifier, std::string value)
{
    return {number, true, std::move(identifier), [value](auto &w) { w.utf8(value); }, 3, "", -1};
}
inline shown offline(shown e) { e.online = 0; return e; }
inline shown online(shown e) { e.online = 1; return e; }
inline shown writable(shown e) { e.access = ember::glow::access_read_write; return e; }
// An update of a value that says nothing else.
inline shown bare(shown e) { e.identifier.clear(); e.type = -1; return e; }

namespace build {

using path = std::vector<uint32_t>;

inline void contents(ember::ber::writer &w, const shown &e)
{
    namespace field = ember::glow::parameter_field;
    const size_t mark = w.mark();
    if (e.type >= 0)
        ember::glow::put_integer(w, field::type, e.type);
    if (e.online >= 0)
        ember::glow::put_boolean(w, e.is_parameter ? +field::is_online : +ember::glow::node_field::is_online, e.online != 0);
    if (!e.entries.empty())
        ember::glow::put_utf8(w, field::enumeration, e.entries);
    if (e.access >= 0)
        ember::glow::put_integer(w, field::access, e.access);
    if (e.value) {
        const size_t inner = w.mark();
        e.value(w);
        w.header(ember::ber::context(field::value), inner);
    }
    if (!e.identifier.empty())
        ember::glow::put_utf8(w, field::identifier, e.identifier);
    ember::glow::close_contents(w, mark);
}

inline void numbered(ember::ber::writer &w, const shown &e)
{
    const size_t mark = w.mark();
    contents(w, e);
    ember::glow::close_numbered(w, e.is_parameter, e.number, mark);
}

inline bytes finished(ember::ber::writer &w)
{
    ember::glow::close_root(w, 0);
    return copy_of(w.message());
}

// QualifiedNode with its children inside; the root directory for an empty path.
inline bytes directory(const path &where, const std::vector<shown> &children)
{
    ember::ber::writer w;
    for (size_t i = children.size(); i-- > 0;)
        numbered(w, children[i]);
    if (!where.empty()) {
        ember::glow::close_children(w, 0);
        ember::glow::close_qualified(w, false, where, 0);
    }
    return finished(w);
}

// The same from the root down, node inside node.
inline bytes nested_directory(const path &where, const std::vector<shown> &children)
{
    ember::ber::writer w;
    for (size_t i = children.size(); i-- > 0;)
        numbered(w, children[i]);
    for (size_t i = where.size(); i-- > 0;) {
        ember::glow::close_children(w, 0);
        ember::glow::close_numbered(w, false, where[i], 0);
    }
    return finished(w);
}

// One qualified element for each.
inline bytes flat(const path &parent, const std::vector<shown> &elements)
{
    ember::ber::writer w;
    for (size_t i = elements.size(); i-- > 0;) {
        path where = parent;
        where.push_back(elements[i].number);
        const size_t mark = w.mark();
        contents(w, elements[i]);
        ember::glow::close_qualified(w, elements[i].is_parameter, where, mark);
    }
    return finished(w);
}

inline bytes bare_node(const path &where)
{
    ember::ber::writer w;
    ember::glow::close_qualified(w, false, where, 0);
    return finished(w);
}

}  // namespace build

class scripted_provider {
public:
    scripted_provider() { open(); }

    // Listen, after close_down() on the same port as before.
    void open()
    {
        listener_ = zel::unique_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        const int on = 1;
        (void)setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        at.sin_port = htons(port_);
        socklen_t length = sizeof(at);
        EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)), 0);
        EXPECT_EQ(listen(listener_.get(), 8), 0);
        EXPECT_EQ(getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&at), &length), 0);
        port_ = ntohs(at.sin_port);
    }
    // Gone, as after a crash.
    void close_down()
    {
        listener_.reset();
        peer.close();
        older.clear();
    }

    uint16_t port() const { return port_; }
    std::string address() const { return "127.0.0.1:" + std::to_string(port_); }

    // Messages that answer a request for a directory; several are sent in this order.
    std::map<std::string, std::vector<bytes>> answers;
    lines asked;                         // paths, in the order in which they were asked for
    lines sets;                          // parameters with values, as the reader shows them
    std::map<std::string, std::vector<bytes>> set_answers;   // by what stands in `sets`
    bool answers_keep_alive = true;
    size_t keep_alives = 0;
    size_t connections = 0;
    raw_peer peer;                       // the newest connection
    std::vector<raw_peer> older;

    // Everything that is due: call it again and again.
    void serve()
    {
        zel::unique_fd accepted(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (accepted) {
            const int on = 1;
            (void)setsockopt(accepted.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            if (peer)
                older.push_back(std::move(peer));
            peer = raw_peer(std::move(accepted));
            ++connections;
            decoder_ = std::make_unique<ember::s101::decoder>(1 << 20);
        }
        if (!peer)
            return;
        const bytes heard = peer.stream();
        peer.forget();
        std::span<const uint8_t> rest = heard;
        while (!rest.empty()) {
            ember::s101::event what;
            rest = rest.subspan(decoder_->feed(rest, what));
            if (what == ember::s101::event::message)
                answer(decoder_->message());
            else if (what == ember::s101::event::keep_alive_request && ++keep_alives && answers_keep_alive)
                peer.write(peer_frames::keep_alive_response);
        }
    }

private:
    void answer(std::span<const uint8_t> message)
    {
        for (const auto &line : reader::read(message)) {
            if (line.starts_with("parameter ") && line.find(" value=") != line.npos) {
                sets.push_back(line);
                for (const auto &reply : set_answers[line])
                    peer.send(reply);
            }
            if (!line.starts_with("command ") || !line.ends_with(" 32"))
                continue;
            const std::string path = line.substr(8, line.size() - 8 - 3);
            asked.push_back(path);
            for (const auto &reply : answers[path])
                peer.send(reply);
        }
    }

    zel::unique_fd listener_;
    uint16_t port_ = 0;
    std::unique_ptr<ember::s101::decoder> decoder_;
};

}  // namespace ember_test
