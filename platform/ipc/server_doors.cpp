// How a server's clients come in: accepting connections, greetings, and the time they have for them.
#include "server.h"

#include <zel_debug.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

using namespace zel::ipc;

namespace {

constexpr int accepts_per_turn = 32;
constexpr int last_messages = 1024;        // read from a client that is replaced; more than a socket holds
constexpr int64_t accept_rest_ms = 100;

}  // namespace

void zel_ipc_server::accept_clients()
{
    for (int count = 0; count < accepts_per_turn; ++count) {
        if (!accept_one()) return;
    }
}

bool zel_ipc_server::accept_one()
{
    zel::unique_fd socket(accept4(listening_.socket(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket) {
        told_resting_ = false;
        admit(std::move(socket));
        return true;
    }
    if (errno == ECONNABORTED || errno == EINTR) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK) rest_listening();
    return false;
}

void zel_ipc_server::admit(zel::unique_fd socket)
{
    ucred who{};
    if (!is_trusted_peer(socket.get(), who)) return turn_away("it runs as another user", who);
    widen_send_buffer(socket.get());
    const queue_limits limits = {config_.max_queue_messages, config_.max_queue_bytes};
    std::unique_ptr<peer> made(new (std::nothrow) peer(std::move(socket), limits));
    if (made == nullptr) return turn_away("there is no memory", who);
    made->pid = who.pid;
    made->uid = who.uid;
    made->deadline_ms = now_ms() + config_.greeting_timeout_ms;
    peer *const newcomer = peers_.add(std::move(made));
    if (newcomer == nullptr) return turn_away("there are too many clients", who);
    newcomer->interest = EPOLLIN;
    if (!sources_.add(newcomer->socket.get(), EPOLLIN, newcomer->id)) {
        (void)peers_.take(*newcomer);
        return turn_away(std::strerror(errno), who);
    }
    arm_timer();
}

// One line until a client has left: those that are turned away come again and again.
void zel_ipc_server::turn_away(const char *why, const ucred &who)
{
    if (told_full_) return;
    told_full_ = true;
    log_message(1, "%s: Process %d of user %u is turned away by server %s: %s\n", __func__, who.pid, who.uid, place_.server(),
                why);
}

// Without descriptors or memory the connection stays pending and the listening socket readable: look away for a while.
void zel_ipc_server::rest_listening()
{
    if (!told_resting_) {
        log_message(1, "%s: Server %s cannot accept clients (%s); trying again until it can\n", __func__, place_.server(),
                    std::strerror(errno));
    }
    told_resting_ = true;
    if (!sources_.change(listening_.socket(), 0, listening_tag)) return;
    listen_again_ms_ = now_ms() + accept_rest_ms;
    arm_timer();
}

void zel_ipc_server::listen_again()
{
    if (sources_.change(listening_.socket(), EPOLLIN, listening_tag)) listen_again_ms_ = 0;
}

void zel_ipc_server::serve_timer()
{
    const int64_t now = now_ms();
    if (listen_again_ms_ != 0 && listen_again_ms_ <= now) listen_again();
    for (uint32_t place = 0; place < peers_.places() && !ended_; ++place) {
        peer *const one = peers_.at(place);
        if (one != nullptr && one->at == peer::stage::greeting && one->deadline_ms <= now) end_greeting(*one);
    }
    if (!ended_) arm_timer();
}

// A server that was held up for a long time finds its timer due together with a greeting that came in time.
void zel_ipc_server::end_greeting(peer &late)
{
    read_messages(late, 1);
    if (late.at != peer::stage::greeting) return;
    log_message(1, "%s: Process %d connected to server %s and does not greet; disconnecting it\n", __func__, late.pid,
                place_.server());
    let_go(late);
}

// For whatever comes first; for nothing if there is nothing to wait for.
void zel_ipc_server::arm_timer()
{
    int64_t first = listen_again_ms_ != 0 ? listen_again_ms_ : INT64_MAX;
    for (uint32_t place = 0; place < peers_.places(); ++place) {
        const peer *const one = peers_.at(place);
        if (one != nullptr && one->at == peer::stage::greeting) first = std::min(first, one->deadline_ms);
    }
    if (first == INT64_MAX) return sources_.stop_timer();
    sources_.arm_timer(static_cast<uint32_t>(std::max<int64_t>(first - now_ms(), 0)));
}

void zel_ipc_server::greet(peer &from)
{
    const auto name = read_greeting(received_);
    if (!name) {
        log_message(1, "%s: Process %d does not speak the protocol of server %s (version %d); disconnecting it\n", __func__,
                    from.pid, place_.server(), protocol_version);
        return let_go(from);
    }
    std::memcpy(from.name, name->data(), name->size());
    if (config_.unique_names != 0) replace_namesakes(from);
    if (!ended_) announce(from);
}

void zel_ipc_server::replace_namesakes(const peer &newcomer)
{
    for (uint32_t place = 0; place < peers_.places() && !ended_; ++place) {
        peer *const other = peers_.at(place);
        if (other == nullptr || !other->announced || std::strcmp(other->name, newcomer.name) != 0) continue;
        read_messages(*other, last_messages);
        if (ended_) return;
        let_go(*other);
        dismiss(*other);
    }
}

void zel_ipc_server::announce(peer &newcomer)
{
    const greeting_record answer = make_greeting(place_.server());
    if (send_packet(newcomer.socket.get(), greeting_type, &answer, sizeof answer) != sending::done) return let_go(newcomer);
    newcomer.at = peer::stage::up;
    newcomer.announced = true;
    arm_timer();
    log_message(4, "%s: Client '%s' (process %d) of server %s\n", __func__, newcomer.name, newcomer.pid, place_.server());
    if (config_.connected == nullptr) return;
    const zel_ipc_peer_t seen = newcomer.seen();
    config_.connected(this, config_.user_data, &seen);
}
