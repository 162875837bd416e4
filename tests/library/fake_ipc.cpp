// Clients of the discovery daemon and of the SNMP agent.
#include "fake_state.h"

namespace fake {

namespace {

std::string short_name(const std::string &server)
{
    if (server == "snmp_gpio")
        return "snmp";
    return server == "zel_sdiscd" ? "sdisc" : server;
}

void need(zel_ipc_client *client, const char *call)
{
    if (now().clients.count(client) == 0)
        misuse("ipc %s on a client that does not exist", call);
}

zel_ipc_client *client_named(const state &s, const std::string &name)
{
    for (zel_ipc_client *client : s.clients)
        if (client->name == name)
            return client;
    return nullptr;
}

zel_ipc_client *live_client(const state &s, const std::string &name)
{
    zel_ipc_client *client = client_named(s, name);
    if (client == nullptr)
        misuse("no ipc client %s to deliver a message to", name.c_str());
    return client;
}

}  // namespace

std::vector<message> unit::sent(const std::string &client, int type) const
{
    std::vector<message> result;
    for (const message &m : my->sent)
        if (m.client == client && (type == -1 || m.type == type))
            result.push_back(m);
    return result;
}

void unit::forget_sent() { my->sent.clear(); }
bool unit::has_client(const std::string &client) const { return client_named(*my, client) != nullptr; }

void unit::deliver(const std::string &name, uint8_t type, const bytes &payload)
{
    zel_ipc_client *client = live_client(*my, name);
    // Of exactly its size, so that reading behind it is seen; an empty message has a payload of no bytes.
    std::unique_ptr<uint8_t[]> copy(new uint8_t[payload.size()]);
    if (!payload.empty())
        std::memcpy(copy.get(), payload.data(), payload.size());
    client->callback(client, type, copy.get(), static_cast<uint32_t>(payload.size()));
}

void unit::deliver_without_payload(const std::string &name, uint8_t type, uint32_t length)
{
    zel_ipc_client *client = live_client(*my, name);
    client->callback(client, type, nullptr, length);
}

}  // namespace fake

using namespace fake;

extern "C" {

zel_ipc_client_t *zel_ipc_client_init(const char *server, const char *name, zel_ipc_client_cb_t callback, void *user_data)
{
    const std::string known_as = short_name(server);
    if (must_fail(format("ipc %s init %s", known_as.c_str(), name)))
        return nullptr;
    auto *client = new zel_ipc_client{known_as, callback, user_data};
    now().clients.insert(client);
    return client;
}

int zel_ipc_client_send(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length)
{
    if (client == nullptr) {
        write_line(format("ipc null send %u", type));
        return -1;
    }
    need(client, "send");
    const auto *first = static_cast<const uint8_t *>(payload);
    const bytes copy(first, first + length);   // read at once: all of it must be there
    if (must_fail(format("ipc %s send %u (%u bytes)", client->name.c_str(), type, length)))
        return -1;
    now().sent.push_back({client->name, type, copy});
    return 0;
}

void zel_ipc_client_set_fds(zel_ipc_client_t *client, fd_set *, int *)
{
    need(client, "set_fds");
    write_line("ipc " + client->name + " set_fds");
}

void zel_ipc_client_process_fds(zel_ipc_client_t *client, fd_set *)
{
    need(client, "process_fds");
    write_line("ipc " + client->name + " process_fds");
}

void zel_ipc_client_term(zel_ipc_client_t *client)
{
    if (client == nullptr)
        return;
    need(client, "end");
    write_line("ipc " + client->name + " end");
    now().clients.erase(client);
    delete client;
}

}  // extern "C"
