#include "common/unit_file.h"

#include "common/unit_root.h"
#include "zel_debug.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

namespace zel {
namespace {

bool is_comment(std::string_view name)
{
    return name.starts_with('#');
}

json_t *array_entry(const json_t *array, std::string_view name)
{
    size_t index = 0;
    const char *const end = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data(), end, index);
    return error == std::errc{} && stop == end ? json_array_get(array, index) : nullptr;
}

json_t *child(const json_t *parent, std::string_view name)
{
    if (json_is_array(parent)) return array_entry(parent, name);
    return is_comment(name) ? nullptr : json_object_getn(parent, name.data(), name.size());
}

}  // namespace

unit_file unit_file::load() noexcept
{
    unit_file file;
    try {
        const std::string path = below_unit_root(unit_file_path);
        json_reading reading = read_json_file(path.c_str());
        const bool usable = reading.state == json_state::good || reading.state == json_state::missing;
        if (!usable) log_message(0, "%s: %s: %s\n", __func__, path.c_str(), reading.problem);
        file.state_ = usable ? reading.state : json_state::unreadable;
        file.root_ = std::move(reading.root);
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: no memory for the unit's configuration\n", __func__);
        file.state_ = json_state::unreadable;
    }
    file.sound_ = file.state_ != json_state::unreadable;
    return file;
}

json_t *unit_file::find(const char *path) const noexcept
{
    json_t *value = root_.get();
    std::string_view rest = path;
    while (value != nullptr && !rest.empty()) {
        if (!json_is_object(value) && !json_is_array(value)) {
            refuse(path, "to be found below an object or array");
            return nullptr;
        }
        const size_t slash = rest.find('/');
        value = child(value, rest.substr(0, slash));
        rest = slash == std::string_view::npos ? std::string_view{} : rest.substr(slash + 1);
    }
    return value;
}

void unit_file::refuse(const char *path, const char *expected) const noexcept
{
    sound_ = false;
    log_message(1, "%s: %s: \"%s\" is expected %s; its default is taken\n", __func__, unit_file_path.data(), path, expected);
}

bool unit_file::has(const char *path) const noexcept
{
    return find(path) != nullptr;
}

const char *unit_file::string(const char *path, const char *fallback) const noexcept
{
    const json_t *const value = find(path);
    if (value == nullptr) return fallback;
    if (json_is_string(value)) return json_string_value(value);
    refuse(path, "to be a text");
    return fallback;
}

int32_t unit_file::integer(const char *path, int32_t fallback, int32_t min, int32_t max) const noexcept
{
    const json_t *const value = find(path);
    if (value == nullptr) return fallback;
    const json_int_t number = json_integer_value(value);
    if (json_is_integer(value) && number >= min && number <= max) return static_cast<int32_t>(number);
    char expected[80];
    std::snprintf(expected, sizeof expected, "to be a whole number from %d to %d", min, max);
    refuse(path, expected);
    return fallback;
}

bool unit_file::boolean(const char *path, bool fallback) const noexcept
{
    const json_t *const value = find(path);
    if (value == nullptr) return fallback;
    if (json_is_boolean(value)) return json_is_true(value);
    refuse(path, "to be true or false");
    return fallback;
}

size_t unit_file::count(const char *path) const noexcept
{
    const json_t *const value = find(path);
    if (value == nullptr) return 0;
    if (json_is_array(value)) return json_array_size(value);
    refuse(path, "to be an array");
    return 0;
}

std::vector<std::string> unit_file::member_names(const char *path) const
{
    std::vector<std::string> names;
    json_t *const object = find(path);
    if (object != nullptr && !json_is_object(object)) refuse(path, "to be an object");
    const char *name;
    json_t *value;
    json_object_foreach(object, name, value) {
        if (!is_comment(name)) names.emplace_back(name);
    }
    return names;
}

}  // namespace zel
