// Numeric socket addresses. Names are not looked up: that could hold up the host's loop.
#pragma once

#include <netinet/in.h>

#include <string>
#include <string_view>

namespace zel::ember {

struct socket_address {
    sockaddr_storage storage{};
    socklen_t length = 0;
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage); }
};

// IPv4 or IPv6, the latter with an optional "%interface". False if it is neither.
bool parse_address(const char *host, uint16_t port, socket_address &out);
// "host:port" or "[host]:port", split at the last colon. False if it is not of this form. May throw std::bad_alloc.
bool split_address(std::string_view text, std::string &host, uint16_t &port);

}  // namespace zel::ember
