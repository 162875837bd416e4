// Presses that end by themselves. A pulse lasts at least until the library has seen its beginning, or it would see nothing.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace zel {

class pulses {
public:
    using clock = std::chrono::steady_clock;

    // Presses a simulated pin and releases it after `length`. False if it is not simulated.
    bool begin(int32_t pin, std::chrono::milliseconds length);
    // To be called in every turn of the loop between the library's pass and new requests.
    void release_due();
    // How long the loop may wait; nothing: as long as it likes.
    std::optional<std::chrono::milliseconds> next_due() const;

private:
    struct pulse {
        int32_t pin;
        clock::time_point end;
    };
    std::vector<pulse> running_;
};

}  // namespace zel
