// The client's functions as C sees them: null handles, bad arguments and failed allocations end here.
#include "client.h"

#include <zel_debug.h>

#include <memory>
#include <new>

using zel::ipc::is_valid_name;

namespace {

bool is_usable(const char *what, const char *name)
{
    if (name != nullptr && is_valid_name(name)) return true;
    log_message(0, "%s: '%s' is no name for a %s\n", __func__, name != nullptr ? name : "(null)", what);
    return false;
}

}  // namespace

zel_ipc_client_t *zel_ipc_client_init(const char *server, const char *name, zel_ipc_client_cb_t callback, void *user_data)
{
    if (!is_usable("server", server) || !is_usable("client", name)) return nullptr;
    if (callback == nullptr) {
        log_message(0, "%s: A client of server %s needs a callback\n", __func__, server);
        return nullptr;
    }
    try {
        auto client = std::make_unique<zel_ipc_client>(server, name, callback, user_data);
        return client->open() ? client.release() : nullptr;
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: No memory for a client of server %s\n", __func__, server);
        return nullptr;
    }
}

int zel_ipc_client_send(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length)
{
    return client != nullptr ? client->send(type, payload, length) : -1;
}

void zel_ipc_client_set_fds(zel_ipc_client_t *client, fd_set *readfds, int *maxfd)
{
    if (client != nullptr) client->sources().offer(readfds, maxfd);
}

void zel_ipc_client_process_fds(zel_ipc_client_t *client, fd_set *readfds)
{
    if (client == nullptr || !client->sources().is_due(readfds)) return;
    if (!client->process()) delete client;
}

void zel_ipc_client_term(zel_ipc_client_t *client)
{
    if (client != nullptr && client->end()) delete client;
}

int zel_ipc_client_fd(const zel_ipc_client_t *client)
{
    return client != nullptr ? client->sources().fd() : -1;
}

void *zel_ipc_client_user_data(const zel_ipc_client_t *client)
{
    return client != nullptr ? client->user_data() : nullptr;
}
