#include "message_queue.h"

#include <cstdlib>
#include <cstring>

namespace zel::ipc {

// The payload lies behind the node in the same allocation.
struct message_queue::node {
    node *next;
    uint32_t length;
    uint8_t type;

    size_t size() const { return sizeof(node) + length; }
    void *payload() { return this + 1; }
};

bool message_queue::push(uint8_t type, const void *payload, uint32_t length)
{
    const size_t size = sizeof(node) + length;
    if (messages_ >= limits_.messages || size > limits_.bytes - bytes_) return false;
    node *const added = static_cast<node *>(std::malloc(size));
    if (added == nullptr) return false;
    *added = {nullptr, length, type};
    if (length != 0) std::memcpy(added->payload(), payload, length);
    (last_ != nullptr ? last_->next : first_) = added;
    last_ = added;
    ++messages_;
    bytes_ += size;
    return true;
}

sending message_queue::flush(int socket)
{
    while (first_ != nullptr) {
        const sending result = send_packet(socket, first_->type, first_->payload(), first_->length);
        if (result != sending::done) return result;
        pop();
    }
    return sending::done;
}

void message_queue::clear()
{
    while (first_ != nullptr) pop();
}

void message_queue::pop()
{
    node *const sent = first_;
    first_ = sent->next;
    if (first_ == nullptr) last_ = nullptr;
    --messages_;
    bytes_ -= sent->size();
    std::free(sent);
}

}  // namespace zel::ipc
