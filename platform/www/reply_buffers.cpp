#include "reply_buffers.h"

#include <algorithm>
#include <new>

namespace zel::web {

std::unique_ptr<reply_buffer> reply_buffers::take(size_t size) noexcept
{
    const auto found = std::ranges::find_if(kept_, [size](const auto &each) { return each->size >= size; });
    if (found != kept_.end()) {
        std::unique_ptr<reply_buffer> buffer = std::move(*found);
        kept_.erase(found);
        return buffer;
    }
    std::unique_ptr<reply_buffer> buffer(new (std::nothrow) reply_buffer);
    if (!buffer) return nullptr;
    buffer->bytes.reset(static_cast<char *>(std::malloc(size)));
    buffer->size = size;
    buffer->home = this;
    return buffer->bytes ? std::move(buffer) : nullptr;
}

void reply_buffers::give_back(std::unique_ptr<reply_buffer> buffer) noexcept
{
    if (buffer->size <= largest_kept && kept_.size() < most_kept) kept_.push_back(std::move(buffer));
}

}  // namespace zel::web
