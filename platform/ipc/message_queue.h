// Messages that wait for room in a socket, in order and within a bound.
#pragma once

#include "wire.h"

#include <cstddef>
#include <cstdint>

namespace zel::ipc {

struct queue_limits {
    uint32_t messages;
    size_t bytes;        // memory taken, the queue's own cost per message included
};

class message_queue {
public:
    explicit message_queue(queue_limits limits) : limits_(limits) {}
    ~message_queue() { clear(); }
    message_queue(const message_queue &) = delete;
    message_queue &operator=(const message_queue &) = delete;

    // Copies the message. False, with nothing changed, when it would exceed a limit or there is no memory.
    bool push(uint8_t type, const void *payload, uint32_t length);
    // Sends from the front. Done: all sent; would_block or failed: what was not sent is still here.
    sending flush(int socket);
    void clear();

    bool empty() const { return first_ == nullptr; }
    bool more_than_half_full() const { return messages_ > limits_.messages / 2 || bytes_ > limits_.bytes / 2; }
    uint32_t messages() const { return messages_; }
    size_t bytes() const { return bytes_; }

private:
    struct node;
    void pop();

    queue_limits limits_;
    node *first_ = nullptr;
    node *last_ = nullptr;
    uint32_t messages_ = 0;
    size_t bytes_ = 0;
};

}  // namespace zel::ipc
