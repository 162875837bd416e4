#include "two_hosts.h"

#include "running_unit.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <stdexcept>

namespace zel::test {
namespace {

constexpr const char *own_namespace = "/proc/thread-self/ns/net";

unique_fd here() { return unique_fd(open(own_namespace, O_RDONLY | O_CLOEXEC)); }

bool go(const unique_fd &place) { return setns(place.get(), CLONE_NEWNET) == 0; }

}  // namespace

bool ip(std::vector<std::string> words)
{
    words.insert(words.begin(), "ip");
    return run(words).status == 0;
}

bool enter_own_network()
{
    const uid_t uid = getuid();
    if (unshare(CLONE_NEWNET) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
        write_file("/proc/self/setgroups", "deny");
        write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
    }
    return ip({"link", "set", "lo", "up"}) && ip({"link", "add", "zelprobe0", "type", "veth", "peer", "name", "zelprobe1"}) &&
           ip({"link", "del", "zelprobe0"});
}

std::unique_ptr<two_hosts> two_hosts::make()
{
    std::unique_ptr<two_hosts> made(new two_hosts);
    if (!enter_own_network() || !made->build()) return nullptr;
    return made;
}

two_hosts::~two_hosts()
{
    if (switch_) (void)go(switch_);
}

bool two_hosts::build()
{
    switch_ = here();
    return switch_ && ip({"link", "add", "zelswitch", "type", "bridge"}) && ip({"link", "set", "zelswitch", "up"}) &&
           build_host(a, "10.9.0.1/24") && build_host(b, "10.9.0.2/24") && go(switch_);
}

bool two_hosts::build_host(host which, const std::string &address)
{
    if (unshare(CLONE_NEWNET) != 0) return false;
    places_[which] = here();
    keepers_[which] = child_process({"sleep", "3600"});
    const std::string port = port_of(which), place = std::to_string(keepers_[which].pid());
    if (!places_[which] || !go(switch_) || !ip({"link", "add", port, "type", "veth", "peer", "name", "zel0", "netns", place}) ||
        !plug(which, true) || !forward(which, true)) {
        return false;
    }
    return go(places_[which]) && ip({"link", "set", "lo", "up"}) && ip({"link", "set", "zel0", "up"}) &&
           ip({"address", "add", address, "dev", "zel0"}) && go(switch_);
}

void two_hosts::stand_on(host where) const
{
    if (!go(places_[where])) throw std::runtime_error("setns");
}

bool two_hosts::plug(host which, bool in) const
{
    return go(switch_) && ip({"link", "set", port_of(which), in ? "up" : "down"});
}

bool two_hosts::forward(host which, bool on) const
{
    if (!go(switch_)) return false;
    return on ? ip({"link", "set", port_of(which), "master", "zelswitch"}) : ip({"link", "set", port_of(which), "nomaster"});
}

bool two_hosts::change_address(host which, const std::string &address) const
{
    return go(places_[which]) && ip({"address", "flush", "dev", "zel0"}) && ip({"address", "add", address, "dev", "zel0"}) &&
           go(switch_);
}

}  // namespace zel::test
