#include "common/unit_root.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

namespace zel {

std::string below_unit_root(std::string_view absolute)
{
    const char *const root = std::getenv("ZEL_ROOT");
    std::string path = root != nullptr ? root : "";
    while (!path.empty() && path.back() == '/') path.pop_back();
    return path.append(absolute);
}

bool make_folder_of(const std::string &file_path)
{
    for (size_t slash = file_path.find('/', 1); slash != std::string::npos; slash = file_path.find('/', slash + 1)) {
        if (mkdir(file_path.substr(0, slash).c_str(), 0700) != 0 && errno != EEXIST) return false;
    }
    return true;
}

}  // namespace zel
