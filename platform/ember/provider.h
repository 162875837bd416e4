// A provider session: it listens, answers consumers, and tells those who look of every change.
#pragma once

#include "provider_client.h"
#include "tree.h"

namespace zel::ember {

constexpr size_t max_clients = 256;
constexpr int64_t provider_silence_ms = 20000;

class provider final : public zel_ember_session, private client_owner {
public:
    // Null on failure, which is logged. May throw std::bad_alloc.
    static std::unique_ptr<provider> create(const zel_ember_session_config_t &config, clock_function clock = monotonic_ms);
    ~provider() override;

    uint16_t port() const { return port_; }
    size_t client_count() const { return clients_.size(); }
    bool owns(const element *e) const { return tree_.owns(e); }

    // Take over a connection that does not block.
    void admit(unique_fd socket, const sockaddr_storage &address);
    // Null on failure, which is logged. May throw std::bad_alloc.
    element *add(std::unique_ptr<element> draft, element *parent, int32_t number);
    void remove(element &e);
    void set_integer(element &parameter, int64_t value);
    void set_text(element &parameter, std::string_view value);       // may throw std::bad_alloc

private:
    friend class request_reader;

    // Accepts connections; stops for a while when there are no descriptors left.
    struct listener final : ready_target {
        explicit listener(provider &session) : owner(session) {}
        void on_ready(uint32_t events) override { owner.accept_clients(events); }
        provider &owner;
        unique_fd socket;
        bool paused = false;
    };

    provider(int64_t silence_ms, clock_function clock);

    bool listen_at(const char *address, uint16_t port);
    void accept_clients(uint32_t events);
    void pause_listening(bool pause);

    void on_message(provider_client &from, std::span<const uint8_t> message) override;
    void on_keep_alive_request(provider_client &from) override { from.send(keep_alive_response_); }
    void run_due() override;
    void last_words() override;
    void check_clients();
    void catch_up(provider_client &client);

    // Telling clients. None of these fails: what finds no memory is told later.
    template <typename write> message_ref encode(write &&message);
    static bool hears_of(const provider_client &client, const element &e);
    void changed(element &parameter);
    void tell_all(element &parameter, provider_client *in_any_case);
    void tell_value(provider_client &client, element &parameter) noexcept;
    void tell_everything(provider_client &client, const element &e, message_ref &shared) noexcept;
    void tell_gone(provider_client &client, element &e);
    void forget(const element &e);
    void soon();

    message_pool pool_;           // outlives every message
    ber::writer writer_;
    message_ref keep_alive_request_, keep_alive_response_;
    tree tree_{this};
    listener listener_{*this};
    std::vector<std::unique_ptr<provider_client>> clients_;
    const int64_t silence_ms_;
    int64_t next_check_ = 0;
    uint16_t port_ = 0;
    uint64_t being_set_ = 0;      // serial of the parameter whose callback is running; who looks is told afterwards
};

template <typename write> message_ref provider::encode(write &&message)
{
    writer_.clear();
    message(writer_);
    message_ref encoded(pool_.take());
    s101::append_message(encoded.bytes(), writer_.message());
    return encoded;
}

}  // namespace zel::ember
