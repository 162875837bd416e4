#include "link_watch.h"

#include "zel_debug.h"

#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string_view>

namespace zel {
namespace {

struct link_request {
    nlmsghdr header;
    ifinfomsg link;
};

std::string_view name_in(const nlmsghdr &message)
{
    const auto *const link = static_cast<const ifinfomsg *>(NLMSG_DATA(&message));
    auto length = static_cast<int>(IFLA_PAYLOAD(&message));
    for (const rtattr *each = IFLA_RTA(link); RTA_OK(each, length); each = RTA_NEXT(each, length)) {
        if (each->rta_type != IFLA_IFNAME) continue;
        const auto *const text = static_cast<const char *>(RTA_DATA(each));
        return {text, strnlen(text, RTA_PAYLOAD(each))};
    }
    return {};
}

}  // namespace

bool link_watch::open(reactor &loop, const std::string &interface, report changed)
{
    loop_ = &loop;
    interface_ = interface;
    changed_ = std::move(changed);
    socket_.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    own.nl_groups = RTMGRP_LINK;
    const bool ready = socket_ && bind(socket_.get(), reinterpret_cast<sockaddr *>(&own), sizeof own) == 0 && ask_for_all() &&
                       loop.add(socket_.get(), EPOLLIN, [this](uint32_t) { receive(); });
    if (ready) return true;
    log_message(1, "%s: The carrier of %s cannot be followed: %s\n", __func__, interface.c_str(), std::strerror(errno));
    socket_.reset();
    return false;
}

void link_watch::close()
{
    if (!socket_) return;
    loop_->remove(socket_.get());
    socket_.reset();
}

bool link_watch::ask_for_all()
{
    link_request request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.link.ifi_family = AF_UNSPEC;
    seen_in_dump_ = false;
    return send(socket_.get(), &request, sizeof request, 0) == static_cast<ssize_t>(sizeof request);
}

// Notices may be lost when many come at once; asking for all interfaces again makes up for that.
void link_watch::start_over(const char *cause)
{
    log_message(1, "%s: Asking the kernel anew about %s: %s\n", __func__, interface_.c_str(), cause);
    if (!ask_for_all()) log_message(1, "%s: Asking failed: %s\n", __func__, std::strerror(errno));
}

void link_watch::receive()
{
    constexpr int at_most = 64;  // datagrams per turn, so that a storm of notices leaves time for the ports
    for (int count = 0; count < at_most && socket_; ++count) {
        alignas(nlmsghdr) char buffer[32768];
        sockaddr_nl sender{};
        socklen_t sender_length = sizeof sender;
        const ssize_t got = recvfrom(socket_.get(), buffer, sizeof buffer, MSG_TRUNC, reinterpret_cast<sockaddr *>(&sender),
                                     &sender_length);
        if (got < 0 && errno == ENOBUFS) return start_over("notices were lost");
        if (got < 0) return;
        if (sender.nl_pid != 0) continue;  // only the kernel is believed
        if (static_cast<size_t>(got) > sizeof buffer) return start_over("an answer was too long");
        auto length = static_cast<unsigned>(got);
        for (const auto *each = reinterpret_cast<const nlmsghdr *>(buffer); NLMSG_OK(each, length);
             each = NLMSG_NEXT(each, length)) {
            take(*each);
        }
    }
}

void link_watch::take(const nlmsghdr &message)
{
    if (message.nlmsg_type == NLMSG_DONE && !seen_in_dump_) {
        index_ = 0;
        set(false);
    }
    const bool about_link = message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK;
    if (about_link && message.nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg))) take_link(message);
}

void link_watch::take_link(const nlmsghdr &message)
{
    const auto *const link = static_cast<const ifinfomsg *>(NLMSG_DATA(&message));
    if (link->ifi_family != AF_UNSPEC) return;  // leaving a bridge is told as a deletion too, in the bridge's own family
    const bool ours = name_in(message) == interface_;
    const bool was_ours = index_ != 0 && link->ifi_index == index_;
    if (!ours && !was_ours) return;
    if (!ours || message.nlmsg_type == RTM_DELLINK) {  // renamed, or gone
        index_ = 0;
        seen_in_dump_ = false;
        return set(false);
    }
    index_ = link->ifi_index;
    seen_in_dump_ = true;
    set((link->ifi_flags & IFF_LOWER_UP) != 0);
}

void link_watch::set(bool up)
{
    if (known_ && up == up_) return;
    known_ = true;
    up_ = up;
    log_message(2, "%s: Interface %s is %s\n", __func__, interface_.c_str(), up ? "up" : "down");
    changed_(up);
}

}  // namespace zel
