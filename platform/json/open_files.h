// The files that are open, so that a process that ends without closing them still writes what they hold.
#pragma once

namespace zel {

struct open_file {
    virtual ~open_file() = default;
    // Writes what is due; called at most once from another thread than the file's own, at the end of the process.
    virtual void finish() noexcept = 0;

    virtual const char *path() const noexcept = 0;

    open_file *next = nullptr;
    int process = 0;
};

// False when this process has a file of the same path open: each would write over what the other has set.
bool add_open_file(open_file &file) noexcept;
void remove_open_file(open_file &file) noexcept;

}  // namespace zel
