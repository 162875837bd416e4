// The requests of the pins' control socket: one line in, one line out.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zel {

inline constexpr size_t longest_request = 127;

struct request_effects {
    bool watches = false;         // the client asks for changes
    bool moves_contact = false;  // that of some input
};

// The answer to one request, without its line feed. Contacts that a request moves are seen by all watchers before it is
// answered. May throw std::bad_alloc.
std::string answer_request(std::string_view request, request_effects &effects);

// What a watcher is told of a change, with its line feed.
std::string change_text(int32_t pin, int32_t direction, int level);

}  // namespace zel
