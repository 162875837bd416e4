// One unit per root: whoever holds the lock file is the unit, and a socket that lies there without it is a dead one's.
#pragma once

#include "common/unique_fd.h"

#include <string>

namespace zel {

class unit_claim {
public:
    // `path` of the lock file; its folder is made. False when another unit holds it, or with errno in `problem`: one line
    // that says which.
    bool take(const std::string &path, std::string &problem);

private:
    unique_fd lock_;  // held until the process ends, however it ends
};

}  // namespace zel
