// The output of a debug command on its way to the peer's descriptor.
//
// All of it may wait for the peer, so it belongs on the executor's threads, except make_output().

#pragma once

#include <sys/types.h>

#include "agent_api/sdk_ret.h"
#include "base/unique_fd.h"

namespace svc {

// What a command writes to instead of the peer's descriptor. Writing to it never waits.
struct command_output_s {
    base::unique_fd writer;  // a file in memory, or the end of a pipe
    base::unique_fd reader;  // of a pipe
};

// Takes 64 MiB at most, or 1 MiB where the process may not write files of that size. Without a writer, and errno, when
// there is none to be had.
command_output_s make_output();

// Whether a peer of this user may have output written to `fd`. Any kind of descriptor for root and the agent's
// own user; of others pipes, sockets, regular files, terminals, /dev/null, /dev/zero and /dev/full.
bool may_take_output(int fd, uid_t uid);

// Copies all that was written; nothing can be written any more. Gives up when `to` takes nothing for half a second;
// regular files and some devices are waited for as long as they like, and so is a terminal with room for one byte
// when a line ends.
//
// SDK_RET_INVALID_ARG: a descriptor that can't be written to. SDK_RET_COMMUNICATION_FAILURE: the reader has gone.
// SDK_RET_OPERATION_TIMED_OUT: the reader does not read. SDK_RET_GENERIC_ERROR: any other failure, such as a full
// disk. A part may be written then.
sdk::sdk_ret_t copy_output(command_output_s *output, int to);

}  // namespace svc
