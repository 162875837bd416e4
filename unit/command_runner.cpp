#include "command_runner.h"

#include "zel_debug.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

namespace zel {
namespace {

// The unit's own settings of a process (blocked signals, ignored pipes, open descriptors) are no business of the program.
class spawn_settings {
public:
    spawn_settings()
    {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        sigset_t none, handled;
        sigemptyset(&none);
        sigemptyset(&handled);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGPIPE}) sigaddset(&handled, number);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &handled);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
    }
    ~spawn_settings()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    spawn_settings(const spawn_settings &) = delete;
    spawn_settings &operator=(const spawn_settings &) = delete;

    const posix_spawnattr_t *attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t *actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
};

// Texts with the null-terminated table of pointers that exec takes.
class exec_texts {
public:
    void add(std::string text) { texts_.push_back(std::move(text)); }
    char *const *pointers()
    {
        pointers_.clear();
        for (std::string &text : texts_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
        return pointers_.data();
    }

private:
    std::vector<std::string> texts_;
    std::vector<char *> pointers_;
};

constexpr const char *own_variables[] = {"ZEL_HANDLER=", "ZEL_HANDLER_ID=", "ZEL_STATE=", "ZEL_SOURCE=", "ZEL_CONTEXT="};

exec_texts environment_of(const std::string &handler, const command_call &call)
{
    exec_texts table;
    for (char **entry = environ; *entry != nullptr; ++entry) {
        bool own = false;
        for (const char *variable : own_variables) own |= std::string_view(*entry).starts_with(variable);
        if (!own) table.add(*entry);
    }
    table.add(own_variables[0] + handler);
    table.add(own_variables[1] + std::to_string(call.handler_id));
    table.add(own_variables[2] + std::to_string(call.state));
    table.add(own_variables[3] + std::to_string(call.source));
    table.add(own_variables[4] + std::to_string(call.context));
    return table;
}

void log_end(const std::string &program, int status)
{
    if (WIFSIGNALED(status)) log_message(1, "%s: %s was ended by signal %d\n", __func__, program.c_str(), WTERMSIG(status));
    else if (WEXITSTATUS(status) != 0) {
        log_message(1, "%s: %s ended with status %d\n", __func__, program.c_str(), WEXITSTATUS(status));
    } else log_message(4, "%s: %s has ended\n", __func__, program.c_str());
}

}  // namespace

size_t command_runner::add(const handler_settings &handler)
{
    slot fresh;
    fresh.handler = &handler;
    slots_.push_back(fresh);
    return slots_.size() - 1;
}

void command_runner::run(size_t number, const command_call &call)
{
    if (stopping_) return;
    slot &each = slots_[number];
    if (each.pid == 0) return start(each, call);
    log_message(2, "%s: %s still runs; handler '%s' is now %d and waits\n", __func__, each.handler->command[0].c_str(),
                each.handler->name.c_str(), call.state);
    each.waiting = call;
}

void command_runner::start(slot &each, const command_call &call)
{
    const std::string &program = each.handler->command[0];
    const spawn_settings settings;
    exec_texts arguments, environment = environment_of(each.handler->name, call);
    for (const std::string &argument : each.handler->command) arguments.add(argument);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, program.c_str(), settings.actions(), settings.attributes(), arguments.pointers(),
                                  environment.pointers());
    each.run_state = call.state;
    if (error != 0) {
        log_message(0, "%s: %s of handler '%s' could not be run: %s\n", __func__, program.c_str(), each.handler->name.c_str(),
                    std::strerror(error));
        return;
    }
    each.pid = pid;
    log_message(4, "%s: Running %s (process %d) for handler '%s' = %d\n", __func__, program.c_str(), pid,
                each.handler->name.c_str(), call.state);
}

void command_runner::take_end(slot &each)
{
    int status = 0;
    pid_t ended;
    do ended = waitpid(each.pid, &status, WNOHANG);
    while (ended < 0 && errno == EINTR);
    if (ended == 0) return;
    if (ended > 0) log_end(each.handler->command[0], status);
    each.pid = 0;
}

void command_runner::reap()
{
    for (slot &each : slots_) {
        if (each.pid == 0) continue;
        take_end(each);
        if (each.pid != 0 || !each.waiting) continue;
        const command_call next = *each.waiting;
        each.waiting.reset();
        if (next.state != each.run_state && !stopping_) start(each, next);
    }
}

bool command_runner::any_running() const
{
    for (const slot &each : slots_) {
        if (each.pid != 0) return true;
    }
    return false;
}

void command_runner::signal_all(int number) const
{
    for (const slot &each : slots_) {
        if (each.pid != 0) (void)kill(-each.pid, number);
    }
}

bool command_runner::all_end_within(std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    for (reap(); any_running() && std::chrono::steady_clock::now() < deadline; reap()) (void)poll(nullptr, 0, 5);
    return !any_running();
}

void command_runner::stop(std::chrono::milliseconds patience)
{
    constexpr std::chrono::seconds time_to_die{2};  // more than it takes, unless the kernel itself is stuck
    stopping_ = true;
    signal_all(SIGTERM);
    if (all_end_within(patience)) return;
    log_message(1, "%s: Ending commands that did not end by themselves\n", __func__);
    signal_all(SIGKILL);
    (void)all_end_within(time_to_die);
}

}  // namespace zel
