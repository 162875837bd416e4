#include "output_queue.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace zel::ember {

void output_queue::push(const message_ref &message)
{
    // The room of what has gone is used again before more is asked for.
    if (head_ > 0 && waiting_.size() == waiting_.capacity()) {
        waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(head_));
        head_ = 0;
    }
    waiting_.push_back(message);
    bytes_ += message.bytes().size();
}

void output_queue::clear()
{
    waiting_.clear();
    head_ = offset_ = bytes_ = 0;
}

void output_queue::written(size_t count)
{
    bytes_ -= count;
    offset_ += count;
    while (head_ < waiting_.size() && offset_ >= waiting_[head_].bytes().size()) {
        offset_ -= waiting_[head_].bytes().size();
        waiting_[head_++] = {};
    }
    if (head_ == waiting_.size())
        clear();
}

output_queue::outcome output_queue::write_to(int fd)
{
    while (!empty()) {
        std::array<iovec, 64> pieces;
        const size_t pieces_count = std::min(pieces.size(), count());
        for (size_t i = 0; i < pieces_count; ++i) {
            auto &bytes = waiting_[head_ + i].bytes();
            const size_t from = i == 0 ? offset_ : 0;
            pieces[i] = {bytes.data() + from, bytes.size() - from};
        }
        msghdr message{};
        message.msg_iov = pieces.data();
        message.msg_iovlen = pieces_count;
        const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent >= 0)
            written(static_cast<size_t>(sent));
        else if (errno == EAGAIN || errno == EWOULDBLOCK)
            return outcome::blocked;
        else if (errno != EINTR)
            return outcome::broken;
    }
    return outcome::drained;
}

}  // namespace zel::ember
