#include "zel_gpio/vgpo_publishing.h"

#include <cstdio>
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/sdisc_records.h"

namespace zel {

namespace {

constexpr char path_prefix[] = "\"path=";

bool is_virtual_output(const gpio_port_t &port, const char *function)
{
    if (port.gpio_class == class_virtual && port.type == type_output) return true;
    log_message(0, "%s: Gpio at index %d is invalid (either not virtual or not an output)\n", function, port.index);
    return false;
}

// The service's name as it goes on the wire. False if there is no daemon or no name.
bool name_service(int32_t index, char (&name)[service_name_size], const char *function)
{
    if (sdisc_client == nullptr) {
        log_message(0, "%s: sdisc_client is NULL\n", function);
        return false;
    }
    if (get_vgpo_service_name(index, name, sizeof name) == 0) return true;
    log_message(0, "%s: Failed to get vgpo service name for index %d\n", function, index);
    return false;
}

}  // namespace

int32_t get_vgpo_service_name(int32_t index, char *name, size_t size)
{
    zel_assert(name != NULL);
    if (udp_config == nullptr) {
        log_message(0, "%s: Unable to fetch friendly name for vGPO service name (net_cfg is NULL)\n", __func__);
        return -1;
    }
    if (!is_virtual_output(gpios[index], __func__)) return -1;
    std::snprintf(name, size, "vGPO%d@%s", index - phys_gpio_count + 1, zel_net_config_get_fname(udp_config));
    return 0;
}

int32_t get_vgpo_strlist(int32_t index, char *strlist, size_t size)
{
    zel_assert(strlist != NULL);
    const gpio_port_t &port = gpios[index];
    if (!is_virtual_output(port, __func__)) return -1;
    if (port.ember_node == nullptr) {
        log_message(0, "%s: zel_ember node for gpio index %d is NULL\n", __func__, index);
        return -1;
    }
    // The path may take as many bytes as the whole text has, which is more than is left behind the prefix.
    char path[strlist_size];
    const size_t path_size = size < sizeof path ? size : sizeof path;
    if (zel_ember_get_path(ember_provider, port.ember_node, path, path_size) != 0) {
        log_message(0, "%s: Failed to get path for gpio index %d\n", __func__, index);
        return -1;
    }
    const int length = std::snprintf(strlist, size, "%s%s\"", path_prefix, path);
    if (length >= 0 && static_cast<size_t>(length) < size) return 0;
    log_message(0, "%s: Ran out of space for strlist\n", __func__);
    return -1;
}

void publish_vgpo(int32_t index)
{
    sdisc_publish_record record{};
    char name[service_name_size], strlist[strlist_size];
    if (!name_service(index, name, __func__)) return;
    if (get_vgpo_strlist(index, strlist, sizeof strlist) != 0) {
        log_message(0, "%s: Failed to get vgpo service path for index %d\n", __func__, index);
        return;
    }
    record.interface = zel_net_config_ifindex(publish_config);
    record.port = ember_port_number;
    std::memcpy(record.name, name, std::strlen(name));
    std::memcpy(record.type, vgpo_service_type, sizeof vgpo_service_type);
    std::memcpy(record.strlist, strlist, std::strlen(strlist));
    log_message(2, "%s: Publishing service '%s' (strlist = '%s')\n", __func__, name, strlist);
    if (zel_ipc_client_send(sdisc_client, sdisc_publish, &record, sizeof record) == -1)
        log_message(0, "%s: Failed to send ZEL_SDISC_PUBLISH SERVICE_CMD message to zel_sdiscd for service '%s'\n", __func__, name);
}

void unpublish_vgpo(int32_t index)
{
    char name[service_name_size];
    if (!name_service(index, name, __func__)) return;
    (void)zel_ipc_client_send(sdisc_client, sdisc_unpublish, name, static_cast<uint32_t>(std::strlen(name) + 1));
}

}  // namespace zel
