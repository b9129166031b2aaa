// The agent's service request thread, serving the debug socket.

#pragma once

#include <string>

#include "host/socket_file.h"
#include "host/worker_pool.h"
#include "sim/framework/event_thread.h"

namespace host {

// Serves from construction to destruction. There is one at a time: its threads are the library's executor. Owned by
// one thread.
class debug_socket {
 public:
    // Any user may connect, or this group only when one is given. Throws setup_error.
    debug_socket(const std::string &path, const std::string &group);
    ~debug_socket();

    // Takes no more peers, and waits for the command that runs and for work that waits for a peer, for as long as
    // that takes. Does nothing when called again.
    void stop();

 private:
    // The library's executor while this lives.
    struct executor_s {
        executor_s();
        ~executor_s();

        worker_pool threads;
    };

    socket_file file_;
    std::string path_;
    executor_s executor_;
    sim::event_thread thread_;  // ends before its executor
};

}  // namespace host
