// Where a unit's files are: every absolute path of the unit lies below the folder named by ZEL_ROOT (unset: the real root),
// so that several units run side by side on one machine.
#pragma once

#include <string>
#include <string_view>

namespace zel {

// `absolute` begins with '/'. ZEL_ROOT is read at each call. May throw std::bad_alloc.
std::string below_unit_root(std::string_view absolute);

// Makes the folder of a file path below the unit's root, with its parents, for the owner only. False if that fails (errno says why).
bool make_folder_of(const std::string &file_path);

inline constexpr std::string_view unit_file_path = "/etc/zel/unit.json";
inline constexpr std::string_view socket_folder = "/run/zel";

}  // namespace zel
