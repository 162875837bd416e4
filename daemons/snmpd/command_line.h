// The command line of zel_snmpd.
#pragma once

#include <optional>
#include <string>

namespace zel::snmpd {

enum class task { run, check, help, version };

struct command_line {
    task what = task::run;
    std::optional<std::string> root;
};

extern const char usage[];

// Nothing, with one line in `problem`, for a command line that cannot be understood.
std::optional<command_line> parse_command_line(int count, char **words, std::string &problem);

}  // namespace zel::snmpd
