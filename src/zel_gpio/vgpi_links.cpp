#include "zel_gpio/vgpi_links.h"

#include <cstdio>
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/kept_texts.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/remote_vgpos.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

namespace {

constexpr int32_t link_timeout_s = 10;
constexpr int32_t max_retries = 3;

// One of the two remote parameters that an input follows.
struct followed_value {
    char *vGPO_t::*path;
    int32_t vGPO_t::*retries;
    zel_ember_value_cb_t callback;
};

void vgpo_type_cb(void *name, const char *path, uint32_t kind, const void *value);
void vgpo_state_cb(void *name, const char *path, uint32_t kind, const void *value);
constexpr followed_value remote_type{&vGPO_t::type_path, &vGPO_t::type_retries, vgpo_type_cb};
constexpr followed_value remote_state{&vGPO_t::status_path, &vGPO_t::state_retries, vgpo_state_cb};

// 0, or -1. `source` is handed back by the callback.
int32_t request(zel_ember_session_t *session, const vGPO_t &vgpo, const followed_value &what, const char *source)
{
    if (session == nullptr || vgpo.*what.path == nullptr) return -1;
    return zel_ember_get_param(session, vgpo.*what.path, const_cast<char *>(source), what.callback);
}

vGPO_t *find_record(const char *name, const char *function)
{
    vGPO_t *const vgpo = name != nullptr ? find_vgpo_by_name(&remote_vgpos, name) : nullptr;
    if (vgpo == nullptr) log_message(0, "%s: Failed to find vGPO named '%s' in list\n", function, name != nullptr ? name : "");
    return vgpo;
}

template <typename visitor>
void for_each_user_of(const zel_ember_session_t *session, const visitor &visit)
{
    if (session == nullptr) return;
    for (int32_t i = vgpi_session_ports.next(0, 0); i != none; i = vgpi_session_ports.next(0, i + 1)) {
        if (gpios[i].vgpi_session == session) visit(gpios[i]);
    }
}

void port_lost(gpio_port_t &port)
{
    log_message(2, "%s: vGPO_src: '%s' no longer valid\n", "vgpi_connect_cb", port.vgpo_src);
    port.vgpo_src_valid = 0;
}

void port_found_again(gpio_port_t &port, const char *address, uint16_t port_number)
{
    constexpr const char *function = "vgpi_connect_cb";
    port.vgpo_src_valid = 1;
    log_message(2, "%s: vGPO_src: '%s' now valid\n", function, port.vgpo_src);
    const vGPO_t *const vgpo = find_record(port.vgpo_src, function);
    if (vgpo != nullptr && request(port.vgpi_session, *vgpo, remote_type, port.vgpo_src) == -1)
        log_message(0, "%s: Get vGPO type param failed (src addr = '%s:%u')\n", function, address, port_number);
}

zel_ember_session_t *find_shared_session(const char *address)
{
    for (int32_t i = vgpi_session_ports.next(0, 0); i != none; i = vgpi_session_ports.next(0, i + 1)) {
        const gpio_port_t &port = gpios[i];
        if (port.vgpi_session == nullptr || port.vgpi_provider_addr == nullptr) continue;
        if (std::strcmp(port.vgpi_provider_addr, address) == 0) return port.vgpi_session;
    }
    return nullptr;
}

// The session that calls back carries the port that made it. That port may have left it to others since, and may even have
// made another; the provider's address tells.
const zel_ember_session_t *calling_session(const gpio_port_t &maker, const char *address, uint16_t port_number)
{
    char provider[64];
    const int length = std::snprintf(provider, sizeof provider, "%s:%u", address, port_number);
    if (length < 0 || static_cast<size_t>(length) >= sizeof provider) return maker.vgpi_session;
    const char *const own = maker.vgpi_provider_addr;
    const bool is_own = maker.vgpi_session != nullptr && (own == nullptr || std::strcmp(own, provider) == 0);
    return is_own ? maker.vgpi_session : find_shared_session(provider);
}

void vgpi_connect_cb(void *user_data, uint8_t connected, const char *address, uint16_t port_number)
{
    const gpio_port_t &maker = *static_cast<const gpio_port_t *>(user_data);
    log_message(2, "%s: Device at %s:%d has %sconnected\n", __func__, address, port_number, connected == 1 ? "" : "dis");
    for_each_user_of(calling_session(maker, address, port_number), [&](gpio_port_t &port) {
        connected == 1 ? port_found_again(port, address, port_number) : port_lost(port);
    });
}

zel_ember_session_t *make_session(gpio_port_t &port, const char *address)
{
    zel_ember_session_config_t config{};
    config.provider_addr = address;
    config.user_data = &port;
    config.connect_cb = vgpi_connect_cb;
    config.timeout_s = &link_timeout_s;
    zel_ember_session_t *const session = zel_ember_session_init(&config);
    if (session == nullptr) log_message(0, "%s: Failed to set up vgpi ember consumer session\n", "connect_vgpi_to_vgpo");
    return session;
}

void join_session(gpio_port_t &port, const vGPO_t &vgpo)
{
    port.vgpi_session = find_shared_session(vgpo.addr_port);
    if (port.vgpi_session != nullptr)
        log_message(2, "%s: Found existing vgpi_session for provider address: '%s'\n", "connect_vgpi_to_vgpo", vgpo.addr_port);
    else
        port.vgpi_session = make_session(port, vgpo.addr_port);
    if (port.vgpi_session != nullptr) vgpi_session_ports.insert(0, port.index);
}

int32_t follow(gpio_port_t &port, const vGPO_t &vgpo)
{
    constexpr const char *function = "connect_vgpi_to_vgpo";
    if (request(port.vgpi_session, vgpo, remote_type, port.vgpo_src) == -1)
        log_message(0, "%s: Get vGPO type param failed (src addr = '%s')\n", function, vgpo.addr_port);
    const char *const address = keep_provider_address(vgpo.addr_port);
    if (address == nullptr || request(port.vgpi_session, vgpo, remote_state, port.vgpo_src) != 0) {
        log_message(0, "%s: Get vGPO state param failed (src addr = '%s')\n", function, vgpo.addr_port);
        return -1;
    }
    port.vgpo_src_valid = 1;
    port.vgpi_provider_addr = address;
    return 0;
}

void clear_callbacks(zel_ember_session_t *session, const char *source)
{
    const vGPO_t *const vgpo = source != nullptr ? find_vgpo_by_name(&remote_vgpos, source) : nullptr;
    if (vgpo == nullptr) return;
    if (vgpo->type_path != nullptr) (void)zel_ember_clear_param_cb(session, vgpo->type_path);
    if (vgpo->status_path != nullptr) (void)zel_ember_clear_param_cb(session, vgpo->status_path);
}

// The remote port is no output any more: the input drops to 0 and waits for its type to change back.
void source_stopped(gpio_port_t &port, const vGPO_t &vgpo)
{
    log_message(2, "%s: The vGPO assigned to our vGPI %d is no longer in output mode...\n", "vgpo_type_cb",
                port.index - phys_gpio_count);
    if (port.vgpi_session != nullptr && vgpo.status_path != nullptr)
        (void)zel_ember_clear_param_cb(port.vgpi_session, vgpo.status_path);
    port.state = 0;
    clear_port_handler_state(port.index);
    (void)publish_int64(port.ember_state, 0);
    zel_gpio_notify_trigger_event(port.trig_ids[0], 0);
    port.vgpo_src_valid = 0;
}

void source_started(gpio_port_t &port, const vGPO_t &vgpo)
{
    log_message(2, "%s: The vGPO assigned to our vGPI %d is now in output mode...\n", "vgpo_type_cb",
                port.index - phys_gpio_count);
    (void)request(port.vgpi_session, vgpo, remote_state, port.vgpo_src);
    port.vgpo_src_valid = 1;
}

void take_type(gpio_port_t &port, vGPO_t &vgpo, int64_t type)
{
    vgpo.type_retries = 0;
    if (type == type_disabled || type == type_input) source_stopped(port, vgpo);
    if (type == type_output) source_started(port, vgpo);
    snmp_send_gpio_info(port.index);
}

void take_state(gpio_port_t &port, vGPO_t &vgpo, int64_t value)
{
    vgpo.state_retries = 0;
    port.state = static_cast<uint32_t>(value) == 1;
    set_port_handler_state(port.index);
    (void)publish_int64(port.ember_state, port.state);
    zel_gpio_notify_trigger_event(port.trig_ids[0], port.state);
    port.vgpo_src_valid = 1;
    snmp_send_gpio_info(port.index);
}

// An answer without a value is asked again, a few times in a row.
void ask_again(vGPO_t &vgpo, const followed_value &what, zel_ember_session_t *session, const char *source, const char *function)
{
    if ((vgpo.*what.retries)++ >= max_retries) {
        log_message(0, "%s: Value received is NULL after %d attempts.\n", function, vgpo.*what.retries);
        return;
    }
    log_message(0, "%s: Value received is NULL - will retry fetch....\n", function);
    if (request(session, vgpo, what, source) == -1)
        log_message(0, "%s: Get vGPO type param failed (src addr = '%s')\n", function,
                    vgpo.addr_port != nullptr ? vgpo.addr_port : "");
}

// Hands a value to every input that follows the source. The record is looked up anew for each, for callbacks may drop it.
void deliver(const char *source, const followed_value &what, const void *value, const char *function,
             void (*take)(gpio_port_t &, vGPO_t &, int64_t))
{
    const source_names_hold hold;
    if (source == nullptr || find_record(source, function) == nullptr) return;
    zel_ember_session_t *unanswered = nullptr;
    for_each_virtual_port([&](gpio_port_t &port) {
        if (port.type != type_input || !follows(port, source)) return;
        if (value == nullptr) {
            port.vgpo_src_valid = 0;
            unanswered = port.vgpi_session;
        } else if (vGPO_t *const vgpo = find_vgpo_by_name(&remote_vgpos, source)) {
            int64_t number;
            std::memcpy(&number, value, sizeof number);
            take(port, *vgpo, number);
        }
    });
    vGPO_t *const vgpo = find_vgpo_by_name(&remote_vgpos, source);
    if (value == nullptr && vgpo != nullptr && unanswered != nullptr) ask_again(*vgpo, what, unanswered, source, function);
}

void vgpo_type_cb(void *name, const char *, uint32_t, const void *value)
{
    deliver(static_cast<const char *>(name), remote_type, value, __func__, take_type);
}

void vgpo_state_cb(void *name, const char *, uint32_t, const void *value)
{
    deliver(static_cast<const char *>(name), remote_state, value, __func__, take_state);
}

}  // namespace

bool set_source_name(gpio_port_t &port, const char *name)
{
    const bool empty = name == nullptr || name[0] == '\0';
    const char *const kept = empty ? "" : keep_source_name(name);
    if (kept == nullptr) log_message(0, "%s: Failed to allocate memory for vGPO source '%s'\n", __func__, name);
    port.vgpo_src = kept != nullptr ? kept : "";
    return kept != nullptr;
}

void choose_vgpo_source(gpio_port_t &port, const char *name)
{
    const vGPO_t *const found = name != nullptr ? find_vgpo_by_name(&remote_vgpos, name) : nullptr;
    if (found == nullptr || !follows(port, found->name)) {
        const char *const old_source = port.vgpo_src;
        (void)disconnect_vgpi_from_vgpo(old_source, port.index);
        (void)set_source_name(port, found != nullptr ? found->name : nullptr);
    }
    if (port.vgpo_src[0] == '\0')
        close_vgpi_session(port.index);
    else
        (void)connect_vgpi_to_vgpo(port.index);
}

int32_t connect_vgpi_to_vgpo(int32_t index)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    if (port.vgpo_src == nullptr || port.vgpo_src[0] == '\0') return -1;
    close_vgpi_session(index);
    const vGPO_t *const vgpo = find_record(port.vgpo_src, __func__);
    if (vgpo == nullptr || vgpo->addr_port == nullptr || vgpo->type_path == nullptr || vgpo->status_path == nullptr) return -1;
    join_session(port, *vgpo);
    return port.vgpi_session != nullptr ? follow(port, *vgpo) : -1;
}

int32_t disconnect_vgpi_from_vgpo(const char *name, int32_t index)
{
    if (name == nullptr || name[0] == '\0' || gpios[index].vgpo_src_valid == 1) return 0;
    for (int32_t other = phys_gpio_count; other < port_end; ++other) {
        if (other != index && follows(gpios[other], name)) return 0;
    }
    vGPO_t *const vgpo = find_vgpo_by_name(&remote_vgpos, name);
    if (vgpo == nullptr) return 0;
    log_message(2, "%s: Removing vgpo_src '%s' from the list as it is no longer discoverable or selected\n", __func__, name);
    drop_remote_vgpo(*vgpo);
    return 0;
}

void forget_remote_path(const char *source, const char *path)
{
    for_each_virtual_port([&](gpio_port_t &port) {
        if (port.vgpi_session == nullptr || !follows(port, source)) return;
        int32_t users = 0;
        for_each_user_of(port.vgpi_session, [&](const gpio_port_t &) { ++users; });
        if (users > 1) (void)zel_ember_clear_param_cb(port.vgpi_session, path);
    });
}

void close_vgpi_session(int32_t index)
{
    gpio_port_t &port = gpios[index];
    zel_ember_session_t *const session = port.vgpi_session;
    if (session == nullptr) return;
    int32_t users = 0, same_source = 0;
    for_each_user_of(session, [&](const gpio_port_t &user) {
        ++users;
        same_source += port.vgpo_src != nullptr && follows(user, port.vgpo_src);
    });
    port.vgpi_session = nullptr;
    port.vgpi_provider_addr = nullptr;
    port.vgpo_src_valid = 0;
    vgpi_session_ports.erase(0, index);
    if (users == 1)
        zel_ember_session_term(session);
    else if (same_source == 1)
        clear_callbacks(session, port.vgpo_src);
}

}  // namespace zel
