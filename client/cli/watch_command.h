// A view again and again.

#pragma once

#include "client/cli/parser_command.h"

namespace nyxctl {

void add_watch_command(CLI::App *app, context_s *context);

}  // namespace nyxctl
