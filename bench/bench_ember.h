// What the benchmarks of Ember+ share.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <vector>

inline std::atomic<size_t> allocations{0};      // counted by bench_ember.cpp

inline double median(std::vector<double> values)
{
    std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
    return values[values.size() / 2];
}

// A set until its notification arrives, and notifications to many subscribers, beside the same system calls without the library.
void bench_round_trips();
void bench_notifications();
