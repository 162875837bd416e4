// What goes over the local link between the daemon and its clients: the records as they lie in the messages, and their checks.
//
// Integers are in the machine's own byte order, both ends run on one unit. Texts are padded with zeros; one that fills its
// field has no terminator. A message may be longer than its record, a shorter one is malformed.
#pragma once

#include "service.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zel::sdiscd {

enum message_type : uint8_t {
    new_service = 2, service_removed = 3, name_collision = 4, service_resolved = 5, resolve_failed = 6,
    browse_request = 7, resolve_request = 8, publish_request = 9, unpublish_request = 10,
};

inline constexpr size_t domain_size = 1014;         // the longest full domain name with its terminator
inline constexpr size_t txt_size = 1024;
inline constexpr size_t longest_request = 4096;     // twice and more what any record has; longer ones are no requests

struct [[gnu::packed]] lookup_record {
    int32_t interface;
    char type[64];
    char domain[domain_size];   // empty: the default domain
    char padding[2];
};
static_assert(offsetof(lookup_record, type) == 4 && offsetof(lookup_record, domain) == 68 && sizeof(lookup_record) == 1084);

struct [[gnu::packed]] browse_record {
    int32_t interface;
    char host[64];              // left empty: not known before the service is resolved
    char name[64];
    char type[64];
    char domain[domain_size];
    char padding[2];
};
static_assert(offsetof(browse_record, host) == 4 && offsetof(browse_record, name) == 68 && offsetof(browse_record, type) == 132);
static_assert(offsetof(browse_record, domain) == 196 && sizeof(browse_record) == 1212);

struct [[gnu::packed]] resolve_record {
    int32_t interface;
    char name[64];
    char host[64];
    char type[64];
    char address[40];
    uint16_t port;
    char txt[txt_size];
    char padding[2];
};
static_assert(offsetof(resolve_record, name) == 4 && offsetof(resolve_record, host) == 68 && offsetof(resolve_record, type) == 132);
static_assert(offsetof(resolve_record, address) == 196 && offsetof(resolve_record, port) == 236);
static_assert(offsetof(resolve_record, txt) == 238 && sizeof(resolve_record) == 1264);

struct [[gnu::packed]] publish_record {
    int32_t interface;
    char name[64];
    char type[64];
    char domain[64];
    uint16_t port;
    char txt[txt_size];
    char padding[2];
};
static_assert(offsetof(publish_record, name) == 4 && offsetof(publish_record, type) == 68);
static_assert(offsetof(publish_record, domain) == 132 && offsetof(publish_record, port) == 196);
static_assert(offsetof(publish_record, txt) == 198 && offsetof(publish_record, padding) == 1222 && sizeof(publish_record) == 1224);

// Requests, checked. The interface is still the index that the client gave.
struct lookup_order {
    int32_t interface = 0;
    std::string type;
};
struct resolve_order {
    int32_t interface = 0;
    service_id service;
};
struct publish_order {
    int32_t interface = 0;
    service_id service;
    uint16_t port = 0;
    std::vector<std::string> txt;
};

// False for a payload that is no such request; `problem` then says why, in a few words. May throw std::bad_alloc.
bool read_lookup(std::string_view payload, lookup_order &out, std::string &problem);
bool read_resolve(std::string_view payload, resolve_order &out, std::string &problem);
bool read_publish(std::string_view payload, publish_order &out, std::string &problem);
bool read_unpublish(std::string_view payload, std::string &name, std::string &problem);

browse_record make_browse_record(int32_t interface, const service_id &service);
resolve_record make_resolve_record(int32_t interface, const service_id &service, const service_details &details);

template <class record>
std::span<const uint8_t> bytes_of(const record &of)
{
    return {reinterpret_cast<const uint8_t *>(&of), sizeof of};
}

}  // namespace zel::sdiscd
