// Commands about P4 tables: their records, and their entries in the agent.

#pragma once

#include <CLI/CLI.hpp>

#include "client/cli/parser_command.h"

namespace nyxctl {

// explain, encode and decode, which need no agent, and table add|update|del|get.
void add_table_commands(CLI::App *app, context_s *context);

}  // namespace nyxctl
