// When a client tries again. Pure arithmetic on a clock that the caller reads.
#pragma once

#include <algorithm>
#include <cstdint>

namespace zel::ipc {

class reconnection {
public:
    static constexpr uint32_t first_delay_ms = 20;
    static constexpr uint32_t longest_delay_ms = 1000;
    static constexpr int64_t steady_ms = 1000;

    // How long to wait before the next attempt; longer with every call.
    uint32_t next_delay_ms()
    {
        const uint32_t delay = delay_ms_;
        delay_ms_ = std::min(2 * delay_ms_, longest_delay_ms);
        return delay;
    }
    // The server's socket appeared.
    void hurry() { delay_ms_ = first_delay_ms; }
    void link_made(int64_t now_ms) { made_ms_ = now_ms; }
    // A link that held for a while was a good one. A server that drops its clients at once is not tried at full speed again.
    void link_lost(int64_t now_ms)
    {
        if (now_ms - made_ms_ >= steady_ms) hurry();
    }

private:
    uint32_t delay_ms_ = first_delay_ms;
    int64_t made_ms_ = 0;
};

}  // namespace zel::ipc
