#include "request_rules.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

namespace zel::web {
namespace {

std::string lower_case(std::string_view text)
{
    std::string lower(text);
    for (char &c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c | 0x20);
    }
    return lower;
}

// The host of an authority, without its port and the brackets of an address: "[::1]:8080" gives "::1".
std::string_view host_of(std::string_view authority)
{
    if (authority.starts_with('[')) return authority.substr(1, authority.find(']') - 1);
    return authority.substr(0, authority.rfind(':'));
}

// IPv4 addresses come as the IPv6 addresses that stand for them, so that both kinds compare.
in6_addr mapped(const in_addr &address)
{
    in6_addr wide{};
    wide.s6_addr[10] = wide.s6_addr[11] = 0xff;
    std::memcpy(wide.s6_addr + 12, &address, sizeof address);
    return wide;
}

bool parse_address(const std::string &text, in6_addr &address)
{
    in_addr narrow{};
    if (inet_pton(AF_INET, text.c_str(), &narrow) == 1) {
        address = mapped(narrow);
        return true;
    }
    return inet_pton(AF_INET6, text.c_str(), &address) == 1;
}

in6_addr address_of(const sockaddr_storage &local)
{
    if (local.ss_family == AF_INET) return mapped(reinterpret_cast<const sockaddr_in &>(local).sin_addr);
    return reinterpret_cast<const sockaddr_in6 &>(local).sin6_addr;
}

bool is_loopback(const in6_addr &address)
{
    return IN6_IS_ADDR_LOOPBACK(&address) || (IN6_IS_ADDR_V4MAPPED(&address) && address.s6_addr[12] == 127);
}

// "http://host:port" and "http://host:port/path" give "host:port"; anything else nothing.
std::string_view authority_of(std::string_view url)
{
    for (const std::string_view scheme : {std::string_view("http://"), std::string_view("https://")}) {
        if (!url.starts_with(scheme)) continue;
        url.remove_prefix(scheme.size());
        return url.substr(0, url.find_first_of("/?#"));
    }
    return {};
}

bool same_host(std::string_view url, std::string_view host)
{
    const std::string_view authority = authority_of(url);
    return !authority.empty() && lower_case(authority) == lower_case(host);
}

}  // namespace

host_names::host_names(const char *const *others)
{
    names_.emplace_back("localhost");
    char own[256] = "";
    if (gethostname(own, sizeof own - 1) == 0 && own[0] != '\0') {
        names_.push_back(lower_case(own));
        names_.push_back(lower_case(own) + ".local");
    }
    for (; others != nullptr && *others != nullptr; ++others) names_.push_back(lower_case(*others));
}

// An address in the Host is what the browser connected to, so it must be the one that the connection arrived at; a name can be
// made to point anywhere, so only known ones count.
bool host_names::accept(std::string_view host, const sockaddr_storage &local) const
{
    std::string name = lower_case(host_of(host));
    if (name.ends_with('.')) name.pop_back();
    if (std::ranges::find(names_, name) != names_.end()) return true;
    in6_addr named{};
    if (!parse_address(name, named)) return false;
    const in6_addr own = address_of(local);
    return std::memcmp(&named, &own, sizeof own) == 0 || (is_loopback(named) && is_loopback(own));
}

// Two lengths, or a length beside chunks, are how requests are smuggled past whoever reads them otherwise.
error_reply check_form(const request &each)
{
    if (each.path.empty()) return {400, "the path cannot be understood", nullptr, ""};
    if (each.headers.repeated) return {400, "a header stands twice", nullptr, ""};
    if (each.headers.content_length.data() != nullptr && each.headers.transfer_encoding.data() != nullptr) {
        return {400, "the body has two lengths", nullptr, ""};
    }
    if (each.headers.host.empty()) return {400, "the Host is missing", nullptr, ""};
    return {};
}

error_reply check_origin(const request &each, const host_names &names, const sockaddr_storage &local)
{
    const request_headers &headers = each.headers;
    if (!names.accept(headers.host, local)) return {403, "this server is not known by that name", nullptr, ""};
    if (headers.origin.data() != nullptr) {
        if (same_host(headers.origin, headers.host)) return {};
        return {403, "the request comes from another site", nullptr, ""};
    }
    if (each.method != verb::post) return {};
    if (headers.referer.data() == nullptr) return {403, "a POST needs an Origin", nullptr, ""};
    if (same_host(headers.referer, headers.host)) return {};
    return {403, "the request comes from another site", nullptr, ""};
}

error_reply check_body(const request &each)
{
    constexpr std::string_view form = "application/x-www-form-urlencoded";
    const std::string_view type = each.headers.content_type.substr(0, each.headers.content_type.find(';'));
    const std::string_view trimmed = type.substr(0, type.find_last_not_of(" \t") + 1);
    if (trimmed.size() != form.size() || strncasecmp(trimmed.data(), form.data(), form.size()) != 0) {
        return {415, "a POST is a form (application/x-www-form-urlencoded)", nullptr, ""};
    }
    const std::string_view length = each.headers.content_length;
    uint64_t announced = 0;
    const auto [stop, error] = std::from_chars(length.data(), length.data() + length.size(), announced);
    const bool too_long = error == std::errc::result_out_of_range || announced > request::longest_body;
    if (!length.empty() && too_long) return {413, "the form is too long", nullptr, ""};
    return {};
}

}  // namespace zel::web
