#include "scripted_unit.h"

#include <poll.h>

#include <cstdlib>
#include <cstring>

namespace zel::test {

using namespace snmpd;

scripted_unit::scripted_unit(const unit_root &root, const char *name, const char *server)
{
    (void)setenv("ZEL_ROOT", root.path().c_str(), 1);
    client_ = zel_ipc_client_init(server, name, event, this);
}

scripted_unit::~scripted_unit()
{
    zel_ipc_client_term(client_);
}

void scripted_unit::event(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length)
{
    auto &self = *static_cast<scripted_unit *>(zel_ipc_client_user_data(client));
    if (type <= ZEL_IPC_LINK_MADE) {
        self.linked_ = type == ZEL_IPC_LINK_MADE;
        if (self.linked_) self.tell_all();
        return;
    }
    request got{type, {}};
    if (length != sizeof got.record) return;
    std::memcpy(&got.record, payload, sizeof got.record);
    if (type == wire_no_action) self.answer(got, -1);
    else self.requests_.push_back(got);
}

bool scripted_unit::turn(int milliseconds)
{
    pollfd waited{zel_ipc_client_fd(client_), POLLIN, 0};
    const bool ready = poll(&waited, 1, milliseconds) > 0;
    zel_ipc_client_process_fds(client_, nullptr);
    return ready;
}

bool scripted_unit::await_link()
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!linked_ && std::chrono::steady_clock::now() < deadline) turn(100);
    return linked_;
}

void scripted_unit::settle()
{
    while (turn(100)) {}
}

void scripted_unit::send(uint8_t type, const void *payload, size_t length)
{
    (void)zel_ipc_client_send(client_, type, payload, static_cast<uint32_t>(length));
}

void scripted_unit::tell_all()
{
    const uint32_t counts[] = {2, 0, 2, 0, 0};
    for (uint8_t k = 0; k < 5; ++k) send(static_cast<uint8_t>(wire_gpi_count + k), counts[k]);
    for (int32_t index = 0; index < 2; ++index) {
        wire_port port{};
        port.index = index;
        port.type = index == 0 ? 2 : 1;
        send(wire_physical, port);
        wire_relay relay{};
        relay.index = index;
        send(wire_relay_info, relay);
    }
    send(wire_trigger, wire_name{0, "On Air"});
    send(wire_handler, wire_name{0, "Record"});
}

std::optional<scripted_unit::request> scripted_unit::next_request()
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (requests_.empty() && std::chrono::steady_clock::now() < deadline) turn(100);
    if (requests_.empty()) return std::nullopt;
    const request first = requests_.front();
    requests_.pop_front();
    return first;
}

void scripted_unit::answer(const request &to, int32_t result)
{
    send(wire_reply_type, wire_reply{to.type, result, to.record.tag});
}

}  // namespace zel::test
