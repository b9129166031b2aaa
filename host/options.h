// The command line of nyx-agent.

#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent_api/trace_level.h"
#include "sim/faults/faults.h"

namespace host {

struct tls_options_s {
    std::string cert_file;
    std::string key_file;
    std::string client_ca_file;  // empty: clients need no certificate
};

struct options_s {
    std::string grpc;       // HOST:PORT or unix:PATH
    std::string socket;     // path of the service request socket
    std::string sysconfig;  // folder of hostif_mac.json
    sdk::types::trace_level_e trace_level;
    std::optional<tls_options_s> tls;  // none: plaintext
    std::vector<sim::fault_s> faults;
};

// Returns the options, or the exit code for the process when there is nothing to run: after --help, or after
// a complaint about the command line on stderr.
struct parsed_s {
    std::optional<options_s> options;
    int exit_code;
};
parsed_s parse_command_line(int argc, char **argv);

}  // namespace host
