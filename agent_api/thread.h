// The agent's thread library, as far as services see it.

#pragma once

namespace sdk::lib {

class thread {
 public:
    // Tells the agent's watchdog that this thread is alive. Any thread.
    void punch_heartbeat();

    // The running thread; null on a thread that this library did not start.
    static constinit thread_local thread *t_curr_thread_;
};

}  // namespace sdk::lib
