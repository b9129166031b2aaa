#include "svc/channel/svc_thread.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "agent_api/thread.h"
#include "base/accept_reserve.h"
#include "base/unique_fd.h"
#include "svc/channel/log_limit.h"
#include "svc/channel/peers.h"
#include "svc/channel/svc_req_handler_quill.h"
#include "svc/channel/svc_request.h"
#include "svc/common/trace.h"

namespace core {

using base::unique_fd;
using sdk::sdk_ret_t;
using sdk::event_thread::io_;
using sdk::event_thread::timer_;

static int32_t g_uds_sock_fd = -1;
static thread_local io_ cmd_accept_io;

namespace {

thread_local bool t_accepting = false;  // cmd_accept_io is started

thread_local bool t_is_paused = false;  // until fewer peers wait to be closed
thread_local bool t_is_ticking = false;
thread_local svc::peers t_peers;

void on_tick(timer_ *);

// Ticks every second for as long as there is something to do: the framework stops no timers.
void tick_again() {
    static timer_ tick_timer;
    if (!std::exchange(t_is_ticking, true)) {
        sdk::event_thread::timer_init(&tick_timer, on_tick, 1.0, 0.0);
        sdk::event_thread::timer_start(&tick_timer);
    }
}

void on_tick(timer_ *) {
    t_is_ticking = false;
    t_peers.tick();
    if (t_is_paused && !t_peers.is_swamped()) {
        t_is_paused = false;
        sdk::event_thread::io_start(&cmd_accept_io);
        t_accepting = true;
    }
    if (t_is_paused || !t_peers.is_idle()) {
        tick_again();
    }
}

void pause_accepting() {
    if (std::exchange(t_accepting, false)) {
        sdk::event_thread::io_stop(&cmd_accept_io);
        t_is_paused = true;
    }
}

// Also for a watcher that somebody else made: its memory stays theirs.
void close_connection(io_ *io, int fd) {
    sdk::event_thread::io_stop(io);
    if (!t_peers.close(io)) {
        close(fd);
    }
}

// Made when the socket is set up, not when descriptors have run out.
base::accept_reserve &reserve() {
    static base::accept_reserve reserve;
    return reserve;
}

// close() of a TCP socket that is set to linger waits for a third party to read. Other sockets, and those that
// don't wait, keep their setting: the peer may hold the socket too and go on using it.
void close_without_lingering(unique_fd fd) {
    int domain = AF_UNIX;
    linger setting = {};
    socklen_t domain_size = sizeof(domain), setting_size = sizeof(setting);
    getsockopt(fd.get(), SOL_SOCKET, SO_DOMAIN, &domain, &domain_size);
    getsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &setting, &setting_size);
    if (domain != AF_UNIX && setting.l_onoff != 0 && setting.l_linger != 0) {
        const linger none = {.l_onoff = 0, .l_linger = 0};
        setsockopt(fd.get(), SOL_SOCKET, SO_LINGER, &none, sizeof(none));
    }
}

// Fills in the address; false and errno when the path does not fit with its terminating NUL, or is empty.
bool to_address(const char *path, sockaddr_un *address) {
    const size_t length = path ? strlen(path) : 0;
    if (length == 0 || length >= sizeof(address->sun_path)) {
        errno = length == 0 ? ENOENT : ENAMETOOLONG;
        return false;
    }
    *address = {};
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, path, length);
    return true;
}

bool bind_to_path(int fd, const char *path) {
    sockaddr_un address;
    if (!to_address(path, &address)) {
        return false;
    }
    unlink(path);
    return bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
}

}  // namespace

sdk_ret_t svc_server_thread_init(void *ctxt) {
    static timer_ hb_timer;
    sdk::event_thread::timer_init(&hb_timer, svc_server_thread_heartbeat_punch_cb, 10.0, 1.0);
    sdk::event_thread::timer_start(&hb_timer);
    return svc_server_thread_uds_init(ctxt);
}

void svc_server_thread_exit(void *) {
    if (std::exchange(t_accepting, false)) {
        sdk::event_thread::io_stop(&cmd_accept_io);
    }
    t_is_paused = false;
    t_peers.close_listener(unique_fd(std::exchange(g_uds_sock_fd, -1)));
}

sdk_ret_t svc_server_thread_suspend_cb(void *ctxt) {
    svc_server_thread_exit(ctxt);
    return sdk::SDK_RET_OK;
}

sdk_ret_t svc_server_thread_resume_cb(void *ctxt) { return svc_server_thread_uds_init(ctxt); }

sdk_ret_t svc_server_thread_uds_init(void *ctxt) {
    const auto *path = static_cast<const char *>(ctxt);
    unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!fd.valid()) {
        SVC_TRACE_ERR("Failed to open UDS for cmd server thread, err {} {}", errno, strerror(errno));
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    if (!bind_to_path(fd.get(), path)) {
        SVC_TRACE_ERR("Failed to bind UDS for service thread, err {} {}", errno, strerror(errno));
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    if (listen(fd.get(), 1) != 0) {
        SVC_TRACE_ERR("Failed to listen on UDS fd, err {} {}", errno, strerror(errno));
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    chmod(path, 0777);
    SVC_TRACE_INFO("Listening to UDS {}", path);

    reserve();
    t_peers.prepare();
    svc_server_thread_exit(ctxt);  // a socket that listened until now
    g_uds_sock_fd = fd.release();
    sdk::event_thread::io_init(&cmd_accept_io, svc_server_accept_cb, g_uds_sock_fd,
                               sdk::event_thread::k_io_readable);
    sdk::event_thread::io_start(&cmd_accept_io);
    t_accepting = true;
    return sdk::SDK_RET_OK;
}

void svc_server_accept_cb(io_ *, int fd, int) {
    static thread_local svc::log_limit t_log_limit;  // peers decide how many accepts fail
    if (t_peers.is_swamped()) {
        pause_accepting();
        tick_again();
        return;
    }
    unique_fd connection(accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (connection.valid()) {
        if (!t_peers.add(std::move(connection), svc_server_read_cb)) {
            SVC_TRACE_ERR("Memory allocation for cmd_read_io failed");
        }
        tick_again();
        return;
    }
    const int error = errno;
    if (error != EAGAIN && t_log_limit.take()) {
        SVC_TRACE_ERR("Accept failed");
    }
    if (error == EMFILE || error == ENFILE) {
        reserve().turn_one_away(fd, [](unique_fd peer) { t_peers.turn_away(std::move(peer)); });
    }
}

void svc_server_read_cb(io_ *io, int fd, int) {
    static thread_local svc::receive_buffer buffer;
    if (t_peers.serve(io)) {
        return;
    }
    if (!buffer.reserve()) {
        SVC_TRACE_ERR("Memory allocation for receive buffer failed");
        close_connection(io, fd);
        return;
    }
    svc::received_s received = svc::receive_once(fd, buffer);
    if (received.size < 0) {
        if (errno != EAGAIN) {  // a byte out of band makes a connection readable, too
            SVC_TRACE_ERR("Read from unix domain socket failed");
        }
        return;
    }
    if (received.size > 0) {
        try {
            types::ServiceRequestMessage request;
            if (request.ParseFromArray(buffer.data(), static_cast<int>(received.size))) {
                (void)handle_svc_req(fd, &request, received.io_fd.get());
            } else {
                SVC_TRACE_ERR("Parse service request message from socket failed, bytes_read {}",
                              received.size);
            }
        } catch (const std::bad_alloc &) {  // the agent's event loop expects no exceptions
            SVC_TRACE_ERR("Memory allocation for service request message failed");
        }
    }
    buffer.clear(static_cast<size_t>(received.size));
    // Before the peer sees the end of the connection: its output is complete then.
    close_without_lingering(std::move(received.io_fd));
    close_connection(io, fd);
}

void svc_server_thread_heartbeat_punch_cb(timer_ *) {
    if (auto *curr_thread = sdk::lib::thread::t_curr_thread_) {
        curr_thread->punch_heartbeat();
    }
}

size_t svc_server_open_connections() { return svc::peers::open_count(); }

}  // namespace core
