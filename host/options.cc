#include "host/options.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>

#include "host/listener.h"
#include "sim/proto/fault_grammar.h"
#include "sim/scenario/running.h"
#include "sim/scenario/scenario_files.h"

namespace host {

namespace {

std::string footer() {
    return R"(
Faults, to rehearse failures:
)" + std::string(sim::k_fault_grammar) +
           R"(
Examples:
  --fault nyx_tbl_flow_create:code=6
      every entry of flowCreate fails with code 6
  --fault nyx_tbl_flow_create:code=6,chance=20
      one entry in five, the same ones in every run
  --fault nyx_tbl_flow_create:full=1000
      the table is full at 1000 entries
  --fault nyx_tbl_flow_info_read:code=4,key=07
      reads of keys that start with byte 07 fail
  --fault debug::nyx_handle_cmd:delay=300,every=2
      every second debug command takes 300 ms longer
  --fault nyx_if_read_all:code=10,walk=2
      each walk over all interfaces breaks after two

While the agent runs:
  nyxctl fault list --operations [TEXT]   what can fail
  nyxctl fault add SPEC, list, clear      add faults, count calls, remove faults

A configuration file has the names of the options, one to a line:
  grpc = ["unix:/run/nyx/grpc.sock", "0.0.0.0"]
  log-level = "info"
  reflection = true

Signals: SIGTERM and SIGINT stop the agent. SIGHUP reads the certificates and
the log level again; if something is wrong with them, the old ones stay.
Exit codes: 0 stopped, 1 failed to start or to serve, 2 invalid command line or
configuration.)";
}

const std::map<std::string, sdk::types::trace_level_e> k_levels = {
    {"none", sdk::types::TRACE_LEVEL_NONE},   {"error", sdk::types::TRACE_LEVEL_ERROR},
    {"warn", sdk::types::TRACE_LEVEL_WARN},   {"info", sdk::types::TRACE_LEVEL_INFO},
    {"debug", sdk::types::TRACE_LEVEL_DEBUG}, {"verbose", sdk::types::TRACE_LEVEL_VERBOSE}};

// What the options say that needs a second look once all are known.
struct raw_options_s {
    std::string level = "info";
    tls_options_s tls;
    std::vector<std::string> faults;
};

// An existing file or folder, without a second name for it in the help text.
CLI::Validator existing(const CLI::Validator &kind) { return CLI::Validator(kind).description(""); }

std::string check_level(const std::string &text) {
    return k_levels.contains(text)
               ? ""
               : "unknown level '" + text + "'; known: none, error, warn, info, debug, verbose";
}

std::string check_fault(const std::string &text) {
    try {
        sim::parse_fault(text);
        return {};
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
}

// The help is 80 columns wide, of which a text has 50: CLI11 does not break lines.
void add_service_options(CLI::App &app, options_s &options) {
    app.add_option("--grpc", options.grpc,
                   "Address of the gRPC server: unix:PATH, HOST or\n"
                   "HOST:PORT (port 0: any free one; none: " +
                       std::string(k_default_port) +
                       ").\n"
                       "Without TLS, HOST must be this machine's\n"
                       "loopback. May be given more than once")
        ->type_name("ADDRESS")
        ->take_all()
        ->capture_default_str();
    app.add_option("--read-socket", options.read_socket,
                   "Path of a second socket of the gRPC server, whose\n"
                   "clients may read and change nothing")
        ->type_name("PATH")
        ->capture_default_str();
    app.add_option("--socket", options.socket, "Path of the debug socket, at most 107 bytes")
        ->type_name("PATH")
        ->capture_default_str();
    app.add_option("--socket-group", options.socket_group,
                   "Let only this group reach the debug socket (mode\n"
                   "0660); otherwise any user who reaches the path")
        ->type_name("GROUP");
    app.add_option("--sysconfig", options.sysconfig,
                   "Folder of hostif_mac.json, which keeps the MAC\n"
                   "addresses of host interfaces")
        ->type_name("DIR")
        ->capture_default_str()
        ->check(existing(CLI::ExistingDirectory));
    app.add_flag("--fault-service", options.fault_service,
                 "Serve nyx.FaultSvc, which nyxctl fault uses.\n"
                 "Always served when all addresses are unix:PATH,\n"
                 "where file permissions decide who may connect");
    app.add_flag("--reflection", options.reflection,
                 "Serve gRPC reflection. Always served when all\n"
                 "addresses are unix:PATH");
}

void add_log_options(CLI::App &app, options_s &options, std::string &level) {
    app.add_option("--log-level", level,
                   "What to log to stderr: none, error, warn, info,\n"
                   "debug or verbose")
        ->type_name("LEVEL")
        ->check(check_level)
        ->capture_default_str();
    app.add_option("--log-limit", options.log_limit,
                   "Most lines per second that each place in the\n"
                   "code may log; 0: no limit")
        ->type_name("LINES")
        ->capture_default_str();
    app.add_option("--audit-limit", options.audit_limit,
                   "Most audit lines per second, which say who\n"
                   "changed what; 0: no limit")
        ->type_name("LINES")
        ->capture_default_str();
}

void add_tls_options(CLI::App &app, tls_options_s &tls, certificate_roles_s &roles) {
    auto *cert = app.add_option("--tls-cert", tls.cert_file,
                                "Certificate chain of the gRPC server, PEM.\n"
                                "Encrypts; does not restrict who may connect");
    auto *key = app.add_option("--tls-key", tls.key_file, "Private key of the gRPC server, PEM");
    auto *client_ca = app.add_option("--tls-client-ca", tls.client_ca_file,
                                     "Serve only clients with a certificate from this\n"
                                     "CA, PEM");
    for (auto *file : {cert, key, client_ca}) {
        file->type_name("FILE")->check(existing(CLI::ExistingFile));
    }
    cert->needs(key);
    key->needs(cert);
    client_ca->needs(cert);
    app.add_option("--tls-operate", roles.operate,
                   "Name of a client's certificate (CN or subject\n"
                   "alternative name) with the role operate. If this\n"
                   "or --tls-rehearse is given, others may only read.\n"
                   "Both may be given more than once")
        ->type_name("NAME")
        ->needs(client_ca);
    app.add_option("--tls-rehearse", roles.rehearse, "The same for the role rehearse: nyxctl fault")
        ->type_name("NAME")
        ->needs(client_ca);
}

void add_config_options(CLI::App &app, options_s &options) {
    app.set_config("--config", NYX_DEFAULT_CONFIG,
                   "File with options, in TOML. Options of the command\n"
                   "line win")
        ->type_name("FILE");
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.add_flag("--check", options.check,
                 "Check options, configuration and certificates,\n"
                 "and do nothing else")
        ->configurable(false);
}

void add_fault_option(CLI::App &app, std::vector<std::string> &faults) {
    app.add_option("--fault", faults,
                   "Make an operation of the stand-in fail or take\n"
                   "longer, as described below; may be given more\n"
                   "than once")
        ->type_name("SPEC")
        ->check(check_fault);
}

std::string check_scenario(const std::string &name_or_file) {
    try {
        sim::load_scenario(name_or_file);
        return {};
    } catch (const std::exception &error) {
        return error.what();
    }
}

void add_scenario_options(CLI::App &app, options_s &options) {
    app.add_option("--scenario", options.scenario,
                   "Let the card live: counters move, links flap.\n"
                   "Name of a scenario (nyxctl scenario list has\n"
                   "them) or file, with a slash or dot in its name")
        ->type_name("NAME")
        ->check(check_scenario);
    app.add_option("--seed", options.seed, "The same seed gives the same card at the same\nvirtual time")
        ->type_name("NUMBER")
        ->capture_default_str();
    app.add_option("--speed", options.speed,
                   "Seconds of the scenario in a second; 0: only\n"
                   "nyxctl scenario advance moves its clock")
        ->type_name("TIMES")
        ->check(CLI::Range(uint32_t{0}, sim::k_max_speed).description(""))
        ->capture_default_str();
}

void finish(const raw_options_s &raw, options_s *options) {
    options->trace_level = k_levels.at(raw.level);
    if (!raw.tls.cert_file.empty()) {
        options->tls = raw.tls;
    }
    for (const auto &fault : raw.faults) {
        options->faults.push_back(sim::parse_fault(fault));
    }
    const bool guarded = std::ranges::all_of(
        options->grpc, [](const std::string &address) { return address.starts_with("unix:"); });
    options->fault_service = options->fault_service || guarded;
    options->reflection = options->reflection || guarded;
}

}  // namespace

parsed_s parse_command_line(int argc, char **argv) {
    CLI::App app(
        "The dataplane agent on an in-memory stand-in for its card: serves gRPC and the\n"
        "debug socket.",
        "nyx-agent");
    options_s options;
    options.grpc = {NYX_DEFAULT_GRPC};
    options.socket = NYX_DEFAULT_SOCKET;
    options.sysconfig = "/sysconfig/config0";
    raw_options_s raw;
    add_service_options(app, options);
    add_log_options(app, options, raw.level);
    add_tls_options(app, raw.tls, options.certificate_roles);
    add_config_options(app, options);
    add_fault_option(app, raw.faults);
    add_scenario_options(app, options);
    app.set_version_flag("--version", NYX_VERSION);
    app.footer(footer());
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) {  // --help and --version
            return {.options = {}, .exit_code = app.exit(error)};
        }
        return {.options = {}, .exit_code = 2, .error = error.what()};
    }
    finish(raw, &options);
    return {.options = std::move(options), .exit_code = 0};
}

}  // namespace host
