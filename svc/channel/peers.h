// The open connections of the service request thread.

#pragma once

#include <sys/types.h>

#include <memory>
#include <unordered_map>

#include "agent_api/event_thread.h"
#include "base/unique_fd.h"
#include "svc/channel/peer_limits.h"
#include "svc/channel/peer_request.h"
#include "svc/channel/peer_work.h"

namespace svc {

// Connections wait for their request, with a watcher, for 10 seconds; then they are closed. With an executor all
// that may wait for a peer happens on its threads. For one thread. What is open when it ends is closed then,
// without stopping watchers: the event loop has ended before.
class peers {
 public:
    // To be called before the first connection, and again after an executor was given.
    void prepare();

    // Takes over a connection and watches it with `callback`. Closes it when too many are open. False, and closed,
    // when memory is short.
    bool add(base::unique_fd fd, sdk::event_thread::io_callback callback);

    // Closes a connection that is not to be served.
    void turn_away(base::unique_fd fd);

    // Serves the request that has come, on the executor's threads. False when there is no executor, or the
    // connection is unknown.
    bool serve(sdk::event_thread::io_ *io);

    // Forgets and closes a connection. False when it is unknown.
    bool close(sdk::event_thread::io_ *io);

    // Closes a listening socket, with the connections that wait in it: peers are refused from now on.
    void close_listener(base::unique_fd fd);

    // To be called every second while there is something to do.
    void tick();
    bool is_idle() const { return open_.empty() && work_.size() == 0; }

    // Connections that wait or are served, of all threads. Any thread.
    static size_t open_count();

    // So much work waits that no more peers should be accepted.
    bool is_swamped() const { return work_.size() >= k_max_work; }

 private:
    static constexpr size_t k_max_work = 4096;

    enum class state_e { WAITING, QUEUED, RUNNING };
    struct connection_s {
        sdk::event_thread::io_ cmd_read_io;
        base::unique_fd fd;
        uid_t uid;
        int ticks_left;
        state_e state = state_e::WAITING;  // QUEUED and RUNNING: its work, which the loop must not touch then
        bool is_late = false;
    };
    using connection_ptr = std::shared_ptr<connection_s>;
    using request_ptr = std::shared_ptr<peer_request_s>;

    bool uses_executor() const;
    void on_received(const connection_ptr &connection, const request_ptr &request);
    void run_and_finish(const connection_ptr &connection, const request_ptr &request);
    void watch_again(const connection_ptr &connection);
    void retire(const connection_ptr &connection);
    void close_elsewhere(base::unique_fd fd, uid_t uid);

    std::unordered_map<sdk::event_thread::io_ *, connection_ptr> open_;
    peer_limits limits_;
    peer_work work_;
    bool is_prepared_ = false;
};

}  // namespace svc
