// A debug command: from the request to the answer.

#pragma once

#include <cstdint>

#include "agent_api/debug_command.h"
#include "agent_api/sdk_ret.h"
#include "nyx/types/service.pb.h"

namespace svc {

struct command_s {
    bool is_answered = false;  // no other request is
    bool can_run = false;
    sdk::sdk_ret_t ret = sdk::SDK_RET_OK;  // what the request comes to: of the command when it has run
    cmd_ctxt_s ctxt = {};                  // without descriptors
};

// Any thread. Throws std::bad_alloc.
command_s to_command(const types::ServiceRequestMessage &request);

// Runs a command that can run, with the descriptors in its context. On the service request thread.
void run(command_s *command);

// Answers to `fd` with the status of the code, if the command is one that is answered. Waits for room up to half a
// second, and out of a budget of the calling thread, of which a fifth of the time that passes is refilled. An
// answer that can't be written is logged and lost. Any thread.
void answer(const command_s &command, int32_t fd);

}  // namespace svc
