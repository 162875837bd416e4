// zel_snmpd: the SNMP agent of a unit. Command line, settings and exit statuses; the agent itself is in agent.cpp.
#include "agent.h"
#include "command_line.h"

#include "common/program_start.h"
#include "common/unit_root.h"
#include "common/service_notify.h"
#include "settings_reading.h"

#include <zel_debug.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>

namespace {

using namespace zel::snmpd;

enum exit_status { ended_as_asked = 0, could_not_run = 1, wrong_command_line = 2, wrong_settings = 3 };

constexpr std::string_view configuration_folder = "/etc/zel/snmp", persistent_folder = "/var/lib/zel/snmp";
constexpr std::string_view serial_path = "/etc/zel/serial";

int print(const std::string &text)
{
    return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? ended_as_asked : could_not_run;
}

// Made by the unit at its first start; until then the agent library makes up an engine id of its own.
std::string serial()
{
    std::string text;
    std::ifstream(zel::below_unit_root(serial_path)) >> text;
    return text;
}

agent_settings settings_of(const zel::unit_settings &unit)
{
    agent_settings settings;
    settings.server = unit.snmp;
    settings.udp_drives_gpis = unit.udp_enabled;
    settings.library.listen = {unit.snmp_agent.listen.address, unit.snmp_agent.listen.port};
    settings.library.agentx = unit.snmp_agent.agentx;
    for (const auto &sink : unit.snmp_agent.trap_sinks) settings.library.trap_sinks.push_back({sink.address, sink.port});
    settings.library.serial = serial();
    settings.library.configuration_folder = zel::below_unit_root(configuration_folder);
    settings.library.persistent_folder = zel::below_unit_root(persistent_folder);
    return settings;
}

bool read_or_complain(const std::string &path, zel::unit_settings &settings)
{
    zel::settings_reading reading = zel::read_settings(path);
    for (const zel::mistake &wrong : reading.mistakes) {
        std::fprintf(stderr, "zel_snmpd: %s\n", zel::describe(path, wrong).c_str());
    }
    settings = std::move(reading.settings);
    return reading.mistakes.empty();
}

int run_agent(const zel::unit_settings &settings)
{
    // The environment's level is for one run, and wins.
    if (std::getenv("ZEL_LOG_LEVEL") == nullptr) zel_debug_set_level(zel_debug_level_from_name(settings.log_level.c_str()));
    agent running(settings_of(settings));
    if (!running.start()) return could_not_run;
    zel::notify_service("READY=1");
    running.run();
    zel::notify_service("STOPPING=1");
    return ended_as_asked;
}

int run(int count, char **words)
{
    std::string problem;
    const auto line = parse_command_line(count, words, problem);
    if (!line) {
        std::fprintf(stderr, "zel_snmpd: %s (try --help)\n", problem.c_str());
        return wrong_command_line;
    }
    if (line->what == task::help) return print(usage);
    if (line->what == task::version) return print("zel_snmpd " ZEL_VERSION "\n");
    if (line->root && !zel::enter_unit_root(*line->root)) {
        std::fprintf(stderr, "zel_snmpd: %s: %s\n", line->root->c_str(), std::strerror(errno));
        return could_not_run;
    }
    const std::string path = zel::below_unit_root(zel::unit_file_path);
    zel::unit_settings settings;
    if (!read_or_complain(path, settings)) return wrong_settings;
    return line->what == task::check ? print(path + ": no mistakes\n") : run_agent(settings);
}

}  // namespace

int main(int count, char **words)
{
    zel::open_standard_streams();
    try {
        return run(count, words);
    } catch (const std::bad_alloc &) {
        std::fputs("zel_snmpd: out of memory\n", stderr);
        return could_not_run;
    }
}
