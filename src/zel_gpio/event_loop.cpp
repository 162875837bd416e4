// The library's part of the host's loop: descriptors before each wait, what became ready after it.
#include <initializer_list>

#include "zel_debug.h"
#include "zel_gpio/ember_status.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/records.h"
#include "zel_gpio/snmp_info.h"

using namespace zel;

namespace {

void offer_pin(gpio_port_t &port, fd_set *exceptfds, int *maxfd)
{
    if (port.type != type_input || port.pin == nullptr) return;
    const int fd = zel_sys_gpio_fd(port.pin);
    if (fd < 0 || fd >= FD_SETSIZE) return;
    FD_SET(fd, exceptfds);
    if (fd > *maxfd) *maxfd = fd;
}

// The end of every change of an input's level: its handlers, the SNMP agent, the tree, and its own trigger.
void input_changed(gpio_port_t &port)
{
    set_port_handler_state(port.index);
    snmp_send_gpio_info(port.index);
    (void)publish_int64(port.ember_state, port.state);
    zel_gpio_notify_trigger_event(port.trig_ids[0], port.state);
}

// Level of the pin if its interrupt is pending, which it clears; else -1.
int interrupted_level(const gpio_port_t &port, fd_set *exceptfds)
{
    if (port.type != type_input || port.pin == nullptr) return -1;
    const int fd = zel_sys_gpio_fd(port.pin);
    if (fd < 0 || fd >= FD_SETSIZE || !FD_ISSET(fd, exceptfds)) return -1;
    return zel_sys_gpio_read(port.pin);
}

void process_interrupt(gpio_port_t &port, fd_set *exceptfds)
{
    const int level = interrupted_level(port, exceptfds);
    if (level == -1) return;
    if (port.ignore_irq) {
        log_message(4, "%s: Ignoring IRQ on index %d...\n", "zel_gpio_process_fds", port.index);
        port.ignore_irq = 0;
        return;
    }
    // A latching input takes each interrupt for one press, whatever the level is by now.
    port.state = port.input_mode == mode_latching ? !port.state : level != 0;
    input_changed(port);
}

void process_udp_value(gpio_port_t &port)
{
    uint8_t value;
    if (port.type != type_input || zel_gpio_get_udp_pin(port.index, &value) != 0 || value == port.state) return;
    port.state = value;
    input_changed(port);
}

void process_physical_port(gpio_port_t &port, fd_set *exceptfds)
{
    if (zel_net_config_get_udp_commands_enabled(udp_config) == 1 && port.index < gpi_count)
        process_udp_value(port);
    else
        process_interrupt(port, exceptfds);
}

bool an_earlier_port_shares(int32_t index)
{
    for (int32_t i = vgpi_session_ports.next(0, 0); i != none && i < index; i = vgpi_session_ports.next(0, i + 1)) {
        if (gpios[i].vgpi_session == gpios[index].vgpi_session) return true;
    }
    return false;
}

}  // namespace

void zel_gpio_set_fds(fd_set *readfds, fd_set *exceptfds, int *maxfd)
{
    if (exceptfds == nullptr || maxfd == nullptr) {
        log_message(0, "%s: Invalid parameter: exceptfds = %p, maxfd = %p\n", __func__, static_cast<void *>(exceptfds),
                    static_cast<void *>(maxfd));
        return;
    }
    for (zel_ipc_client_t *const client : {sdisc_client, snmp_client}) {
        if (client != nullptr) zel_ipc_client_set_fds(client, readfds, maxfd);
    }
    if (gpios == nullptr) return;
    for (int32_t i = 0; i < phys_gpio_count; ++i) offer_pin(gpios[i], exceptfds, maxfd);
    for (int32_t i = vgpi_session_ports.next(0, 0); i != none; i = vgpi_session_ports.next(0, i + 1))
        zel_ember_set_fds(gpios[i].vgpi_session, readfds, maxfd);
}

void zel_gpio_process_fds(fd_set *readfds, fd_set *exceptfds)
{
    if (exceptfds == nullptr) {
        log_message(0, "%s: exceptfds is NULL\n", __func__);
        return;
    }
    for (zel_ipc_client_t *const client : {sdisc_client, snmp_client}) {
        if (client != nullptr) zel_ipc_client_process_fds(client, readfds);
    }
    for (int32_t i = 0; gpios != nullptr && i < phys_gpio_count; ++i) process_physical_port(gpios[i], exceptfds);
    for (int32_t i = vgpi_session_ports.next(0, 0); i != none; i = vgpi_session_ports.next(0, i + 1)) {
        if (!an_earlier_port_shares(i)) zel_ember_process_fds(gpios[i].vgpi_session, readfds);
    }
}
