// The address of a Unix socket.

#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <string>

#include "host/setup_error.h"

namespace host {

// Throws setup_error when the path is empty or too long for a socket.
inline sockaddr_un to_unix_address(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(address.sun_path)) {
        throw setup_error("'" + path + "': a socket's path has 1 to 107 bytes, this one " +
                          std::to_string(path.size()));
    }
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

}  // namespace host
