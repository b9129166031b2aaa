// Threads that may wait.

#pragma once

#include <cstddef>
#include <functional>
#include <memory>

namespace host {

// Starts threads when there is work for them, up to a number; one that has had nothing to do for five seconds ends.
// Any thread.
class worker_pool {
 public:
    explicit worker_pool(size_t max_threads);
    ~worker_pool();  // as stop()
    worker_pool(const worker_pool &) = delete;
    worker_pool &operator=(const worker_pool &) = delete;

    // Runs `work`, which must not throw, on one of the threads. False when all are busy, when there is no further
    // thread to be had, or after stop().
    bool run(std::function<void()> work);

    // Takes no more work and waits for what runs, for as long as that takes.
    void stop();

 private:
    struct state_s;

    static void serve(const std::shared_ptr<state_s> &state);

    const size_t max_threads_;
    const std::shared_ptr<state_s> state_;
};

}  // namespace host
