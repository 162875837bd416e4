#include "command_line.h"

#include <string_view>

namespace zel {

const char unit_usage[] =
    "usage: zel_unit [--root DIR] [--with-daemons]\n"
    "       zel_unit [--root DIR] --check [FILE]\n"
    "       zel_unit [--root DIR] --add-web-user NAME\n"
    "       zel_unit --settings | --help | --version\n"
    "\n"
    "Runs the unit whose files lie below DIR (default: $ZEL_ROOT, else /) until SIGINT or SIGTERM.\n"
    "  --root DIR      the unit's root; its settings are in DIR/etc/zel/unit.json\n"
    "  --with-daemons  run the discovery daemon and the SNMP agent beside the unit, as long as it runs\n"
    "  --check [FILE]  read the settings (or FILE), print every mistake, run nothing\n"
    "  --add-web-user NAME\n"
    "                  let NAME log in at the pages; the password is a line of the standard input\n"
    "  --settings      print the table of all settings\n"
    "\n"
    "Exit status: 0 ended as asked, 1 could not run, 2 wrong command line, 3 mistakes in the settings.\n";

std::optional<command_line> parse_command_line(int count, char **words, std::string &problem)
{
    command_line line;
    const auto no = [&problem](std::string text) {
        problem = std::move(text);
        return std::nullopt;
    };
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        const bool has_next = i + 1 < count;
        if (word == "--root") {
            if (!has_next) return no("--root needs a folder");
            line.root = words[++i];
        } else if (word.starts_with("--root=")) {
            line.root = std::string(word.substr(word.find('=') + 1));
        } else if (word == "--check") {
            line.task = unit_task::check;
            if (has_next && words[i + 1][0] != '-') line.file = words[++i];
        } else if (word == "--with-daemons") {
            line.with_daemons = true;
        } else if (word == "--add-web-user") {
            if (!has_next) return no("--add-web-user needs a name");
            line.task = unit_task::add_web_user;
            line.web_user = words[++i];
        } else if (word == "--settings") {
            line.task = unit_task::settings;
        } else if (word == "--help" || word == "-h") {
            line.task = unit_task::help;
        } else if (word == "--version") {
            line.task = unit_task::version;
        } else {
            return no("unknown argument \"" + std::string(word) + "\"");
        }
    }
    return line;
}

}  // namespace zel
