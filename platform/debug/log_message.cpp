#include "zel_debug.h"

#include "log_line.h"
#include "log_output.h"
#include "repeat_timer.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using namespace zel::log;

constexpr int level_unset = -1;
constexpr int default_level = 2;

void write_count_of_repeats();

// Never destroyed: threads of the host may log until the very end of the process.
constinit pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
constinit repeat_timer timer(mutex, write_count_of_repeats);
constinit output out;
constinit std::atomic<int> threshold = level_unset;
constinit std::atomic<bool> reopen_wanted = false;
bool ready = false;
char program[32];
int repeat_interval_ms = 10000;
line current;
char last_text[line_max];
int last_level = level_unset;
unsigned long repeats = 0;
unsigned long lost = 0;   // lines in a row that the log's reader did not take

// `errno` is the caller's, and what is logged is often about it.
class locked {
public:
    locked();
    ~locked()
    {
        pthread_mutex_unlock(&mutex);
        errno = error_;
    }
    locked(const locked &) = delete;
    locked &operator=(const locked &) = delete;

private:
    int error_ = errno;
};

bool put_line(int level, const char *text)
{
    // A reader that has stopped holds this process up once, and not at every line.
    constexpr int patience_ms = 100;
    compose(current, level, program, text);
    return out.write(current, lost == 0 ? patience_ms : 0);
}

void write_line(int level, const char *text)
{
    if (lost > 0) {
        char report[64];
        std::snprintf(report, sizeof report, "%lu line%s of the log could not be written\n", lost, lost == 1 ? "" : "s");
        if (put_line(1, report)) lost = 0;
    }
    if (lost > 0 || !put_line(level, text)) ++lost;
}

__attribute__((format(printf, 2, 3)))
void write_own_line(int level, const char *format, ...)
{
    char text[PATH_MAX + 256];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    write_line(level, text);
}

void write_count_of_repeats()
{
    timer.disarm();
    if (repeats == 0) return;
    write_own_line(last_level, "last message repeated %lu time%s\n", repeats, repeats == 1 ? "" : "s");
    repeats = 0;
}

int open_output(const char *path)
{
    if (out.open_file(path)) return 0;
    write_own_line(1, "the log file cannot be opened: %s: %s\n", std::strerror(errno), path);
    return -1;
}

void reopen_output()
{
    if (reopen_wanted.exchange(false) && !out.reopen()) {
        write_own_line(1, "the log file cannot be opened anew: %s: %s\n", std::strerror(errno), out.path());
    }
}

int environment_level()
{
    const char *const name = std::getenv("ZEL_LOG_LEVEL");
    const int level = name != nullptr ? zel_debug_level_from_name(name) : default_level;
    return level >= 0 ? level : default_level;
}

void set_program_name(const char *name)
{
    std::snprintf(program, sizeof program, "%s", name != nullptr ? name : program_invocation_short_name);
}

// A fork waits until no line is being written; what was counted is the parent's to tell.
void register_fork_handlers()
{
    pthread_atfork([] { pthread_mutex_lock(&mutex); },
                   [] { pthread_mutex_unlock(&mutex); },
                   [] {
                       timer.forget_thread();
                       repeats = 0;
                       pthread_mutex_unlock(&mutex);
                   });
}

void make_ready()
{
    ready = true;
    if (program[0] == '\0') set_program_name(nullptr);
    int unset = level_unset;
    threshold.compare_exchange_strong(unset, environment_level());
    register_fork_handlers();
    if (const char *const path = std::getenv("ZEL_LOG_FILE"); path != nullptr && *path != '\0') (void)open_output(path);
}

locked::locked()
{
    pthread_mutex_lock(&mutex);
    if (!ready) make_ready();
}

// True when the message is only counted.
bool is_repeated(int level, const char *text)
{
    if (repeat_interval_ms == 0 || level != last_level || std::strcmp(text, last_text) != 0) return false;
    if (!timer.armed() && !timer.arm(repeat_interval_ms)) return false;
    ++repeats;
    return true;
}

void log_text(int level, const char *text)
{
    const locked lock;
    if (level > threshold.load(std::memory_order_relaxed)) return;
    reopen_output();
    if (is_repeated(level, text)) return;
    write_count_of_repeats();
    std::strcpy(last_text, text);
    last_level = level;
    write_line(level, text);
}

__attribute__((destructor))
void write_what_is_left()
{
    timer.join();
    const locked lock;
    write_count_of_repeats();
}

}  // namespace

void log_message(int level, const char *format, ...)
{
    const int limit = threshold.load(std::memory_order_relaxed);
    if (limit != level_unset && level > limit) return;
    const int error = errno;
    char text[line_max];
    va_list args;
    va_start(args, format);
    // A wide character that cannot be converted fails the formatting; the format itself is better than nothing.
    if (std::vsnprintf(text, sizeof text, format, args) < 0) std::snprintf(text, sizeof text, "%s", format);
    va_end(args);
    errno = error;
    log_text(level, text);
}

void zel_debug_set_program(const char *name)
{
    const locked lock;
    set_program_name(name);
}

int zel_debug_set_file(const char *path)
{
    const locked lock;
    write_count_of_repeats();
    return open_output(path);
}

void zel_debug_reopen(void)
{
    reopen_wanted.store(true);
}

void zel_debug_set_level(int level)
{
    threshold.store(level < 0 ? 0 : level);
}

int zel_debug_get_level(void)
{
    const locked lock;
    return threshold.load();
}

int zel_debug_level_from_name(const char *name)
{
    static constexpr struct { const char *name; int level; } levels[] = {
        {"error", 0}, {"warning", 1}, {"information", 2}, {"detail", 4}};
    if (name == nullptr) return -1;
    for (const auto &row : levels) {
        if (std::strcmp(name, row.name) == 0) return row.level;
    }
    return name[0] >= '0' && name[0] <= '9' && name[1] == '\0' ? name[0] - '0' : -1;
}

void zel_debug_set_repeat_interval(int milliseconds)
{
    const locked lock;
    write_count_of_repeats();
    repeat_interval_ms = milliseconds < 0 ? 0 : milliseconds;
}

void zel_debug_flush(void)
{
    const locked lock;
    write_count_of_repeats();
}
