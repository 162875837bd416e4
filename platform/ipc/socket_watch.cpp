#include "socket_watch.h"

#include <sys/inotify.h>

#include <cstring>

namespace zel::ipc {

void socket_watch::start(const char *folder, event_sources &sources, uint64_t tag)
{
    if (watch_ >= 0) return;
    if (!inotify_) {
        unique_fd made(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
        if (!made || !sources.add(made.get(), EPOLLIN, tag)) return;
        inotify_ = std::move(made);
    }
    watch_ = inotify_add_watch(inotify_.get(), folder, IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
}

void socket_watch::stop()
{
    if (watch_ < 0) return;
    (void)inotify_rm_watch(inotify_.get(), watch_);
    while (watch_ >= 0) (void)saw("");   // the last event says that the watch has ended
}

bool socket_watch::saw(const char *name)
{
    alignas(inotify_event) char events[4096];
    const ssize_t size = read(inotify_.get(), events, sizeof events);
    if (size <= 0) watch_ = -1;   // nothing more to be told
    bool seen = false;
    for (ssize_t at = 0; at + static_cast<ssize_t>(sizeof(inotify_event)) <= size;) {
        const auto *event = reinterpret_cast<const inotify_event *>(events + at);
        seen = seen || (event->mask & IN_Q_OVERFLOW) != 0 || (event->len != 0 && std::strcmp(event->name, name) == 0);
        if ((event->mask & IN_IGNORED) != 0 && event->wd == watch_) watch_ = -1;   // removed, or its folder is gone
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
    return seen;
}

}  // namespace zel::ipc
