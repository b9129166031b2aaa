// Compares requests through the service request thread with those through a thread that makes the same system calls and
// does nothing else.

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <memory>

#include "agent_api/event_thread.h"
#include "bench/figures.h"
#include "bench/parts.h"
#include "bench/service_thread.h"
#include "svc/channel/svc_thread.h"

namespace bench {

namespace {

using sdk::event_thread::io_;

// The bare server, for one client at a time.
io_ g_accept_io, g_read_io;
uint8_t g_buffer[1 << 20];

void read_bare(io_ *io, int fd, int) {
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(int))];
    iovec data = {.iov_base = g_buffer, .iov_len = sizeof(g_buffer)};
    msghdr message = {};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const char answer[] = {8, 0};
    if (recvmsg(fd, &message, MSG_CMSG_CLOEXEC) <= 0 || send(fd, answer, sizeof(answer), MSG_NOSIGNAL) < 0) {
        fail("the bare server lost its client");
    }
    sdk::event_thread::io_stop(io);
    close(fd);
}

void accept_bare(io_ *, int fd, int) {
    const int connection = accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
    sdk::event_thread::io_init(&g_read_io, read_bare, connection, sdk::event_thread::k_io_readable);
    sdk::event_thread::io_start(&g_read_io);
}

sdk::sdk_ret_t listen_bare(void *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, static_cast<const char *>(path), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 || listen(fd, 1) != 0) {
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    sdk::event_thread::io_init(&g_accept_io, accept_bare, fd, sdk::event_thread::k_io_readable);
    sdk::event_thread::io_start(&g_accept_io);
    return sdk::SDK_RET_OK;
}

constexpr sim::event_thread_entries_s k_bare_thread = {listen_bare, [](void *) {}, nullptr, nullptr};

constexpr nanoseconds k_turn = std::chrono::milliseconds(1);

double cost_of_requests(const std::string &path) {
    return cost_of(k_turn, 1, [&path] { request_over_socket(path); });
}

}  // namespace

double socket_throughput_ratio(core_e core, const std::string &subject, const std::string &baseline,
                               nanoseconds slice) {
    const on_core here(core);
    double subject_cost = 0, baseline_cost = 0;
    (void)cost_of(slice, 1, [&] {
        subject_cost += cost_of_requests(subject);
        baseline_cost += cost_of_requests(baseline);
    });
    return baseline_cost / subject_cost;
}

// The client is a process of its own, as in real use: in the server's process, on another core, changes of the address space
// would cost more.
void add_socket(ratio_table *table, service_thread *service) {
    const auto bare = std::make_shared<service_thread>(k_bare_thread);
    const auto add = [=](const std::string &core, const std::string &where) {
        const std::string client = "socket-client " + core + " " + service->path() + " " + bare->path();
        table->figure_at_least(
            0.70, "socket: requests / bare server, client on " + where,
            [client, bare](nanoseconds slice) { return ask(client, std::to_string(2 * slice.count())); });
    };
    add("last", "another core");
    add("first", "the same core");
}

}  // namespace bench
