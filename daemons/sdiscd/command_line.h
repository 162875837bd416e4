// The command line of zel_sdiscd.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace zel::sdiscd {

enum class task { run, help, version };

struct command_line {
    task what = task::run;
    std::optional<std::string> root, log_file;
    std::optional<int> log_level;
    uint32_t ttl_s = 120;
};

extern const char usage[];

// Nothing, with one line in `problem`, for a command line that cannot be understood.
std::optional<command_line> parse_command_line(int count, char **words, std::string &problem);

}  // namespace zel::sdiscd
