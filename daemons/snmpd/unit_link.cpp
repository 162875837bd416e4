#include "unit_link.h"

#include "message_decoder.h"
#include "wire_records.h"

#include <zel_debug.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace zel::snmpd {
namespace {

constexpr const char *unit_name = "zel_gpio";
constexpr int64_t probe_patience_ms = 5000;
constexpr int64_t relink_patience_ms = 3000;   // how long a link that the agent ended itself may be away

// A link has room for some four thousand messages. Half of that, coming faster than this, is taken for a sign that it was full.
constexpr double flow_limit = 2000;
constexpr double flow_per_ms = 1;
constexpr int64_t quiet_ms = 200;

}  // namespace

unit_link::~unit_link()
{
    zel_ipc_server_term(server_);
}

bool unit_link::open(const std::string &server)
{
    zel_ipc_server_config_t config{};
    config.user_data = this;
    config.connected = connected;
    config.message = message;
    config.disconnected = disconnected;
    config.unique_names = 1;
    server_ = zel_ipc_server_init(server.c_str(), &config);
    return server_ != nullptr;
}

// No exception may leave the callbacks. What went wrong is put right by having everything told again.
template <typename work>
void unit_link::guarded(const work &run)
{
    try {
        run();
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: Out of memory; something that the unit told is lost\n", __func__);
        incomplete_ = true;
        quiet_since_ = now_ms_;
    }
}

void unit_link::connected(zel_ipc_server_t *server, void *link, const zel_ipc_peer_t *peer)
{
    auto &self = *static_cast<unit_link *>(link);
    if (std::strcmp(peer->name, unit_name) == 0) return self.guarded([&] { self.take_link(*peer); });
    log_message(1, "%s: Ending the link of '%s' (process %d), which is no unit\n", __func__, peer->name, peer->pid);
    (void)zel_ipc_server_disconnect(server, peer->id);
}

void unit_link::message(zel_ipc_server_t *, void *link, const zel_ipc_peer_t *peer, uint8_t type, const void *payload,
                        uint32_t length)
{
    auto &self = *static_cast<unit_link *>(link);
    if (peer->id == self.peer_) self.guarded([&] { self.take_message(type, payload, length); });
}

void unit_link::disconnected(zel_ipc_server_t *, void *link, const zel_ipc_peer_t *peer)
{
    auto &self = *static_cast<unit_link *>(link);
    if (peer->id == self.peer_) self.guarded([&] { self.lose_link(); });
}

void unit_link::take_link(const zel_ipc_peer_t &peer)
{
    log_message(2, "%s: The unit is there (process %d)\n", __func__, peer.pid);
    peer_ = peer.id;
    ++counted_.links;
    wait_ends_.reset();
    incomplete_ = false;
    flow_ = 0;
    quiet_since_.reset();
    model_.link_made();
    send_probe();
}

void unit_link::send_probe()
{
    probe_tag_ = request(wire_no_action, 0, 0, "").value_or(0);
    probe_again_ = now_ms_ + probe_patience_ms;
}

void unit_link::take_message(uint8_t type, const void *payload, uint32_t length)
{
    ++counted_.messages;
    note_flow();
    std::string problem;
    auto decoded = decode_message(type, {static_cast<const std::byte *>(payload), length}, problem);
    if (!decoded) {
        ++counted_.refused;
        log_message(1, "%s: Refusing a message of type %u with %s\n", __func__, type, problem.c_str());
        return;
    }
    if (const auto *const reply = std::get_if<reply_message>(&*decoded)) return take_reply(reply->tag, reply->result);
    if (apply_message(model_, std::move(*decoded))) return;
    ++counted_.refused;
    log_message(1, "%s: Refusing a message of type %u about something that the unit does not have\n", __func__, type);
}

void unit_link::take_reply(int32_t tag, int32_t result)
{
    if (tag != probe_tag_ || probe_tag_ == 0) {
        if (on_reply_) on_reply_(tag, result);
        return;
    }
    probe_tag_ = 0;
    probe_again_.reset();
    complete();
}

size_t unit_link::rows_known() const
{
    size_t rows = 0;
    for (size_t table = 0; table < table_count; ++table) rows += model_.size(static_cast<table_id>(table));
    return rows;
}

// A unit that just started tells everything twice; that alone is no flood.
void unit_link::complete()
{
    model_.link_complete();
    flow_ = std::max(0.0, flow_ - 2.0 * static_cast<double>(rows_known()));
    log_message(2, "%s: Everything about the unit is known\n", __func__);
}

void unit_link::note_flow()
{
    flow_ = std::max(0.0, flow_ - flow_per_ms * static_cast<double>(now_ms_ - flow_ms_)) + 1;
    flow_ms_ = now_ms_;
    if (model_.link() == link_state::present && flow_ > flow_limit) incomplete_ = true;
    if (incomplete_) quiet_since_ = now_ms_;
}

void unit_link::tell_anew()
{
    log_message(2, "%s: Too much came at once; asking the unit to tell everything again\n", __func__);
    wait_ends_ = now_ms_ + relink_patience_ms;
    incomplete_ = false;
    quiet_since_.reset();
    (void)zel_ipc_server_disconnect(server_, peer_);
}

void unit_link::lose_link()
{
    peer_ = 0;
    probe_tag_ = 0;
    probe_again_.reset();
    quiet_since_.reset();
    if (wait_ends_) {
        model_.link_made();   // nothing is known to be as it was until it is told again
    } else {
        log_message(1, "%s: The unit is away\n", __func__);
        model_.link_lost();
    }
    if (on_lost_) on_lost_();
}

void unit_link::give_up_waiting()
{
    wait_ends_.reset();
    log_message(1, "%s: The unit does not come back\n", __func__);
    model_.link_lost();
}

std::optional<int32_t> unit_link::request(uint8_t type, int32_t index, int32_t value, const std::string &text)
{
    if (peer_ == 0) return std::nullopt;
    wire_request record{};
    record.index = index;
    record.value = value;
    std::memcpy(record.text, text.data(), std::min(text.size(), wire_text_size - 1));
    last_tag_ = last_tag_ == INT32_MAX ? 1 : last_tag_ + 1;
    record.tag = last_tag_;
    if (zel_ipc_server_send(server_, peer_, type, &record, sizeof record) != 0) return std::nullopt;
    return last_tag_;
}

void unit_link::set_fds(fd_set *readable, int *highest)
{
    zel_ipc_server_set_fds(server_, readable, highest);
}

void unit_link::process(fd_set *readable, int64_t now_ms)
{
    now_ms_ = now_ms;
    zel_ipc_server_process_fds(server_, readable);
    if (peer_ != 0 && quiet_since_ && now_ms >= *quiet_since_ + quiet_ms) tell_anew();
    if (peer_ != 0 && probe_again_ && now_ms >= *probe_again_) send_probe();
    if (peer_ == 0 && wait_ends_ && now_ms >= *wait_ends_) give_up_waiting();
}

std::optional<int64_t> unit_link::next_due() const
{
    std::optional<int64_t> due;
    const auto take = [&due](std::optional<int64_t> at) {
        if (at && (!due || *at < *due)) due = at;
    };
    if (peer_ != 0 && quiet_since_) take(*quiet_since_ + quiet_ms);
    if (peer_ != 0) take(probe_again_);
    if (peer_ == 0) take(wait_ends_);
    return due;
}

}  // namespace zel::snmpd
