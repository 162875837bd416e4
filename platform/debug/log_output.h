// Where the lines go: standard error or a file. Not thread-safe; the caller holds the log's lock.
#pragma once

#include "log_line.h"

#include <climits>

namespace zel::log {

class output {
public:
    // Null for standard error. False, with errno, when the file cannot be opened; the output then stays as it was.
    bool open_file(const char *path) noexcept;
    // Opens the same file anew; true also when the output is standard error.
    bool reopen() noexcept;
    const char *path() const noexcept { return path_; }
    // One write. A full disk, a closed pipe and the like lose the line and nothing else. False, with nothing written, when the
    // reader of a pipe or terminal takes nothing for so long.
    bool write(const line &text, int patience_ms) const noexcept;

private:
    void take(int fd) noexcept;

    int fd_ = -1;  // -1 is standard error
    char path_[PATH_MAX] = "";
};

}  // namespace zel::log
