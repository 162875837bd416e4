// The machine's network interfaces: which exist, under which index, with which IPv4 address, and when that changes.
#pragma once

#include "common/unique_fd.h"

#include <cstdint>
#include <string>

namespace zel::sdiscd {

class interfaces {
public:
    // `configured` is the unit's interface: what clients mean where they name none (index 0 or below).
    explicit interfaces(std::string configured) : configured_(std::move(configured)) {}

    // A descriptor that is readable when an interface or an address came, went or changed; -1 if the kernel cannot be asked.
    int open();
    // Takes what was told; false if there was nothing.
    bool take_changes();

    const std::string &configured() const { return configured_; }
    // The text that stands for an index from a client: a name, or "#7" while there is none of this index (logged).
    std::string reference(int32_t index) const;
    // The present index and name of what a reference stands for; 0 and "" while it does not exist.
    static int32_t index_of(const std::string &reference);
    static std::string name_of(const std::string &reference);
    // Its first IPv4 address in digits; "" if it has none.
    static std::string address_of(const std::string &reference);
    static bool is_loopback(const std::string &reference);
    static bool has_link(const std::string &reference);   // it exists, is switched on and has a carrier

private:
    const std::string configured_;
    unique_fd socket_;
};

}  // namespace zel::sdiscd
