// A descriptor that this process makes exceptional in select(), and plain again.
//
// Few things a process can make by itself become exceptional: an AF_UNIX stream socket with out-of-band data (kernels from
// 5.15 with CONFIG_AF_UNIX_OOB), and the master of a pseudo-terminal in packet mode, everywhere. The first costs less and is
// taken where it works; the environment variable ZEL_SIM_SIGNAL ("oob" or "pty") chooses by hand.
// Either may look readable at any time: it belongs in no read set.
#pragma once

#include "common/unique_fd.h"

namespace zel {

struct signal_kind {
    bool (*make)(unique_fd &watched, unique_fd &peer);
    bool (*raise)(int peer);
    bool (*clear)(int watched);
};

class exceptional_fd {
public:
    // False with errno on failure.
    bool make();
    // The caller keeps count: what is raised is not raised again, only what is raised is cleared. False with errno on failure.
    bool raise() { return kind_->raise(peer_.get()); }
    bool clear() { return kind_->clear(watched_.get()); }
    int fd() const { return watched_.get(); }

private:
    const signal_kind *kind_ = nullptr;
    unique_fd watched_, peer_;
};

}  // namespace zel
