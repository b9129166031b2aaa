// The command line and the configuration file of nyx-agent.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent_api/trace_level.h"
#include "host/call_policy.h"
#include "sim/faults/faults.h"

namespace host {

struct tls_options_s {
    std::string cert_file;
    std::string key_file;
    std::string client_ca_file;  // empty: clients need no certificate
};

struct options_s {
    std::vector<std::string> grpc;  // each HOST:PORT or unix:PATH; clients of the latter have all roles
    std::string read_socket;        // path of a gRPC socket whose clients may only read; empty: none
    std::string socket;             // path of the service request socket
    std::string socket_group;       // empty: any user may connect there
    std::string sysconfig;          // folder of hostif_mac.json
    bool fault_service = false;     // serve nyx.FaultSvc
    bool reflection = false;
    sdk::types::trace_level_e trace_level = sdk::types::TRACE_LEVEL_INFO;
    unsigned log_limit = 10;           // lines a second of each call site; 0: no limit
    unsigned audit_limit = 1000;       // audit lines a second; 0: no limit
    std::optional<tls_options_s> tls;  // of TCP addresses; none: plaintext
    certificate_roles_s certificate_roles;
    bool check = false;  // of the configuration, instead of a start
    std::vector<sim::fault_s> faults;
    std::string scenario;  // name or file; empty: the card stands still
    uint64_t seed = 1;
    uint32_t speed = 1;
};

// Returns the options, or the exit code when there is nothing to run: after --help, or because of `error`.
struct parsed_s {
    std::optional<options_s> options;
    int exit_code;
    std::string error = {};
};
parsed_s parse_command_line(int argc, char **argv);

}  // namespace host
