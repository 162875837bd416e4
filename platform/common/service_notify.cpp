#include "common/service_notify.h"

#include "common/local_socket.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

namespace zel {
namespace {

bool address_of(const std::string &name, local_socket_address &out)
{
    if (name.starts_with('/')) return make_local_socket_address(name, out);
    if (!name.starts_with('@') || name.size() >= sizeof out.address.sun_path) return false;
    out.address.sun_family = AF_UNIX;
    std::memcpy(out.address.sun_path + 1, name.data() + 1, name.size() - 1);  // an abstract name begins with a zero byte
    out.length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    return true;
}

}  // namespace

void notify_service(const char *state)
{
    const char *const name = std::getenv("NOTIFY_SOCKET");
    local_socket_address address;
    if (name == nullptr || !address_of(name, address)) return;
    const unique_fd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (fd) (void)!sendto(fd.get(), state, std::strlen(state), MSG_NOSIGNAL | MSG_DONTWAIT, address.get(), address.length);
}

}  // namespace zel
