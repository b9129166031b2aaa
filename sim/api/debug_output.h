// Writes the text of a debug command to the requester's descriptor.

#pragma once

#include <string_view>

#include "agent_api/sdk_ret.h"

namespace sim {

// Writes all of `text` to `fd`, which may be a file, a terminal, a pipe or a socket that its peer does not read. No
// write blocks, and all outputs together are waited for a fifth of the thread's time at most, so that its heartbeat does
// not suffer: one that takes nothing is given up after 200 ms, and sooner behind others of its kind.
//
// SDK_RET_INVALID_ARG: no descriptor, one that text can't be written to, or a terminal that the agent may not open. SDK_RET_COMMUNICATION_FAILURE: the reader
// has gone. SDK_RET_OPERATION_TIMED_OUT: the reader does not read. SDK_RET_GENERIC_ERROR: any other failure,
// such as a full disk. Some of the text may be written then.
sdk::sdk_ret_t write_output(int fd, std::string_view text);

}  // namespace sim
