// zel_unit: a complete GPIO unit in software. Command line and exit statuses; the unit itself is in unit.cpp.
#include "command_line.h"
#include "common/program_start.h"
#include "common/unit_root.h"
#include "settings_reading.h"
#include "unit.h"
#include "web_user.h"
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
    std::fprintf(stderr, "zel_unit: %s: %s\n", root.c_str(), std::strerror(errno));
    return false;
}

int print(const std::string &text)
{
    return std::fputs(text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? ended_as_asked : could_not_run;
}

bool read_or_complain(const std::string &path, zel::unit_settings &settings)
{
    zel::settings_reading reading = zel::read_settings(path);
    for (const zel::mistake &wrong : reading.mistakes) {
        std::fprintf(stderr, "zel_unit: %s\n", zel::describe(path, wrong).c_str());
    }
    settings = std::move(reading.settings);
    return reading.mistakes.empty();
}

int check(const std::string &path)
{
    zel::unit_settings settings;
    if (!read_or_complain(path, settings)) return wrong_settings;
    return print(path + ": no mistakes\n");
}

int add_user(const std::string &name)
{
    std::string problem;
    if (zel::add_web_user(name, problem)) return ended_as_asked;
    std::fprintf(stderr, "zel_unit: %s\n", problem.c_str());
    return could_not_run;
}

int run_unit(const std::string &path, bool with_daemons)
{
    zel::unit_settings settings;
    if (!read_or_complain(path, settings)) return wrong_settings;
    // The environment's level is for one run, and wins.
    if (std::getenv("ZEL_LOG_LEVEL") == nullptr) zel_debug_set_level(zel_debug_level_from_name(settings.log_level.c_str()));
    zel::unit unit(std::move(settings), with_daemons);
    if (!unit.start()) return could_not_run;
    unit.run();
    return ended_as_asked;
}

int run(int count, char **words)
{
    std::string problem;
    const auto line = zel::parse_command_line(count, words, problem);
    if (!line) {
        std::fprintf(stderr, "zel_unit: %s (try --help)\n", problem.c_str());
        return wrong_command_line;
    }
    if (line->root && !enter_root(*line->root)) return could_not_run;
    const std::string path = line->file ? *line->file : zel::below_unit_root(zel::unit_file_path);
    switch (line->task) {
    case zel::unit_task::help: return print(zel::unit_usage);
    case zel::unit_task::version: return print("zel_unit " ZEL_VERSION "\n");
    case zel::unit_task::settings: return print(zel::settings_as_markdown());
    case zel::unit_task::check: return check(path);
    case zel::unit_task::add_web_user: return add_user(line->web_user);
    case zel::unit_task::run: break;
    }
    return run_unit(path, line->with_daemons);
}

}  // namespace

int main(int count, char **words)
{
    zel::open_standard_streams();
    try {
        return run(count, words);
    } catch (const std::bad_alloc &) {
        std::fputs("zel_unit: out of memory\n", stderr);
        return could_not_run;
    }
}
