// Checks passwords on a thread of its own: that takes long by design, and the host's loop has relays to switch meanwhile.
#pragma once

#include "common/unique_fd.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zel::web {

class password_check {
public:
    struct answer {
        uint64_t job;
        bool good;
    };
    static constexpr size_t most_waiting = 16;

    password_check() = default;
    ~password_check();
    password_check(const password_check &) = delete;
    password_check &operator=(const password_check &) = delete;

    // False with errno.
    bool open();
    // Readable when there are answers.
    int fd() const { return ready_.get(); }
    // False if too many wait already, or there is no thread to be had. `known` false: the answer is no, after the same time.
    bool begin(uint64_t job, std::string password, std::string hash, bool known);
    std::vector<answer> take_answers();

private:
    struct task {
        uint64_t job;
        std::string password, hash;
        bool known;
    };
    void work() noexcept;

    unique_fd ready_;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<task> tasks_;
    std::vector<answer> answers_;
    bool ending_ = false;
};

}  // namespace zel::web
