#include "zel_net.h"

#include "common/unit_file.h"
#include "zel_debug.h"

#include <net/if.h>
#include <unistd.h>

#include <climits>
#include <new>
#include <string>

struct zel_net_config {
    bool udp_commands_enabled;
    std::string friendly_name;
    std::string interface;
};

namespace {

// Without a name of its own a unit is called like the machine it runs on.
std::string machine_name()
{
    char name[HOST_NAME_MAX + 1] = "";
    const bool known = gethostname(name, sizeof name - 1) == 0 && name[0] != '\0';
    return known ? name : "unit";
}

}  // namespace

zel_net_config_t *zel_net_config_load(void)
{
    try {
        const zel::unit_file file = zel::unit_file::load();
        if (file.state() == zel::json_state::unreadable) return nullptr;
        return new zel_net_config{
            .udp_commands_enabled = file.boolean("udp_commands/enabled", false),
            .friendly_name = file.string("friendly_name", machine_name().c_str()),
            .interface = file.string("interface", "lo"),
        };
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: no memory for the network configuration\n", __func__);
        return nullptr;
    }
}

void zel_net_config_free(zel_net_config_t *config)
{
    delete config;
}

int zel_net_config_get_udp_commands_enabled(const zel_net_config_t *config)
{
    return config != nullptr && config->udp_commands_enabled;
}

const char *zel_net_config_get_fname(const zel_net_config_t *config)
{
    return config != nullptr ? config->friendly_name.c_str() : "";
}

const char *zel_net_config_get_interface(const zel_net_config_t *config)
{
    return config != nullptr ? config->interface.c_str() : "";
}

int zel_net_config_ifindex(const zel_net_config_t *config)
{
    return config != nullptr ? static_cast<int>(if_nametoindex(config->interface.c_str())) : 0;
}
