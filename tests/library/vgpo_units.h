// Units of the tests of virtual ports, and the discovery daemon's messages to them.
#pragma once

#include <cstring>
#include <string>

#include "fake_platform.h"
#include "zel_gpio/records.h"
#include "zel_gpio/sdisc_records.h"

namespace vgpo_units {

inline constexpr char near[] = "vGPO1@Studio 2", beside[] = "vGPO2@Studio 2", far[] = "vGPO1@Studio 3";
inline constexpr char our_type[] = "_zelvgpo._tcp";

/// A browse record (messages 2, 3 and 8) with its domain.
inline fake::bytes browsed(const char *name, const char *type = our_type, const std::string &domain = "local")
{
    fake::bytes record(196 + domain.size() + 1);
    const int32_t interface = 3;
    std::memcpy(record.data(), &interface, 4);
    strncpy(reinterpret_cast<char *>(record.data()) + 68, name, 64);
    strncpy(reinterpret_cast<char *>(record.data()) + 132, type, 64);
    std::memcpy(record.data() + 196, domain.c_str(), domain.size() + 1);
    return record;
}

inline fake::bytes resolved(const char *name, const char *address, uint16_t port, const std::string &txt, const char *type = our_type)
{
    fake::bytes record(238 + txt.size() + 1);
    const int32_t interface = 3;
    std::memcpy(record.data(), &interface, 4);
    strncpy(reinterpret_cast<char *>(record.data()) + 4, name, 64);
    strncpy(reinterpret_cast<char *>(record.data()) + 68, "host", 64);
    strncpy(reinterpret_cast<char *>(record.data()) + 132, type, 64);
    strncpy(reinterpret_cast<char *>(record.data()) + 196, address, 40);
    std::memcpy(record.data() + 236, &port, 2);
    std::memcpy(record.data() + 238, txt.c_str(), txt.size() + 1);
    return record;
}

inline void resolve(fake::unit &u, const char *name, const char *address = "10.0.0.2", uint16_t port = 9000,
                    const std::string &txt = "\"path=/near\"")
{
    u.deliver("sdisc", 5, resolved(name, address, port, txt));
}

inline void remove(fake::unit &u, const char *name) { u.deliver("sdisc", 3, browsed(name)); }

/// `count` virtual inputs, the sources of which are given in order.
inline void describe(fake::unit &u, std::initializer_list<const char *> sources, bool tree = true)
{
    u.virtuals(static_cast<int32_t>(sources.size()));
    if (tree) u.ember();
    int v = 0;
    for (const char *const source : sources) {
        const std::string key = "virtual/vgpio_" + std::to_string(v++);
        u.set(key + "/type", 1).set(key + "/vgpo_src", source).set(key + "/handler", "").set(key + "/handler_invert", "");
    }
}

inline zel::gpio_port_t &port(int32_t index) { return zel::gpios[index]; }
inline vGPO_t *record(const char *name) { return find_vgpo_by_name(&zel::remote_vgpos, name); }

}  // namespace vgpo_units
