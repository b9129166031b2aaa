// The stand-in's thread library and its watchdog.
//
// A thread must punch its heartbeat within 10 seconds of its start and then every second. The watchdog checks all threads
// several times a second. It logs each thread that is more than a second late, once until its next heartbeat.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "agent_api/thread.h"

namespace sim {

// While this object lives, the calling thread is a thread of the agent's thread library.
class watched_thread : public sdk::lib::thread {
 public:
    explicit watched_thread(std::string name);
    ~watched_thread();
    watched_thread(const watched_thread &) = delete;
    watched_thread &operator=(const watched_thread &) = delete;

 private:
    friend class sdk::lib::thread;
    friend class watchdog;
    using clock = std::chrono::steady_clock;

    void punch();

    const std::string name_;
    std::atomic<clock::time_point> due_;                         // when the next heartbeat is due
    std::atomic<clock::time_point> last_ = clock::time_point();  // the latest heartbeat
    std::atomic<clock::duration> longest_gap_ = clock::duration::zero();
    std::atomic<uint64_t> punched_ = 0;
    bool reported_late_ = false;  // used only by the watchdog
};

// Counts since the process began. Any thread.
struct heartbeats_s {
    uint64_t punched;
    uint64_t late;  // times that the watchdog found a thread late
};
heartbeats_s heartbeats();

// The heartbeats of one thread.
struct thread_heartbeats_s {
    std::string thread;
    uint64_t punched;
    std::chrono::steady_clock::duration since_last;   // zero before the first
    std::chrono::steady_clock::duration longest_gap;  // between two, or since the latest
};

// One for each running thread. With `restart`, the next call reports the longest gaps since this one. Any thread.
std::vector<thread_heartbeats_s> thread_heartbeats(bool restart);

}  // namespace sim
