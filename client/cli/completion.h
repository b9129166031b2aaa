// What the shell offers for a command line that is not finished.

#pragma once

#include <span>
#include <string>
#include <vector>

#include "client/cli/command.h"

namespace nyxctl {

// Printed instead of names where a file is wanted: the shell knows those.
constexpr char k_files[] = ":files";

// What fits in the place of the last word, which may be empty or a beginning: commands, options, choices, and names from
// the descriptors, in alphabetical order. `words` follow the program's name. What ends in '=', '.' or '[0]' is to be
// continued without a blank. Only names of objects, which are KIND_ID with their kind as choice, come from the agent.
std::vector<std::string> completions(const commands_t &commands, std::span<const std::string> words);

}  // namespace nyxctl
