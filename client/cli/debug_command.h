// The parts of a debug command that come from the command line.

#pragma once

#include <string>

#include "client/core/options.h"
#include "client/core/outcome.h"
#include "nyx/types/service.pb.h"

namespace nyxctl {

// The names of nyx.Command as debug_command_number() takes them: "none, help, tables, ...".
std::string debug_command_names();

// Sets `number` to a number of 0 to 2147483647 or to that of a name of nyx.Command, whatever its case, with
// '-' or '_', with or without COMMAND_. Anything else is a usage failure that lists the names.
outcome_s debug_command_number(const std::string &text, int *number);

// Sets `request` to the message for the command and its arguments. Usage failures: command, type and JSON of
// the arguments; local failures: the file with the JSON.
outcome_s build_debug_request(const debug_options_s &options, types::ServiceRequestMessage *request);

}  // namespace nyxctl
