#include "connections.h"

#include "zel_debug.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <exception>

namespace zel::web {
namespace {

std::string numeric(const sockaddr *address)
{
    char text[NI_MAXHOST] = "";
    const socklen_t length = address->sa_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    (void)getnameinfo(address, length, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
    return text;
}

}  // namespace

connection *connection_list::started(MHD_Connection *mhd) noexcept
{
    try {
        connection &each = all_.emplace_back();
        each.place = std::prev(all_.end());
        each.since = clock::now();
        const MHD_ConnectionInfo *const fd = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_CONNECTION_FD);
        const MHD_ConnectionInfo *const peer = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
        if (fd != nullptr) each.fd = fd->connect_fd;
        socklen_t length = sizeof each.local;
        if (getsockname(each.fd, reinterpret_cast<sockaddr *>(&each.local), &length) != 0) each.local.ss_family = AF_UNSPEC;
        if (peer != nullptr && peer->client_addr != nullptr) each.peer = numeric(peer->client_addr);
        return &each;
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory for a connection\n", __func__);
        return nullptr;
    }
}

void connection_list::ended(connection *each) noexcept
{
    if (each != nullptr) all_.erase(each->place);
}

void connection_list::enter(connection &each, phase next)
{
    each.now = next;
    each.since = clock::now();
}

void connection_list::end(connection &each)
{
    each.ended = true;
    (void)shutdown(each.fd, SHUT_RDWR);
}

void connection_list::end_when_cut_off(const connection &each, std::chrono::milliseconds after)
{
    const auto limit = static_cast<unsigned>(after.count());
    (void)setsockopt(each.fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &limit, sizeof limit);   // else it is found out much later
}

void connection_list::end_overdue()
{
    const clock::time_point now = clock::now();
    for (connection &each : all_) {
        const auto limit = each.now == phase::receiving ? times_.request : times_.reply;
        if (each.ended || each.now == phase::listening || now - each.since < limit) continue;
        log_message(4, "%s: %s took too long\n", __func__, each.peer.c_str());
        end(each);
    }
}

}  // namespace zel::web
