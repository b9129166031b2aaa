// The commands of nyxctl, one function each: they do the work, print the result on stdout and return how it
// ended, with the text for stderr.

#pragma once

#include <string>

#include "client/core/options.h"
#include "client/core/outcome.h"

namespace nyxctl {

// Prints the service of that name and its methods, or all services when it is empty.
outcome_s run_list(const global_options_s &global, const std::string &service);

// Prints the definition of a service, method, message or enumeration.
outcome_s run_describe(const global_options_s &global, const std::string &symbol);

// Prints a request with all fields at their defaults for a message or method, and its choices on stderr, for people.
outcome_s run_template(const global_options_s &global, const std::string &symbol);

// Calls a method and prints the response as JSON, also when an api_status in it is not API_STATUS_OK.
outcome_s run_call(const global_options_s &global, const call_options_s &options);

// Sends a debug command. The agent itself writes to stdout or to the output file, which is emptied once the
// agent is connected; the status goes to stderr.
outcome_s run_debug(const global_options_s &global, const debug_options_s &options);

}  // namespace nyxctl
