#include "interfaces.h"

#include "common/whole_number.h"
#include "zel_debug.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace zel::sdiscd {
namespace {

struct addresses_release {
    void operator()(ifaddrs *list) const { freeifaddrs(list); }
};

template <class call>
void each_entry_of(const std::string &reference, const call &run)
{
    const std::string name = interfaces::name_of(reference);
    ifaddrs *list = nullptr;
    if (name.empty() || getifaddrs(&list) != 0) return;
    const std::unique_ptr<ifaddrs, addresses_release> kept(list);
    for (const ifaddrs *each = list; each != nullptr; each = each->ifa_next) {
        if (name == each->ifa_name) run(*each);
    }
}

unsigned flags_of(const std::string &reference)
{
    unsigned flags = 0;
    each_entry_of(reference, [&flags](const ifaddrs &entry) { flags = entry.ifa_flags; });
    return flags;
}

}  // namespace

int interfaces::open()
{
    socket_.reset(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    own.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (socket_ && bind(socket_.get(), reinterpret_cast<sockaddr *>(&own), sizeof own) == 0) return socket_.get();
    log_message(1, "%s: Changes of interfaces and addresses are not noticed: %s\n", __func__, std::strerror(errno));
    socket_.reset();
    return -1;
}

// What the notices say does not matter, nor do lost ones: everything is looked at anew after any.
bool interfaces::take_changes()
{
    bool any = false;
    char buffer[8192];
    for (int count = 0; count < 256; ++count) {
        const ssize_t got = recv(socket_.get(), buffer, sizeof buffer, MSG_TRUNC);
        if (got < 0 && errno != ENOBUFS) break;
        any = true;
    }
    return any;
}

std::string interfaces::reference(int32_t index) const
{
    if (index <= 0) return configured_;
    char name[IF_NAMESIZE];
    if (if_indextoname(static_cast<unsigned>(index), name) != nullptr) return name;
    log_message(1, "%s: There is no interface of index %d at present; waiting for it\n", __func__, index);
    return "#" + std::to_string(index);
}

std::string interfaces::name_of(const std::string &reference)
{
    if (!reference.starts_with('#')) return if_nametoindex(reference.c_str()) != 0 ? reference : "";
    char name[IF_NAMESIZE];
    const auto index = whole_number(std::string_view(reference).substr(1));
    return index && *index > 0 && if_indextoname(static_cast<unsigned>(*index), name) != nullptr ? name : "";
}

int32_t interfaces::index_of(const std::string &reference)
{
    const std::string name = name_of(reference);
    return name.empty() ? 0 : static_cast<int32_t>(if_nametoindex(name.c_str()));
}

std::string interfaces::address_of(const std::string &reference)
{
    std::string text;
    each_entry_of(reference, [&text](const ifaddrs &entry) {
        if (entry.ifa_addr == nullptr || entry.ifa_addr->sa_family != AF_INET || !text.empty()) return;
        char digits[INET_ADDRSTRLEN];
        const auto *const address = reinterpret_cast<const sockaddr_in *>(entry.ifa_addr);
        if (inet_ntop(AF_INET, &address->sin_addr, digits, sizeof digits) != nullptr) text = digits;
    });
    return text;
}

bool interfaces::is_loopback(const std::string &reference)
{
    return (flags_of(reference) & IFF_LOOPBACK) != 0;
}

bool interfaces::has_link(const std::string &reference)
{
    constexpr unsigned wanted = IFF_UP | IFF_RUNNING;
    return (flags_of(reference) & wanted) == wanted;
}

}  // namespace zel::sdiscd
