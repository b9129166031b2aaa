// The stand-in's event threads, on libev.

#pragma once

#include <functional>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "agent_api/sdk_ret.h"

namespace sim {

class event_loop;

// What the framework calls, always on the event thread.
struct event_thread_entries_s {
    sdk::sdk_ret_t (*init)(void *ctxt);
    void (*exit)(void *ctxt);
    sdk::sdk_ret_t (*suspend)(void *ctxt);
    sdk::sdk_ret_t (*resume)(void *ctxt);
};

// One event thread. Owned and called by one thread.
class event_thread {
 public:
    // Passes `ctxt` to each entry; it must outlive this object.
    event_thread(std::string name, event_thread_entries_s entries, void *ctxt);
    ~event_thread();  // stops

    // Starts the thread, waits for its init and returns init's code. If init fails, the thread has ended.
    sdk::sdk_ret_t start();

    // Run the entry on the thread and return its code. The thread must be started.
    sdk::sdk_ret_t suspend();
    sdk::sdk_ret_t resume();

    // Runs exit on the thread and ends it. Does nothing when the thread is not started.
    void stop();

 private:
    void run(std::promise<sdk::sdk_ret_t> *started);
    sdk::sdk_ret_t call(std::function<sdk::sdk_ret_t()> entry);

    const std::string name_;
    const event_thread_entries_s entries_;
    void *const ctxt_;
    std::unique_ptr<event_loop> loop_;
    std::thread thread_;
};

// Makes each second of timers and of the watchdog last `scale` seconds. For tests; set it before threads start.
void set_time_scale(double scale);
double time_scale();

}  // namespace sim
