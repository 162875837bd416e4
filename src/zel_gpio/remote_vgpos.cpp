#include "zel_gpio/remote_vgpos.h"

#include <algorithm>
#include <cstring>

#include "zel_gpio/ember_nodes.h"
#include "zel_gpio/snmp_info.h"

namespace zel {

void drop_remote_vgpo(vGPO_t &vgpo)
{
    remove_element(vgpo.ember_param);
    snmp_send_vgpo_removed(vgpo.id);
    remove_vgpo(&remote_vgpos, vgpo.name);
}

bool follows(const gpio_port_t &port, const char *source)
{
    return port.vgpo_src != nullptr && std::strcmp(port.vgpo_src, source) == 0;
}

int32_t virtual_end()
{
    return std::min(phys_gpio_count + virtual_gpio_count, port_end);
}

}  // namespace zel
