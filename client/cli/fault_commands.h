// Commands that rehearse failures on an agent that runs on the in-memory stand-in.

#pragma once

#include "client/cli/parser_command.h"

namespace nyxctl {

// fault add, fault list, fault clear
void add_fault_commands(CLI::App *app, context_s *context);

}  // namespace nyxctl
