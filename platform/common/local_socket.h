// Addresses of socket files. An address holds 107 bytes of path; a unit's root may lie deeper than that.
#pragma once

#include "common/unique_fd.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

namespace zel {

// Valid for bind() and connect() as long as this object lives.
struct local_socket_address {
    sockaddr_un address = {};
    socklen_t length = 0;
    unique_fd folder;  // open only where the path is too long: it is then reached through this descriptor

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }
};

// `path` is absolute. False with errno where that fails: the folder of a long path must exist, its last part must fit.
bool make_local_socket_address(const std::string &path, local_socket_address &out);

}  // namespace zel
