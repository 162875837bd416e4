#include "exceptional_fd.h"

#include "zel_debug.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace zel {
namespace {

bool make_socket_pair(unique_fd &watched, unique_fd &peer)
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, fds) != 0) return false;
    watched.reset(fds[0]);
    peer.reset(fds[1]);
    return true;
}

bool send_urgent(int peer)
{
    return send(peer, "!", 1, MSG_OOB | MSG_NOSIGNAL) == 1;
}

bool receive_urgent(int watched)
{
    char byte;
    return recv(watched, &byte, 1, MSG_OOB) == 1;
}

bool make_terminal_pair(unique_fd &watched, unique_fd &peer)
{
    watched.reset(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    char slave[64];
    if (!watched || grantpt(watched.get()) != 0 || unlockpt(watched.get()) != 0) return false;
    if (ptsname_r(watched.get(), slave, sizeof(slave)) != 0) return false;
    peer.reset(open(slave, O_RDWR | O_NOCTTY | O_CLOEXEC));
    int packets = 1;
    return peer && ioctl(watched.get(), TIOCPKT, &packets) == 0;
}

bool flush_slave(int peer)
{
    return tcflush(peer, TCIFLUSH) == 0;
}

bool read_packet_status(int watched)
{
    char status[8];
    return read(watched, status, sizeof(status)) > 0;
}

constexpr signal_kind out_of_band = {make_socket_pair, send_urgent, receive_urgent};
constexpr signal_kind packet_mode = {make_terminal_pair, flush_slave, read_packet_status};

bool out_of_band_works()
{
    unique_fd watched, peer;
    if (!make_socket_pair(watched, peer) || !send_urgent(peer.get())) return false;
    pollfd seen = {watched.get(), POLLPRI, 0};
    return poll(&seen, 1, 0) == 1 && (seen.revents & POLLPRI) != 0;
}

const signal_kind &kind_of_choice()
{
    const char *const wanted = std::getenv("ZEL_SIM_SIGNAL");
    if (wanted != nullptr && std::strcmp(wanted, "pty") == 0) return packet_mode;
    if (wanted != nullptr && std::strcmp(wanted, "oob") == 0) return out_of_band;
    static const bool works = out_of_band_works();
    return works ? out_of_band : packet_mode;
}

}  // namespace

bool exceptional_fd::make()
{
    kind_ = &kind_of_choice();
    return kind_->make(watched_, peer_);
}

}  // namespace zel
