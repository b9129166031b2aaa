#include "svc/channel/peer_work.h"

#include <sys/eventfd.h>

#include <chrono>
#include <list>
#include <mutex>
#include <new>
#include <utility>

#include "base/unique_fd.h"
#include "svc/channel/peer_limits.h"
#include "svc/common/hand_over.h"

namespace svc {

namespace {

constexpr size_t k_running_of_user = 4, k_running_of_others = 32, k_running_privileged = 8;

}  // namespace

// Outlives the service request thread when work does.
struct finished_work_s {
    struct piece_s {
        uid_t uid;
        peer_work::function end;
    };

    base::unique_fd event;  // readable when there are pieces
    std::mutex mutex;
    std::list<piece_s> pieces;

    // Takes the pieces over, without memory of its own: nobody could be told that there is none.
    void add(std::list<piece_s> *more) {
        const std::lock_guard guard(mutex);
        pieces.splice(pieces.end(), *more);
        eventfd_write(event.get(), 1);
    }

    // Takes one piece; none left, and no event any more, when the result is empty.
    std::list<piece_s> take() {
        std::list<piece_s> first;
        const std::lock_guard guard(mutex);
        if (pieces.empty()) {
            eventfd_t count;
            eventfd_read(event.get(), &count);
        } else {
            first.splice(first.end(), pieces, pieces.begin());
        }
        return first;
    }
};

peer_work::~peer_work() = default;

bool peer_work::prepare() {
    if (finished_) {
        return true;
    }
    auto finished = std::make_shared<finished_work_s>();
    finished->event.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!finished->event.valid()) {
        return false;
    }
    finished_ = std::move(finished);
    watcher_.owner = this;
    sdk::event_thread::io_init(&watcher_, on_finished, finished_->event.get(),
                               sdk::event_thread::k_io_readable);
    sdk::event_thread::io_start(&watcher_);
    return true;
}

void peer_work::add(uid_t uid, piece_s piece, bool first) {
    queue_s &queue = queues_[uid];
    queue.waiting.insert(first ? queue.waiting.begin() : queue.waiting.end(), std::move(piece));
    size_++;
    start_waiting_of(uid, queue);
}

bool peer_work::may_run(uid_t uid, const queue_s &queue) const {
    return is_privileged(uid) ? queue.running < k_running_privileged
                              : queue.running < k_running_of_user && running_of_others_ < k_running_of_others;
}

// Memory that is short counts as an executor that takes nothing: what waits is started later.
void peer_work::start_waiting_of(uid_t uid, queue_s &queue) {
    while (!queue.waiting.empty() && may_run(uid, queue)) {
        piece_s &piece = queue.waiting.front();
        try {
            auto last = std::make_shared<std::list<finished_work_s::piece_s>>();
            last->push_back({uid, piece.end});
            if (!hand_over([finished = finished_, last, work = piece.work] {
                    work();
                    finished->add(last.get());
                })) {
                return;
            }
        } catch (const std::bad_alloc &) {
            return;
        }
        piece.begin();
        queue.waiting.pop_front();
        queue.running++;
        running_of_others_ += !is_privileged(uid);
    }
}

void peer_work::start_waiting() {
    for (auto &[uid, queue] : queues_) {
        start_waiting_of(uid, queue);
    }
}

void peer_work::on_finished(sdk::event_thread::io_ *io, int, int) {
    static_cast<watcher_s *>(io)->owner->finish_some();
}

// The loop's timers get their turn after 50 ms at the latest, or when a piece that takes longer has ended.
void peer_work::finish_some() {
    using clock = std::chrono::steady_clock;
    const auto until = clock::now() + std::chrono::milliseconds(50);
    while (clock::now() < until) {
        const auto taken = finished_->take();
        if (taken.empty()) {
            return;
        }
        const uid_t uid = taken.front().uid;
        queue_s &queue = queues_[uid];
        queue.running--;
        running_of_others_ -= !is_privileged(uid);
        size_--;
        taken.front().end();
        if (queue.running == 0 && queue.waiting.empty()) {
            queues_.erase(uid);
        }
        start_waiting();
    }
}

}  // namespace svc
