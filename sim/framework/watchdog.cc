#include "sim/framework/watchdog.h"

#include <spdlog/logger.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "agent_api/trace_logger.h"
#include "sim/framework/event_thread.h"

constinit thread_local sdk::lib::thread *sdk::lib::thread::t_curr_thread_ = nullptr;

namespace sim {

namespace {

constexpr std::chrono::seconds k_first_heartbeat(10), k_heartbeat(1), k_grace(1);
constexpr std::chrono::milliseconds k_look(200);

std::atomic<uint64_t> g_punched = 0, g_late = 0;

std::chrono::steady_clock::duration scaled(std::chrono::steady_clock::duration duration) {
    return std::chrono::duration_cast<std::chrono::steady_clock::duration>(duration * time_scale());
}

}  // namespace

// Checks the threads on a thread of its own, which the first of them starts.
class watchdog {
 public:
    static watchdog &instance() {
        static watchdog dog;
        return dog;
    }

    void add(watched_thread *thread) {
        std::lock_guard guard(lock_);
        threads_.insert(thread);
        if (!looker_.joinable()) {
            looker_ = std::jthread([this](std::stop_token stop) { look_until(stop); });
        }
    }

    void remove(watched_thread *thread) {
        std::lock_guard guard(lock_);
        threads_.erase(thread);
    }

    std::vector<thread_heartbeats_s> heartbeats_of_threads(bool restart) {
        std::lock_guard guard(lock_);
        std::vector<thread_heartbeats_s> all;
        for (watched_thread *thread : threads_) {
            all.push_back(heartbeats_of(thread, restart));
        }
        return all;
    }

 private:
    static thread_heartbeats_s heartbeats_of(watched_thread *thread, bool restart) {
        using duration = watched_thread::clock::duration;
        const auto last = thread->last_.load();
        const bool none_yet = last == watched_thread::clock::time_point();
        const auto since_last = none_yet ? duration::zero() : watched_thread::clock::now() - last;
        const auto longest_gap =
            restart ? thread->longest_gap_.exchange(duration::zero()) : thread->longest_gap_.load();
        return {.thread = thread->name_,
                .punched = thread->punched_,
                .since_last = since_last,
                .longest_gap = std::max(longest_gap, since_last)};
    }

    void look_until(const std::stop_token &stop) {
        std::unique_lock guard(lock_);
        while (!stop.stop_requested()) {
            for (watched_thread *thread : threads_) {
                look_at(thread);
            }
            wake_.wait_for(guard, stop, scaled(k_look), [] { return false; });
        }
    }

    static void look_at(watched_thread *thread) {
        const bool late = watched_thread::clock::now() > thread->due_.load() + scaled(k_grace);
        if (late && !thread->reported_late_) {
            g_late++;
            report(thread->name_);
        }
        thread->reported_late_ = late;
    }

    static void report(const std::string &name) {
        if (core::g_trace_logger && core::g_trace_logger->trace_level > 0) {
            if (const auto logger = core::g_trace_logger->logger()) {
                logger->error("watchdog: thread {} missed its heartbeat", name);
                logger->flush();
            }
        }
    }

    std::mutex lock_;
    std::condition_variable_any wake_;
    std::set<watched_thread *> threads_;
    std::jthread looker_;  // last: stops before the rest goes
};

watched_thread::watched_thread(std::string name)
    : name_(std::move(name)), due_(clock::now() + scaled(k_first_heartbeat)) {
    t_curr_thread_ = this;
    watchdog::instance().add(this);
}

watched_thread::~watched_thread() {
    watchdog::instance().remove(this);
    t_curr_thread_ = nullptr;
}

// Apart from a restart, only the thread itself writes. A restart between the load and the store is lost: the old gap stays.
void watched_thread::punch() {
    const auto now = clock::now(), last = last_.exchange(now);
    if (last != clock::time_point()) {
        longest_gap_ = std::max(longest_gap_.load(), now - last);
    }
    due_ = now + scaled(k_heartbeat);
    punched_++;
    g_punched++;
}

heartbeats_s heartbeats() { return {g_punched, g_late}; }

std::vector<thread_heartbeats_s> thread_heartbeats(bool restart) {
    return watchdog::instance().heartbeats_of_threads(restart);
}

}  // namespace sim

void sdk::lib::thread::punch_heartbeat() { static_cast<sim::watched_thread *>(this)->punch(); }
