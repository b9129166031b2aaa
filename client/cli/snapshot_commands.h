// Everything that can be read, in one document, and what changed between two of them.

#pragma once

#include "client/cli/parser_command.h"

namespace nyxctl {

void add_snapshot_commands(CLI::App *app, context_s *context);

}  // namespace nyxctl
