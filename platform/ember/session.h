// What a provider and a consumer have in common: one epoll instance that holds their sockets and one timer, and the guard
// that lets callbacks end the session they are called from.
#pragma once

#include <zel_ember.h>

#include <cstdint>
#include <limits>

#include "common/unique_fd.h"

namespace zel::ember {

// Whatever waits for a descriptor. It must stay alive until the round in which it was closed is over.
class ready_target {
public:
    virtual void on_ready(uint32_t events) = 0;

protected:
    ~ready_target() = default;
};

using clock_function = int64_t (*)();   // milliseconds, never going back
int64_t monotonic_ms();

constexpr int64_t never = std::numeric_limits<int64_t>::max();

class poller {
public:
    // With a bell, being woken at once costs less; it is a descriptor more, worth it for a session that changes often.
    enum class bell : uint8_t { without, with };
    bool open(bell wanted);
    int fd() const { return epoll_.get(); }
    bool add(int fd, uint32_t events, ready_target &target);
    void change(int fd, uint32_t events, ready_target &target);
    void remove(int fd);
    // Make the descriptor readable at `time`, or at once if that has come. An earlier time asked for before stands.
    void wake_at(int64_t time, int64_t now);
    // Serve what is ready now, once each.
    void serve();

private:
    struct alarm_clock final : ready_target {
        void on_ready(uint32_t events) override;
        void set(int64_t delay_ms);
        unique_fd timer;
        int64_t at = never;
    };
    // An event counter that is never read is always readable; it is waited for when there is something to do at once.
    struct ready_bell final : ready_target {
        void on_ready(uint32_t) override {}
        unique_fd counter;
    };

    unique_fd epoll_;
    alarm_clock alarm_;
    ready_bell bell_;
};

}  // namespace zel::ember

struct zel_ember_session {
public:
    zel_ember_session(const zel_ember_session &) = delete;
    zel_ember_session &operator=(const zel_ember_session &) = delete;
    virtual ~zel_ember_session() = default;

    enum class role : uint8_t { provider, consumer };
    role what() const { return role_; }
    int fd() const { return poller_.fd(); }

    // One round: ready sockets, then what is due. Deletes the session if a callback ended it.
    void process();
    // End the session: at once, or at the end of the round from which it is called.
    static void end(zel_ember_session *session);

protected:
    zel_ember_session(role what, zel::ember::clock_function clock) : role_(what), clock_(clock), round_time_(clock()) {}

    int64_t now() const { return clock_(); }
    const int64_t &round_time() const { return round_time_; }   // when the present round began
    bool ending() const { return ending_; }
    bool in_round() const { return in_round_; }
    // Run run_due() no later than this.
    void due_at(int64_t time);
    virtual void run_due() = 0;      // at the end of every round
    virtual void last_words() {}     // before the end

    zel::ember::poller poller_;

private:
    const role role_;
    const zel::ember::clock_function clock_;
    int64_t round_time_;
    int64_t due_ = zel::ember::never;
    bool in_round_ = false;
    bool ending_ = false;
};
