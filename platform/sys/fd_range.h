// select() takes descriptors below FD_SETSIZE; FD_SET with a higher one writes behind the set.
#pragma once

#include "zel_debug.h"

#include <sys/select.h>

namespace zel {

// False with a line in the log, which begins with `whose`.
inline bool fits_select(int fd, const char *whose)
{
    if (fd < FD_SETSIZE) return true;
    log_message(0, "%s: %s: descriptor %d is beyond what select() takes (%d): too many files are open\n", __func__, whose, fd,
                FD_SETSIZE - 1);
    return false;
}

}  // namespace zel
