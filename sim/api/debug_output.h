// Writes the text of a debug command to the requester's descriptor.

#pragma once

#include <string_view>

#include "agent_api/sdk_ret.h"

namespace sim {

// Writes all of `text` to `fd`, which may be a file, a pipe or a socket, also one whose peer does not read. Waits for
// all outputs together at most a fifth of the thread's time: an output that takes nothing is given up after 200 ms,
// and sooner when others were waited for just before. Writing to a file waits for the file system.
//
// SDK_RET_INVALID_ARG: no descriptor, one that text can't be written to, or a terminal.
// SDK_RET_COMMUNICATION_FAILURE: the reader has gone. SDK_RET_OPERATION_TIMED_OUT: the reader does not read.
// SDK_RET_GENERIC_ERROR: any other failure, such as a full disk. Some of the text may be written then.
sdk::sdk_ret_t write_output(int fd, std::string_view text);

}  // namespace sim
