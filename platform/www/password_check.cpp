#include "password_check.h"

#include "users_file.h"
#include "zel_debug.h"

#include <sys/eventfd.h>

#include <cstring>
#include <exception>
#include <utility>

namespace zel::web {

password_check::~password_check()
{
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    changed_.notify_one();
    if (thread_.joinable()) thread_.join();
}

bool password_check::open()
{
    ready_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    answers_.reserve(most_waiting + 1);
    return static_cast<bool>(ready_);
}

bool password_check::begin(uint64_t job, std::string password, std::string hash, bool known)
{
    try {
        const std::lock_guard lock(mutex_);
        if (tasks_.size() + answers_.size() >= most_waiting) return false;
        if (!thread_.joinable()) thread_ = std::thread([this] { work(); });
        tasks_.push_back({job, std::move(password), std::move(hash), known});
    } catch (const std::exception &problem) {
        log_message(0, "%s: A password cannot be checked: %s\n", __func__, problem.what());
        return false;
    }
    changed_.notify_one();
    return true;
}

void password_check::work() noexcept
{
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return ending_ || !tasks_.empty(); });
        if (ending_) return;
        task each = std::move(tasks_.front());
        tasks_.pop_front();
        lock.unlock();
        bool good = false;
        try {
            good = is_password(each.password, each.hash) && each.known;
        } catch (const std::exception &) {
            log_message(0, "%s: Out of memory\n", __func__);
        }
        explicit_bzero(each.password.data(), each.password.size());
        lock.lock();
        answers_.push_back({each.job, good});
        (void)eventfd_write(ready_.get(), 1);
    }
}

std::vector<password_check::answer> password_check::take_answers()
{
    eventfd_t count;
    (void)eventfd_read(ready_.get(), &count);
    std::vector<answer> taken;
    taken.reserve(most_waiting + 1);
    const std::lock_guard lock(mutex_);
    taken.swap(answers_);
    return taken;
}

}  // namespace zel::web
