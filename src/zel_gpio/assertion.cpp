#include "zel_gpio/assertion.h"

#include <cstdio>
#include <cstdlib>

#include "zel_debug.h"

namespace zel {

void assertion_failed(const char *condition, const char *file, int line, const char *function)
{
    std::fprintf(stderr, "%s:%d: %s: Assertion `%s' failed.\n", file, line, function, condition);
    log_message(0, "%s: Assertion `%s' failed.\n", function, condition);
    std::abort();
}

}  // namespace zel
