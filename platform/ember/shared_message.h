// Encoded messages that wait in several clients' queues at once. The memory is counted by its users and used again, so that
// in the long run telling clients of a change needs no allocation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace zel::ember {

class message_pool;

struct shared_message {
    std::vector<uint8_t> bytes;      // whole frames
    uint32_t users = 0;
    message_pool *home = nullptr;
};

// Keeps messages that nobody uses any more. Outlives every message_ref.
class message_pool {
public:
    message_pool() = default;
    message_pool(const message_pool &) = delete;
    message_pool &operator=(const message_pool &) = delete;

    shared_message *take();                       // empty, with no users. May throw std::bad_alloc
    void give_back(shared_message *message) noexcept;

private:
    static constexpr size_t max_kept = 1024;
    static constexpr size_t max_capacity_kept = 4096;

    std::vector<std::unique_ptr<shared_message>> free_;
};

class message_ref {
public:
    message_ref() = default;
    explicit message_ref(shared_message *message) noexcept : message_(message) { ++message_->users; }
    message_ref(const message_ref &other) noexcept : message_(other.message_) { if (message_) ++message_->users; }
    message_ref(message_ref &&other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
    message_ref &operator=(message_ref other) noexcept { std::swap(message_, other.message_); return *this; }
    ~message_ref() { if (message_ && --message_->users == 0) message_->home->give_back(message_); }

    explicit operator bool() const { return message_ != nullptr; }
    std::vector<uint8_t> &bytes() const { return message_->bytes; }

private:
    shared_message *message_ = nullptr;
};

}  // namespace zel::ember
