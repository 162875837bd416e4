#include "zel_gpio/vgpo_discovery.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "vgpo_list/vgpo_list.h"
#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/ember_nodes.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/remote_vgpos.h"
#include "zel_gpio/sdisc_records.h"
#include "zel_gpio/snmp_info.h"
#include "zel_gpio/vgpi_links.h"

namespace zel {

namespace {

// Where the text of `key` begins, if anything follows the key; else null.
const char *value_of(const char *strlist, const char *key)
{
    const char *const found = std::strstr(strlist, key);
    if (found == nullptr || found[std::strlen(key)] == '\0') return nullptr;
    return found + std::strlen(key);
}

size_t path_length(const char *path)
{
    const char *end = std::strchr(path, ',');
    if (end == nullptr) end = std::strchr(path, '"');
    return end != nullptr ? static_cast<size_t>(end - path) : std::strlen(path);
}

char *joined(const char *path, size_t length, const char *suffix)
{
    const size_t suffix_size = std::strlen(suffix) + 1;
    char *const text = static_cast<char *>(std::malloc(length + suffix_size));
    if (text == nullptr) return nullptr;
    std::memcpy(text, path, length);
    std::memcpy(text + length, suffix, suffix_size);
    return text;
}

// Stores path and suffix unless the stored text begins with the path already. 1, 0 or -1 as parse_strlist.
int32_t store_path(const vGPO_t &vgpo, char *&stored, const char *path, size_t length, const char *suffix)
{
    if (stored != nullptr && std::strncmp(stored, path, length) == 0) return 0;
    if (stored != nullptr && vgpo.name != nullptr) forget_remote_path(vgpo.name, stored);
    release_text(stored);
    stored = joined(path, length, suffix);
    if (stored != nullptr) return 1;
    log_message(0, "%s: Failed to allocate memory for vGPO strlist\n", "parse_strlist");
    return -1;
}

void read_port_override(uint16_t *port, const char *digits)
{
    unsigned long number = 0;
    for (; *digits >= '0' && *digits <= '9' && number <= UINT16_MAX; ++digits) number = number * 10 + static_cast<unsigned>(*digits - '0');
    if (number > UINT16_MAX) {
        log_message(1, "%s: Ignoring a provider port that is no port number\n", "parse_strlist");
        return;
    }
    *port = static_cast<uint16_t>(number);
    log_message(4, "%s: Got override for provider port: %u\n", "parse_strlist", *port);
}

// The record of that name, made and appended if there was none. Null if memory is short.
vGPO_t *find_or_append(const char *name)
{
    constexpr const char *function = "add_remote_vgpo";
    if (vGPO_t *const known = find_vgpo_by_name(&remote_vgpos, name)) return known;
    vGPO_t *const vgpo = take_vgpo_record(&remote_vgpos);
    const uint32_t count = remote_vgpos.count;
    if (vgpo != nullptr) vgpo_list_add_last(&remote_vgpos, vgpo);
    if (remote_vgpos.count == count) {
        std::free(vgpo);
        log_message(0, "%s: Failed to allocate vGPO_t\n", function);
        return nullptr;
    }
    log_message(4, "%s: %d Remote vGPOs currently in list\n", function, static_cast<int>(remote_vgpos.count));
    return vgpo;
}

bool name_record(vGPO_t &vgpo, const char *name)
{
    if (vgpo.name != nullptr) return true;
    log_message(2, "%s: Adding newly discovered remote vgpo '%s' to list...\n", "add_remote_vgpo", name);
    vgpo.name = strdup(name);
    if (vgpo.name == nullptr) log_message(0, "%s: Failed to allocate memory for vGPO name\n", "add_remote_vgpo");
    return vgpo.name != nullptr;
}

bool store_address(vGPO_t &vgpo, const char *address, uint16_t port)
{
    const size_t size = std::strlen(address) + sizeof(":65535");
    release_text(vgpo.addr_port);
    vgpo.addr_port = static_cast<char *>(std::malloc(size));
    if (vgpo.addr_port == nullptr) {
        log_message(0, "%s: Failed to allocate memory for IP address and port in vGPO list\n", "add_remote_vgpo");
        return false;
    }
    std::snprintf(vgpo.addr_port, size, "%s:%u", address, port);
    return true;
}

// True if all that was given is stored; `changed` tells whether followers have to connect anew.
bool fill_record(vGPO_t &vgpo, const char *name, const char *address, uint16_t port, const char *strlist, bool &changed)
{
    if (!name_record(vgpo, name)) return false;
    if (vgpo.ember_param == nullptr)
        vgpo.ember_param = add_name_leaf(nodes.vgpo_sources, "v-%d", static_cast<int32_t>(vgpo.id), vgpo.name);
    if (strlist != nullptr) {
        const int32_t parsed = parse_strlist(&vgpo, &port, strlist);
        if (parsed == -1) {
            log_message(0, "%s: Failed to parse strlist\n", "add_remote_vgpo");
            return false;
        }
        changed = parsed == 1;
    }
    if (address == nullptr) return true;
    changed = true;
    return store_address(vgpo, address, port);
}

// Leaves the record in its place in the list, where no lookup finds it any more; it is released with the list. `was_told`: the
// agent knows it.
void empty_record(vGPO_t &vgpo, bool was_told)
{
    remove_element(vgpo.ember_param);
    if (was_told) snmp_send_vgpo_removed(vgpo.id);
    for (char **const text : {&vgpo.type_path, &vgpo.status_path, &vgpo.name, &vgpo.addr_port}) release_text(*text);
}

void reset_vgpi(gpio_port_t &port)
{
    const bool changed = port.state != 0 || port.vgpi_session != nullptr;
    close_vgpi_session(port.index);
    port.state = 0;
    zel_gpio_notify_trigger_event(port.trig_ids[0], 0);
    if (port.ember_vgpo_src != nullptr) (void)publish_int64(port.ember_state, 0);
    if (changed) snmp_send_gpio_info(port.index);
}

}  // namespace

int32_t sdisc_init()
{
    sdisc_client = zel_ipc_client_init("zel_sdiscd", "zel_gpio", zel_sdisc_ipc_cb, nullptr);
    if (sdisc_client == nullptr) {
        log_message(0, "%s: Failed to setup zel_sdiscd ipc client for zel_gpio\n", __func__);
        return -1;
    }
    sdisc_lookup_record lookup{};
    lookup.interface = zel_net_config_ifindex(publish_config);
    std::memcpy(lookup.type, vgpo_service_type, sizeof vgpo_service_type);
    if (zel_ipc_client_send(sdisc_client, sdisc_browse, &lookup, sizeof lookup) != -1) return 0;
    log_message(0, "%s: Failed to send lookup request to zel_sdiscd\n", __func__);
    return -1;
}

int32_t parse_strlist(vGPO_t *vgpo, uint16_t *port, const char *strlist)
{
    zel_assert(vgpo != NULL);
    zel_assert(port != NULL);
    zel_assert(strlist != NULL);
    int32_t result = 0;
    if (const char *const path = value_of(strlist, "path=")) {
        const size_t length = path_length(path);
        const int32_t type = store_path(*vgpo, vgpo->type_path, path, length, "/type");
        const int32_t status = store_path(*vgpo, vgpo->status_path, path, length, "/status");
        result = status != 0 ? status : type;  // the later attempt decides
    }
    if (const char *const digits = value_of(strlist, "altport=")) read_port_override(port, digits);
    return result;
}

int32_t reset_vgpis_following(const char *name)
{
    int32_t result = 0;
    for_each_virtual_port([&](gpio_port_t &port) {
        if (!follows(port, name)) return;
        reset_vgpi(port);
        result = 1;
    });
    return result;
}

vGPO_t *add_remote_vgpo(const char *name, const char *address, uint16_t port, const char *strlist)
{
    zel_assert(name != NULL);
    if (name[0] == '\0') return nullptr;
    const bool was_known = find_vgpo_by_name(&remote_vgpos, name) != nullptr;
    vGPO_t *const vgpo = find_or_append(name);
    if (vgpo == nullptr) return nullptr;
    bool changed = false;
    if (!fill_record(*vgpo, name, address, port, strlist, changed)) {
        empty_record(*vgpo, was_known);
        return nullptr;
    }
    const int32_t id = static_cast<int32_t>(vgpo->id);
    if (changed) {
        for_each_virtual_port([&](gpio_port_t &vgpi) {
            if (follows(vgpi, name)) (void)connect_vgpi_to_vgpo(vgpi.index);
        });
    }
    snmp_send_vgpo_info(id);
    return find_vgpo_by_name(&remote_vgpos, name);
}

int get_vgpo_src_list(char *buf, size_t size, int pos)
{
    zel_assert(buf != NULL);
    const auto put = [&](const char *name) {
        pos = zel_json_writer_new_obj(buf, size, pos, nullptr);
        pos = zel_json_writer_put_str(buf, size, pos, "name", name);
        pos = zel_json_writer_end_obj(buf, size, pos);
    };
    pos = zel_json_writer_new_array(buf, size, pos, "vgpo_src_list");
    put("-");
    for (const vgpo_node_t *node = remote_vgpos.head; node != nullptr; node = node->next) {
        if (node->vgpo->name != nullptr) put(node->vgpo->name);
    }
    return zel_json_writer_end_array(buf, size, pos);
}

}  // namespace zel
