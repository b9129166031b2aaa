// Work that may wait for a peer, on the threads of the agent's executor.

#pragma once

#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>

#include "agent_api/event_thread.h"

namespace svc {

struct finished_work_s;

// A queue for each user, so that the peers of one can't take all threads: of each user 4 pieces of work run at
// once, of all users together 32, and 8 more of each that is privileged. Work that hangs for ever holds up the
// later work of its user, and nobody else's.
//
// All members are for the service request thread, with its event loop running.
class peer_work {
 public:
    using function = std::function<void()>;

    peer_work() = default;
    ~peer_work();  // what runs is left to itself; what waits is dropped
    peer_work(const peer_work &) = delete;
    peer_work &operator=(const peer_work &) = delete;

    // Takes what it needs from the system, once; false when there is none to be had.
    bool prepare();

    struct piece_s {
        function begin;  // on this thread, when the executor has taken `work`
        function work;   // on one of the executor's threads
        function end;    // then on this thread
    };

    // None of the three may throw. `first`: before what waits, for what continues earlier work.
    void add(uid_t uid, piece_s piece, bool first = false);

    // Starts what waits and may run: the executor may have refused it before.
    void start_waiting();

    // Pieces of work that wait or run.
    size_t size() const { return size_; }

 private:
    struct queue_s {
        std::deque<piece_s> waiting;
        size_t running = 0;
    };

    static void on_finished(sdk::event_thread::io_ *io, int fd, int events);
    bool may_run(uid_t uid, const queue_s &queue) const;
    void start_waiting_of(uid_t uid, queue_s &queue);
    void finish_some();

    struct watcher_s : sdk::event_thread::io_ {
        peer_work *owner;
    };
    watcher_s watcher_ = {};
    std::shared_ptr<finished_work_s> finished_;  // filled by the executor's threads
    std::unordered_map<uid_t, queue_s> queues_;
    size_t size_ = 0, running_of_others_ = 0;
};

}  // namespace svc
