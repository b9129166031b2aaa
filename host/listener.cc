#include "host/listener.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

#include "host/setup_error.h"
#include "host/unix_address.h"

namespace host {

namespace {

using addrinfo_list = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

constexpr int k_backlog = SOMAXCONN;
constexpr mode_t k_socket_mode = 0660;

[[noreturn]] void fail(const std::string &subject, const std::string &why) {
    throw setup_error(subject + ": " + why);
}

[[noreturn]] void fail_errno(const std::string &subject, const std::string &action) {
    fail(subject,
         errno == EADDRINUSE ? "in use, probably by another agent" : action + ": " + strerror(errno));
}

base::unique_fd open_socket(const std::string &subject, int family) {
    base::unique_fd fd(socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd.valid()) {
        fail_errno(subject, "can't open a socket");
    }
    return fd;
}

listener_s listen_unix(const std::string &path) {
    auto file = std::make_unique<socket_file>(path);
    const sockaddr_un address = to_unix_address(path);
    base::unique_fd fd = open_socket(path, AF_UNIX);
    unlink(path.c_str());
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        fail_errno(path, "can't bind");
    }
    file->bound();
    // Until here the umask decided, which lets nobody else write as a rule, and nobody can connect before listen().
    if (chmod(path.c_str(), k_socket_mode) != 0) {
        fail_errno(path, "can't set its mode");
    }
    if (listen(fd.get(), k_backlog) != 0) {
        fail_errno(path, "can't listen");
    }
    return {std::move(fd), "unix:" + path, std::move(file)};
}

bool is_loopback(const sockaddr *address) {
    if (address->sa_family == AF_INET) {
        const auto *v4 = reinterpret_cast<const sockaddr_in *>(address);
        return ntohl(v4->sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
    }
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6 *>(address)->sin6_addr);
}

bool is_port(const std::string &text) {
    uint16_t port;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size();
}

// "[::1]" and "localhost" lack the port.
bool lacks_port(const std::string &address) {
    return !address.empty() && (address.find(':') == address.npos || address.back() == ']');
}

addrinfo_list resolve(const std::string &given) {
    const std::string address = lacks_port(given) ? given + ":" + k_default_port : given;
    const size_t colon = address.rfind(':');
    std::string name = address.substr(0, colon);
    if (name.size() > 2 && name.front() == '[' && name.back() == ']') {
        name = name.substr(1, name.size() - 2);
    } else if (name.find(':') != name.npos) {
        name.clear();  // an IPv6 address without brackets leaves open where the port begins
    }
    if (colon == address.npos || name.empty() || !is_port(address.substr(colon + 1))) {
        fail(address, "must be HOST:PORT, [IPV6]:PORT or unix:PATH");
    }
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo *found = nullptr;
    const int error = getaddrinfo(name.c_str(), address.c_str() + colon + 1, &hints, &found);
    if (error != 0) {
        fail(address, gai_strerror(error));
    }
    return {found, freeaddrinfo};
}

std::string bound_address(int fd) {
    sockaddr_storage address;
    socklen_t size = sizeof(address);
    char name[INET6_ADDRSTRLEN] = "", port[sizeof("65535")] = "";
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) == 0) {
        getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, name, sizeof(name), port,
                    sizeof(port), NI_NUMERICHOST | NI_NUMERICSERV);
    }
    const std::string text = address.ss_family == AF_INET6 ? "[" + std::string(name) + "]" : name;
    return text + ":" + port;
}

listener_s listen_tcp(const std::string &address, bool beyond_loopback) {
    const addrinfo_list found = resolve(address);
    if (!beyond_loopback && !is_loopback(found->ai_addr)) {
        fail(address,
             "other machines can reach this address: give --tls-cert, --tls-key and --tls-client-ca, or use "
             "127.0.0.1");
    }
    base::unique_fd fd = open_socket(address, found->ai_family);
    const int on = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    if (bind(fd.get(), found->ai_addr, found->ai_addrlen) != 0) {
        fail_errno(address, "can't bind");
    }
    if (listen(fd.get(), k_backlog) != 0) {
        fail_errno(address, "can't listen");
    }
    const std::string bound = bound_address(fd.get());
    return {std::move(fd), bound, nullptr};
}

}  // namespace

listener_s listen_on(const std::string &address, bool beyond_loopback) {
    const std::string unix_scheme = "unix:";
    return address.starts_with(unix_scheme) ? listen_unix(address.substr(unix_scheme.size()))
                                            : listen_tcp(address, beyond_loopback);
}

}  // namespace host
