// Compressed bodies, where they pay.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zel::web {

// Whether the client takes gzip; `accept_encoding` as it was sent.
bool takes_gzip(std::string_view accept_encoding);
// Whether a text of this type and length is worth it: what fits one packet is not, nor what is compressed already.
bool is_worth_compressing(std::string_view content_type, size_t length);
// Nothing when it fails or does not become shorter. `level` 1 (quick) to 9.
std::optional<std::string> gzip(std::string_view text, int level);

}  // namespace zel::web
