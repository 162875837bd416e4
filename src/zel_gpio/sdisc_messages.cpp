// Messages of the discovery daemon. Their texts come from other units and are copied out of their fields before use.
#include <cstring>
#include <initializer_list>

#include "zel_debug.h"
#include "zel_gpio/list_text.h"
#include "zel_gpio/remote_vgpos.h"
#include "zel_gpio/sdisc_records.h"
#include "zel_gpio/vgpo_discovery.h"

using namespace zel;

namespace {

constexpr size_t domain_size = 1015;  // the longest full domain name, with its terminator

// The text of a field, which ends at its first zero or at its size.
template <size_t size>
struct field_text {
    char text[size + 1];

    explicit field_text(const char *field, size_t available = size)
    {
        const size_t length = strnlen(field, available < size ? available : size);
        std::memcpy(text, field, length);
        text[length] = '\0';
    }
};

struct message {
    const uint8_t *bytes;
    uint32_t length;

    const char *at(size_t offset) const { return reinterpret_cast<const char *>(bytes + offset); }
    int32_t interface() const
    {
        int32_t index;
        std::memcpy(&index, bytes, sizeof index);
        return index;
    }
};

// What a browse record says: found or gone.
struct browsed_service {
    explicit browsed_service(const message &m)
        : interface(m.interface()), name(m.at(offsetof(sdisc_browse_record, name))),
          type(m.at(offsetof(sdisc_browse_record, type))),
          domain(m.at(offsetof(sdisc_browse_record, domain)), m.length - offsetof(sdisc_browse_record, domain))
    {
    }

    int32_t interface;
    field_text<64> name, type;
    field_text<domain_size> domain;
};

bool is_ours(const char *type, const char *name, const char *message_name)
{
    if (std::strcmp(type, vgpo_service_type) == 0) return true;
    log_message(1, "%s: Ignoring %s for '%s' as it is the incorrect type: '%s'\n", "zel_sdisc_ipc_cb", message_name, name, type);
    return false;
}

void service_found(const message &m)
{
    constexpr const char *function = "zel_sdisc_ipc_cb";
    const browsed_service service(m);
    log_message(4, "%s: Found new service: '%s' interface = %d, type = '%s', domain = '%s'\n", function, service.name.text,
                service.interface, service.type.text, service.domain.text);
    if (!is_ours(service.type.text, service.name.text, "ZEL_SDISC_NEW_SERVICE_MSG")) return;
    if (zel_ipc_client_send(sdisc_client, sdisc_resolve, m.bytes, m.length) == -1)
        log_message(0, "%s: Failed to send resolve request to zel_sdiscd for service '%s'\n", function, service.name.text);
}

void service_removed(const message &m)
{
    const browsed_service service(m);
    log_message(4, "%s: Service removed: '%s' interface = %d, type = '%s', domain = '%s'\n", "zel_sdisc_ipc_cb", service.name.text,
                service.interface, service.type.text, service.domain.text);
    if (!is_ours(service.type.text, service.name.text, "ZEL_SDISC_SERVICE_REMOVED_MSG")) return;
    const int32_t followed = reset_vgpis_following(service.name.text);
    vGPO_t *const vgpo = find_vgpo_by_name(&remote_vgpos, service.name.text);
    if (vgpo == nullptr) return;
    if (followed == 0) {
        drop_remote_vgpo(*vgpo);
        return;
    }
    // The name stays and waits for the service to return.
    for (char **const text : {&vgpo->addr_port, &vgpo->type_path, &vgpo->status_path}) release_text(*text);
}

void name_collision(const message &)
{
    log_message(1, "%s: ZEL_SDISC_SERVICE_NAME_COLLISION_MSG\n", "zel_sdisc_ipc_cb");
}

void service_resolved(const message &m)
{
    const field_text<64> name(m.at(offsetof(sdisc_resolve_record, name))), host(m.at(offsetof(sdisc_resolve_record, host))),
        type(m.at(offsetof(sdisc_resolve_record, type)));
    const field_text<40> address(m.at(offsetof(sdisc_resolve_record, address)));
    const field_text<strlist_size> strlist(m.at(offsetof(sdisc_resolve_record, strlist)),
                                           m.length - offsetof(sdisc_resolve_record, strlist));
    uint16_t port;
    std::memcpy(&port, m.at(offsetof(sdisc_resolve_record, port)), sizeof port);
    log_message(4, "%s: Service '%s' resolved: interface=%d type='%s' host='%s' addr='%s' port=%u txt='%s'\n", "zel_sdisc_ipc_cb",
                name.text, m.interface(), type.text, host.text, address.text, port, strlist.text);
    if (is_ours(type.text, name.text, "ZEL_SDISC_SERVICE_RESOLVE_MSG"))
        (void)add_remote_vgpo(name.text, address.text, port, strlist.text);
}

void resolve_failed(const message &)
{
    log_message(0, "%s: ZEL_SDISC_SERVICE_RESOLVE_FAILED_MSG\n", "zel_sdisc_ipc_cb");
}

struct message_row {
    uint8_t type;
    size_t shortest;
    void (*take)(const message &);
};

constexpr message_row rows[] = {
    {sdisc_new_service, sizeof(sdisc_browse_record), service_found},
    {sdisc_service_removed, sizeof(sdisc_browse_record), service_removed},
    {sdisc_name_collision, 0, name_collision},
    {sdisc_resolved, sizeof(sdisc_resolve_record), service_resolved},
    {sdisc_resolve_failed, 0, resolve_failed},
};

}  // namespace

void zel_sdisc_ipc_cb(zel_ipc_client_t *, uint8_t type, const void *payload, uint32_t length)
{
    for (const message_row &row : rows) {
        if (row.type != type) continue;
        if (row.shortest > 0 && (payload == nullptr || length < row.shortest))
            log_message(1, "%s: Ignoring a message of type %u that is too short (%u bytes)\n", __func__, type, length);
        else
            row.take({static_cast<const uint8_t *>(payload), length});
        return;
    }
}
