// What the fuzzers of Ember+ share.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <span>
#include <vector>

#include "ber.h"
#include "glow.h"
#include "s101.h"

// Stays on in every build, unlike assert().
#define FUZZ_CHECK(condition)                                                             \
    do {                                                                                  \
        if (!(condition)) {                                                               \
            std::fprintf(stderr, "%s:%d: %s does not hold\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                 \
        }                                                                                 \
    } while (0)

// An input read piece by piece.
class fuzz_input {
public:
    fuzz_input(const uint8_t *data, size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }
    uint8_t byte() { return empty() ? 0 : take(1)[0]; }
    std::span<const uint8_t> take(size_t count)
    {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    // As long as the next two bytes say.
    std::span<const uint8_t> piece()
    {
        const size_t high = byte();
        return take(high << 8 | byte());
    }

private:
    std::span<const uint8_t> rest_;
};
