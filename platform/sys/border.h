// No exception leaves the C interface: what runs out of memory fails like anything else.
#pragma once

#include "zel_debug.h"

#include <exception>

namespace zel {

template <typename Result, typename Work>
Result guarded(const char *caller, Result on_failure, Work &&work) noexcept
{
    try {
        return work();
    } catch (const std::exception &failure) {
        log_message(0, "%s: %s\n", caller, failure.what());
        return on_failure;
    }
}

}  // namespace zel
