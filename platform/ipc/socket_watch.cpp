#include "socket_watch.h"

#include <sys/inotify.h>

#include <cstring>

namespace zel::ipc {

void socket_watch::start(const char *folder, event_sources &sources, uint64_t tag)
{
    if (inotify_) return;
    unique_fd made(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    // The server sets the mode of its socket between bind and listen: only the creation is of interest.
    if (!made || inotify_add_watch(made.get(), folder, IN_CREATE | IN_MOVED_TO | IN_ONLYDIR) < 0) return;
    if (sources.add(made.get(), EPOLLIN, tag)) inotify_ = std::move(made);
}

bool socket_watch::saw(const char *name, const event_sources &sources)
{
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(inotify_.get(), events, sizeof events);
    bool seen = false, gone = false;
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= size;) {
        const auto *event = reinterpret_cast<const inotify_event *>(events + at);
        seen = seen || (event->mask & IN_Q_OVERFLOW) != 0 || (event->len != 0 && std::strcmp(event->name, name) == 0);
        gone = gone || (event->mask & IN_IGNORED) != 0;
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    if (gone) stop(sources);
    return seen;
}

}  // namespace zel::ipc
