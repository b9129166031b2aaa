// A socket that listens for gRPC clients.

#pragma once

#include <memory>
#include <string>

#include "base/unique_fd.h"
#include "host/socket_file.h"

namespace host {

struct listener_s {
    base::unique_fd fd;   // does not block
    std::string address;  // as a client can be given it: the port that was asked for as 0 filled in
    std::unique_ptr<socket_file> file;  // null for TCP

    bool is_unix() const { return file != nullptr; }
};

// Listens on HOST:PORT or unix:PATH; to the latter the user and group that own the file may connect. Unless `beyond_loopback`, refuses every address that another machine could
// reach. Without PORT it is k_default_port. Throws setup_error.
inline constexpr const char *k_default_port = "9550";  // below those that the kernel gives to clients
listener_s listen_on(const std::string &address, bool beyond_loopback);

}  // namespace host
