// Tells when a server's socket appears in its folder, so that a restarted server has its clients back at once and not at the
// next turn of their timers. An aid only: without it (no folder yet, no inotify instance left) the timer does.
#pragma once

#include "event_sources.h"

namespace zel::ipc {

class socket_watch {
public:
    // Watches `folder`, with events of `tag`; where it does so already, nothing changes.
    void start(const char *folder, event_sources &sources, uint64_t tag);
    // Ends the watch and forgets what it saw. The descriptor stays: closing one takes the kernel many milliseconds.
    void stop();
    // Reads what happened: true if a file `name` appeared.
    bool saw(const char *name);
    void close(const event_sources &sources) { sources.remove_and_close(inotify_); }

private:
    unique_fd inotify_;
    int watch_ = -1;
};

}  // namespace zel::ipc
