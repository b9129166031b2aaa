#include "svc/channel/peers.h"

#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "svc/channel/log_limit.h"
#include "svc/common/hand_over.h"
#include "svc/common/trace.h"

namespace svc {

namespace {

using base::unique_fd;
using sdk::event_thread::io_;

std::atomic<size_t> g_open = 0;

constexpr int k_ticks_to_request = 10;

uid_t peer_uid(int fd) {
    ucred peer = {.pid = 0, .uid = static_cast<uid_t>(-1), .gid = 0};
    socklen_t size = sizeof(peer);
    getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer.uid;
}

// Ends the connection for its peer. True when nothing is left in its queue, where descriptors could wait whose
// close() takes long: nothing can be sent to it any more.
bool closes_at_once(int fd) {
    shutdown(fd, SHUT_RDWR);
    int unread = 1;
    return ioctl(fd, FIONREAD, &unread) == 0 && unread == 0;
}

}  // namespace

void peers::prepare() { is_prepared_ = has_executor() && work_.prepare(); }

bool peers::uses_executor() const { return is_prepared_ && has_executor(); }

bool peers::add(unique_fd fd, sdk::event_thread::io_callback callback) {
    static thread_local log_limit t_log_limit;
    const uid_t uid = peer_uid(fd.get());
    try {
        if (!limits_.admit(uid)) {
            if (t_log_limit.take()) {
                SVC_TRACE_ERR("User {} turned away, too many connections are open", uid);
            }
            close_elsewhere(std::move(fd), uid);
            return true;
        }
        auto connection = std::make_shared<connection_s>();
        io_ *const io = &connection->cmd_read_io;
        connection->fd = std::move(fd);
        connection->uid = uid;
        connection->ticks_left = k_ticks_to_request;
        const int connection_fd = connection->fd.get();
        open_.emplace(io, std::move(connection));
        g_open++;
        sdk::event_thread::io_init(io, callback, connection_fd, sdk::event_thread::k_io_readable);
        sdk::event_thread::io_start(io);
        return true;
    } catch (const std::bad_alloc &) {
        return false;
    }
}

void peers::turn_away(unique_fd fd) {
    const uid_t uid = peer_uid(fd.get());
    close_elsewhere(std::move(fd), uid);
}

bool peers::serve(io_ *io) {
    const auto found = open_.find(io);
    if (found == open_.end() || !uses_executor()) {
        return false;
    }
    const connection_ptr connection = found->second;
    sdk::event_thread::io_stop(io);
    connection->state = state_e::QUEUED;
    try {
        const auto request = std::make_shared<peer_request_s>();
        work_.add(connection->uid,
                  {.begin = [connection] { connection->state = state_e::RUNNING; },
                   .work =
                       [connection, request] {
                           if (!connection->is_late) {
                               *request = receive_request(connection->fd.get(), connection->uid);
                           }
                       },
                   .end = [this, connection, request] { on_received(connection, request); }});
    } catch (const std::bad_alloc &) {
        SVC_TRACE_ERR("Memory allocation for service request message failed");
        close(io);
    }
    return true;
}

void peers::on_received(const connection_ptr &connection, const request_ptr &request) {
    if (request->error == ENOMEM) {
        SVC_TRACE_ERR("Memory allocation for service request message failed");
    } else if (request->size < 0) {
        if (request->error != EAGAIN) {
            SVC_TRACE_ERR("Read from unix domain socket failed");
        }
        watch_again(connection);
        return;
    } else if (request->size > 0 && !request->is_parsed) {
        SVC_TRACE_ERR("Parse service request message from socket failed, bytes_read {}", request->size);
    }
    try {
        run_and_finish(connection, request);
    } catch (const std::bad_alloc &) {
        SVC_TRACE_ERR("Memory allocation for service request message failed");
        close(&connection->cmd_read_io);
    }
}

void peers::watch_again(const connection_ptr &connection) {
    connection->state = state_e::WAITING;
    sdk::event_thread::io_start(&connection->cmd_read_io);
}

// Before the peer sees the end of the connection its output is complete, and its descriptor closed.
void peers::run_and_finish(const connection_ptr &connection, const request_ptr &request) {
    run_request(request.get(), connection->fd.get());
    const auto finish = [connection, request] {
        finish_request(request.get(), connection->fd.get());
        request->output = command_output_s();
        request->io_fd.reset();
        connection->fd.reset();
    };
    const auto end = [this, connection] { close(&connection->cmd_read_io); };
    work_.add(connection->uid, {.begin = [] {}, .work = finish, .end = end}, true);
}

bool peers::close(io_ *io) {
    const auto found = open_.find(io);
    if (found == open_.end()) {
        return false;
    }
    limits_.leave(found->second->uid);
    found->second->fd.reset();
    open_.erase(found);
    g_open--;
    return true;
}

size_t peers::open_count() { return g_open; }

void peers::close_elsewhere(unique_fd fd, uid_t uid) {
    if (!uses_executor() || closes_at_once(fd.get())) {
        return;
    }
    const auto shared = std::make_shared<unique_fd>(std::move(fd));
    work_.add(uid, {.begin = [] {}, .work = [shared] { shared->reset(); }, .end = [] {}});
}

void peers::close_listener(unique_fd fd) {
    if (fd.valid() && uses_executor()) {
        shutdown(fd.get(), SHUT_RDWR);
        try {
            const auto shared = std::make_shared<unique_fd>(std::move(fd));
            work_.add(geteuid(), {.begin = [] {}, .work = [shared] { shared->reset(); }, .end = [] {}});
        } catch (const std::bad_alloc &) {
            SVC_TRACE_ERR("Memory allocation for closing the listening socket failed");
        }
    }
}

// Ends a connection that waits for its request.
void peers::retire(const connection_ptr &connection) {
    sdk::event_thread::io_stop(&connection->cmd_read_io);
    if (!uses_executor() || closes_at_once(connection->fd.get())) {
        close(&connection->cmd_read_io);
        return;
    }
    connection->is_late = true;
    connection->state = state_e::QUEUED;
    work_.add(connection->uid, {.begin = [connection] { connection->state = state_e::RUNNING; },
                                .work = [connection] { connection->fd.reset(); },
                                .end = [this, connection] { close(&connection->cmd_read_io); }});
}

void peers::tick() {
    try {
        std::vector<connection_ptr> late;
        for (const auto &[io, connection] : open_) {
            if (--connection->ticks_left > 0 || connection->is_late) {
                continue;
            }
            if (connection->state == state_e::WAITING) {
                late.push_back(connection);
            } else if (connection->state == state_e::QUEUED) {  // behind work of its user that hangs
                connection->is_late = true;
                shutdown(connection->fd.get(), SHUT_RDWR);
            }
        }
        for (const auto &connection : late) {
            retire(connection);
        }
        work_.start_waiting();
    } catch (const std::bad_alloc &) {
        SVC_TRACE_ERR("Memory allocation for closing a late connection failed");
    }
}

}  // namespace svc
