#include "agent_library.h"

#include "library_configuration.h"
#include "net_snmp.h"

#include <sys/stat.h>
#include <zel_debug.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

// Of the agent library's modules only these: the others publish the whole host. They are in no installed header.
extern "C" {
void init_system_mib(void);
void init_snmp_mib(void);
void init_snmpEngine(void);
void init_sysORTable(void);
}

namespace zel::snmpd {
namespace {

// The library cuts this up in place. SMUX would listen on all interfaces, dlmod would load code.
char modules_left_out[] = "-smux,dlmod";

int level_of(int priority)
{
    if (priority <= LOG_ERR) return 0;
    return priority <= LOG_WARNING ? 1 : priority <= LOG_INFO ? 2 : 4;
}

int log_line(int, int, void *message, void *)
{
    const auto *const entry = static_cast<const snmp_log_message *>(message);
    const size_t length = std::strlen(entry->msg);
    const bool ended = length > 0 && entry->msg[length - 1] == '\n';
    log_message(level_of(entry->priority), "%s: %.*s\n", "net-snmp", static_cast<int>(length - (ended ? 1 : 0)), entry->msg);
    return 1;
}

void take_over_log()
{
    snmp_disable_log();
    (void)snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, log_line, nullptr);
    snmp_enable_calllog();
}

// Variables of the environment would win over the folders given, and would load MIB files that nobody needs here.
void forget_environment()
{
    for (const char *const name : {"SNMPCONFPATH", "SNMP_PERSISTENT_DIR", "SNMP_PERSISTENT_FILE", "MIBDIRS", "MIBFILES"}) {
        (void)unsetenv(name);
    }
    (void)setenv("MIBS", "", 1);
}

void set_text(int store, int which, const std::string &value)
{
    (void)netsnmp_ds_set_string(store, which, value.c_str());
}

void remember(const std::string &line)
{
    std::string writable = line;
    netsnmp_config_remember(writable.data());
}

std::string configuration_file(const library_settings &settings)
{
    return settings.configuration_folder + "/" + library_name + ".conf";
}

bool make_private_folder(const std::string &path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (!error) std::filesystem::permissions(path, std::filesystem::perms::owner_all, error);
    if (error) log_message(0, "%s: %s: %s\n", __func__, path.c_str(), error.message().c_str());
    return !error;
}

void warn_if_others_can_read(const std::string &path)
{
    struct stat info;
    if (stat(path.c_str(), &info) != 0 || (info.st_mode & 077) == 0) return;
    log_message(1, "%s: %s holds secrets; other users can read it (mode %03o)\n", __func__, path.c_str(), info.st_mode & 0777);
}

// So that a unit answers out of the box, on this machine, and lets nothing be changed.
void allow_reading_on_loopback()
{
    const std::string own = ".1.3.6.1.4.1." + std::to_string(ZEL_SNMP_ENTERPRISE);
    for (const std::string &tree : {own, std::string(".1.3.6.1.2.1.1"), std::string(".1.3.6.1.6.3.10")}) {
        remember("view zel_loopback included " + tree);
    }
    remember("rocommunity public 127.0.0.0/8 -V zel_loopback");
    remember("rocommunity6 public ::1 -V zel_loopback");
}

std::string in_hex(const std::string &text)
{
    std::string hex;
    char digits[3];
    for (const unsigned char c : text.substr(0, 27)) {   // an engine id has at most 32 bytes
        std::snprintf(digits, sizeof digits, "%02x", c);
        hex += digits;
    }
    return hex;
}

// The enterprise's number with its highest bit set, then text.
std::string engine_id(const std::string &serial)
{
    char enterprise[16];
    std::snprintf(enterprise, sizeof enterprise, "0x%08x04", 0x80000000U | ZEL_SNMP_ENTERPRISE);
    return enterprise + in_hex(serial);
}

bool is_v6(const std::string &address) { return address.find(':') != std::string::npos; }
bool is_loopback(const std::string &address) { return address.starts_with("127.") || address == "::1"; }

std::string transport(const library_address &of)
{
    const std::string port = ":" + std::to_string(of.port);
    return is_v6(of.address) ? "udp6:[" + of.address + "]" + port : "udp:" + of.address + port;
}

// On the loopback network notifications leave from there, so that no socket of the agent is open to anything else.
std::string own_side(const library_settings &settings, const library_address &sink)
{
    const std::string &own = settings.listen.address;
    const bool both = is_loopback(own) && is_loopback(sink.address) && is_v6(own) == is_v6(sink.address);
    return both ? "-s " + own + " " : "";
}

void choose_role(const library_settings &settings)
{
    const bool part = !settings.agentx.empty();
    (void)netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, part ? 1 : 0);
    if (part) set_text(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, settings.agentx);
    else set_text(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, transport(settings.listen));
}

void remember_settings(const library_settings &settings)
{
    if (!settings.agentx.empty()) {
        remember("agentxPingInterval 2");   // as often it looks for a master agent that went away
        return;
    }
    remember("dontLogTCPWrappersConnects yes");
    if (!settings.serial.empty()) remember("exactEngineID " + engine_id(settings.serial));
    if (!std::filesystem::exists(configuration_file(settings))) allow_reading_on_loopback();
    for (const library_address &sink : settings.trap_sinks) remember("trap2sink " + own_side(settings, sink) + transport(sink));
}

}  // namespace

agent_library::~agent_library()
{
    if (started_) snmp_store(library_name);
    if (!prepared_) return;
    snmp_shutdown(library_name);
    shutdown_agent();
    (void)snmp_unregister_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, log_line, nullptr, 0);
}

bool agent_library::prepare(const library_settings &settings)
{
    settings_ = settings;
    warn_if_others_can_read(configuration_file(settings));
    if (!make_private_folder(settings.persistent_folder)) return false;
    forget_environment();
    take_over_log();
    set_text(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_CONFIGURATION_DIR, settings.configuration_folder);
    set_text(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, settings.persistent_folder);
    choose_role(settings);
    (void)add_to_init_list(modules_left_out);
    prepared_ = init_agent(library_name) == 0;
    if (!prepared_) return false;
    watch_trap_sessions();
    if (settings.agentx.empty()) {
        init_system_mib();
        init_snmp_mib();
        init_snmpEngine();
        init_sysORTable();
    }
    return true;
}

bool agent_library::start()
{
    remember_settings(settings_);
    init_snmp(library_name);
    if (!trap_sessions_are_good()) return false;
    let_passwords_win_over_kept_keys(configuration_file(settings_));
    started_ = true;
    // The count of starts is kept at once, so that it also rises when the agent ends without its leave.
    snmp_store(library_name);
    if (!settings_.agentx.empty() || init_master_agent() == 0) return true;
    log_message(0, "%s: Cannot listen on %s\n", __func__, transport(settings_.listen).c_str());
    return false;
}

}  // namespace zel::snmpd
