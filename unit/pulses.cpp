#include "pulses.h"

#include "zel_sys.h"

#include <algorithm>

namespace zel {

bool pulses::begin(int32_t pin, std::chrono::milliseconds length)
{
    running_.push_back({pin, clock::now() + length});
    if (zel_sys_sim_press(pin, 1) == 0) return true;
    running_.pop_back();
    return false;
}

void pulses::release_due()
{
    const clock::time_point now = clock::now();
    const auto due = [now](const pulse &each) { return each.end <= now; };
    for (const pulse &each : running_) {
        if (due(each)) (void)zel_sys_sim_press(each.pin, 0);
    }
    std::erase_if(running_, due);
}

std::optional<std::chrono::milliseconds> pulses::next_due() const
{
    const auto next = std::ranges::min_element(running_, {}, &pulse::end);
    if (next == running_.end()) return std::nullopt;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next->end - clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

}  // namespace zel
