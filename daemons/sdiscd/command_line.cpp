#include "command_line.h"

#include "common/whole_number.h"
#include "zel_debug.h"

#include <string_view>

namespace zel::sdiscd {

const char usage[] =
    "usage: zel_sdiscd [--root DIR] [--log-level LEVEL] [--log-file FILE] [--ttl SECONDS]\n"
    "       zel_sdiscd --help | --version\n"
    "\n"
    "Announces the virtual outputs of the unit whose files lie below DIR (default: $ZEL_ROOT, else /) on the network, and\n"
    "finds those of other units for it (DNS-SD over multicast DNS), until SIGINT or SIGTERM.\n"
    "  --root DIR         the unit's root; its settings are in DIR/etc/zel/unit.json\n"
    "  --log-level LEVEL  error, warning, information or detail\n"
    "  --log-file FILE    append to FILE in place of the standard error output\n"
    "  --ttl SECONDS      for how long others believe in services of a unit that lost its power: 10 to 4500, default 120\n"
    "  --backend NAME     embedded, the only one\n"
    "\n"
    "Exit status: 0 ended as asked, 1 could not run, 2 wrong command line, 3 mistakes in the settings.\n";

namespace {

struct option_row {
    std::string_view name;
    bool (*take)(command_line &line, const std::string &value, std::string &problem);
};

bool take_root(command_line &line, const std::string &value, std::string &)
{
    line.root = value;
    return true;
}

bool take_log_file(command_line &line, const std::string &value, std::string &)
{
    line.log_file = value;
    return true;
}

bool take_log_level(command_line &line, const std::string &value, std::string &problem)
{
    line.log_level = zel_debug_level_from_name(value.c_str());
    if (*line.log_level < 0) problem = "there is no log level \"" + value + "\"";
    return *line.log_level >= 0;
}

bool take_ttl(command_line &line, const std::string &value, std::string &problem)
{
    const auto number = whole_number(value);
    const bool good = number && *number >= 10 && *number <= 4500;
    if (good) line.ttl_s = static_cast<uint32_t>(*number);
    else problem = "--ttl must be a whole number from 10 to 4500, not \"" + value + "\"";
    return good;
}

bool take_backend(command_line &, const std::string &value, std::string &problem)
{
    if (value != "embedded") problem = "there is no back end \"" + value + "\"; it is \"embedded\"";
    return value == "embedded";
}

constexpr option_row options[] = {
    {"--root", take_root}, {"--log-file", take_log_file}, {"--log-level", take_log_level}, {"--ttl", take_ttl},
    {"--backend", take_backend},
};

const option_row *find_option(std::string_view name)
{
    for (const option_row &row : options) {
        if (row.name == name) return &row;
    }
    return nullptr;
}

}  // namespace

std::optional<command_line> parse_command_line(int count, char **words, std::string &problem)
{
    command_line line;
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        const size_t equals = word.find('=');
        if (word == "--help" || word == "-h") {
            line.what = task::help;
        } else if (word == "--version") {
            line.what = task::version;
        } else if (const option_row *const row = find_option(word.substr(0, equals))) {
            if (equals == std::string_view::npos && i + 1 >= count) {
                problem = std::string(row->name) + " needs a value";
                return std::nullopt;
            }
            const std::string value(equals == std::string_view::npos ? std::string_view(words[++i]) : word.substr(equals + 1));
            if (!row->take(line, value, problem)) return std::nullopt;
        } else {
            problem = "unknown argument \"" + std::string(word) + "\"";
            return std::nullopt;
        }
    }
    return line;
}

}  // namespace zel::sdiscd
