#include "process_identity.h"

#include "common/unique_fd.h"

#include <fcntl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zel::sdiscd {
namespace {

// The 22nd value; the second one, the name in parentheses, may hold blanks and parentheses itself.
uint64_t start_time_in(const char *stat)
{
    const char *at = std::strrchr(stat, ')');
    for (int value = 2; at != nullptr && value < 22; ++value) {
        at = std::strchr(at + 1, ' ');
    }
    return at != nullptr ? std::strtoull(at + 1, nullptr, 10) : 0;
}

}  // namespace

process_identity identify_process(int32_t pid)
{
    char path[32], text[1024] = "";
    (void)std::snprintf(path, sizeof path, "/proc/%d/stat", pid);
    const unique_fd file(pid > 0 ? open(path, O_RDONLY | O_CLOEXEC) : -1);
    const ssize_t got = file ? read(file.get(), text, sizeof text - 1) : -1;
    return {pid, got > 0 ? start_time_in(text) : 0};
}

bool is_running(const process_identity &process)
{
    return process.started != 0 && identify_process(process.pid) == process;
}

}  // namespace zel::sdiscd
