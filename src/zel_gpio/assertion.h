// Assertions that stay on in every build. They guard programming errors only: nothing that a file, a device or a peer can do
// reaches one. Each prints its condition's text on standard error and in the log, and stops the process.
#pragma once

#include <cstddef>

namespace zel {

[[noreturn]] void assertion_failed(const char *condition, const char *file, int line, const char *function);

}  // namespace zel

// For a condition whose name in the outside world differs from the expression that tests it.
#define zel_assert_as(condition, text) \
    ((condition) ? static_cast<void>(0) : ::zel::assertion_failed(text, __FILE__, __LINE__, __func__))
#define zel_assert(condition) zel_assert_as(condition, #condition)
