// Writes a tree of settings whenever it has changed, on a thread of its own, so that nobody waits for the disk.
#pragma once

#include "settings_file.h"

#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace zel {

// The tree is changed by one thread, with the mutex held, and that thread reads it without; this class only reads it, with the
// mutex held. So the owner can wait for one dump of the tree (about a millisecond per 200 kB), but never for the disk.
class settings_writer {
public:
    settings_writer(settings_file &file, const json_t *root) noexcept : file_(file), root_(root) {}

    std::mutex &mutex() noexcept { return mutex_; }
    // The tree has changed: it is written a short time later, with what else changes until then.
    void changed(std::unique_lock<std::mutex> &lock) noexcept;
    // Writes what is due and ends the thread; what cannot be written now is lost, and logged so. Further calls do nothing.
    void finish() noexcept;

private:
    using clock = std::chrono::steady_clock;

    static void *run(void *self) noexcept;
    bool start_thread() noexcept;
    void work() noexcept;
    bool save(std::unique_lock<std::mutex> &lock) noexcept;
    file_failure make_text() noexcept;
    void report(const file_failure &failure) noexcept;

    settings_file &file_;
    const json_t *const root_;
    std::mutex mutex_;
    std::condition_variable wake_;
    pthread_t thread_{};
    clock::time_point due_{};
    std::string text_;  // kept between writes for its room; used by whoever saves
    file_failure told_;
    bool running_ = false;
    bool dirty_ = false;
    bool finishing_ = false;
};

}  // namespace zel
