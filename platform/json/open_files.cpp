#include "open_files.h"

#include <unistd.h>

#include <cstring>
#include <mutex>

namespace zel {
namespace {

constinit std::mutex mutex;
constinit open_file *first = nullptr;

// A forked child has the list as well, but neither the threads that write nor the right to do so.
__attribute__((destructor))
void finish_open_files()
{
    const pid_t process = getpid();
    for (open_file *file = first; file != nullptr; file = file->next) {
        if (file->process == process) file->finish();
    }
}

}  // namespace

bool add_open_file(open_file &file) noexcept
{
    const std::lock_guard lock(mutex);
    file.process = getpid();
    for (const open_file *other = first; other != nullptr; other = other->next) {
        if (other->process == file.process && std::strcmp(other->path(), file.path()) == 0) return false;
    }
    file.next = first;
    first = &file;
    return true;
}

void remove_open_file(open_file &file) noexcept
{
    const std::lock_guard lock(mutex);
    open_file **link = &first;
    while (*link != nullptr && *link != &file) link = &(*link)->next;
    if (*link != nullptr) *link = file.next;
}

}  // namespace zel
