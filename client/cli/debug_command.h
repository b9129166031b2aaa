// The request of a debug command.

#pragma once

#include <string>
#include <vector>

#include "client/core/outcome.h"
#include "nyx/types/service.pb.h"

namespace nyxctl {

// Sets `request` to the message for a command and its arguments. `command` is a number of 0 to 2147483647 or a name of
// nyx.Command in any case, with '-' or '_', with or without COMMAND_. `args` is empty, or a message type and its JSON,
// "@FILE" or "-". Usage failures: command, type and JSON; local failures: the file with the JSON.
outcome_s build_debug_request(const std::string &command, const std::vector<std::string> &args,
                              types::ServiceRequestMessage *request);

}  // namespace nyxctl
