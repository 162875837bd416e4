// A digest under a key that only this process has: lets credentials that were found right be recognised again without keeping
// them, and compared in constant time. SipHash-2-4 with 128 bits.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zel::web {

using digest = std::array<uint64_t, 2>;

class keyed_digest {
public:
    explicit keyed_digest(std::array<uint64_t, 2> key) : key_(key) {}
    // With a key from the system's random numbers. May throw std::system_error.
    static keyed_digest with_random_key();

    digest of(std::string_view text) const;

private:
    std::array<uint64_t, 2> key_;
};

// Takes the same time wherever they differ.
bool same_digest(const digest &a, const digest &b);

}  // namespace zel::web
