// One consumer connected to a provider: its socket, what it looks at, and what it has still to be told. It is bounded in
// every direction; a client that exceeds a bound is dropped alone.
#pragma once

#include <netinet/in.h>

#include <string>

#include "output_queue.h"
#include "s101.h"
#include "session.h"

namespace zel::ember {

constexpr size_t max_request = size_t{256} << 10;          // bytes of one message from a consumer
constexpr size_t max_client_output = size_t{2} << 20;      // waiting for one consumer
constexpr size_t enough_output = size_t{64} << 10;         // no more requests are read while this much waits

// What a client knows of an element, by the element's index. To look at a node is to be told of its children.
enum look : uint8_t {
    looks = 1,                // asked for its directory, or subscribed
    looks_away = 2,           // does not want this child of a node that it looks at
    must_hear_value = 4,      // to be told when its socket takes more
    must_hear_everything = 8
};

class provider_client;

class client_owner {
public:
    virtual void on_message(provider_client &from, std::span<const uint8_t> message) = 0;
    virtual void on_keep_alive_request(provider_client &from) = 0;

protected:
    ~client_owner() = default;
};

class provider_client final : public ready_target {
public:
    // The socket is connected and does not block; `now` is the time of the session's present round.
    provider_client(client_owner &owner, poller &waits, unique_fd socket, const sockaddr_storage &address, const int64_t &now);
    ~provider_client();

    bool start();
    void on_ready(uint32_t events) override;
    void drop(const char *why);       // closes; the object lives on until its owner removes it
    bool is_dropped() const { return !socket_; }
    bool is_blocked() const { return blocked_; }

    const char *address() const { return address_.c_str(); }
    uint16_t port() const { return port_; }

    uint8_t looks_at(uint32_t index) const { return index < looks_.size() ? looks_[index] : 0; }
    void add_look(uint32_t index, uint8_t bits);               // may throw std::bad_alloc
    void remove_look(uint32_t index, uint8_t bits);
    void forget(uint32_t index);                               // the element is gone
    // Tell of the element later. The index was given to add_look() before (with no bits, if need be): cannot fail.
    void must_hear(uint32_t index, look what);
    bool has_to_hear() const { return !to_hear_.empty(); }
    // What was noted by must_hear(), oldest first; `tell` is called with (index, bits) until the socket takes no more.
    template <typename teller> void hear(teller &&tell);

    void send(const message_ref &message);                     // may throw std::bad_alloc
    void flush();

    // Ask for a sign of life after half of `silence_ms`, give up after the other half.
    void check_life(int64_t silence_ms, const message_ref &request);

private:
    void receive();
    void consume(std::span<const uint8_t> bytes);
    void update_interest();

    client_owner &owner_;
    poller &poller_;
    unique_fd socket_;
    std::string address_;
    uint16_t port_ = 0;
    s101::decoder decoder_{max_request};
    output_queue output_;
    std::vector<uint8_t> looks_;
    std::vector<uint32_t> to_hear_;    // each index at most once; has room for every index in looks_
    bool blocked_ = false;
    uint32_t interest_ = 0;             // events that are waited for
    const int64_t &now_;
    int64_t last_life_;
    int64_t asked_for_life_ = never;
};

template <typename teller> void provider_client::hear(teller &&tell)
{
    while (!to_hear_.empty() && !blocked_) {
        const uint32_t index = to_hear_.front();
        tell(index, looks_[index]);      // what throws is tried again later
        if (is_dropped())
            return;
        remove_look(index, must_hear_value | must_hear_everything);
        to_hear_.erase(to_hear_.begin());
    }
}

}  // namespace zel::ember
