// Completion of command lines in the shell.

#pragma once

#include <string>
#include <vector>

#include "client/cli/parser_command.h"

namespace nyxctl {

// Adds "completion bash", which prints a script for the shell, and the hidden "__complete WORD...", which the script
// asks for what can stand at the place of the last WORD.
void add_completion_commands(CLI::App *app, context_s *context);

// What can stand at the place of the last of the words behind the program's name, which may be empty or a beginning:
// commands, options, and names out of the descriptors, in alphabetical order. What ends in '=', '.' or '[0]' wants to
// be continued without a blank. Needs no agent.
std::vector<std::string> completions(const CLI::App *app, std::vector<std::string> words);

}  // namespace nyxctl
