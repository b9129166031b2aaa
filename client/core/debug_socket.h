// One request over the agent's Unix domain socket, with the descriptor that the agent writes to.

#pragma once

#include <string>

#include "base/unique_fd.h"
#include "client/core/connect.h"
#include "client/core/outcome.h"
#include "nyx/types/service.pb.h"

namespace nyxctl {

// Sets `socket` to a connection to the agent. Failures: usage (a path that no socket can have), unreachable,
// deadline (the agent accepts no connections).
outcome_s debug_connect(const std::string &path, deadline_t deadline, base::unique_fd *socket);

// Sends the request in one piece and reads the answer to its end. The agent gets a pipe for its output, which is copied to
// `output_fd` when the exchange is over: a command that hangs does not keep the reader of our own output waiting, and a
// reader that is slow does not hold up the agent. `response` is set on success only, and then has an api_status of any
// number. Failures: deadline, and local when the agent closes without an answer, when its answer is not a
// types.ServiceResponseMessage, and when `output_fd` does not take the output. `output_fd` stays open and belongs to the
// caller.
outcome_s debug_exchange(const base::unique_fd &socket, const types::ServiceRequestMessage &request,
                         int output_fd, deadline_t deadline, types::ServiceResponseMessage *response);

}  // namespace nyxctl
