// Packets of any content against a real server and a real client of libzelipc, over real sockets.
//
// Input: the first byte chooses the end under attack (even: server, odd: client). Then packets, each behind its length in
// two bytes, low byte first; the length 65535 stands for a packet that is longer than any message may be.
#include <zel_debug.h>
#include <zel_ipc.h>

#include "common/unique_fd.h"

#include <stdlib.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

extern "C" void log_message(int, const char *format, ...)
{
    char text[512];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
}

// Closing an inotify descriptor takes the kernel ten milliseconds; a client does without one when it gets none.
extern "C" int inotify_init1(int) noexcept
{
    errno = EMFILE;
    return -1;
}

namespace {

using zel::unique_fd;

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

// What the application was told, which must make sense whatever the peer does.
struct seen {
    int connected = 0, disconnected = 0;
    bool up = false;
    unsigned long bytes = 0;
} told;

void note_payload(uint8_t type, const void *payload, uint32_t length)
{
    require(type > ZEL_IPC_LINK_MADE && payload != nullptr && length <= ZEL_IPC_MAX_PAYLOAD);
    const auto *bytes = static_cast<const uint8_t *>(payload);
    for (uint32_t at = 0; at < length; ++at) told.bytes += bytes[at];   // every byte is readable
}

void on_connected(zel_ipc_server_t *server, void *, const zel_ipc_peer_t *peer)
{
    ++told.connected;
    const size_t length = strlen(peer->name);
    require(peer->id != 0 && length >= 1 && length <= ZEL_IPC_MAX_NAME && strchr(peer->name, '/') == nullptr);
    require(zel_ipc_server_send(server, peer->id, 2, "hello", 5) == 0);
}

void on_message(zel_ipc_server_t *server, void *, const zel_ipc_peer_t *peer, uint8_t type, const void *payload, uint32_t length)
{
    require(told.connected == told.disconnected + 1);
    note_payload(type, payload, length);
    (void)zel_ipc_server_send(server, peer->id, type, payload, length);
}

void on_disconnected(zel_ipc_server_t *, void *, const zel_ipc_peer_t *)
{
    require(++told.disconnected == told.connected);
}

void on_client_event(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length)
{
    if (type == ZEL_IPC_LINK_MADE || type == ZEL_IPC_LINK_LOST) {
        require(told.up == (type == ZEL_IPC_LINK_LOST) && length > 0);
        told.up = !told.up;
        return;
    }
    require(told.up);
    note_payload(type, payload, length);
    (void)zel_ipc_client_send(client, type, payload, length);
}

void send_packets(const unique_fd &to, std::string_view input)
{
    static const std::string too_long(ZEL_IPC_MAX_PAYLOAD + 2, 'x');
    while (input.size() >= 2) {
        const size_t asked = static_cast<uint8_t>(input[0]) | static_cast<size_t>(static_cast<uint8_t>(input[1])) << 8;
        input.remove_prefix(2);
        const std::string_view packet = asked == 65535 ? std::string_view(too_long) : input.substr(0, asked);
        (void)send(to.get(), packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (asked != 65535) input.remove_prefix(packet.size());
    }
}

const std::string &root()
{
    static const std::string folder = [] {
        char name[] = "/tmp/zel-fuzz-XXXXXX";
        require(mkdtemp(name) != nullptr && setenv("ZEL_ROOT", name, 1) == 0);
        atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(getenv("ZEL_ROOT"), ignored);
        });
        return std::string(name);
    }();
    return folder;
}

sockaddr_un address_of(const char *server)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s/run/zel/%s", root().c_str(), server);
    return address;
}

void attack_server(std::string_view input)
{
    static zel_ipc_server_t *const server = [] {
        zel_ipc_server_config_t config{};
        config.connected = on_connected;
        config.message = on_message;
        config.disconnected = on_disconnected;
        config.unique_names = 1;
        return zel_ipc_server_init("fuzzed", &config);
    }();
    require(server != nullptr);
    unique_fd peer(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    static const sockaddr_un address = address_of("fuzzed");
    require(connect(peer.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
    send_packets(peer, input);
    for (int turn = 0; turn < 3; ++turn) zel_ipc_server_process_fds(server, nullptr);
    peer.reset();
    uint32_t cursor = 0;
    zel_ipc_peer_t left;
    for (int turn = 0; turn < 100; ++turn) zel_ipc_server_process_fds(server, nullptr);
    require(zel_ipc_server_next_client(server, &cursor, &left) == 0 && told.connected == told.disconnected);
}

void attack_client(std::string_view input)
{
    static const unique_fd listening = [] {
        unique_fd made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
        const sockaddr_un address = address_of("fuzzer");
        require(bind(made.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0);
        require(listen(made.get(), 8) == 0);
        return made;
    }();
    zel_ipc_client_t *const client = zel_ipc_client_init("fuzzer", "client", on_client_event, nullptr);
    require(client != nullptr && zel_ipc_client_send(client, 2, "early", 5) == 0);
    unique_fd peer;
    while (!peer) {   // the first attempt is due a nanosecond after init
        zel_ipc_client_process_fds(client, nullptr);
        peer.reset(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    }
    send_packets(peer, input);
    for (int turn = 0; turn < 3; ++turn) zel_ipc_client_process_fds(client, nullptr);
    peer.reset();
    for (int turn = 0; turn < 20; ++turn) zel_ipc_client_process_fds(client, nullptr);
    require(!told.up);
    zel_ipc_client_term(client);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) return 0;
    (void)root();
    static const bool folder_made = [] {
        zel_ipc_client_term(zel_ipc_client_init("fuzzer", "maker", on_client_event, nullptr));   // makes the socket folder
        return true;
    }();
    require(folder_made);
    const std::string_view input(reinterpret_cast<const char *>(data) + 1, size - 1);
    (data[0] % 2 == 0 ? attack_server : attack_client)(input);
    return 0;
}
