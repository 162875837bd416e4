// The running daemon: the logic between the network and the clients, and the loop around them.
#pragma once

#include "avahi_dnssd.h"
#include "discovery.h"
#include "event_loop.h"
#include "interfaces.h"
#include "kept_state.h"

#include "common/unique_fd.h"
#include "zel_ipc.h"

#include <memory>
#include <string>

namespace zel::sdiscd {

struct daemon_settings {
    std::string server;               // the name under which clients find the daemon
    responder_settings responder;
};

// What the unit's configuration says. False, with the cause in the log, if there are mistakes in it.
bool read_settings(uint32_t ttl_s, daemon_settings &out);

class daemon final : private surroundings {
public:
    explicit daemon(daemon_settings settings);
    ~daemon() override;
    daemon(const daemon &) = delete;
    daemon &operator=(const daemon &) = delete;

    // False if the daemon cannot run; the cause is then in the log.
    bool start();
    // Until SIGINT or SIGTERM.
    void run();

private:
    bool take_signals();
    void read_signals();
    bool open_server();
    void turn();
    std::optional<int64_t> next_due() const;

    bool send(uint32_t link, message_type type, std::span<const uint8_t> record) override;
    std::string interface_reference(int32_t index) override;
    int32_t interface_index(const std::string &reference) override;
    bool is_running(const process_identity &process) override;

    static void on_connected(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer);
    static void on_message(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer, uint8_t type,
                           const void *payload, uint32_t length);
    static void on_disconnected(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer);

    struct server_release {
        void operator()(zel_ipc_server_t *server) const { zel_ipc_server_term(server); }
    };

    const daemon_settings settings_;
    unique_fd signals_;
    event_loop loop_;
    interfaces interfaces_;
    avahi_dnssd network_;
    discovery logic_;
    kept_state state_;
    std::unique_ptr<zel_ipc_server_t, server_release> server_;
    bool ending_ = false;
};

}  // namespace zel::sdiscd
