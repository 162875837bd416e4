// A settings file that survives power cuts: how it is replaced, and the copies kept beside it.
//
// Beside "config.json" lie "config.json.good", the text that stood there before the last replacement, "config.json.tmp" while a
// new one is being written, and "config.json.bad" (".bad.1" ...), files that could not be read, for whoever wants to mend them.
#pragma once

#include "common/json_reading.h"

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace zel {

// What went wrong; `step` is null when nothing did.
struct file_failure {
    const char *step = nullptr;
    int error = 0;

    explicit operator bool() const { return step != nullptr; }
    bool operator==(const file_failure &) const = default;
};

// Not thread-safe: read() comes before all replacements, and those come one at a time.
class settings_file {
public:
    // `path` is final: nothing is put before it. A symbolic link is followed now. May throw std::bad_alloc.
    explicit settings_file(const std::string &path);

    // The file's object, or a new one when the file is missing, or the last good copy's when the file cannot be read. Null
    // when there is no such copy, or no memory; each of these is logged.
    json_handle read();

    // Replaces the file's text in such a way that a power cut at any moment leaves the old or the new text in place.
    file_failure replace(const char *text, size_t length) noexcept;

    const char *path() const noexcept { return path_.c_str(); }

private:
    json_handle read_good_copy();
    file_failure write_temporary(const char *text, size_t length) const noexcept;
    file_failure keep_unreadable(bool may_rename) noexcept;
    void keep_good_copy() noexcept;
    void take_over_owner_and_mode(int fd) const noexcept;

    const std::string path_, folder_, temporary_, good_, second_name_, bad_;
    bool unreadable_ = false;       // what stands at path_ has to be kept under another name before it is replaced
    bool told_no_good_copy_ = false;
};

}  // namespace zel
