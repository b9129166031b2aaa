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

// What the framework calls, all on the event thread.
struct event_thread_entries_s {
    sdk::sdk_ret_t (*init)(void *ctxt);
    void (*exit)(void *ctxt);
    sdk::sdk_ret_t (*suspend)(void *ctxt);
    sdk::sdk_ret_t (*resume)(void *ctxt);
};

// One event thread. Owned and called by one thread.
class event_thread {
 public:
    // `ctxt` is handed to each entry and must outlive this object.
    event_thread(std::string name, event_thread_entries_s entries, void *ctxt);
    ~event_thread();  // stops

    // Starts the thread and waits for its init; returns init's code. When that is a failure the thread has
    // ended.
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

// Makes a second of every timer, and of the watchdog's patience, last `scale` seconds. For tests; set it
// before threads are started.
void set_time_scale(double scale);
double time_scale();

}  // namespace sim
