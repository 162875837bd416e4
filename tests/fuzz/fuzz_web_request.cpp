// Targets and headers of any content, through the parsers and rules that every request passes first.
//
// Input: a target, then header lines "Name: value", each ended by a line feed.
#include "basic_credentials.h"
#include "compression.h"
#include "request.h"
#include "request_rules.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdint>
#include <deque>
#include <string>

namespace {

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

sockaddr_storage loopback()
{
    sockaddr_storage address{};
    reinterpret_cast<sockaddr_in &>(address).sin_family = AF_INET;
    reinterpret_cast<sockaddr_in &>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace zel::web;
    static const host_names names(nullptr);
    std::deque<std::string> lines(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == '\n') lines.emplace_back();
        else lines.back() += static_cast<char>(data[i]);
    }
    request each;
    each.target = lines[0];
    const bool good = each.split_target();
    require(good == !each.path.empty() && each.path.find('\0') == std::string::npos && each.path.size() <= each.target.size());
    for (size_t i = 1; i < lines.size(); ++i) {
        const size_t colon = std::min(lines[i].find(": "), lines[i].size());
        const std::string_view line = lines[i];
        take_header(each.headers, line.substr(0, colon), colon < line.size() ? line.substr(colon + 2) : std::string_view(""));
    }
    each.method = size % 2 == 0 ? verb::get : verb::post;
    const error_reply form = check_form(each), origin = check_origin(each, names, loopback()), body = check_body(each);
    require(form.status == 0 || form.status == 400);
    require(origin.status == 0 || origin.status == 403);
    require(body.status == 0 || body.status == 413 || body.status == 415);
    // Who passes was asked for by a name of this machine, and posts from a page of it.
    if (origin.status == 0 && each.method == verb::post) require(!each.headers.origin.empty() || !each.headers.referer.empty());
    const auto given = parse_basic(each.headers.authorization);
    require(!given || (given->user.find(':') == std::string::npos && given->password.find('\0') == std::string::npos));
    (void)takes_gzip(each.headers.accept_encoding);
    return 0;
}
