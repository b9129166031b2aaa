#include "client/cli/commands.h"

namespace nyxctl {
namespace {

constexpr char k_footer[] = R"(Options may come before or after the command.

Examples:
  nyxctl status
  nyxctl show ports
  nyxctl watch sessions 0 100 --rates
  nyxctl table add registered_mac k1=00:1a:2b:3c:4d:5e k2=100 d1=1
  nyxctl set port 1 number_a=1500
  nyxctl list
  nyxctl describe flowCreate
  nyxctl call flow_infoCreate request[0].key.k1=7
  nyxctl call nyx.NyxTblSvc/flowCreate @entries.json --timeout 60
  nyxctl debug tables

Exit codes:
  0   done
  1   local failure: a file, the output, or the agent closed the connection
      without an answer; diff: the files differ; status: something is degraded
  2   wrong command line or JSON; nothing was sent
  3   no agent reachable; nothing was sent
  4   no answer within --timeout
  5   the agent answered, and an api_status is not API_STATUS_OK
  64+ gRPC status of the call plus 64: 76 for UNIMPLEMENTED (12), 78 when the
      connection was lost and the agent may have carried out the request)";

command_s program() {
    argument_s grpc = {"--grpc", "Address of the agent's gRPC server, HOST:PORT or unix:PATH"};
    grpc.shown = "ADDRESS";
    grpc.initial = NYX_DEFAULT_GRPC;
    grpc.variable = "NYX_GRPC";
    argument_s socket = {"--socket", "Path of the agent's socket for debug commands", KIND_FILE};
    socket.shown = "PATH";
    socket.initial = NYX_DEFAULT_SOCKET;
    socket.variable = "NYX_SOCKET";
    argument_s certificate = {"--tls-cert", "Certificate to present to the agent", KIND_FILE};
    certificate.needs = {"--tls-ca", "--tls-key"};
    argument_s key = {"--tls-key", "Private key of --tls-cert", KIND_FILE};
    key.needs = {"--tls-cert"};
    return {
        "",
        "Client of the dataplane agent: views, settings, gRPC and debug commands.",
        k_footer,
        {grpc,
         socket,
         {"--timeout", "How long to wait for the agent", KIND_SECONDS, COUNT_ONE, "", {}, 0.001, 1e6, "10"},
         {"-j,--json", "Results as one JSON document, failures as one JSON object on stderr", KIND_FLAG},
         {"--tls-ca", "Use TLS and trust these certificates", KIND_FILE},
         certificate,
         key}};
}

}  // namespace

commands_t all_commands() {
    commands_t all = {program()};
    for (const auto group : {status_commands, view_commands, snapshot_commands, setting_commands,
                             interface_commands, table_commands, record_commands, call_commands,
                             debug_commands, fault_commands, completion_commands}) {
        const commands_t commands = group();
        all.insert(all.end(), commands.begin(), commands.end());
    }
    return all;
}

global_options_s global_options(const given_s &given) {
    return {.grpc = given.one("--grpc"),
            .socket = given.one("--socket"),
            .timeout_seconds = given.seconds("--timeout"),
            .tls_ca = given.one("--tls-ca"),
            .tls_cert = given.one("--tls-cert"),
            .tls_key = given.one("--tls-key"),
            .json = given.has("--json")};
}

}  // namespace nyxctl
