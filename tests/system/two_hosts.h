// Two hosts on one switch, made of network namespaces: what is started while the test stands on a host runs there.
#pragma once

#include "child_process.h"
#include "common/unique_fd.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace zel::test {

// Away from the machine's network, as root of a user space of its own where the test is no root. False where that is not allowed.
bool enter_own_network();
// Runs ip(8) where the test stands. False if it fails.
bool ip(std::vector<std::string> words);

class two_hosts {
public:
    enum host { a, b };

    // Each host has the interface zel0 on the switch, a with 10.9.0.1/24, b with 10.9.0.2/24. Null where that cannot be made.
    static std::unique_ptr<two_hosts> make();
    ~two_hosts();
    two_hosts(const two_hosts &) = delete;
    two_hosts &operator=(const two_hosts &) = delete;

    void stand_on(host where) const;
    // The cable between the host and the switch: without a carrier when it is out.
    bool plug(host which, bool in) const;
    // The switch forwards nothing of the host's, whose carrier stays.
    bool forward(host which, bool on) const;
    // In place of the host's present address. With its length: "10.9.0.7/24".
    bool change_address(host which, const std::string &address) const;

private:
    two_hosts() = default;
    bool build();
    bool build_host(host which, const std::string &address);
    static std::string port_of(host which) { return which == a ? "zelport0" : "zelport1"; }

    unique_fd switch_;
    std::array<unique_fd, 2> places_;
    std::array<child_process, 2> keepers_;   // by whose process the kernel is told where a cable's end goes
};

}  // namespace zel::test
