// The server's functions as C sees them: null handles, bad arguments and failed allocations end here.
#include "server.h"

#include <zel_debug.h>

#include <algorithm>
#include <memory>
#include <new>

using namespace zel::ipc;

namespace {

// Room for one message of the greatest length, whatever was asked for.
constexpr uint32_t least_queue_bytes = 2 * ZEL_IPC_MAX_PAYLOAD;

void set_default(uint32_t &value, uint32_t default_value)
{
    if (value == 0) value = default_value;
}

zel_ipc_server_config_t completed(const zel_ipc_server_config_t *given)
{
    zel_ipc_server_config_t config = given != nullptr ? *given : zel_ipc_server_config_t{};
    set_default(config.max_clients, 128);
    set_default(config.max_queue_messages, 4096);
    set_default(config.max_queue_bytes, 1u << 20);
    set_default(config.greeting_timeout_ms, 5000);
    config.max_queue_bytes = std::max(config.max_queue_bytes, least_queue_bytes);
    return config;
}

bool are_usable(const char *name, const zel_ipc_server_config_t &config)
{
    if (name == nullptr || !is_valid_name(name)) {
        log_message(0, "%s: '%s' is no name for a server\n", __func__, name != nullptr ? name : "(null)");
        return false;
    }
    if (config.max_clients <= peer_table::most_places) return true;
    log_message(0, "%s: Server %s cannot have %u clients, at most %u\n", __func__, name, config.max_clients,
                peer_table::most_places);
    return false;
}

}  // namespace

zel_ipc_server_t *zel_ipc_server_init(const char *name, const zel_ipc_server_config_t *config)
{
    const zel_ipc_server_config_t complete = completed(config);
    if (!are_usable(name, complete)) return nullptr;
    try {
        auto server = std::make_unique<zel_ipc_server>(name, complete);
        return server->open() ? server.release() : nullptr;
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: No memory for server %s\n", __func__, name);
        return nullptr;
    }
}

int zel_ipc_server_send(zel_ipc_server_t *server, uint32_t id, uint8_t type, const void *payload, uint32_t length)
{
    return server != nullptr ? server->send(id, type, payload, length) : -1;
}

int zel_ipc_server_disconnect(zel_ipc_server_t *server, uint32_t id)
{
    return server != nullptr ? server->disconnect(id) : -1;
}

int zel_ipc_server_next_client(const zel_ipc_server_t *server, uint32_t *cursor, zel_ipc_peer_t *peer)
{
    return server != nullptr && cursor != nullptr && peer != nullptr && server->next_client(*cursor, *peer) ? 1 : 0;
}

void zel_ipc_server_set_fds(zel_ipc_server_t *server, fd_set *readfds, int *maxfd)
{
    if (server != nullptr) server->sources().offer(readfds, maxfd);
}

void zel_ipc_server_process_fds(zel_ipc_server_t *server, fd_set *readfds)
{
    if (server == nullptr || !server->sources().is_due(readfds)) return;
    if (!server->process()) delete server;
}

int zel_ipc_server_fd(const zel_ipc_server_t *server)
{
    return server != nullptr ? server->sources().fd() : -1;
}

void zel_ipc_server_term(zel_ipc_server_t *server)
{
    if (server != nullptr && server->end()) delete server;
}
