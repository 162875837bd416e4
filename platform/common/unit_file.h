// The unit's configuration file, unit.json: typed values by path, each with a default.
//
// A path names members and array entries from the root, joined by '/': "servers/ember/port", "pins/0/in_pin". Members whose
// name begins with '#' are comments and do not exist here. A value that is there but cannot be used (wrong type, out of
// range) is logged as a warning with its path, its default is taken, and sound() is false from then on: libraries go on
// with the default, a program refuses to start.
//
// Users link the static library zel_unit_file. One object is used by one thread.
#pragma once

#include "common/json_reading.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zel {

class unit_file {
public:
    // Reads unit_file_path below the unit's root. A missing file is an empty one, silently; an unreadable one (also: no
    // memory) is logged as an error, is empty, and makes sound() false.
    static unit_file load() noexcept;

    json_state state() const noexcept { return state_; }
    // The file was missing or readable, and every value asked for so far was absent or usable.
    bool sound() const noexcept { return sound_; }

    bool has(const char *path) const noexcept;
    // Borrowed until this object is destroyed (moving it keeps the text); `fallback` may be null.
    const char *string(const char *path, const char *fallback) const noexcept;
    int32_t integer(const char *path, int32_t fallback, int32_t min = INT32_MIN, int32_t max = INT32_MAX) const noexcept;
    bool boolean(const char *path, bool fallback) const noexcept;
    // Entries of an array, 0 when absent.
    size_t count(const char *path) const noexcept;
    // Names of the members of an object in the file's order, without comments; "" is the root. May throw std::bad_alloc.
    std::vector<std::string> member_names(const char *path) const;

private:
    // The value at `path`, null when it is absent; `expected` is logged when a value on the way there is of the wrong kind.
    json_t *find(const char *path) const noexcept;
    void refuse(const char *path, const char *expected) const noexcept;

    json_handle root_;
    json_state state_ = json_state::missing;
    mutable bool sound_ = true;
};

}  // namespace zel
