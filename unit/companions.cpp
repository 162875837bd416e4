#include "companions.h"

#include "common/unit_root.h"
#include "zel_debug.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <string_view>

namespace zel {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds first_pause{500}, longest_pause{30000};
constexpr std::chrono::seconds long_enough{10};   // one that ran for so long is started again after the first pause

std::string own_folder()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length <= 0) return ".";
    const std::string program(path, static_cast<size_t>(length));
    return program.substr(0, program.rfind('/'));
}

// What the service manager is told, it is told by the unit.
std::vector<char *> environment_of_companions()
{
    std::vector<char *> table;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        if (!std::string_view(*entry).starts_with("NOTIFY_SOCKET=")) table.push_back(*entry);
    }
    table.push_back(nullptr);
    return table;
}

// Runs in the child, where only calls that are safe behind fork() may stand. The unit's blocked signals are not the program's,
// and a program whose unit is gone would answer for a unit that does not exist.
[[noreturn]] void become(const char *path, char *const *words, char *const *environment, pid_t parent)
{
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != parent) _exit(127);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    (void)signal(SIGPIPE, SIG_DFL);
    (void)setpgid(0, 0);
    const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (nothing >= 0) (void)dup2(nothing, STDIN_FILENO);
    (void)close_range(STDERR_FILENO + 1, UINT_MAX, 0);
    execve(path, words, environment);
    _exit(127);
}

void log_end(const std::string &path, int status)
{
    if (WIFSIGNALED(status)) log_message(1, "%s: %s was ended by signal %d\n", __func__, path.c_str(), WTERMSIG(status));
    else log_message(1, "%s: %s ended with status %d\n", __func__, path.c_str(), WEXITSTATUS(status));
}

}  // namespace

void companions::start(const std::vector<std::string> &programs)
{
    const std::string folder = own_folder();
    for (const std::string &program : programs) {
        companion fresh;
        fresh.path = folder + "/" + program;
        fresh.pause = first_pause;
        if (access(fresh.path.c_str(), X_OK) != 0) {
            log_message(1, "%s: %s: %s; the unit runs without it\n", __func__, fresh.path.c_str(), std::strerror(errno));
            continue;
        }
        launch(fresh);
        all_.push_back(fresh);
    }
}

void companions::launch(companion &each)
{
    std::string root = below_unit_root("/"), option = "--root";
    char *const words[] = {each.path.data(), option.data(), root.data(), nullptr};
    const std::vector<char *> environment = environment_of_companions();
    const pid_t parent = getpid(), child = fork();
    if (child == 0) become(each.path.c_str(), words, environment.data(), parent);
    each.started = clock::now();
    each.next_start = each.started + each.pause;
    if (child < 0) {
        log_message(0, "%s: %s could not be started: %s\n", __func__, each.path.c_str(), std::strerror(errno));
        return;
    }
    each.pid = child;
    log_message(2, "%s: Running %s (process %d)\n", __func__, each.path.c_str(), child);
}

void companions::take_end(companion &each, int status)
{
    const auto now = clock::now();
    each.pid = 0;
    if (stopping_) return;
    log_end(each.path, status);
    each.pause = now - each.started >= long_enough ? first_pause : std::min(each.pause * 2, longest_pause);
    each.next_start = now + each.pause;
}

void companions::reap()
{
    for (companion &each : all_) {
        int status = 0;
        if (each.pid != 0 && waitpid(each.pid, &status, WNOHANG) == each.pid) take_end(each, status);
    }
}

void companions::restart_due()
{
    for (companion &each : all_) {
        if (each.pid == 0 && clock::now() >= each.next_start) launch(each);
    }
}

std::optional<milliseconds> companions::next_due() const
{
    std::optional<milliseconds> soonest;
    for (const companion &each : all_) {
        if (each.pid != 0) continue;
        const auto wait = std::max(std::chrono::ceil<milliseconds>(each.next_start - clock::now()), milliseconds(0));
        soonest = std::min(soonest.value_or(wait), wait);
    }
    return soonest;
}

bool companions::all_end_within(milliseconds patience)
{
    const auto running = [this] { return std::ranges::any_of(all_, [](const companion &each) { return each.pid != 0; }); };
    const auto deadline = clock::now() + patience;
    for (reap(); running() && clock::now() < deadline; reap()) (void)poll(nullptr, 0, 5);
    return !running();
}

void companions::stop(milliseconds patience)
{
    constexpr milliseconds time_to_die{2000};
    stopping_ = true;
    const auto signal_all = [this](int number) {
        for (const companion &each : all_) {
            if (each.pid != 0) (void)kill(each.pid, number);
        }
    };
    signal_all(SIGTERM);
    if (all_end_within(patience)) return;
    log_message(1, "%s: Ending programs that did not end by themselves\n", __func__);
    signal_all(SIGKILL);
    (void)all_end_within(time_to_die);
}

}  // namespace zel
