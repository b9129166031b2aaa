// The stand-in's thread library and its watchdog.
//
// A thread must punch its heartbeat within 10 seconds of its start and then every second. The watchdog looks
// at all threads several times a second; of one that is more than a second late it writes a line to the trace
// logger, once until the thread is back.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "agent_api/thread.h"

namespace sim {

// Makes the calling thread a thread of the agent's thread library for as long as this object lives.
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

    const std::string name_;
    std::atomic<clock::time_point> due_;  // when the next heartbeat is due
    bool reported_late_ = false;          // the watchdog's own
};

// Counts since the process began. Any thread.
struct heartbeats_s {
    uint64_t punched;
    uint64_t late;  // times that the watchdog found a thread late
};
heartbeats_s heartbeats();

}  // namespace sim
