// One connection of a consumer, from the attempt to connect to the close.
#pragma once

#include "address.h"
#include "s101.h"
#include "session.h"

namespace zel::ember {

class consumer_link;

class link_owner {
public:
    virtual void on_link_up(consumer_link &link) = 0;
    virtual void on_link_message(consumer_link &link, std::span<const uint8_t> message) = 0;

protected:
    ~link_owner() = default;
};

class consumer_link final : public ready_target {
public:
    // `now` is the time of the session's present round.
    consumer_link(link_owner &owner, poller &waits, const int64_t &now)
        : owner_(owner), poller_(waits), now_(now), started_(now)
    {
    }
    ~consumer_link() { close(); }

    // Begin to connect; false if that is impossible at once. on_link_up() follows, or the link is closed.
    bool connect(const socket_address &to);
    void close();
    void on_ready(uint32_t events) override;

    bool is_open() const { return static_cast<bool>(socket_); }
    bool is_up() const { return is_open() && up_; }
    bool was_heard() const { return heard_; }        // at least one byte came
    int64_t started() const { return started_; }
    int64_t last_received() const { return last_received_; }
    int64_t last_sent() const { return last_sent_; }

    void send_frames(std::span<const uint8_t> frames);   // may throw std::bad_alloc
    void send_message(std::span<const uint8_t> message);
    // Whether a message of this size can be sent and leaves room for signs of life. If not, the session is served when some of
    // what waits has gone out.
    bool has_room_for(size_t message_size);
    void flush();

private:
    static constexpr size_t max_message = size_t{4} << 20;
    static constexpr size_t max_output = size_t{64} << 10;   // requests are few; answers to a peer that never reads are not

    void serve(uint32_t events);
    void finish_connecting();
    void wait_for(uint32_t events);
    void receive();
    void consume(std::span<const uint8_t> bytes);

    link_owner &owner_;
    poller &poller_;
    const int64_t &now_;
    unique_fd socket_;
    s101::decoder decoder_{max_message};
    std::vector<uint8_t> output_;
    bool up_ = false;
    bool heard_ = false;
    bool blocked_ = false;
    uint32_t interest_ = 0;          // events that are waited for
    const int64_t started_;
    int64_t last_received_ = 0;
    int64_t last_sent_ = 0;
};

}  // namespace zel::ember
