// zel_sdiscd: the unit's discovery daemon. Command line and exit statuses; the daemon itself is in daemon.cpp.
#include "command_line.h"
#include "daemon.h"

#include "common/program_start.h"
#include "zel_debug.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

enum exit_status { ended_as_asked = 0, could_not_run = 1, wrong_command_line = 2, wrong_settings = 3 };

// False, with one line, for a root that cannot be entered.
bool enter_root(const std::string &root)
{
    if (zel::enter_unit_root(root)) return true;
    std::fprintf(stderr, "zel_sdiscd: %s: %s\n", root.c_str(), std::strerror(errno));
    return false;
}

int print(const char *text)
{
    return std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? ended_as_asked : could_not_run;
}

int run_daemon(const zel::sdiscd::command_line &line)
{
    const bool level_given = std::getenv("ZEL_LOG_LEVEL") != nullptr;
    const int level_before = zel_debug_get_level();
    zel::sdiscd::daemon_settings settings;
    if (line.log_file && zel_debug_set_file(line.log_file->c_str()) != 0) return could_not_run;
    if (!zel::sdiscd::read_settings(line.ttl_s, settings)) return wrong_settings;
    // The command line's level and the environment's are for one run, and win.
    if (line.log_level) zel_debug_set_level(*line.log_level);
    else if (level_given) zel_debug_set_level(level_before);
    zel::sdiscd::daemon daemon(std::move(settings));
    if (!daemon.start()) return could_not_run;
    daemon.run();
    return ended_as_asked;
}

int run(int count, char **words)
{
    std::string problem;
    const auto line = zel::sdiscd::parse_command_line(count, words, problem);
    if (!line) {
        std::fprintf(stderr, "zel_sdiscd: %s (try --help)\n", problem.c_str());
        return wrong_command_line;
    }
    if (line->what == zel::sdiscd::task::help) return print(zel::sdiscd::usage);
    if (line->what == zel::sdiscd::task::version) return print("zel_sdiscd " ZEL_VERSION "\n");
    if (line->root && !enter_root(*line->root)) return could_not_run;
    return run_daemon(*line);
}

}  // namespace

int main(int count, char **words)
{
    zel::open_standard_streams();
    try {
        return run(count, words);
    } catch (const std::bad_alloc &) {
        std::fputs("zel_sdiscd: out of memory\n", stderr);
        return could_not_run;
    }
}
