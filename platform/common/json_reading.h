// Reading a JSON file whole, for everything that keeps its settings in one.
#pragma once

#include <jansson.h>

#include <cstddef>
#include <memory>

namespace zel {

struct json_release {
    void operator()(json_t *value) const noexcept { json_decref(value); }
};
using json_handle = std::unique_ptr<json_t, json_release>;

// `no_resources`: no memory or descriptors were left; that says nothing about the file, which is fine perhaps.
enum class json_state { good, missing, unreadable, no_resources };

struct json_reading {
    json_state state = json_state::unreadable;
    json_handle root;        // an object when state is good, else null
    char problem[256] = "";  // what is wrong and where, without the file's name, unless good
};

// A settings file is some hundred kilobytes at most; what is larger is not ours and is not taken into memory.
inline constexpr size_t json_file_max = size_t{4} << 20;

// Reads a regular file that holds one JSON object. A missing file (or folder) is told apart from one that cannot be read.
json_reading read_json_file(const char *path) noexcept;

}  // namespace zel
