#include "host/connections.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <linux/tcp.h>  // netinet/tcp.h has fewer members
#include <malloc.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "host/setup_error.h"

namespace host {

namespace {

constexpr size_t k_mib = 1024 * 1024;
constexpr size_t k_worth_a_trim = 32 * k_mib;
// What may have no explanation. Headers cost nine times their bytes while they come in, and when the connection ends, gRPC
// makes three copies of them: this must stay well below the 512 MiB that an attack may cost.
constexpr size_t k_unexplained = NYX_UNEXPLAINED_MIB * k_mib;
// What calls, requests that are coming in and open connections explain, at most and together.
constexpr size_t k_calls = 128 * k_mib, k_received = 96 * k_mib, k_connection = 40 * 1024;
constexpr size_t k_allowed = k_unexplained + 304 * k_mib;
constexpr int k_questions = 3;
constexpr auto k_until_a_close_helps = std::chrono::seconds(1);

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

// Ends a connection for gRPC as well, without what waits in the socket. After shutdown() gRPC would go on reading that: of
// TCP up to 32 MiB, which cost thirty times as much when they are headers.
void end(int fd) {
    const sockaddr nobody = {.sa_family = AF_UNSPEC, .sa_data = {}};
    if (connect(fd, &nobody, sizeof(nobody)) != 0) {
        shutdown(fd, SHUT_RDWR);  // a Unix socket, which holds little
    }
}

}  // namespace

connections::connections(connection_counts_s *counts, std::function<uses_s()> uses)
    : counts_(counts),
      uses_(std::move(uses)),
      at_start_(resident_bytes()),
      events_(epoll_create1(EPOLL_CLOEXEC)),
      news_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      kept_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    epoll_event event = {.events = EPOLLIN, .data = {.fd = news_.get()}};
    if (!kept_.valid() || epoll_ctl(events_.get(), EPOLL_CTL_ADD, news_.get(), &event) != 0) {
        throw setup_error("the connections of the gRPC server can't be watched");
    }
    thread_ = std::thread([this] { watch(); });
}

connections::~connections() {
    is_stopped_ = true;
    eventfd_write(news_.get(), 1);
    thread_.join();
}

void connections::add(int fd) {
    base::unique_fd mine(fcntl(fd, F_DUPFD_CLOEXEC, 0));
    epoll_event event = {.events = 0, .data = {.fd = mine.get()}};  // EPOLLHUP comes unasked
    const std::lock_guard lock(mutex_);
    if (mine.valid() && epoll_ctl(events_.get(), EPOLL_CTL_ADD, mine.get(), &event) == 0) {
        const int key = mine.get();
        connections_[key].fd = std::move(mine);
        counts_->open = static_cast<uint32_t>(connections_.size());
        if (connections_.size() == 1) {
            eventfd_write(news_.get(), 1);
        }
    }
}

void connections::close_all() {
    const std::lock_guard lock(mutex_);
    for (const auto &[fd, connection] : connections_) {
        shutdown(fd, SHUT_RDWR);
    }
}

void connections::watch() {
    pthread_setname_np(pthread_self(), "connections");
    for (int pause_ms = -1; !is_stopped_; pause_ms = look()) {
        forget_ended(pause_ms);
    }
}

void connections::forget_ended(int timeout_ms) {
    epoll_event events[64];
    const int count = epoll_wait(events_.get(), events, std::size(events), timeout_ms);
    const std::lock_guard lock(mutex_);
    for (int i = 0; i < count; i++) {
        if (eventfd_t ignored = 0; events[i].data.fd == news_.get()) {
            eventfd_read(news_.get(), &ignored);
        } else {
            forget(events[i].data.fd);
        }
    }
}

// gRPC's descriptor keeps the file open: epoll would go on watching it.
void connections::forget(int fd) {
    epoll_ctl(events_.get(), EPOLL_CTL_DEL, fd, nullptr);
    connections_.erase(fd);
    questions_ = k_questions;
    counts_->open = static_cast<uint32_t>(connections_.size());
}

// Without the stand-in's tables, which have a limit of their own.
size_t connections::bytes_above_start() const {
    const size_t expected = at_start_ + uses_().tables;
    return std::max(resident_bytes(), expected) - expected;
}

// Bytes that have a cause.
size_t connections::explained() const {
    return std::min(uses_().calls, k_calls) + std::min(static_cast<size_t>(just_received_), k_received) +
           k_connection * counts_->open;
}

// Returns how long until the next look in milliseconds, -1 while there is nothing to look at.
int connections::look() {
    constexpr int k_often_ms = 10, k_now_and_then_ms = 50, k_rarely_ms = 1000;
    constexpr auto k_between_trims = std::chrono::seconds(2);
    const size_t allowed = std::min(k_unexplained + explained(), k_allowed);
    size_t bytes = bytes_above_start();
    if (bytes > allowed || (bytes > k_worth_a_trim && clock::now() >= next_trim_)) {
        malloc_trim(0);
        next_trim_ = clock::now() + k_between_trims;
        bytes = bytes_above_start();
    }
    const std::lock_guard lock(mutex_);
    bytes > k_worth_a_trim ? count_bytes() : forget_bytes();
    const bool is_short = bytes > allowed;
    if (is_short) {
        close_dearest();
    }
    may_accept_ = !is_short || clock::now() > last_close_ + k_until_a_close_helps;
    ask_for_kept(bytes);
    if (bytes <= k_worth_a_trim) {
        return connections_.empty() ? -1 : k_now_and_then_ms;
    }
    return connections_.empty() && may_accept_ ? k_rarely_ms : k_often_ms;
}

// More than once, because the agent's own calls may come too early or be late.
void connections::ask_for_kept(size_t bytes) {
    constexpr auto k_between_questions = std::chrono::seconds(2);
    if (questions_ > 0 && bytes > k_worth_a_trim + explained() && clock::now() > next_question_) {
        eventfd_write(kept_.get(), 1);
        next_question_ = clock::now() + k_between_questions;
        questions_--;
    }
}

void connections::count_bytes() {
    constexpr double k_kept_after_a_look = 0.99;  // looks are 10 ms apart: about a second
    just_received_ *= k_kept_after_a_look;
    for (auto &[fd, connection] : connections_) {
        const uint64_t total = bytes_so_far(fd, connection.total);
        const uint64_t more = is_counting_ ? total - connection.total : 0;
        connection.sent += more;
        connection.total = total;
        just_received_ += static_cast<double>(more);
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
    just_received_ = 0;
    is_counting_ = false;
    malloc_trim(0);  // the last time before memory grows again
}

// Half of what came in came over these. Who sent next to nothing has not cost that memory.
void connections::close_dearest() {
    constexpr uint64_t k_little = 16 * 1024;
    std::vector<std::pair<uint64_t, int>> by_cost;
    uint64_t all = 0;
    for (const auto &[fd, connection] : connections_) {
        if (connection.sent > k_little) {
            by_cost.emplace_back(connection.sent, fd);
            all += connection.sent;
        }
    }
    std::ranges::sort(by_cost, std::greater());
    uint64_t closed = 0;
    for (const auto &[sent, fd] : by_cost) {
        if (2 * closed >= all) {
            return;
        }
        end(fd);
        forget(fd);
        closed += sent;
        counts_->closed++;
        last_close_ = clock::now();
    }
}

}  // namespace host
