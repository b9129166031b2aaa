#include "host/connections.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <linux/tcp.h>  // netinet/tcp.h has fewer members
#include <malloc.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace host {

namespace {

using clock = std::chrono::steady_clock;

constexpr size_t k_mib = 1024 * 1024;
// Calls have a budget of 256 MiB (svc/call_server.h). What goes beyond this is not theirs.
constexpr size_t k_allowed = 320 * k_mib;
constexpr size_t k_worth_a_trim = 32 * k_mib;

size_t resident_bytes() {
    static const base::unique_fd statm(open("/proc/self/statm", O_RDONLY | O_CLOEXEC));
    char text[128] = "";
    unsigned long total = 0, resident = 0;
    const ssize_t size = pread(statm.get(), text, sizeof(text) - 1, 0);
    if (size <= 0 || sscanf(text, "%lu %lu", &total, &resident) != 2) {
        return 0;
    }
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

// Bytes that came so far over TCP. A Unix socket does not count them: there those that wait now are added to `before`.
uint64_t bytes_so_far(int fd, uint64_t before) {
    tcp_info info = {};
    socklen_t size = sizeof(info);
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) == 0) {
        return info.tcpi_bytes_received;
    }
    int waiting = 0;
    return before + (ioctl(fd, SIOCINQ, &waiting) == 0 ? static_cast<uint64_t>(waiting) : 0);
}

}  // namespace

connections::connections(std::function<size_t()> explained)
    : explained_(std::move(explained)), at_start_(resident_bytes()), ended_(epoll_create1(EPOLL_CLOEXEC)) {}

void connections::add(int fd) {
    base::unique_fd mine(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    epoll_event event = {.events = 0, .data = {.fd = mine.get()}};  // EPOLLHUP comes unasked
    if (mine.valid() && epoll_ctl(ended_.get(), EPOLL_CTL_ADD, mine.get(), &event) == 0) {
        const int key = mine.get();
        connections_[key].fd = std::move(mine);
    }
}

void connections::forget_ended() {
    epoll_event events[64];
    const int count = epoll_wait(ended_.get(), events, std::size(events), 0);
    for (int i = 0; i < count; i++) {
        forget(events[i].data.fd);
    }
}

// gRPC's descriptor keeps the file open: epoll would go on watching it.
void connections::forget(int fd) {
    epoll_ctl(ended_.get(), EPOLL_CTL_DEL, fd, nullptr);
    connections_.erase(fd);
}

// Bytes above what the process had at its start and what has another cause.
size_t connections::excess() const {
    const size_t expected = at_start_ + explained_();
    return std::max(resident_bytes(), expected) - expected;
}

int connections::look() {
    constexpr int k_often_ms = 20, k_now_and_then_ms = 50, k_rarely_ms = 1000;
    constexpr auto k_between_trims = std::chrono::seconds(2);
    size_t bytes = excess();
    if (bytes > k_allowed || (bytes > k_worth_a_trim && clock::now() >= next_trim_)) {
        malloc_trim(0);
        next_trim_ = clock::now() + k_between_trims;
        bytes = excess();
    }
    is_short_ = bytes > k_allowed;
    bytes > k_worth_a_trim ? count_bytes() : forget_bytes();
    if (is_short_) {
        close_dearest();
        return k_often_ms;
    }
    return !connections_.empty() ? k_now_and_then_ms : bytes > k_worth_a_trim ? k_rarely_ms : -1;
}

void connections::count_bytes() {
    for (auto &[fd, connection] : connections_) {
        const uint64_t total = bytes_so_far(fd, connection.total);
        connection.sent += is_counting_ ? total - connection.total : 0;
        connection.total = total;
    }
    is_counting_ = true;
}

// What was sent before memory grows next is not what it grows by.
void connections::forget_bytes() {
    if (!is_counting_) {
        return;
    }
    for (auto &[fd, connection] : connections_) {
        connection.sent = 0;
    }
    is_counting_ = false;
}

// Half of what came in came over these.
void connections::close_dearest() {
    std::vector<std::pair<uint64_t, int>> by_cost;
    uint64_t all = 0;
    for (const auto &[fd, connection] : connections_) {
        by_cost.emplace_back(connection.sent, fd);
        all += connection.sent;
    }
    std::ranges::sort(by_cost, std::greater());
    uint64_t closed = 0;
    for (const auto &[sent, fd] : by_cost) {
        shutdown(fd, SHUT_RDWR);  // gRPC sees the end of the connection, and frees what it keeps for it
        forget(fd);
        closed += sent;
        if (2 * closed >= all) {
            return;
        }
    }
}

}  // namespace host
