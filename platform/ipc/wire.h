// What crosses a socket: every message is one packet of a sequenced-packet socket, so the kernel keeps messages whole and in
// order and there is no framing to get wrong. The first packet in each direction is a greeting.
#pragma once

#include <zel_ipc.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zel::ipc {

// Greetings travel as type 1: no message may have the types of the link events, so nothing else can look like one.
inline constexpr uint8_t greeting_type = ZEL_IPC_LINK_MADE;
inline constexpr uint8_t first_message_type = 2;
inline constexpr uint16_t protocol_version = 1;

// Host byte order: both ends run on one machine.
struct [[gnu::packed]] greeting_record {
    char magic[4];
    uint16_t version;
    char name[ZEL_IPC_MAX_NAME + 1];   // the client's name, or the server's in its answer; zero-padded
};
static_assert(offsetof(greeting_record, version) == 4 && offsetof(greeting_record, name) == 6);
static_assert(sizeof(greeting_record) == 70);

// 1 to ZEL_IPC_MAX_NAME letters, digits, '_', '-' and '.', the first no '.': safe as a file name and in a log.
bool is_valid_name(std::string_view name);

// `name` is valid.
greeting_record make_greeting(std::string_view name);

struct packet {
    uint32_t length;                                    // of the payload
    uint8_t type;
    alignas(16) uint8_t payload[ZEL_IPC_MAX_PAYLOAD];   // aligned, so that a callback may look at it as a record
};

// The name in a greeting; empty unless it is a whole greeting of this version with a valid name. Borrowed from the packet.
std::optional<std::string_view> read_greeting(const packet &from);

enum class receipt { message, nothing_yet, closed, malformed };
// Malformed: longer than a message may be. A packet without even a type cannot be told from a closed link and counts as one.
receipt receive_packet(int socket, packet &into);

enum class sending { done, would_block, failed };
sending send_packet(int socket, uint8_t type, const void *payload, uint32_t length);

}  // namespace zel::ipc
