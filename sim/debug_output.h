// Writes the text of a debug command to the requester's descriptor.

#pragma once

#include <string_view>

#include "agent_api/sdk_ret.h"

namespace sim {

// Writes all of `text` to `fd`, which may be a file, a terminal, a pipe or a socket that its peer does not
// read: gives up after a fifth of a second, so that the thread's heartbeat does not suffer.
//
// SDK_RET_INVALID_ARG: no descriptor, or one that text can't be written to. SDK_RET_COMMUNICATION_FAILURE: the reader
// has gone. SDK_RET_OPERATION_TIMED_OUT: the reader does not read. SDK_RET_GENERIC_ERROR: any other failure,
// such as a full disk. Some of the text may be written then.
sdk::sdk_ret_t write_output(int fd, std::string_view text);

}  // namespace sim
