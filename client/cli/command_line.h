// The command line: options, help texts, and which command runs.

#pragma once

#include "client/core/outcome.h"

namespace nyxctl {

// Reads the arguments of main() and runs the command they name, or prints help or version on stdout. What is
// wrong with them is a usage failure.
outcome_s run_command_line(int argc, char **argv);

}  // namespace nyxctl
