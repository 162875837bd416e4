// Start-up and shut-down. Start-up undoes nothing when a step fails: shut-down releases whatever there is.
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/ember_tree.h"
#include "zel_gpio/kept_texts.h"
#include "zel_gpio/port_setup.h"
#include "zel_gpio/records.h"
#include "zel_gpio/registry.h"
#include "zel_gpio/snmp_requests.h"
#include "zel_gpio/vgpi_links.h"
#include "zel_gpio/vgpo_discovery.h"
#include "zel_gpio/vgpo_publishing.h"

using namespace zel;

namespace {

constexpr const char *init_function = "zel_gpio_init";

struct host_description {
    const gpio_phys_cfg_t *phys_cfg;
    int32_t phys_count, relay_base_pin, relays_wanted, virtual_ports, buttons;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// Logs the failure of a step, and gives its result back.
int32_t checked(int32_t result, bool failed, const char *failure)
{
    if (failed) log_message(0, failure, init_function);
    return result;
}
#pragma GCC diagnostic pop

bool make_port_table(const host_description &host)
{
    const int64_t count = int64_t{host.phys_count} + host.virtual_ports + 2 * int64_t{host.buttons};
    log_message(2, "%s: Calling calloc(%d, %d)\n", init_function, static_cast<int>(count), static_cast<int>(sizeof(gpio_port_t)));
    const bool fits = host.phys_count >= 0 && host.relays_wanted >= 0 && host.virtual_ports >= 0 && host.buttons >= 0 &&
                      count <= INT32_MAX && int64_t{host.relay_base_pin} + host.relays_wanted <= INT32_MAX;
    if (fits && allocate_ports(host.phys_count, host.virtual_ports, host.buttons)) return true;
    log_message(0, "%s: Failed to allocate memory for physical, virtual and user button GPIO info\n", init_function);
    return false;
}

int32_t set_up_tables(const host_description &host)
{
    init_handler_trigger_tables();
    if (!make_port_table(host)) return -1;
    int32_t result = init_phys_gpio(host.phys_cfg, host.phys_count);
    if (result != 0) return checked(result, true, "%s: init_phys_gpio failed\n");
    result = init_relays(host.relay_base_pin, host.relays_wanted);
    if (result != 0) return checked(result, true, "%s: init_relays failed\n");
    result = init_vgpio(host.virtual_ports);
    if (result != 0) return checked(result, true, "%s: init_vgpio failed\n");
    result = init_user_buttons(host.buttons);
    return checked(result, result != 0, "%s: init_user_buttons failed\n");
}

int32_t add_endpoints()
{
    int32_t result = zel_web_server_add_handler(&url_handler_gpioGrid);
    if (result < 0) return checked(result, true, "%s: Failed to add web URL handler (1)\n");
    result = zel_web_server_add_handler(&url_handler_gpioConn);
    return checked(result, result < 0, "%s: Failed to add web URL handler (2)\n");
}

void free_names(char *const *names, int32_t count)
{
    for (int32_t k = 0; k < count; ++k) {
        char *name = names[k];
        release_text(name);
    }
}

void free_relays()
{
    for (int32_t r = 0; r < relay_count; ++r) {
        relay_t &relay = relays[r];
        if (relay.pin != nullptr) zel_sys_gpio_close(relay.pin);
        relay.pin = nullptr;
        free_names(relay.trigger_names, list_size);
    }
    release_relay_table();
    relay_count = 0;
}

void free_port(gpio_port_t &port)
{
    if (port.pin != nullptr) zel_sys_gpio_close(port.pin);
    port.pin = nullptr;
    close_vgpi_session(port.index);
    if (port.gpio_class == class_virtual && port.type == type_output) unpublish_vgpo(port.index);
    free_names(port.trigger_names, list_size);
    free_names(port.handler_names, list_size);
}

void free_gpios()
{
    for (int32_t index = 0; gpios != nullptr && index < port_end; ++index) free_port(gpios[index]);
    release_port_table();
    gpi_count = cough_count = virtual_gpio_count = 0;
}

void end_ipc_link(zel_ipc_client_t *&client)
{
    if (client != nullptr) zel_ipc_client_term(client);
    client = nullptr;
}

}  // namespace

int32_t zel_gpio_init(const gpio_phys_cfg_t *phys_cfg, int32_t phys_count, int32_t relay_base_pin, int32_t relays_wanted,
                      int32_t virtual_count, int32_t button_count, zel_net_config_t *udp_network, zel_net_config_t *publish_network,
                      zel_ember_session_t *provider, uint16_t ember_port, zel_ember_element_t *ember_parent)
{
    zel_json_init();
    udp_config = udp_network;
    publish_config = publish_network;
    vgpo_list_init(&remote_vgpos);
    ember_port_number = ember_port;
    if (phys_cfg == nullptr && phys_count > 0) {
        log_message(0, "%s: phys_cfg is NULL\n", __func__);
        return 0;
    }
    if (init_gpio_json_objs() != 0) {
        log_message(0, "%s: Failed to initialise %s\n", __func__, configuration_path);
        return 0;
    }
    if (init_gpio_ember_tree(provider, ember_parent, phys_count, relays_wanted, virtual_count, button_count) != 0)
        return checked(-1, true, "%s: Failed to initialise ember tree\n");
    if (sdisc_init() != 0) return checked(-1, true, "%s: Failed to setup sdisc\n");
    const int32_t tables = set_up_tables({phys_cfg, phys_count, relay_base_pin, relays_wanted, virtual_count, button_count});
    startup_done = true;
    if (tables != 0) return tables;
    const int32_t endpoints = add_endpoints();
    if (endpoints < 0) return endpoints;
    const int32_t snmp = snmp_init();
    (void)checked(snmp, snmp != 0, "%s: Failed to setup snmp\n");
    return endpoints;
}

void zel_gpio_term(void)
{
    remove_ember_tree();
    ember_provider = nullptr;
    free_relays();
    free_gpios();
    free_handler_and_trigger_names();
    end_ipc_link(sdisc_client);
    end_ipc_link(snmp_client);
    vgpo_list_free(&remote_vgpos);
    release_kept_texts();
    close_configuration();
    udp_config = publish_config = nullptr;
}
