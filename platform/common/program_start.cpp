#include "common/program_start.h"

#include <fcntl.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>

namespace zel {

void open_standard_streams()
{
    while (true) {
        const int fd = open("/dev/null", O_RDWR);
        if (fd < 0) return;
        if (fd > STDERR_FILENO) {
            close(fd);
            return;
        }
    }
}

bool enter_unit_root(const std::string &root)
{
    char absolute[PATH_MAX];
    return realpath(root.c_str(), absolute) != nullptr && setenv("ZEL_ROOT", absolute, 1) == 0;
}

}  // namespace zel
