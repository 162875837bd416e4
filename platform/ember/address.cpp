#include "address.h"

#include <netdb.h>

#include <charconv>
#include <cstring>

namespace zel::ember {

bool parse_address(const char *host, uint16_t port, socket_address &out)
{
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    if (getaddrinfo(host, nullptr, &hints, &found) != 0)
        return false;
    std::memcpy(&out.storage, found->ai_addr, found->ai_addrlen);
    out.length = found->ai_addrlen;
    freeaddrinfo(found);
    if (out.storage.ss_family == AF_INET6)
        reinterpret_cast<sockaddr_in6 &>(out.storage).sin6_port = htons(port);
    else
        reinterpret_cast<sockaddr_in &>(out.storage).sin_port = htons(port);
    return true;
}

bool split_address(std::string_view text, std::string &host, uint16_t &port)
{
    const size_t colon = text.rfind(':');
    if (colon == text.npos || colon == 0)
        return false;
    std::string_view name = text.substr(0, colon);
    const std::string_view digits = text.substr(colon + 1);
    if (name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
    if (error != std::errc() || end != digits.data() + digits.size() || port == 0)
        return false;
    host = name;
    return true;
}

}  // namespace zel::ember
