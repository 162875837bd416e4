#include "service.h"

#include "common/utf8.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cstdio>

namespace zel::sdiscd {
namespace {

bool is_utf8(const std::string &text)
{
    const auto *const bytes = reinterpret_cast<const unsigned char *>(text.c_str());
    for (size_t at = 0; at < text.size();) {
        const utf8_piece piece = utf8_piece_at(bytes + at);
        if (!piece.well_formed) return false;
        at += static_cast<size_t>(piece.length);
    }
    return true;
}

bool is_letter_or_digit(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Reads the string in quotes that begins at `at`; leaves `at` behind its closing quote. False if there is none.
bool read_quoted(std::string_view text, size_t &at, std::string &out)
{
    for (++at; at < text.size(); ++at) {
        if (text[at] == '"') {
            ++at;
            return true;
        }
        const bool escapes = text[at] == '\\' && at + 1 < text.size() && (text[at + 1] == '"' || text[at + 1] == '\\');
        if (escapes) ++at;
        out.push_back(text[at]);
    }
    return false;
}

void read_bare(std::string_view text, size_t &at, std::string &out)
{
    for (; at < text.size() && text[at] != ' '; ++at) out.push_back(text[at]);
}

std::string quoted(const std::string &string)
{
    std::string text = "\"";
    for (const char c : string) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f) {
            char digits[8];
            (void)std::snprintf(digits, sizeof digits, "\\%03u", static_cast<unsigned>(byte));
            text += digits;
            continue;
        }
        if (c == '"' || c == '\\') text += '\\';
        text += c;
    }
    return text + '"';
}

}  // namespace

bool is_service_name(std::string_view name)
{
    if (name.empty() || name.size() > longest_service_name || name.find('\0') != std::string_view::npos) return false;
    return is_utf8(std::string(name));
}

std::string without_cut_character(std::string name)
{
    if (name.size() != longest_service_name) return name;
    constexpr size_t longest_rest = 3;
    for (size_t length = 1; length <= longest_rest; ++length) {
        const auto *const rest = reinterpret_cast<const unsigned char *>(name.c_str()) + name.size() - length;
        if ((*rest & 0xC0) == 0x80) continue;   // not the first byte of its character
        if (*rest >= 0xC0 && !utf8_piece_at(rest).well_formed) name.resize(name.size() - length);
        break;
    }
    return name;
}

bool is_printable(std::string_view text)
{
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    return std::ranges::none_of(text, is_control) && is_utf8(std::string(text));
}

bool is_service_type(std::string_view type)
{
    constexpr size_t longest_label = 15 + 1;
    const size_t dot = type.find('.');
    if (dot == std::string_view::npos || type[0] != '_' || dot < 2 || dot > longest_label) return false;
    const std::string_view protocol = type.substr(dot + 1);
    return (protocol == "_tcp" || protocol == "_udp") &&
           std::ranges::all_of(type.substr(1, dot - 1), [](char c) { return is_letter_or_digit(c) || c == '-'; });
}

bool is_local_domain(std::string_view domain)
{
    return domain.empty() || domain == "local" || domain == "local.";
}

std::optional<std::vector<std::string>> read_txt(std::string_view text, std::string &problem)
{
    std::vector<std::string> strings;
    for (size_t at = 0; at < text.size();) {
        if (text[at] == ' ') {
            ++at;
            continue;
        }
        std::string string;
        if (text[at] != '"') {
            read_bare(text, at, string);
        } else if (!read_quoted(text, at, string)) {
            problem = "a quote of the TXT text is not closed";
            return std::nullopt;
        }
        if (string.size() > longest_txt_string) {
            problem = "a TXT string has " + std::to_string(string.size()) + " bytes and may have 255";
            return std::nullopt;
        }
        if (!string.empty()) strings.push_back(std::move(string));
    }
    return strings;
}

std::string write_txt(const std::vector<std::string> &strings, size_t room)
{
    std::string text;
    for (const std::string &string : strings) {
        const std::string piece = (text.empty() ? "" : " ") + quoted(string);
        if (text.size() + piece.size() > room) break;
        text += piece;
    }
    return text;
}

std::string fault_of(const service_details &details, bool loopback)
{
    in_addr address{};
    if (inet_pton(AF_INET, details.address.c_str(), &address) != 1) return "no IPv4 address";
    const uint32_t number = ntohl(address.s_addr);
    if (number >> 24 == 0 || number >> 28 >= 0xe) return "an address that no host has";
    if (number >> 24 == IN_LOOPBACKNET && !loopback) return "an address of the loopback network from elsewhere";
    if (details.port == 0) return "port 0";
    return "";
}

}  // namespace zel::sdiscd
