#include "basic_credentials.h"

#include <strings.h>

#include <cstdint>

namespace zel::web {
namespace {

int value_of(char c)
{
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    return c == '+' ? 62 : c == '/' ? 63 : -1;
}

std::optional<std::string> decode_base64(std::string_view text)
{
    while (text.ends_with('=')) text.remove_suffix(1);
    std::string bytes;
    uint32_t held = 0;
    int bits = 0;
    for (const char c : text) {
        const int value = value_of(c);
        if (value < 0) return std::nullopt;
        held = held << 6 | static_cast<uint32_t>(value);
        bits += 6;
        if (bits < 8) continue;
        bits -= 8;
        bytes += static_cast<char>(held >> bits & 0xff);
    }
    return bytes;
}

}  // namespace

std::optional<credentials> parse_basic(std::string_view authorization)
{
    constexpr std::string_view scheme = "Basic ";
    const bool basic =
        authorization.size() >= scheme.size() && strncasecmp(authorization.data(), scheme.data(), scheme.size()) == 0;
    if (!basic) return std::nullopt;
    authorization.remove_prefix(scheme.size());
    while (authorization.starts_with(' ')) authorization.remove_prefix(1);
    const auto text = decode_base64(authorization);
    const size_t colon = text ? text->find(':') : std::string::npos;
    if (colon == std::string::npos || text->find('\0') != std::string::npos) return std::nullopt;
    return credentials{text->substr(0, colon), text->substr(colon + 1)};
}

}  // namespace zel::web
