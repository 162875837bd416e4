#include "settings_writer.h"

#include "zel_debug.h"

#include <signal.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace zel {
namespace {

using namespace std::chrono_literals;

// A change is to be on the disk after 100 ms. One that comes just after a write has begun waits for that write and then for its
// own, so that writes may take 50 ms; waiting this long for further changes costs nothing of that.
constexpr auto joining_time = 40ms;
// A full disk or the like: how long until the next try.
constexpr auto retry_time = 1s;
// jansson goes down into the tree by recursion, up to 2048 levels.
constexpr size_t stack_size = size_t{2} << 20;

int append_to_text(const char *piece, size_t size, void *text) noexcept
{
    try {
        static_cast<std::string *>(text)->append(piece, size);
        return 0;
    } catch (const std::bad_alloc &) {
        return -1;
    }
}

}  // namespace

void settings_writer::changed(std::unique_lock<std::mutex> &lock) noexcept
{
    if (!dirty_) due_ = clock::now() + joining_time;
    const bool waited_for = dirty_ && running_;
    dirty_ = true;
    if (waited_for) return;
    if (running_ || start_thread()) {
        wake_.notify_one();
    } else if (!told_ || clock::now() >= due_) {
        (void)save(lock);  // slow, but nothing is lost
    }
}

// The host's signals are for its own threads: this one takes none.
bool settings_writer::start_thread() noexcept
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) return false;
    pthread_attr_setstacksize(&attributes, stack_size);
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int error = pthread_create(&thread_, &attributes, run, this);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    running_ = error == 0;
    if (!running_) log_message(1, "%s: no thread to write %s: %s\n", __func__, file_.path(), std::strerror(error));
    return running_;
}

void *settings_writer::run(void *self) noexcept
{
    static_cast<settings_writer *>(self)->work();
    return nullptr;
}

void settings_writer::work() noexcept
{
    std::unique_lock lock(mutex_);
    while (dirty_ || !finishing_) {
        const clock::time_point due = due_;
        if (!dirty_) {
            wake_.wait(lock);
        } else if (!finishing_ && clock::now() < due) {
            wake_.wait_until(lock, due);
        } else if (!save(lock) && finishing_) {
            return;
        }
    }
}

// The mutex is let go while the disk works.
bool settings_writer::save(std::unique_lock<std::mutex> &lock) noexcept
{
    dirty_ = false;
    file_failure failure = make_text();
    lock.unlock();
    if (!failure) failure = file_.replace(text_.data(), text_.size());
    report(failure);
    lock.lock();
    if (!failure) return true;
    dirty_ = true;
    due_ = clock::now() + retry_time;
    return false;
}

file_failure settings_writer::make_text() noexcept
{
    text_.clear();
    if (json_dump_callback(root_, append_to_text, &text_, JSON_INDENT(2)) != 0 || append_to_text("\n", 1, &text_) != 0) {
        return {"making the text", ENOMEM};
    }
    return text_.size() > json_file_max ? file_failure{"making a text that can be read again", EFBIG} : file_failure{};
}

// One line when a failure begins and one when it is over, not one per try.
void settings_writer::report(const file_failure &failure) noexcept
{
    if (failure == told_) return;
    told_ = failure;
    if (failure) {
        log_message(0, "%s: %s: %s failed: %s; kept in memory and tried again\n", __func__, file_.path(), failure.step,
                    std::strerror(failure.error));
    } else {
        log_message(2, "%s: %s: written, nothing was lost\n", __func__, file_.path());
    }
}

void settings_writer::finish() noexcept
{
    std::unique_lock lock(mutex_);
    if (finishing_) return;
    finishing_ = true;
    wake_.notify_one();
    lock.unlock();
    if (running_) pthread_join(thread_, nullptr);
    lock.lock();
    running_ = false;
    if (dirty_ && !save(lock)) log_message(0, "%s: %s: the last changes are lost\n", __func__, file_.path());
}

}  // namespace zel
