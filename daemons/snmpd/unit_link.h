// The agent's end of the link to the unit: the server that the unit's library connects to.
//
// Each link begins with the unit telling everything. There is no mark at its end, so the agent asks for something that the unit
// answers and does nothing for: the answer comes behind all that was told before. When so much comes in so short a time that the
// unit may have had to drop some of it, the agent ends the link once it is quiet; the unit then tells everything anew.
#pragma once

#include "unit_model.h"

#include <sys/select.h>
#include <zel_ipc.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace zel::snmpd {

class unit_link {
public:
    struct counters {
        uint32_t links = 0, messages = 0, refused = 0;
    };
    using reply_handler = std::function<void(int32_t tag, int32_t result)>;

    explicit unit_link(unit_model &model) : model_(model) {}
    ~unit_link();
    unit_link(const unit_link &) = delete;
    unit_link &operator=(const unit_link &) = delete;

    // False when another agent serves this unit already, or the socket cannot be made (logged).
    bool open(const std::string &server);
    void on_reply(reply_handler handler) { on_reply_ = std::move(handler); }
    // Requests that were sent over the link are not answered any more.
    void on_lost(std::function<void()> handler) { on_lost_ = std::move(handler); }

    // Sends a request; its tag, which the reply has too, or nothing while there is no link.
    std::optional<int32_t> request(uint8_t type, int32_t index, int32_t value, const std::string &text);

    void set_fds(fd_set *readable, int *highest);
    void process(fd_set *readable, int64_t now_ms);
    // When process() has something to do without a message.
    std::optional<int64_t> next_due() const;
    const counters &counted() const { return counted_; }

private:
    static void connected(zel_ipc_server_t *, void *link, const zel_ipc_peer_t *peer);
    static void message(zel_ipc_server_t *, void *link, const zel_ipc_peer_t *peer, uint8_t type, const void *payload,
                        uint32_t length);
    static void disconnected(zel_ipc_server_t *, void *link, const zel_ipc_peer_t *peer);
    template <typename work>
    void guarded(const work &run);
    void take_link(const zel_ipc_peer_t &peer);
    void take_message(uint8_t type, const void *payload, uint32_t length);
    void take_reply(int32_t tag, int32_t result);
    void lose_link();
    void send_probe();
    void complete();
    void note_flow();
    void tell_anew();
    void give_up_waiting();
    size_t rows_known() const;

    unit_model &model_;
    reply_handler on_reply_;
    std::function<void()> on_lost_;
    zel_ipc_server_t *server_ = nullptr;
    uint32_t peer_ = 0;
    int32_t last_tag_ = 0, probe_tag_ = 0;
    int64_t now_ms_ = 0;
    std::optional<int64_t> probe_again_, wait_ends_, quiet_since_;
    double flow_ = 0;            // messages that came lately
    int64_t flow_ms_ = 0;
    bool incomplete_ = false;    // something may have been dropped
    counters counted_;
};

}  // namespace zel::snmpd
