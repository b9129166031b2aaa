// Parts of the measurement that need a process of their own: this program runs itself with --part NAME [ARGUMENT]...
//
// Servers and clients are such parts. Within one process, all servers and clients poll through one set of descriptors, and
// their speed depends on the order in which they connected.

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace bench {

// Runs the part in this process: each line of input is a question, answered with a number. Returns the exit code.
int run_part(const std::string &name, const std::vector<std::string> &arguments);

// Asks a part, given with its arguments. Its first question starts it; it runs until the program ends.
double ask(const std::string &part, const std::string &question);

// Asks a part that runs only for this question, with these environment variables.
double ask_once(const std::string &part, const std::string &environment = "");

// Memory of a process by a line of its /proc/PID/status: "VmRSS", "VmHWM". 0 once it has ended.
double status_mib(const std::string &name, const std::string &process = "self");

}  // namespace bench
