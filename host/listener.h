// A socket that listens for gRPC clients.

#pragma once

#include <stdexcept>
#include <string>

#include "base/unique_fd.h"

namespace host {

// Why something could not be set up, for people.
class setup_error : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct listener_s {
    base::unique_fd fd;     // does not block
    std::string address;    // as it can be given to a client: the port that was asked for as 0 filled in
    std::string unix_path;  // the file to remove in the end; empty for TCP
};

// Listens on HOST:PORT or unix:PATH. Unless `beyond_loopback`, refuses every address that another machine
// could reach. Throws setup_error.
listener_s listen_on(const std::string &address, bool beyond_loopback);

// Throws setup_error when something at `path` should not be replaced by a socket: a socket that somebody
// listens on, or a file that is no socket.
void refuse_taken_path(const std::string &path);

}  // namespace host
