// Stream connections with a time limit.

#pragma once

#include <sys/socket.h>

#include <chrono>
#include <string>

#include "base/unique_fd.h"

namespace nyxctl {

using deadline_t = std::chrono::steady_clock::time_point;

// Connects a new stream socket to the address. Returns 0, or the errno of socket(2) or connect(2), ETIMEDOUT also
// at the deadline; `connected` is set only on success.
[[nodiscard]] int connect_stream(const sockaddr *address, socklen_t size, deadline_t deadline,
                                 base::unique_fd *connected);

// The same for a path; EINVAL for one that no socket can have.
[[nodiscard]] int connect_unix(const std::string &path, deadline_t deadline, base::unique_fd *connected);

// Opens a connection to HOST:PORT or unix:PATH and closes it again, trying every address of the host. Returns "" when
// one of them accepted, otherwise the last reason in the words of getaddrinfo(3) or connect(2).
std::string unreachable_reason(const std::string &address, deadline_t deadline);

// Splits HOST:PORT or [IPV6]:PORT; false without a host, or without a port from 1 to 65535.
[[nodiscard]] bool split_host_port(const std::string &address, std::string *host, std::string *port);

}  // namespace nyxctl
