// The command line of zel_unit.
#pragma once

#include <optional>
#include <string>

namespace zel {

enum class unit_task { run, check, add_web_user, settings, help, version };

struct command_line {
    unit_task task = unit_task::run;
    std::optional<std::string> root;
    std::optional<std::string> file;  // to check
    std::string web_user;             // to add
    bool with_daemons = false;
};

extern const char unit_usage[];

// Nothing, with one line in `problem`, for a command line that cannot be understood.
std::optional<command_line> parse_command_line(int count, char **words, std::string &problem);

}  // namespace zel
