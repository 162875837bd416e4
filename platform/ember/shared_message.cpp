#include "shared_message.h"

namespace zel::ember {

shared_message *message_pool::take()
{
    if (!free_.empty()) {
        shared_message *message = free_.back().release();
        free_.pop_back();
        message->bytes.clear();
        return message;
    }
    // Room to give it back must not be wanting later.
    if (free_.capacity() < max_kept)
        free_.reserve(max_kept);
    auto message = std::make_unique<shared_message>();
    message->home = this;
    return message.release();
}

void message_pool::give_back(shared_message *message) noexcept
{
    std::unique_ptr<shared_message> owned(message);
    if (free_.size() < max_kept && owned->bytes.capacity() <= max_capacity_kept)
        free_.push_back(std::move(owned));
}

}  // namespace zel::ember
