// One request: what was asked for, by which method, and the form that came with it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace zel::web {

struct connection;

enum class verb { get, head, post, other };

verb verb_of(std::string_view method);

// The headers that matter here. Borrowed from the server's memory of the request; empty where there is none.
struct request_headers {
    std::string_view host, origin, referer, content_type, content_length, transfer_encoding, accept_encoding, if_none_match,
        if_modified_since, authorization;
    bool repeated = false;   // one that may stand only once stands twice
};

// Keeps a header of that name, if it is one of them.
void take_header(request_headers &headers, std::string_view name, std::string_view value);

struct request {
    static constexpr size_t longest_body = 65536;

    std::string target;              // as it was sent
    std::string path, query;         // the path decoded, the query raw
    verb method = verb::other;
    request_headers headers;
    std::string body;
    bool checked = false;            // the rules let it pass
    bool body_too_long = false;
    connection *link = nullptr;
    // What was answered.
    unsigned status = 0;
    uint64_t size = 0;

    // Takes the target apart. False, with an empty path, for one that is none: not an absolute path, a zero byte in it, a broken
    // escape.
    bool split_target();
    // Adds a piece of the body; beyond the longest one nothing is kept.
    void add_body(std::string_view piece);
};

}  // namespace zel::web
