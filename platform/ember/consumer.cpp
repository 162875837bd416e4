// A consumer's session and its link: connecting, keeping alive, connecting again.

#include "consumer.h"

#include <zel_debug.h>

#include <algorithm>

namespace zel::ember {

namespace {

// A sign of life is asked for this often; devices exist that drop a consumer that says nothing for 15 seconds.
int64_t keep_alive_period(int64_t silence_ms)
{
    return std::clamp<int64_t>(silence_ms / 10, 50, 5000);
}

// After this much silence a second connection is tried beside the first.
int64_t doubtful_silence(int64_t silence_ms)
{
    return std::max<int64_t>(silence_ms / 5, 2 * keep_alive_period(silence_ms));
}

}  // namespace

consumer::consumer(const zel_ember_session_config_t &config, int64_t silence_ms, clock_function clock)
    : zel_ember_session(role::consumer, clock), user_data_(config.user_data), connect_cb_(config.connect_cb),
      silence_ms_(silence_ms)
{
    retired_.reserve(4);
    sets_.reserve(max_sets);
}

consumer::~consumer() = default;

std::unique_ptr<consumer> consumer::create(const zel_ember_session_config_t &config, clock_function clock)
{
    const int64_t silence = config.timeout_s != nullptr && *config.timeout_s > 0 ? int64_t{*config.timeout_s} * 1000
                                                                                  : consumer_silence_ms;
    std::unique_ptr<consumer> made(new consumer(config, silence, clock));
    if (!split_address(config.provider_addr, made->address_, made->port_) ||
        !parse_address(made->address_.c_str(), made->port_, made->provider_)) {
        log_message(0, "%s: '%s' is no address with a port\n", __func__, config.provider_addr);
        return nullptr;
    }
    if (!made->poller_.open(poller::bell::without))
        return nullptr;
    made->due_at(made->now());
    return made;
}

void consumer::run_due()
{
    keep_link();
    if (!ending())
        settle_sets();           // they may be over without a connection too
    if (!ending() && is_linked()) {
        check_request();
        settle();
        send_request();
        if (is_linked())
            link_->flush();
    }
    if (probe_ && probe_->is_up())
        probe_->flush();
    // A connection that was given up in this round is dealt with in the next one; nothing else would bring that about.
    if (link_ && !link_->is_open())
        due_at(round_time());
    retired_.clear();
}

void consumer::keep_link()
{
    if (link_ && !link_->is_open())
        lose_link();
    if (ending())
        return;
    if (is_linked()) {
        keep_connected();
    } else if (link_) {
        if (round_time() - link_->started() >= connect_timeout_ms)
            lose_link();
        else
            due_at(link_->started() + connect_timeout_ms);
    }
    if (!link_ && round_time() >= next_attempt_)
        open_link(link_);
    if (!link_)
        due_at(next_attempt_);
}

// A refused attempt leaves `link` empty, and the next one is due after a pause.
void consumer::open_link(std::unique_ptr<consumer_link> &link)
{
    auto fresh = std::make_unique<consumer_link>(static_cast<link_owner &>(*this), poller_, round_time());
    if (fresh->connect(provider_)) {
        link = std::move(fresh);
        due_at(round_time() + connect_timeout_ms);
    } else {
        pause_before_connecting();
    }
}

void consumer::pause_before_connecting()
{
    if (!outage_logged_)
        log_message(2, "%s: No connection to %s:%u; trying on\n", __func__, address_.c_str(), port_);
    outage_logged_ = true;
    next_attempt_ = round_time() + pause_ms_;
    pause_ms_ = std::min(2 * pause_ms_, longest_pause_ms);
}

void consumer::keep_connected()
{
    const int64_t period = keep_alive_period(silence_ms_);
    if (link_->was_heard())
        pause_ms_ = first_pause_ms;
    if (round_time() - link_->last_received() >= silence_ms_) {
        log_message(1, "%s: %s:%u is silent, connecting again\n", __func__, address_.c_str(), port_);
        lose_link();
        return;
    }
    if (round_time() - link_->last_sent() >= period)
        link_->send_frames(s101::keep_alive_request_frame);
    keep_probing();
    if (is_linked())
        due_at(std::min(link_->last_sent() + period, link_->last_received() + silence_ms_));
}

// A link may have come through a fault that the network has recovered from, while the system still waits long before it
// sends what was lost again. A second connection finds out at once; the first to be heard is kept.
void consumer::keep_probing()
{
    const bool doubtful = round_time() - link_->last_received() >= doubtful_silence(silence_ms_);
    if (!doubtful) {
        retire(probe_);
    } else if (probe_ && probe_->is_up() && probe_->was_heard()) {
        adopt_probe();
    } else if (probe_ && !probe_->is_up() && (!probe_->is_open() || round_time() - probe_->started() >= connect_timeout_ms)) {
        retire(probe_);
        pause_before_connecting();
    }
    if (doubtful && is_linked() && !probe_ && round_time() >= next_attempt_)
        open_link(probe_);
    if (doubtful && !probe_)
        due_at(next_attempt_);
}

void consumer::adopt_probe()
{
    log_message(2, "%s: %s:%u answers on a new connection only\n", __func__, address_.c_str(), port_);
    std::unique_ptr<consumer_link> fresh = std::move(probe_);
    lose_link();
    if (ending())
        return;
    link_ = std::move(fresh);
    on_link_up(*link_);
}

void consumer::retire(std::unique_ptr<consumer_link> &link)
{
    if (!link)
        return;
    link->close();
    retired_.push_back(std::move(link));
}

void consumer::lose_link()
{
    const bool was_heard = link_->was_heard();
    retire(link_);
    retire(probe_);
    tree_.clear();
    request_.reset();
    for (const auto &f : followers_)
        f->last = follower::told::nothing;
    if (was_heard)
        pause_ms_ = first_pause_ms;
    pause_before_connecting();
    if (told_connected_)
        fail_sets();
    if (!ending())
        tell_connected(false);
}

void consumer::tell_connected(bool connected)
{
    if (connected == told_connected_)
        return;
    told_connected_ = connected;
    if (connect_cb_ != nullptr)
        connect_cb_(user_data_, connected ? 1 : 0, address_.c_str(), port_);
}

void consumer::on_link_up(consumer_link &link)
{
    // What comes back tells a live provider from a socket that only takes connections.
    link.send_frames(s101::keep_alive_request_frame);
    if (&link != link_.get())
        return;
    outage_logged_ = false;
    tell_connected(true);
}

void consumer::on_link_message(consumer_link &link, std::span<const uint8_t> message)
{
    if (ending() || &link != link_.get())
        return;
    answered_ = saw_element_ = false;
    if (!glow::read_message(message, *this))
        log_message(4, "%s: A message of %s:%u is broken\n", __func__, address_.c_str(), port_);
    // An empty message says that there is nothing at the path that was asked for.
    constexpr size_t longest_empty = 8;
    if (request_ && (answered_ || (!saw_element_ && message.size() <= longest_empty)))
        finish_request(asking::answered);
    if (ending())
        return;
    settle();
    send_request();
}

}  // namespace zel::ember
