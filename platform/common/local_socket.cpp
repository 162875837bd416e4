#include "common/local_socket.h"

#include <fcntl.h>

#include <cerrno>
#include <cstddef>
#include <cstring>

namespace zel {

bool make_local_socket_address(const std::string &path, local_socket_address &out)
{
    std::string reached = path;
    out.folder.reset();
    if (reached.size() >= sizeof(out.address.sun_path)) {
        const size_t slash = path.rfind('/');
        out.folder.reset(open(path.substr(0, slash + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!out.folder) return false;
        reached = "/proc/self/fd/" + std::to_string(out.folder.get()) + path.substr(slash);
        if (reached.size() >= sizeof(out.address.sun_path)) {
            errno = ENAMETOOLONG;
            return false;
        }
    }
    out.address = {};
    out.address.sun_family = AF_UNIX;
    std::memcpy(out.address.sun_path, reached.c_str(), reached.size() + 1);
    out.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + reached.size() + 1);
    return true;
}

}  // namespace zel
