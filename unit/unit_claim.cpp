#include "unit_claim.h"

#include "common/unit_root.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace zel {
namespace {

std::string holder_of(int fd)
{
    char text[32] = "";
    const ssize_t got = pread(fd, text, sizeof text - 1, 0);
    const long pid = got > 0 ? std::strtol(text, nullptr, 10) : 0;
    return pid > 0 ? " (process " + std::to_string(pid) + ")" : "";
}

}  // namespace

bool unit_claim::take(const std::string &path, std::string &problem)
{
    const bool folder = make_folder_of(path);
    lock_.reset(folder ? open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600) : -1);
    if (!lock_) {
        problem = path + ": " + std::strerror(errno);
        return false;
    }
    if (flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
        const bool held = errno == EWOULDBLOCK;
        problem = held ? "another unit is running on this root" + holder_of(lock_.get()) : path + ": " + std::strerror(errno);
        lock_.reset();
        return false;
    }
    const std::string own = std::to_string(getpid()) + "\n";
    (void)!ftruncate(lock_.get(), 0);
    (void)!pwrite(lock_.get(), own.data(), own.size(), 0);
    return true;
}

}  // namespace zel
