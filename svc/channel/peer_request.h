// A request whose peer is met on the executor's threads; only its command runs on the service request thread.

#pragma once

#include <sys/types.h>

#include "base/unique_fd.h"
#include "svc/channel/command.h"
#include "svc/channel/peer_output.h"

namespace svc {

struct peer_request_s {
    ssize_t size = 0;         // bytes received, 0 at the end of the stream, negative on failure
    int error = 0;            // errno of a failure
    bool is_parsed = false;   // the bytes are a request
    bool is_refused = false;  // the peer's descriptor may not take output
    base::unique_fd io_fd;    // the peer's; none when there was none
    command_output_s output;  // what the command writes to instead
    command_s command;
};

// Receives once from the connection, without waiting for bytes, and parses. On the executor's threads.
peer_request_s receive_request(int sock_fd, uid_t uid);

// Runs the command, if there is one that can run. On the service request thread.
void run_request(peer_request_s *request, int sock_fd);

// Writes output and answer. On the executor's threads. The descriptors are still open.
void finish_request(peer_request_s *request, int sock_fd);

}  // namespace svc
