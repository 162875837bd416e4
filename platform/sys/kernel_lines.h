// Where a pin's kernel line is, and its value files in sysfs.
//
// The files lie below /sys/class/gpio, which is the machine's and not below the unit's root; the environment variable
// ZEL_SYSFS_GPIO names another folder, for tests.
#pragma once

#include "common/unique_fd.h"

#include <cstdint>
#include <string>

namespace zel {

// The global number of a pin's line: by chip label and offset where the configuration has it so, else the pin's own number.
// False when there is no such chip or line, logged. May throw std::bad_alloc.
bool find_kernel_line(int32_t pin, int32_t &line);

// One line's files. Calls give 0 or an errno.
class kernel_line {
public:
    explicit kernel_line(int32_t number);

    int32_t number() const { return number_; }
    // Make the files, unless they are there already: then somebody else needs them, and they stay at the end.
    int export_files();
    // Remove the files if export_files() made them.
    void unexport_files();
    int write(const char *attribute, const char *text);
    int open_value(bool writable, unique_fd &value);

private:
    int open_attribute(const char *attribute, int flags, unique_fd &file);

    int32_t number_;
    std::string folder_;
    bool exported_here_ = false;
    int waits_left_ = 0;
};

// Why a call on value files failed, for the log.
const char *cause_of(int error);

}  // namespace zel
