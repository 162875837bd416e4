// The user and password of an Authorization header, as HTTP Basic gives them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zel::web {

struct credentials {
    std::string user, password;
};

// Nothing for another scheme, bad base64, a missing ':' or a zero byte.
std::optional<credentials> parse_basic(std::string_view authorization);

}  // namespace zel::web
