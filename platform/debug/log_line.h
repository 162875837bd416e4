// One line of the log as it is written.
#pragma once

#include <cstddef>

namespace zel::log {

// PIPE_BUF: a write of up to this size to a pipe is not mixed with those of other processes.
inline constexpr size_t line_max = 4096;

struct line {
    char text[line_max];
    size_t length;
};

// Makes `out` the line for `text` (zero-terminated; one line feed at its end is dropped), stamped with the present time.
void compose(line &out, int level, const char *program, const char *text);

}  // namespace zel::log
