#include "server.h"

#include <zel_debug.h>

#include <cerrno>
#include <cstring>

using namespace zel::ipc;

namespace {

constexpr int messages_per_turn = 64;   // a talkative client leaves the others their turn

}  // namespace

zel_ipc_server::zel_ipc_server(const char *name, const zel_ipc_server_config_t &config)
    : place_(name), config_(config), peers_(config.max_clients)
{
}

bool zel_ipc_server::open()
{
    if (!place_.make_folder()) {
        log_message(0, "%s: Failed to make folder %s: %s\n", __func__, place_.folder(), std::strerror(errno));
        return false;
    }
    if (!listening_.take(place_)) return false;
    if (sources_.open(timer_tag) && sources_.add(listening_.socket(), EPOLLIN, listening_tag)) return true;
    log_message(0, "%s: Failed to make the descriptors of server %s: %s\n", __func__, place_.server(), std::strerror(errno));
    listening_.release(place_);
    return false;
}

bool zel_ipc_server::process()
{
    if (at_work_) return true;
    at_work_ = true;
    epoll_event room[64];
    for (const epoll_event &event : sources_.due(room)) {
        serve(event);
        dismiss_leaving();
        if (ended_) break;
    }
    at_work_ = false;
    return !ended_;
}

bool zel_ipc_server::end()
{
    if (ended_) return false;
    ended_ = true;
    for (uint32_t place = 0; place < peers_.places(); ++place) {
        peer *const one = peers_.at(place);
        if (one == nullptr) continue;
        if (one->at == peer::stage::up && !one->deaf) (void)one->waiting.flush(one->socket.get());
        close_link(*one);
    }
    listening_.release(place_);
    sources_.close();
    return !at_work_;
}

void zel_ipc_server::serve(const epoll_event &event)
{
    if (event.data.u64 == listening_tag) return accept_clients();
    if (event.data.u64 == timer_tag) return serve_timer();
    peer *const from = peers_.find(static_cast<uint32_t>(event.data.u64));   // may have left since the events were asked for
    if (from != nullptr) serve_peer(*from, event.events);
}

void zel_ipc_server::serve_peer(peer &from, uint32_t events)
{
    if ((events & EPOLLOUT) != 0 && !from.deaf) write_what_waits(from);
    if ((events & (EPOLLHUP | EPOLLERR)) != 0) give_up_writing(from);
    read_messages(from, messages_per_turn);
    if (!ended_) wait_for_what_matters(from);
}

void zel_ipc_server::read_messages(peer &from, int most)
{
    for (int count = 0; count < most && from.at != peer::stage::leaving && !is_paused(from); ++count) {
        if (receive_one(from) == reading::stopped) return;
    }
}

zel_ipc_server::reading zel_ipc_server::receive_one(peer &from)
{
    switch (receive_packet(from.socket.get(), received_)) {
    case receipt::nothing_yet: return reading::stopped;
    case receipt::closed: let_go(from); return reading::stopped;
    case receipt::malformed:
        log_message(1, "%s: Client '%s' (process %d) of server %s sent a message that is too long; disconnecting it\n", __func__,
                    from.name, from.pid, place_.server());
        let_go(from);
        return reading::stopped;
    case receipt::message: break;
    }
    if (from.at == peer::stage::greeting) {
        greet(from);
    } else {
        deliver(from);
    }
    return ended_ ? reading::stopped : reading::goes_on;
}

void zel_ipc_server::deliver(peer &from)
{
    if (received_.type < first_message_type) {
        log_message(1, "%s: Client '%s' (process %d) of server %s sent type %d, a link event's; disconnecting it\n", __func__,
                    from.name, from.pid, place_.server(), received_.type);
        let_go(from);
    } else if (config_.message != nullptr) {
        const zel_ipc_peer_t seen = from.seen();
        config_.message(this, config_.user_data, &seen, received_.type, received_.payload, received_.length);
    }
}

int zel_ipc_server::send(uint32_t id, uint8_t type, const void *payload, uint32_t length)
{
    if (type < first_message_type || length > ZEL_IPC_MAX_PAYLOAD || (payload == nullptr && length != 0)) {
        log_message(0, "%s: Refused message of type %d, %u bytes, from server %s\n", __func__, type, length, place_.server());
        return -1;
    }
    peer *const to = peers_.find(id);
    if (ended_ || to == nullptr || to->at != peer::stage::up || to->deaf) return -1;
    if (to->waiting.empty()) {
        const sending result = send_packet(to->socket.get(), type, payload, length);
        if (result == sending::failed) give_up_writing(*to);
        if (result != sending::would_block) return result == sending::done ? 0 : -1;
    }
    if (to->waiting.push(type, payload, length)) {
        wait_for_what_matters(*to);
        return 0;
    }
    log_message(1, "%s: Client '%s' (process %d) of server %s does not read, or there is no memory; disconnecting it with %u "
                   "messages (%zu bytes) not delivered\n",
                __func__, to->name, to->pid, place_.server(), to->waiting.messages(), to->waiting.bytes());
    let_go(*to);
    return -1;
}

void zel_ipc_server::write_what_waits(peer &to)
{
    if (to.waiting.flush(to.socket.get()) == sending::failed) give_up_writing(to);
}

// A client that sent its last messages and went is heard to its end, which the shut-down brings about.
void zel_ipc_server::give_up_writing(peer &to)
{
    to.deaf = true;
    to.waiting.clear();
    (void)shutdown(to.socket.get(), SHUT_RDWR);
}

bool zel_ipc_server::is_paused(const peer &from) const
{
    return config_.pause_slow_clients != 0 && from.waiting.more_than_half_full();
}

void zel_ipc_server::wait_for_what_matters(peer &of)
{
    if (of.at == peer::stage::leaving) return;
    const uint32_t interest = (is_paused(of) ? 0u : EPOLLIN) | (of.waiting.empty() ? 0u : EPOLLOUT);
    if (interest != of.interest && sources_.change(of.socket.get(), interest, of.id)) of.interest = interest;
}

int zel_ipc_server::disconnect(uint32_t id)
{
    peer *const found = peers_.find(id);
    if (ended_ || found == nullptr || found->at != peer::stage::up) return -1;
    (void)found->waiting.flush(found->socket.get());
    let_go(*found);
    return 0;
}

// The shut-down makes the descriptor readable, so that the rest follows also where no callback is at work now.
void zel_ipc_server::let_go(peer &leaving)
{
    if (leaving.at == peer::stage::leaving) return;
    leaving.at = peer::stage::leaving;
    ++leaving_;
    leaving.waiting.clear();
    (void)shutdown(leaving.socket.get(), SHUT_RDWR);
}

void zel_ipc_server::dismiss_leaving()
{
    for (uint32_t place = 0; leaving_ != 0 && !ended_; place = (place + 1) % peers_.places()) {
        peer *const one = peers_.at(place);
        if (one != nullptr && one->at == peer::stage::leaving) dismiss(*one);
    }
}

void zel_ipc_server::dismiss(peer &leaving)
{
    const std::unique_ptr<peer> gone = peers_.take(leaving);   // the callback may still look at it while its place is free again
    --leaving_;
    told_full_ = false;
    close_link(*gone);
    if (!gone->announced) return arm_timer();
    log_message(4, "%s: Client '%s' (process %d) left server %s\n", __func__, gone->name, gone->pid, place_.server());
    if (config_.disconnected == nullptr) return;
    const zel_ipc_peer_t seen = gone->seen();
    config_.disconnected(this, config_.user_data, &seen);
}

bool zel_ipc_server::next_client(uint32_t &cursor, zel_ipc_peer_t &seen) const
{
    while (!ended_ && cursor < peers_.places()) {
        const peer *const one = peers_.at(cursor++);
        if (one == nullptr || one->at != peer::stage::up) continue;
        seen = one->seen();
        return true;
    }
    return false;
}

void zel_ipc_server::close_link(peer &of)
{
    (void)shutdown(of.socket.get(), SHUT_RDWR);
    sources_.remove_and_close(of.socket);
}
