// Messages on their way to one peer, in order, shared with the queues of others.
#pragma once

#include "shared_message.h"

namespace zel::ember {

class output_queue {
public:
    enum class outcome : uint8_t { drained, blocked, broken };

    void push(const message_ref &message);       // may throw std::bad_alloc
    outcome write_to(int fd);                     // as much as the socket takes; never raises SIGPIPE
    void clear();

    bool empty() const { return head_ == waiting_.size(); }
    size_t count() const { return waiting_.size() - head_; }
    size_t bytes() const { return bytes_; }

private:
    void written(size_t count);

    std::vector<message_ref> waiting_;            // from head_ on
    size_t head_ = 0;
    size_t offset_ = 0;                           // written of the first
    size_t bytes_ = 0;
};

}  // namespace zel::ember
