#include "client/core/connect.h"

#include <netdb.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

namespace nyxctl {
namespace {

using std::chrono::microseconds;

constexpr std::string_view k_unix = "unix:";

using addresses_t = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

struct resolved_s {
    int error = EAI_AGAIN;
    addresses_t addresses = {nullptr, freeaddrinfo};
};

// The limit for sending is connect()'s too; see socket(7). Zero would mean none.
bool limit_connect(int fd, deadline_t deadline) {
    const auto left =
        std::chrono::duration_cast<microseconds>(deadline - std::chrono::steady_clock::now()).count();
    const auto limited = std::max<decltype(left)>(left, 1000);
    const timeval limit = {.tv_sec = limited / 1000000, .tv_usec = limited % 1000000};
    return setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0;
}

resolved_s resolve_now(const std::string &host, const std::string &port) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *list = nullptr;
    const int error = getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
    return {error, addresses_t(list, freeaddrinfo)};
}

// getaddrinfo() has no time limit, so a thread that takes too long is abandoned.
resolved_s resolve(const std::string &host, const std::string &port, deadline_t deadline) {
    std::packaged_task<resolved_s()> task([=] { return resolve_now(host, port); });
    auto resolved = task.get_future();
    std::thread(std::move(task)).detach();
    return resolved.wait_until(deadline) == std::future_status::ready ? resolved.get() : resolved_s();
}

std::string tcp_reason(const std::string &address, deadline_t deadline) {
    std::string host;
    std::string port;
    if (!split_host_port(address, &host, &port)) {
        return "not HOST:PORT";
    }
    const resolved_s resolved = resolve(host, port, deadline);
    if (resolved.error != 0) {
        return gai_strerror(resolved.error);
    }
    int error = 0;
    for (const addrinfo *at = resolved.addresses.get(); at; at = at->ai_next) {
        base::unique_fd connected;
        error = connect_stream(at->ai_addr, at->ai_addrlen, deadline, &connected);
        if (error == 0) {
            return {};
        }
    }
    return std::strerror(error);
}

}  // namespace

int connect_stream(const sockaddr *address, socklen_t size, deadline_t deadline, base::unique_fd *connected) {
    base::unique_fd fd(socket(address->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.valid() || !limit_connect(fd.get(), deadline)) {
        return errno;
    }
    int result;
    do {
        result = connect(fd.get(), address, size);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        const bool late = errno == EAGAIN || errno == EINPROGRESS;  // Unix sockets, TCP
        return late ? ETIMEDOUT : errno;
    }
    *connected = std::move(fd);
    return 0;
}

int connect_unix(const std::string &path, deadline_t deadline, base::unique_fd *connected) {
    sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
    if (path.empty() || path.size() >= sizeof address.sun_path || path.find('\0') != path.npos) {
        return EINVAL;
    }
    path.copy(address.sun_path, path.size());
    return connect_stream(reinterpret_cast<const sockaddr *>(&address), sizeof address, deadline, connected);
}

std::string unreachable_reason(const std::string &address, deadline_t deadline) {
    if (!address.starts_with(k_unix)) {
        return tcp_reason(address, deadline);
    }
    base::unique_fd connected;
    const int error = connect_unix(address.substr(k_unix.size()), deadline, &connected);
    return error == 0 ? "" : std::strerror(error);
}

bool split_host_port(const std::string &address, std::string *host, std::string *port) {
    const size_t colon = address.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return false;
    }
    *host = address.substr(0, colon);
    *port = address.substr(colon + 1);
    if (host->front() == '[' && host->back() == ']') {
        *host = host->substr(1, host->size() - 2);
    } else if (host->find(':') != std::string::npos) {
        return false;
    }
    uint16_t number = 0;
    const auto parsed = std::from_chars(port->data(), port->data() + port->size(), number);
    return parsed.ec == std::errc() && parsed.ptr == port->data() + port->size() && number > 0;
}

}  // namespace nyxctl
