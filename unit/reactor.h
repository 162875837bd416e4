// The unit's own descriptors behind one: an epoll instance that takes a single place in the host loop's select(), however many
// clients there are.
#pragma once

#include "common/unique_fd.h"

#include <sys/epoll.h>
#include <sys/select.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

namespace zel {

class reactor {
public:
    using callback = std::function<void(uint32_t events)>;

    // False if there is no descriptor for it below FD_SETSIZE (errno says why).
    bool open();
    // `events` as for epoll. The callback may add, change and remove descriptors, its own among them. False with errno.
    bool add(int fd, uint32_t events, callback run);
    bool change(int fd, uint32_t events);
    // To be called before the descriptor is closed.
    void remove(int fd);

    void set_fds(fd_set *readfds, int *maxfd) const;
    // Runs the callbacks of what is ready; does not wait.
    void process();

private:
    unique_fd epoll_;
    std::unordered_map<int, std::shared_ptr<callback>> callbacks_;
};

}  // namespace zel
