// So many lines in a time, then silence: what the network can cause must not fill the log.
#pragma once

#include <cstdint>

namespace zel::sdiscd {

class log_budget {
public:
    static constexpr int lines = 10;
    static constexpr int64_t period_ms = 60'000;

    // Whether a line may be written now; `left_out` are those that were not since the last one that was.
    bool allows(int64_t now_ms, uint32_t &left_out)
    {
        if (begun_ms_ == 0 || now_ms - begun_ms_ >= period_ms) {
            begun_ms_ = now_ms;
            written_ = 0;
        }
        if (written_ >= lines) {
            ++silent_;
            return false;
        }
        ++written_;
        left_out = silent_;
        silent_ = 0;
        return true;
    }

private:
    int64_t begun_ms_ = 0;
    int written_ = 0;
    uint32_t silent_ = 0;
};

}  // namespace zel::sdiscd
