#include "client/cli/commands.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>

#include "base/text.h"
#include "client/core/labels.h"

namespace nyxctl {
namespace {

constexpr char k_footer[] = R"(Options may come before or after the command.

Examples:
  nyxctl health
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
      without an answer; diff: there are differences; health: degraded
  2   wrong command line or JSON; nothing was sent; health: failed
  3   no agent reachable; nothing was sent
  4   no answer within --timeout
  5   the agent answered, and an api_status is not API_STATUS_OK
  6   table: a part of the entries was sent; then Ctrl-C, a lost agent or a
      wrong line ended it, or --keep-going passed over wrong lines
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
    argument_s ca = {"--tls-ca", "Use TLS over TCP and trust these certificates", KIND_FILE};
    ca.variable = "NYX_TLS_CA";
    argument_s certificate = {"--tls-cert", "Certificate to present to the agent", KIND_FILE};
    certificate.needs = {"--tls-ca", "--tls-key"};
    certificate.variable = "NYX_TLS_CERT";
    argument_s key = {"--tls-key", "Private key of --tls-cert", KIND_FILE};
    key.needs = {"--tls-cert"};
    key.variable = "NYX_TLS_KEY";
    argument_s labels_option = {
        "--labels",
        "Names, units and texts of values: \"json\" adds them to JSON, \"none\" uses none, a "
        "file adds its own; see nyxctl labels",
        KIND_FILE, COUNT_EACH, "json|none|FILE"};
    labels_option.choices = {"json", "none"};
    labels_option.variable = "NYX_LABELS";
    return {
        "",
        "Client of the dataplane agent: views, settings, gRPC and debug commands.",
        k_footer,
        {grpc,
         socket,
         {"--timeout", "How long to wait for the agent", KIND_SECONDS, COUNT_ONE, "", {}, 0.001, 1e6, "10"},
         {"-j,--json", "Results as one JSON document, failures as one JSON object on stderr", KIND_FLAG},
         ca,
         certificate,
         key,
         labels_option}};
}

}  // namespace

commands_t all_commands() {
    commands_t all = {program()};
    for (const auto group :
         {health_commands, view_commands, snapshot_commands, metrics_commands, setting_commands,
          interface_commands, table_commands, record_commands, labels_commands, call_commands, debug_commands,
          fault_commands, scenario_commands, completion_commands}) {
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
            .json = given.has("--json"),
            .json_texts = std::ranges::count(given.all("--labels"), "json") > 0};
}

outcome_s choose_labels(const given_s &given) {
    std::vector<std::string> sources;
    const auto &words = given.all("--labels");
    if (std::ranges::count(words, "none") == 0) {
        // Beside the program, wherever the prefix stands.
        std::error_code error;
        const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
        sources = {program.parent_path().parent_path() / "share/svc_quill/labels.d/", "/etc/nyx/labels.d/"};
    }
    const auto is_file = [](const std::string &word) { return word != "json" && word != "none"; };
    std::ranges::copy_if(words, std::back_inserter(sources), is_file);
    use_labels(std::move(sources));
    const bool names_files = std::ranges::any_of(words, is_file);
    const auto problems = names_files ? (void(labels()), labels_problems()) : std::vector<std::string>();
    return problems.empty() ? outcome_s() : usage_failure(problems.front());
}

void note_labels_problems(const given_s &given) {
    const auto problems = labels_problems();
    if (!problems.empty() && !given.global.json) {
        std::cerr << "nyxctl: note: " << base::without_controls(problems.front())
                  << "; see nyxctl labels check\n";
    }
}

}  // namespace nyxctl
