#include "command_line.h"

#include <string_view>

namespace zel::snmpd {

const char usage[] =
    "usage: zel_snmpd [--root DIR] [--check]\n"
    "       zel_snmpd --help | --version\n"
    "\n"
    "The SNMP agent of the unit whose files lie below DIR (default: $ZEL_ROOT, else /), until SIGINT or SIGTERM.\n"
    "  --root DIR  the unit's root; \"snmp_agent\" in DIR/etc/zel/unit.json says where the agent listens,\n"
    "              DIR/etc/zel/snmp/zel_snmpd.conf who may do what\n"
    "  --check     read the settings, print every mistake, run nothing\n"
    "\n"
    "Exit status: 0 ended as asked, 1 could not run, 2 wrong command line, 3 mistakes in the settings.\n";

std::optional<command_line> parse_command_line(int count, char **words, std::string &problem)
{
    command_line line;
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        if (word == "--root" && i + 1 < count) {
            line.root = words[++i];
        } else if (word == "--root") {
            problem = "--root needs a folder";
            return std::nullopt;
        } else if (word.starts_with("--root=")) {
            line.root = std::string(word.substr(word.find('=') + 1));
        } else if (word == "--check") {
            line.what = task::check;
        } else if (word == "--help" || word == "-h") {
            line.what = task::help;
        } else if (word == "--version") {
            line.what = task::version;
        } else {
            problem = "unknown argument \"" + std::string(word) + "\"";
            return std::nullopt;
        }
    }
    return line;
}

}  // namespace zel::snmpd
