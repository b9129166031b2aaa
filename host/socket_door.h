// The agent's service request thread, serving the debug socket.

#pragma once

#include <string>

#include "sim/event_thread.h"

namespace host {

// Serves from construction to destruction. Owned by one thread.
class socket_door {
 public:
    // Throws setup_error.
    explicit socket_door(const std::string &path);
    ~socket_door();

 private:
    std::string path_;
    sim::event_thread thread_;
};

}  // namespace host
