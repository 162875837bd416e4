#include "client.h"

#include <zel_debug.h>

#include <cerrno>
#include <cstring>

using namespace zel::ipc;

namespace {

constexpr uint64_t timer_tag = 0, watch_tag = 1, link_tag = 2;
// Twice what a unit with full tables tells at once; a whole dump sent from the link event finds its own room beside it.
constexpr queue_limits early_limits = {4096, 4u << 20};
constexpr queue_limits waiting_limits = {4096, 4u << 20};
constexpr int messages_per_turn = 256;   // a talkative server leaves the host's loop its turn

}  // namespace

zel_ipc_client::zel_ipc_client(const char *server, const char *name, zel_ipc_client_cb_t callback, void *user_data)
    : place_(server), name_(name), callback_(callback), user_data_(user_data), early_(early_limits), waiting_(waiting_limits)
{
}

bool zel_ipc_client::open()
{
    if (!sources_.open(timer_tag)) {
        log_message(0, "%s: Failed to make the descriptors for %s: %s\n", __func__, place_.server(), std::strerror(errno));
        return false;
    }
    if (!place_.make_folder()) {
        log_message(1, "%s: Failed to make folder %s: %s\n", __func__, place_.folder(), std::strerror(errno));
    }
    sources_.arm_timer(0);   // the first attempt belongs to process(), like every other
    return true;
}

bool zel_ipc_client::process()
{
    if (at_work_) return true;
    at_work_ = true;
    epoll_event room[3];
    for (const epoll_event &event : sources_.due(room)) {
        serve(event);
        if (ended_) break;
    }
    at_work_ = false;
    return !ended_;
}

bool zel_ipc_client::end()
{
    if (ended_) return false;
    ended_ = true;
    if (state_ == link_state::up && !deaf_) write_what_waits();
    close_link();
    watch_.close(sources_);
    sources_.close();
    return !at_work_;
}

void zel_ipc_client::serve(const epoll_event &event)
{
    switch (event.data.u64) {
    case timer_tag: attempt(); break;
    case watch_tag: serve_watch(); break;
    default: serve_link(event.events); break;
    }
}

void zel_ipc_client::serve_watch()
{
    if (!watch_.saw(place_.server()) || hurried_ || state_ != link_state::down) return;
    hurried_ = true;
    reconnection_.hurry();
    // Not at once: the server still has to listen, and one that comes and goes is not to keep this process busy.
    attempt_later();
}

void zel_ipc_client::attempt()
{
    sources_.stop_timer();
    hurried_ = false;
    if (link_) return;
    // The watch comes first: a server that appears in between is then seen by one of the two.
    watch_.start(place_.folder(), sources_, watch_tag);
    link_ = place_.connect();
    if (!link_) {
        complain("not reached", errno);
        attempt_later();
    } else if (!greet()) {
        complain("not greeted", errno);
        close_link();
        attempt_later();
    }
}

bool zel_ipc_client::greet()
{
    const greeting_record hello = make_greeting(name_);
    if (!sources_.add(link_.get(), EPOLLIN, link_tag)) return false;
    if (send_packet(link_.get(), greeting_type, &hello, sizeof hello) != sending::done) return false;
    state_ = link_state::greeting;
    deaf_ = wants_room_ = told_reserved_ = false;
    watch_.stop();
    return true;
}

void zel_ipc_client::attempt_later()
{
    sources_.arm_timer(reconnection_.next_delay_ms());
}

void zel_ipc_client::complain(const char *what, int error)
{
    if (complained_) return;
    complained_ = true;
    const int level = error == ENOENT || error == ECONNREFUSED ? 2 : 1;   // not started yet, which is no fault
    log_message(level, "%s: Server %s %s (%s); %s tries again until it is\n", __func__, place_.server(), what,
                std::strerror(error), name_.c_str());
}

void zel_ipc_client::serve_link(uint32_t events)
{
    if (!link_) return;
    if ((events & EPOLLOUT) != 0) write_what_waits();
    for (int count = 0; count < messages_per_turn; ++count) {
        if (receive_one() == reading::stopped) return;
    }
}

zel_ipc_client::reading zel_ipc_client::receive_one()
{
    switch (receive_packet(link_.get(), received_)) {
    case receipt::nothing_yet: return reading::stopped;
    case receipt::closed: link_lost(); return reading::stopped;
    case receipt::malformed:
        log_message(1, "%s: Server %s sent a message that is too long\n", __func__, place_.server());
        link_lost();
        return reading::stopped;
    case receipt::message: break;
    }
    if (state_ == link_state::greeting) return accept_greeting();
    deliver();
    return ended_ ? reading::stopped : reading::goes_on;
}

zel_ipc_client::reading zel_ipc_client::accept_greeting()
{
    if (!read_greeting(received_)) {
        log_message(1, "%s: Server %s does not speak this protocol (version %d)\n", __func__, place_.server(), protocol_version);
        complained_ = true;
        link_lost();
        return reading::stopped;
    }
    link_made();
    return ended_ ? reading::stopped : reading::goes_on;
}

void zel_ipc_client::deliver()
{
    if (received_.type >= first_message_type) {
        call_back(received_.type, received_.payload, received_.length);
    } else if (!told_reserved_) {
        told_reserved_ = true;
        log_message(1, "%s: Ignoring messages of type %d from server %s: the type is a link event's\n", __func__,
                    received_.type, place_.server());
    }
}

void zel_ipc_client::link_made()
{
    state_ = link_state::up;
    was_up_ = true;
    complained_ = told_full_ = false;
    reconnection_.link_made(now_ms());
    log_message(4, "%s: Server %s reached by %s\n", __func__, place_.server(), name_.c_str());
    write_what_waits();
    call_back(ZEL_IPC_LINK_MADE, place_.server(), static_cast<uint32_t>(std::strlen(place_.server()) + 1));
}

void zel_ipc_client::link_lost()
{
    const bool was_up = state_ == link_state::up;
    close_link();
    waiting_.clear();
    if (was_up) reconnection_.link_lost(now_ms());
    attempt_later();
    if (!was_up) {
        complain("closed the link before greeting", ECONNRESET);
        return;
    }
    watch_.start(place_.folder(), sources_, watch_tag);
    log_message(1, "%s: Server %s lost by %s; connecting again\n", __func__, place_.server(), name_.c_str());
    call_back(ZEL_IPC_LINK_LOST, place_.server(), static_cast<uint32_t>(std::strlen(place_.server()) + 1));
}

// The shut-down ends the link for the server also where a child of this process still holds a copy of the socket.
void zel_ipc_client::close_link()
{
    state_ = link_state::down;
    if (link_) (void)shutdown(link_.get(), SHUT_RDWR);
    sources_.remove_and_close(link_);
}

// The client may have been ended when this returns; it is still there, process() sees to that.
void zel_ipc_client::call_back(uint8_t type, const void *payload, uint32_t length)
{
    callback_(this, type, payload, length);
}

int zel_ipc_client::send(uint8_t type, const void *payload, uint32_t length)
{
    if (type < first_message_type || length > ZEL_IPC_MAX_PAYLOAD || (payload == nullptr && length != 0)) {
        log_message(0, "%s: Refused message of type %d, %u bytes, to server %s\n", __func__, type, length, place_.server());
        return -1;
    }
    if (ended_) return -1;
    if (state_ == link_state::up) return deaf_ ? -1 : send_or_keep(type, payload, length);
    return was_up_ ? -1 : keep(early_, type, payload, length);
}

int zel_ipc_client::send_or_keep(uint8_t type, const void *payload, uint32_t length)
{
    if (early_.empty() && waiting_.empty()) {
        const sending result = send_packet(link_.get(), type, payload, length);
        if (result == sending::done) return 0;
        if (result == sending::failed) {
            give_up_writing();
            return -1;
        }
    }
    const int result = keep(waiting_, type, payload, length);
    want_room(!early_.empty() || !waiting_.empty());
    return result;
}

int zel_ipc_client::keep(message_queue &queue, uint8_t type, const void *payload, uint32_t length)
{
    if (queue.push(type, payload, length)) return 0;
    if (!told_full_) {
        told_full_ = true;
        log_message(1, "%s: %u messages (%zu bytes) wait for server %s; no room or memory for more\n", __func__,
                    queue.messages(), queue.bytes(), place_.server());
    }
    return -1;
}

void zel_ipc_client::write_what_waits()
{
    sending result = early_.flush(link_.get());
    if (result == sending::done) result = waiting_.flush(link_.get());
    if (result == sending::failed) give_up_writing();
    if (result == sending::done) told_full_ = false;
    want_room(result == sending::would_block);
}

// What the server sent before it went is read to its end, which the shut-down brings about; then the link is lost.
void zel_ipc_client::give_up_writing()
{
    deaf_ = true;
    want_room(false);
    (void)shutdown(link_.get(), SHUT_RDWR);
}

void zel_ipc_client::want_room(bool wanted)
{
    if (wanted == wants_room_ || ended_) return;
    if (sources_.change(link_.get(), wanted ? EPOLLIN | EPOLLOUT : EPOLLIN, link_tag)) wants_room_ = wanted;
}
