// The C interface of the pins' control socket: one epoll instance holds the listener and all clients.
#include "border.h"
#include "control_clients.h"
#include "control_listener.h"
#include "fd_range.h"
#include "pin_table.h"
#include "zel_sys.h"

#include <sys/epoll.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace zel {
namespace {

constexpr uint64_t listener_id = 0;

struct control_socket {
    explicit control_socket(unique_fd epoll_fd) : epoll(std::move(epoll_fd)), clients(epoll.get()) {}

    unique_fd epoll;
    control_listener listener;
    control_clients clients;
    bool contact_moved = false;  // in the last turn
};

// Released by zel_sys_control_close only: pins may be written as late as in the host's exit handlers.
control_socket *control = nullptr;

void tell_clients(void *, int32_t pin, int32_t direction, int level)
{
    control->clients.tell_change(pin, direction, level);
}

bool watch_listener(const control_socket &made)
{
    epoll_event event = {EPOLLIN, {.u64 = listener_id}};
    if (epoll_ctl(made.epoll.get(), EPOLL_CTL_ADD, made.listener.fd(), &event) == 0) return true;
    log_message(0, "%s: %s\n", __func__, std::strerror(errno));
    return false;
}

int open_control()
{
    if (control != nullptr) {
        log_message(0, "%s: The control socket is open already\n", __func__);
        return -1;
    }
    unique_fd epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll) {
        log_message(0, "%s: No epoll instance: %s\n", __func__, std::strerror(errno));
        return -1;
    }
    auto made = std::make_unique<control_socket>(std::move(epoll));
    if (!fits_select(made->epoll.get(), "The control socket") || !made->listener.open() || !watch_listener(*made)) return -1;
    control = made.release();
    set_pin_listener(pin_listener::control_socket, tell_clients, nullptr);
    return 0;
}

void accept_clients()
{
    bool more = true;
    for (size_t i = 0; more && i < control_clients::most_clients; ++i) {
        if (unique_fd client = control->listener.accept(more)) control->clients.add(std::move(client));
    }
}

void serve_control()
{
    epoll_event events[control_clients::most_clients];
    const int count = epoll_wait(control->epoll.get(), events, control_clients::most_clients, 0);
    for (int i = 0; i < count && !control->contact_moved; ++i) {
        if (events[i].data.u64 == listener_id) accept_clients();
        else control->contact_moved = control->clients.serve(events[i].data.u64, events[i].events);
    }
    control->clients.drop_lost();
}

}  // namespace
}  // namespace zel

using namespace zel;

int zel_sys_control_open(void)
{
    return guarded(__func__, -1, open_control);
}

void zel_sys_control_set_fds(fd_set *readfds, int *maxfd)
{
    if (control == nullptr || readfds == nullptr || maxfd == nullptr) return;
    const int fd = control->epoll.get();
    FD_SET(fd, readfds);
    if (fd > *maxfd) *maxfd = fd;
}

void zel_sys_control_process_fds(fd_set *readfds)
{
    if (control == nullptr || readfds == nullptr) return;
    // After a contact was moved one turn is left to the pins: a press and a release sent in one breath stay two events,
    // whichever of control socket and pins the host serves first.
    if (std::exchange(control->contact_moved, false) || !FD_ISSET(control->epoll.get(), readfds)) return;
    guarded(__func__, 0, [] {
        serve_control();
        return 0;
    });
}

void zel_sys_control_close(void)
{
    set_pin_listener(pin_listener::control_socket, nullptr, nullptr);
    delete std::exchange(control, nullptr);
}
