// Parts of the measurement that need a process of their own: this program runs itself with --part NAME [ARGUMENT]...
//
// Servers and clients are such parts. All servers and clients of one process poll through one set of descriptors, and
// which of them come off well depends on the order in which they connected.

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Runs the part in this process: each line of input is a question, answered with a number. The exit code.
int run_part(const std::string &name, const std::vector<std::string> &arguments);

// Asks a part, given with its arguments. It is started with its first question, and runs on until the program ends.
double ask(const std::string &part, const std::string &question);

// Asks a part that runs for this question alone, with these environment variables.
double ask_once(const std::string &part, const std::string &environment = "");

}  // namespace bench
