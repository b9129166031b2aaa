// The output of a debug command on its way to the peer's descriptor.
//
// All of it may wait for the peer, so it belongs on the executor's threads, except make_output_file().

#pragma once

#include <sys/types.h>

#include "agent_api/sdk_ret.h"
#include "base/unique_fd.h"

namespace svc {

// A file in memory that takes 64 MiB at most; none, and errno, when there is none to be had. Writing to it never
// waits.
base::unique_fd make_output_file();

// Whether a peer of this user may have output written to `fd`. Any kind of descriptor for root and the agent's
// own user; of others pipes, sockets, regular files, terminals, /dev/null, /dev/zero and /dev/full.
bool may_take_output(int fd, uid_t uid);

// Copies what was written to `from` since it was made. Gives up when `to` takes nothing for half a second;
// regular files and some devices are waited for as long as they like.
//
// SDK_RET_INVALID_ARG: a descriptor that can't be written to. SDK_RET_COMMUNICATION_FAILURE: the reader has gone.
// SDK_RET_OPERATION_TIMED_OUT: the reader does not read. SDK_RET_GENERIC_ERROR: any other failure, such as a full
// disk. A part may be written then.
sdk::sdk_ret_t copy_output(int from, int to);

}  // namespace svc
