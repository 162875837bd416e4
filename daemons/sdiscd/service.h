// What a service is, and which texts may be one. Texts come from clients and from the network: hostile until checked here.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zel::sdiscd {

inline constexpr size_t longest_service_name = 63;
inline constexpr size_t longest_txt_string = 255;   // the length byte of a TXT record holds no more

// A service under its name; the domain is always the local one.
struct service_id {
    std::string type, name;
    auto operator<=>(const service_id &) const = default;
};

// Where a service can be reached. Texts of the TXT record are as on the wire, without quotes.
struct service_details {
    std::string host, address;   // the address in digits
    uint16_t port = 0;
    std::vector<std::string> txt;
    bool operator==(const service_details &) const = default;
};

bool is_service_name(std::string_view name);   // 1 to 63 bytes of UTF-8 without a zero
// The name of a unit may be too long for a field and be cut inside of a character: such a rest is taken off a name that fills it.
std::string without_cut_character(std::string name);
bool is_service_type(std::string_view type);   // "_name._tcp" or "_name._udp"
bool is_printable(std::string_view text);        // UTF-8 without control characters
bool is_local_domain(std::string_view domain); // "", "local" or "local."

// The strings of a TXT text: each in double quotes, with blanks between them; inside the quotes a backslash stands before a
// quote or backslash. A string without quotes ends at a blank. Nothing, with a reason in `problem`, for a text that is none.
std::optional<std::vector<std::string>> read_txt(std::string_view text, std::string &problem);
// The text of these strings in at most `room` bytes; what does not fit ends at a whole string. Control characters become \DDD.
std::string write_txt(const std::vector<std::string> &strings, size_t room);

// What is wrong with details that came from the network; empty: nothing. `loopback`: they came over the loopback interface.
std::string fault_of(const service_details &details, bool loopback);

}  // namespace zel::sdiscd
