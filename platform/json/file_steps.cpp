#include "file_steps.h"

#include "common/unique_fd.h"
#include "common/unit_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace zel {

int create_file(const char *path) noexcept
{
    return open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, 0600);
}

int write_all(int fd, const char *text, size_t length) noexcept
{
    while (length > 0) {
        const ssize_t written = write(fd, text, length);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        text += written;
        length -= static_cast<size_t>(written);
    }
    return 0;
}

int sync_folder(const char *folder) noexcept
{
    const unique_fd fd(open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd) return errno;
    // Some file systems have nothing to do for a folder and say so.
    return fsync(fd.get()) != 0 && errno != EINVAL ? errno : 0;
}

int make_durable_folder_of(const std::string &path) noexcept
{
    try {
        if (!make_folder_of(path)) return errno;
        for (size_t slash = path.rfind('/'); slash != std::string::npos && slash != 0; slash = path.rfind('/', slash - 1)) {
            (void)sync_folder(path.substr(0, slash).c_str());  // folders above the unit's own may not be readable
        }
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

int link_over(const char *path, const char *other, const char *temporary) noexcept
{
    (void)unlink(temporary);
    if (link(path, temporary) != 0) return errno;
    const int error = rename(temporary, other) != 0 ? errno : 0;
    (void)unlink(temporary);  // renaming one name of a file to another of its names leaves both
    return error;
}

bool is_same_file(const char *path, const char *other) noexcept
{
    struct stat one, two;
    return stat(path, &one) == 0 && stat(other, &two) == 0 && one.st_dev == two.st_dev && one.st_ino == two.st_ino;
}

}  // namespace zel
