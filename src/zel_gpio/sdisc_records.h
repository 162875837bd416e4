// Records exchanged with the discovery daemon, in the unit's native byte order: both ends run on one unit. The daemon's records
// may be longer than what is read here; texts are zero-terminated within their fields.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel {

inline constexpr char vgpo_service_type[] = "_zelvgpo._tcp";
inline constexpr size_t service_name_size = 64, strlist_size = 1024;

enum sdisc_type : uint8_t {
    sdisc_new_service = 2, sdisc_service_removed = 3, sdisc_name_collision = 4, sdisc_resolved = 5, sdisc_resolve_failed = 6,
    sdisc_browse = 7, sdisc_resolve = 8, sdisc_publish = 9, sdisc_unpublish = 10,
};

struct [[gnu::packed]] sdisc_lookup_record {
    int32_t interface;
    char type[64];
    char domain[1016];  // empty: the default domain
};
static_assert(offsetof(sdisc_lookup_record, type) == 4 && offsetof(sdisc_lookup_record, domain) == 68);
static_assert(sizeof(sdisc_lookup_record) == 1084);

struct [[gnu::packed]] sdisc_browse_record {
    int32_t interface;
    char unread[64];
    char name[64];
    char type[64];
    char domain[1];     // goes on to the end of the message
};
static_assert(offsetof(sdisc_browse_record, name) == 68 && offsetof(sdisc_browse_record, type) == 132);
static_assert(offsetof(sdisc_browse_record, domain) == 196);

struct [[gnu::packed]] sdisc_resolve_record {
    int32_t interface;
    char name[64];
    char host[64];
    char type[64];
    char address[40];
    uint16_t port;
    char strlist[1];    // goes on to the end of the message
};
static_assert(offsetof(sdisc_resolve_record, name) == 4 && offsetof(sdisc_resolve_record, host) == 68);
static_assert(offsetof(sdisc_resolve_record, type) == 132 && offsetof(sdisc_resolve_record, address) == 196);
static_assert(offsetof(sdisc_resolve_record, port) == 236 && offsetof(sdisc_resolve_record, strlist) == 238);

struct [[gnu::packed]] sdisc_publish_record {
    int32_t interface;
    char name[service_name_size];
    char type[64];
    char domain[64];
    uint16_t port;
    char strlist[strlist_size];
    char padding[2];
};
static_assert(offsetof(sdisc_publish_record, name) == 4 && offsetof(sdisc_publish_record, type) == 68);
static_assert(offsetof(sdisc_publish_record, domain) == 132 && offsetof(sdisc_publish_record, port) == 196);
static_assert(offsetof(sdisc_publish_record, strlist) == 198 && offsetof(sdisc_publish_record, padding) == 1222);
static_assert(sizeof(sdisc_publish_record) == 1224);

}  // namespace zel
