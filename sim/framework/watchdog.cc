#include "sim/framework/watchdog.h"

#include <spdlog/logger.h>

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

// Looks at the threads from a thread of its own, which runs while there are any.
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

 private:
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

heartbeats_s heartbeats() { return {g_punched, g_late}; }

}  // namespace sim

void sdk::lib::thread::punch_heartbeat() {
    auto *watched = static_cast<sim::watched_thread *>(this);
    watched->due_ = sim::watched_thread::clock::now() + sim::scaled(sim::k_heartbeat);
    sim::g_punched++;
}
