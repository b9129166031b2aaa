// One look at whether an agent is all right.

#pragma once

#include "client/cli/parser_command.h"

namespace nyxctl {

// status
void add_status_command(CLI::App *app, context_s *context);

}  // namespace nyxctl
