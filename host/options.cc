#include "host/options.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <map>
#include <stdexcept>
#include <string>

#include "sim/proto/fault_grammar.h"

namespace host {

namespace {

std::string footer() {
    return R"(
Faults, to rehearse failures (--fault may be given more than once):
)" + std::string(sim::k_fault_grammar) +
           R"(
Examples:
  --fault nyx_tbl_flow_create:code=6              every flowCreate entry fails with code 6
  --fault nyx_tbl_flow_create:code=6,nth=3        only the third one
  --fault nyx_tbl_flow_create:code=6,chance=20    one in five, the same ones in every run
  --fault nyx_tbl_flow_create:full=1000           a table that is full at 1000 entries
  --fault nyx_tbl_flow_info_read:code=4,key=07    reads of keys that start with byte 07
  --fault debug::nyx_handle_cmd:delay=300,every=2 every second debug command takes 300 ms longer
  --fault nyx_if_read_all:code=10,walk=2          a walk over all interfaces breaks after two
  --fault nyx_flow_summary_get:code=3             a device mode without a flow summary

While the agent runs:
  nyxctl fault list --operations [TEXT]           what can fail
  nyxctl fault add SPEC, list, clear              arm faults, see what they struck, remove them

Exit codes: 0 stopped by SIGTERM or SIGINT, 1 could not start or serve, 2 bad command line.)";
}

constexpr const char *k_address_help =
    "Address of the gRPC server: HOST:PORT (port 0: any free one) or unix:PATH. Without TLS only "
    "addresses that this machine alone can reach";

const std::map<std::string, sdk::types::trace_level_e> k_levels = {
    {"none", sdk::types::TRACE_LEVEL_NONE},   {"error", sdk::types::TRACE_LEVEL_ERROR},
    {"warn", sdk::types::TRACE_LEVEL_WARN},   {"info", sdk::types::TRACE_LEVEL_INFO},
    {"debug", sdk::types::TRACE_LEVEL_DEBUG}, {"verbose", sdk::types::TRACE_LEVEL_VERBOSE}};

// An existing file or folder, without a second name for it in the help text.
CLI::Validator existing(const CLI::Validator &kind) { return CLI::Validator(kind).description(""); }

void add_tls_options(CLI::App &app, tls_options_s &tls) {
    auto *cert = app.add_option("--tls-cert", tls.cert_file, "Certificate chain of the gRPC server, PEM");
    auto *key = app.add_option("--tls-key", tls.key_file, "Private key of the gRPC server, PEM");
    auto *client_ca = app.add_option("--tls-client-ca", tls.client_ca_file,
                                     "Only serve clients with a certificate of this CA, PEM");
    for (auto *file : {cert, key, client_ca}) {
        file->type_name("FILE")->check(existing(CLI::ExistingFile));
    }
    cert->needs(key);
    key->needs(cert);
    client_ca->needs(cert);
}

std::string check_level(const std::string &text) {
    return k_levels.contains(text)
               ? ""
               : "'" + text + "' is unknown, allowed are none, error, warn, info, debug and verbose";
}

std::string check_fault(const std::string &text) {
    try {
        sim::parse_fault(text);
        return {};
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
}

}  // namespace

parsed_s parse_command_line(int argc, char **argv) {
    CLI::App app(
        "The dataplane agent on an in-memory stand-in for its card: serves gRPC and the debug socket.",
        "nyx-agent");
    options_s options = {.grpc = NYX_DEFAULT_GRPC,
                         .socket = NYX_DEFAULT_SOCKET,
                         .sysconfig = "/sysconfig/config0",
                         .trace_level = {},
                         .tls = {},
                         .faults = {}};
    tls_options_s tls;
    std::vector<std::string> faults;
    app.add_option("--grpc", options.grpc, k_address_help)->type_name("ADDRESS")->capture_default_str();
    app.add_option("--socket", options.socket, "Path of the debug socket, at most 107 bytes")
        ->type_name("PATH")
        ->capture_default_str();
    auto *sysconfig =
        app.add_option("--sysconfig", options.sysconfig,
                       "Folder of hostif_mac.json, where host interface MAC addresses are kept");
    sysconfig->type_name("DIR")->capture_default_str()->check(existing(CLI::ExistingDirectory));
    std::string level = "info";
    app.add_option("--log-level", level,
                   "What is logged to stderr: none, error, warn, info, debug or verbose")
        ->type_name("LEVEL")
        ->check(check_level)
        ->capture_default_str();
    add_tls_options(app, tls);
    app.add_option(
           "--fault", faults,
           "Let an operation of the stand-in fail or be slow: OPERATION:code=CODE or OPERATION:delay=MS")
        ->type_name("SPEC")
        ->check(check_fault);
    app.set_version_flag("--version", NYX_VERSION);
    app.footer(footer());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) {  // --help and --version
            return {.options = {}, .exit_code = app.exit(error)};
        }
        fmt::print(stderr, "nyx-agent: {}; see nyx-agent --help\n", error.what());
        return {.options = {}, .exit_code = 2};
    }
    options.trace_level = k_levels.at(level);
    if (!tls.cert_file.empty()) {
        options.tls = tls;
    }
    for (const auto &fault : faults) {
        options.faults.push_back(sim::parse_fault(fault));
    }
    return {.options = std::move(options), .exit_code = 0};
}

}  // namespace host
