// The short commands set, add, del and clear: calls where a person would otherwise type JSON.

#pragma once

#include "client/cli/parser_command.h"

namespace nyxctl {

void add_alias_commands(CLI::App *app, context_s *context);

}  // namespace nyxctl
