// The agent library's start, configuration and end. Everything it reads and writes lies below the unit's root.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zel::snmpd {

struct library_address {
    std::string address;                    // numeric
    int32_t port = 0;
};

struct library_settings {
    library_address listen;                 // when it is an agent by itself
    std::string agentx;                     // socket of a master agent; empty: by itself
    std::vector<library_address> trap_sinks;
    std::string serial;                     // of the unit; the engine id is made of it
    std::string configuration_folder, persistent_folder;
};

inline constexpr const char *library_name = "zel_snmpd";   // and zel_snmpd.conf

class agent_library {
public:
    ~agent_library();

    // False for a configuration that would stop the agent (logged). Objects are registered behind this.
    bool prepare(const library_settings &settings);
    // Reads zel_snmpd.conf and begins to serve. False when the address is taken or the like (logged).
    bool start();

private:
    library_settings settings_;
    bool prepared_ = false, started_ = false;
};

}  // namespace zel::snmpd
