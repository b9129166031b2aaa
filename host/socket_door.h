// The agent's service request thread, serving the debug socket.

#pragma once

#include <string>

#include "host/socket_file.h"
#include "sim/framework/event_thread.h"

namespace host {

// Serves from construction to destruction. Owned by one thread.
class socket_door {
 public:
    // Throws setup_error.
    explicit socket_door(const std::string &path);
    ~socket_door();

    // Takes no more peers and waits for the command that runs, however long it does. Does nothing when called again.
    void stop();

 private:
    socket_file file_;
    std::string path_;
    sim::event_thread thread_;
};

}  // namespace host
