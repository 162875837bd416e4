#include "wire.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zel::ipc {

namespace {

constexpr char greeting_magic[4] = {'z', 'i', 'p', 'c'};

bool is_name_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.';
}

// A peer that closed its end with unread data of ours leaves one error in front of what it had sent: that is still to be read.
bool worth_another_try(int error)
{
    return error == EINTR || error == ECONNRESET;
}

receipt receipt_of_failure(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK ? receipt::nothing_yet : receipt::closed;
}

}  // namespace

bool is_valid_name(std::string_view name)
{
    return !name.empty() && name.size() <= ZEL_IPC_MAX_NAME && name.front() != '.' &&
           std::all_of(name.begin(), name.end(), is_name_character);
}

greeting_record make_greeting(std::string_view name)
{
    greeting_record record{};
    std::memcpy(record.magic, greeting_magic, sizeof record.magic);
    record.version = protocol_version;
    std::memcpy(record.name, name.data(), name.size());
    return record;
}

std::optional<std::string_view> read_greeting(const packet &from)
{
    if (from.type != greeting_type || from.length != sizeof(greeting_record)) return std::nullopt;
    greeting_record record;
    std::memcpy(&record, from.payload, sizeof record);
    if (std::memcmp(record.magic, greeting_magic, sizeof record.magic) != 0) return std::nullopt;
    if (record.version != protocol_version) return std::nullopt;
    const size_t length = strnlen(record.name, sizeof record.name);
    const std::string_view name(reinterpret_cast<const char *>(from.payload) + offsetof(greeting_record, name), length);
    return is_valid_name(name) ? std::optional(name) : std::nullopt;
}

receipt receive_packet(int socket, packet &into)
{
    iovec parts[2] = {{&into.type, sizeof into.type}, {into.payload, sizeof into.payload}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t got = -1;
    for (int attempt = 0; attempt < 4 && got < 0; ++attempt) {
        got = recvmsg(socket, &message, MSG_DONTWAIT);
        if (got < 0 && !worth_another_try(errno)) return receipt_of_failure(errno);
    }
    if (got <= 0) return receipt::closed;
    if ((message.msg_flags & MSG_TRUNC) != 0) return receipt::malformed;
    into.length = static_cast<uint32_t>(got) - sizeof into.type;
    return receipt::message;
}

sending send_packet(int socket, uint8_t type, const void *payload, uint32_t length)
{
    iovec parts[2] = {{&type, sizeof type}, {const_cast<void *>(payload), length}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    ssize_t sent;
    do {
        sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0) return sending::done;
    // A kernel short of memory is a full socket: what is queued is tried again.
    const bool later = errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS || errno == ENOMEM;
    return later ? sending::would_block : sending::failed;
}

}  // namespace zel::ipc
