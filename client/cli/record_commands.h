// Commands about the records of P4 tables; none needs an agent.

#pragma once

#include <CLI/CLI.hpp>

#include "client/cli/parser_command.h"

namespace nyxctl {

// explain, encode and decode.
void add_record_commands(CLI::App *app, context_s *context);

}  // namespace nyxctl
