#include "file_calls.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <mutex>

namespace file_calls {
namespace {

struct state {
    std::mutex mutex;
    std::condition_variable added;
    std::string watched;
    std::vector<std::string> calls;
    std::string failing;
    int failing_error = 0, failing_times = 0, failed = 0;
    int ends_at = 0;
    std::atomic<size_t> write_limit = SIZE_MAX;
    std::atomic<void (*)(const std::string &)> observer = nullptr;
};

// Made at first use and never destroyed: calls come before and after everything else of this program.
state &the()
{
    static state &only = *new state;
    return only;
}

// Name inside the watched folder, or "" for one outside; "." is the folder itself.
std::string inside(const std::string &path)
{
    const std::lock_guard lock(the().mutex);
    if (the().watched.empty() || path.compare(0, the().watched.size(), the().watched) != 0) return {};
    const std::string rest = path.substr(the().watched.size());
    if (rest.empty() || rest == "/") return ".";
    return rest[0] == '/' ? rest.substr(1) : std::string{};
}

std::string inside(int fd)
{
    char path[PATH_MAX];
    const ssize_t length = readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path);
    return length > 0 ? inside(std::string(path, static_cast<size_t>(length))) : std::string{};
}

enum class verdict { go_on, fail, end };

// Writes the call down and says what becomes of it; a failure's errno is set.
verdict judge(const char *name, const std::string &what)
{
    const auto observer = the().observer.load();
    if (observer != nullptr && !what.empty()) observer(std::string(name) + " " + what);
    const std::lock_guard lock(the().mutex);
    if (what.empty()) return verdict::go_on;
    the().calls.push_back(std::string(name) + " " + what);
    the().added.notify_all();
    if (the().ends_at > 0 && --the().ends_at == 0) return verdict::end;
    if (the().failing_times == 0 || the().calls.back() != the().failing) return verdict::go_on;
    --the().failing_times;
    ++the().failed;
    errno = the().failing_error;
    return verdict::fail;
}

template <class Call>
long run(const char *name, const std::string &what, const Call &call)
{
    const verdict result = judge(name, what);
    if (result == verdict::end) _exit(99);
    return result == verdict::fail ? -1 : call();
}

std::string arrow(const char *from, const char *to)
{
    const std::string first = inside(std::string(from)), second = inside(std::string(to));
    return first.empty() && second.empty() ? std::string{} : first + " -> " + second;
}

}  // namespace

void watch(const std::string &folder)
{
    const std::lock_guard lock(the().mutex);
    the().watched = folder;
    the().calls.clear();
    the().failing_times = the().failed = the().ends_at = 0;
    the().write_limit = SIZE_MAX;
}

std::vector<std::string> journal()
{
    const std::lock_guard lock(the().mutex);
    return the().calls;
}

size_t count(const std::string &call)
{
    const std::lock_guard lock(the().mutex);
    return static_cast<size_t>(std::ranges::count(the().calls, call));
}

bool wait_for(const std::string &call, size_t times)
{
    std::unique_lock lock(the().mutex);
    return the().added.wait_for(lock, std::chrono::seconds(30),
                          [&] { return static_cast<size_t>(std::ranges::count(the().calls, call)) >= times; });
}

void tell(void (*observer)(const std::string &call))
{
    the().observer = observer;
}

void fail(const std::string &call, int error, int times)
{
    const std::lock_guard lock(the().mutex);
    the().failing = call;
    the().failing_error = error;
    the().failing_times = times;
    the().failed = 0;
}

void stop_failing()
{
    const std::lock_guard lock(the().mutex);
    the().failing_times = 0;
}

int failures()
{
    const std::lock_guard lock(the().mutex);
    return the().failed;
}

void limit_writes(size_t size)
{
    the().write_limit = size;
}

void end_at(int nth)
{
    const std::lock_guard lock(the().mutex);
    the().ends_at = nth;
}

}  // namespace file_calls

#pragma GCC visibility push(default)
extern "C" {

int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0;
    va_end(args);
    return static_cast<int>(file_calls::run("open", file_calls::inside(std::string(path)),
                                            [&] { return syscall(SYS_openat, AT_FDCWD, path, flags, mode); }));
}

ssize_t write(int fd, const void *data, size_t size)
{
    const std::string what = file_calls::inside(fd);
    const file_calls::verdict result = file_calls::judge("write", what);
    if (result == file_calls::verdict::fail) return -1;
    if (!what.empty()) size = std::min(size, file_calls::the().write_limit.load());
    if (result != file_calls::verdict::end) return syscall(SYS_write, fd, data, size);
    (void)syscall(SYS_write, fd, data, size / 2);
    _exit(99);
}

int fsync(int fd)
{
    return static_cast<int>(file_calls::run("fsync", file_calls::inside(fd), [&] { return syscall(SYS_fsync, fd); }));
}

int link(const char *from, const char *to) noexcept
{
    return static_cast<int>(file_calls::run("link", file_calls::arrow(from, to),
                                            [&] { return syscall(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0); }));
}

int rename(const char *from, const char *to) noexcept
{
    return static_cast<int>(file_calls::run("rename", file_calls::arrow(from, to),
                                            [&] { return syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0); }));
}

int unlink(const char *path) noexcept
{
    return static_cast<int>(file_calls::run("unlink", file_calls::inside(std::string(path)),
                                            [&] { return syscall(SYS_unlinkat, AT_FDCWD, path, 0); }));
}

int mkdir(const char *path, mode_t mode) noexcept
{
    return static_cast<int>(file_calls::run("mkdir", file_calls::inside(std::string(path)),
                                            [&] { return syscall(SYS_mkdirat, AT_FDCWD, path, mode); }));
}

}  // extern "C"
#pragma GCC visibility pop
