// A provider with a tree like a unit's, and what its callbacks were told.
#pragma once

#include "ember_support.h"
#include "provider.h"

namespace ember_test {

inline constexpr const char *type_entries = "disabled\ninput\noutput";

// unit(1) / gpio(1) / physical(1), virtual(2) ... vgpio sources(6); physical / "gpio 1"(1) / type(1) ... status(7)
class provider_fixture : public testing::Test {
protected:
    provider_fixture()
    {
        zel_ember_session_config_t config{};
        fake_now = 1000;
        session_ = ember::provider::create(config, fake_clock).release();
        sessions_.add(session_);
        build_tree();
    }
    ~provider_fixture() override { zel_ember_session_term(session_); }

    void build_tree()
    {
        unit_ = node("unit", nullptr);
        gpio_ = node("gpio", unit_);
        physical_ = node("physical", gpio_);
        for (const char *name : {"virtual", "user buttons", "handlers", "triggers"})
            (void)node(name, gpio_);
        sources_ = node("vgpio sources", gpio_);
        port_ = node("gpio 1", physical_);
        type_ = zel_ember_add_enum_param(session_, "type", nullptr, 0, 3, 0, type_entries, this, on_set, port_);
        functions_ = zel_ember_add_string_param(session_, "input functions", nullptr, 0, 3, "Record", this, on_set, port_);
        for (const char *name : {"output triggers", "active triggers", "input mode", "vgpio source"})
            (void)zel_ember_add_string_param(session_, name, nullptr, 0, 1, "", nullptr, nullptr, port_);
        status_ = zel_ember_add_boolean_param(session_, "status", nullptr, 0, 3, 1, this, on_set, port_);
    }

    zel_ember_element_t *node(const char *name, zel_ember_element_t *parent)
    {
        return zel_ember_add_node(session_, name, nullptr, 0, parent);
    }
    zel_ember_element_t *text(const char *name, zel_ember_element_t *parent, const char *value = "")
    {
        return zel_ember_add_string_param(session_, name, nullptr, 0, 1, value, nullptr, nullptr, parent);
    }
    int set_integer(zel_ember_element_t *parameter, int64_t value)
    {
        return zel_ember_set_param(session_, nullptr, 0, 0, parameter, &value, sizeof(value), nullptr, nullptr);
    }
    int set_text(zel_ember_element_t *parameter, const std::string &value)
    {
        return zel_ember_set_param(session_, nullptr, 0, 0, parameter, value.c_str(), value.size() + 1, nullptr, nullptr);
    }
    uint16_t port() const { return zel_ember_get_port(session_); }
    raw_peer connected(int receive_buffer = 0) { return raw_peer::connected_to(port(), receive_buffer); }
    ember::provider &provider() { return *static_cast<ember::provider *>(session_); }

    // The provider has dealt with everything the peer has sent so far: it answers a keep-alive sent after it.
    void settle(raw_peer &peer)
    {
        const size_t before = responses(peer);
        peer.write(peer_frames::keep_alive_request);
        EXPECT_TRUE(sessions_.until([&] { return responses(peer) > before || peer.is_closed(); }));
    }
    static size_t responses(raw_peer &peer)
    {
        const auto &stream = peer.stream();
        const auto &response = peer_frames::keep_alive_response;
        size_t count = 0;
        for (auto at = stream.begin();; ++at, ++count) {
            at = std::search(at, stream.end(), response.begin(), response.end());
            if (at == stream.end())
                break;
        }
        return count;
    }
    // What the peer hears when it says this.
    lines answer(raw_peer &peer, const bytes &message)
    {
        peer.forget();
        peer.send(message);
        settle(peer);
        return peer.said();
    }
    lines heard(raw_peer &peer)
    {
        settle(peer);
        auto out = peer.said();
        peer.forget();
        return out;
    }
    void look(raw_peer &peer, std::initializer_list<uint32_t> where)
    {
        (void)answer(peer, build::get_directory(where));
        peer.forget();
    }

    static int on_set(void *user_data, const char *address, uint16_t port, zel_ember_element_t *parameter, const void *value)
    {
        auto *self = static_cast<provider_fixture *>(user_data);
        const std::string given = parameter->is_text() ? std::string(static_cast<const char *>(value))
                                                       : std::to_string(*static_cast<const int64_t *>(value));
        self->calls_.push_back(parameter->identifier + "=" + given);
        self->caller_ = std::string(address) + (port != 0 ? "" : " without port");
        return self->reaction_ ? self->reaction_(parameter) : 0;
    }

    loop sessions_;
    zel_ember_session_t *session_ = nullptr;
    zel_ember_element_t *unit_, *gpio_, *physical_, *sources_, *port_, *type_, *functions_, *status_;
    lines calls_;
    std::string caller_;
    std::function<int(zel_ember_element_t *)> reaction_;
};

}  // namespace ember_test
