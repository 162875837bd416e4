#include "scripted_discovery.h"

#include "zel_gpio/sdisc_records.h"

#include <poll.h>

#include <cstdlib>
#include <cstring>

namespace zel::test {
namespace {

template <size_t size>
void put(char (&field)[size], const std::string &text)
{
    std::memcpy(field, text.data(), std::min(text.size(), size - 1));
}

// Nobody listens there: to choose a source it is enough that it is known.
constexpr uint16_t nowhere = 9;

}  // namespace

scripted_discovery::scripted_discovery(const unit_root &root)
{
    (void)setenv("ZEL_ROOT", root.path().c_str(), 1);
    zel_ipc_server_config_t config{};
    config.user_data = this;
    config.connected = [](zel_ipc_server_t *, void *self, const zel_ipc_peer_t *peer) {
        static_cast<scripted_discovery *>(self)->unit_ = peer->id;
    };
    server_ = zel_ipc_server_init("zel_sdiscd", &config);
}

bool scripted_discovery::turn(int milliseconds)
{
    pollfd waited{zel_ipc_server_fd(server_), POLLIN, 0};
    const bool ready = poll(&waited, 1, milliseconds) > 0;
    zel_ipc_server_process_fds(server_, nullptr);
    return ready;
}

bool scripted_discovery::await_unit()
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (unit_ == 0 && std::chrono::steady_clock::now() < deadline) turn(100);
    return unit_ != 0;
}

void scripted_discovery::send(uint8_t type, const void *record, size_t size)
{
    (void)zel_ipc_server_send(server_, unit_, type, record, static_cast<uint32_t>(size));
    while (turn(0)) {}
}

void scripted_discovery::announce(const std::string &name)
{
    struct [[gnu::packed]] {
        sdisc_resolve_record record;
        char rest[64];
    } message{};
    put(message.record.name, name);
    put(message.record.type, vgpo_service_type);
    put(message.record.address, "127.0.0.1");
    message.record.port = nowhere;
    const char text[] = "\"path=/unit/gpio/virtual/vgpio 1\"";
    std::memcpy(reinterpret_cast<char *>(&message) + offsetof(sdisc_resolve_record, strlist), text, sizeof text);
    send(sdisc_resolved, &message, sizeof message);
}

void scripted_discovery::withdraw(const std::string &name)
{
    sdisc_browse_record record{};
    put(record.name, name);
    put(record.type, vgpo_service_type);
    send(sdisc_service_removed, &record, sizeof record);
}

}  // namespace zel::test
