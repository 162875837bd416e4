#include "request.h"

#include <strings.h>

namespace zel::web {
namespace {

struct header_row {
    std::string_view name;
    std::string_view request_headers::*member;
};
constexpr header_row header_rows[] = {
    {"Host", &request_headers::host},
    {"Origin", &request_headers::origin},
    {"Referer", &request_headers::referer},
    {"Content-Type", &request_headers::content_type},
    {"Content-Length", &request_headers::content_length},
    {"Transfer-Encoding", &request_headers::transfer_encoding},
    {"Accept-Encoding", &request_headers::accept_encoding},
    {"If-None-Match", &request_headers::if_none_match},
    {"If-Modified-Since", &request_headers::if_modified_since},
    {"Authorization", &request_headers::authorization},
};

bool same_name(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

int hex_value(char digit)
{
    if (digit >= '0' && digit <= '9') return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// False for an escape that is none, and for a zero byte, escaped or not.
bool decode_path(std::string_view text, std::string &path)
{
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\0') return false;
        if (text[i] != '%') {
            path += text[i];
            continue;
        }
        const int high = i + 2 < text.size() ? hex_value(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_value(text[i + 2]) : -1;
        if (low < 0 || high * 16 + low == 0) return false;
        path += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

}  // namespace

verb verb_of(std::string_view method)
{
    if (method == "GET") return verb::get;
    if (method == "HEAD") return verb::head;
    return method == "POST" ? verb::post : verb::other;
}

void take_header(request_headers &headers, std::string_view name, std::string_view value)
{
    for (const header_row &row : header_rows) {
        if (!same_name(row.name, name)) continue;
        std::string_view &kept = headers.*row.member;
        const bool may_repeat = row.member == &request_headers::accept_encoding || row.member == &request_headers::if_none_match;
        if (kept.data() != nullptr && !may_repeat) headers.repeated = true;
        if (kept.data() == nullptr) kept = value.data() != nullptr ? value : std::string_view("");
    }
}

bool request::split_target()
{
    const size_t mark = target.find('?');
    query = mark == std::string::npos ? "" : target.substr(mark + 1);
    path.clear();
    const bool good = target.starts_with('/') && decode_path(std::string_view(target).substr(0, mark), path);
    if (!good) path.clear();
    return good;
}

void request::add_body(std::string_view piece)
{
    if (body.size() + piece.size() > longest_body) body_too_long = true;
    if (!body_too_long) body.append(piece);
}

}  // namespace zel::web
