// Memory for the texts that handlers write: kept for the next reply, because fresh memory costs more than filling it.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <vector>

namespace zel::web {

struct reply_buffer {
    std::unique_ptr<char, decltype(&std::free)> bytes{nullptr, std::free};
    size_t size = 0;
    class reply_buffers *home = nullptr;
};

class reply_buffers {
public:
    reply_buffers() { kept_.reserve(most_kept); }

    // At least `size` bytes; null for want of memory.
    std::unique_ptr<reply_buffer> take(size_t size) noexcept;
    // What is large is released, the rest is kept up to a few.
    void give_back(std::unique_ptr<reply_buffer> buffer) noexcept;

private:
    static constexpr size_t most_kept = 4, largest_kept = size_t{4} << 20;
    std::vector<std::unique_ptr<reply_buffer>> kept_;
};

}  // namespace zel::web
