#include "client/command_line.h"

#include <sstream>

#include "client/command.h"
#include "client/commands.h"
#include "client/debug_command.h"
#include "client/nearest.h"
#include "client/text_io.h"

namespace nyxctl {
namespace {

constexpr double k_timeout_seconds_max = 1e6;

constexpr char k_footer[] = R"(Options may stand before or after the command.

Examples:
  nyxctl list
  nyxctl describe flowCreate
  nyxctl call flowGet '{"key": [{"k1": "2001:db8::1", "k13": "2001:db8::2"}]}'
  nyxctl call nyx.NyxTblSvc/flowCreate @entries.json --timeout 60
  nyxctl debug tables

Exit codes:
  0   done
  1   local failure: a file, the output, or the agent closed without an answer
  2   wrong command line or JSON; nothing was sent
  3   no agent reachable; nothing was sent
  4   no answer within --timeout
  5   the agent answered, and an api_status is not API_STATUS_OK
  64+ gRPC status of the call plus 64: 76 for UNIMPLEMENTED (12), 78 when the connection
      was lost and the agent may have carried the request out)";

constexpr char k_call_footer[] =
    R"(METHOD is a full name or an ending of it in whole parts: nyx.NyxTblSvc/flowCreate or flowCreate.
JSON is a JSON object, @FILE, or - for stdin; without it the request is empty.
Bytes are hex digits ("00a1ff", "00:a1:ff"), MAC, IPv6 or UUID text where the field holds one, or
"base64:" and base64.

Example:
  nyxctl call flowGet '{"key": [{"k1": "2001:db8::1"}]}')";

constexpr char k_debug_footer[] =
    R"(COMMAND is a number or a name of nyx.Command in either spelling, tables or COMMAND_TABLES.
The command's output goes to stdout or FILE, its status to stderr.

Examples:
  nyxctl debug tables -o tables.txt
  nyxctl debug interrupt-dump --args IntrDumpArgs '{"selector": 1}')";

struct command_line_s : context_s {
    std::string service;
    std::string symbol;
    call_options_s call;
    debug_options_s debug;
};

std::string check_timeout(const std::string &text) {
    double seconds = 0;
    const bool fits =
        CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds <= k_timeout_seconds_max;
    return fits ? "" : "\"" + text + "\" is no timeout; give seconds above 0 and up to 1000000, such as 2.5";
}

void add_globals(CLI::App *app, global_options_s *options) {
    app->add_option("--grpc", options->grpc, "Address of the agent's gRPC server, HOST:PORT or unix:PATH")
        ->envname("NYX_GRPC")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app->add_option("--socket", options->socket, "Path of the agent's socket for debug commands")
        ->envname("NYX_SOCKET")
        ->type_name("PATH")
        ->capture_default_str();
    app->add_option("--timeout", options->timeout_seconds, "How long to wait for the agent")
        ->type_name("SECONDS")
        ->check(check_timeout)
        ->capture_default_str();
    app->add_flag("-j,--json", options->json,
                  "Results as one JSON document, and failures as one JSON object on stderr");
    auto *ca = app->add_option("--tls-ca", options->tls_ca, "Use TLS and trust these certificates")
                   ->type_name("FILE");
    auto *cert = app->add_option("--tls-cert", options->tls_cert, "Certificate to show to the agent")
                     ->type_name("FILE");
    auto *key =
        app->add_option("--tls-key", options->tls_key, "Private key of --tls-cert")->type_name("FILE");
    cert->needs(ca)->needs(key);
    key->needs(cert);
}

void add_list(CLI::App *app, command_line_s *line) {
    CLI::App *command = add_command(app, "list", "List services and their methods; needs no agent",
                                    "Example:\n  nyxctl list NyxTblSvc");
    command->add_option("SERVICE", line->service, "Full name or an ending of it; without it all services");
    command->callback([line] { line->run = [line] { return run_list(line->service); }; });
}

void add_describe(CLI::App *app, command_line_s *line) {
    CLI::App *command =
        add_command(app, "describe", "Show a service, method, message or enum; needs no agent",
                    "Example:\n  nyxctl describe flow_key_t");
    command->add_option("SYMBOL", line->symbol, "Full name or an ending of it")->required();
    command->callback([line] { line->run = [line] { return run_describe(line->symbol); }; });
}

void add_call(CLI::App *app, command_line_s *line) {
    CLI::App *command = add_command(app, "call", "Call a gRPC method with JSON", k_call_footer);
    command->add_option("METHOD", line->call.method, "The method")->required();
    command->add_option("JSON", line->call.json, "The request")->type_name("[JSON|@FILE|-]");
    command->callback([line] { line->run = [line] { return run_call(line->global, line->call); }; });
}

void add_debug(CLI::App *app, command_line_s *line) {
    CLI::App *command = add_command(app, "debug", "Send a debug command over the agent's socket",
                                    k_debug_footer + ("\n\nCommands:\n  " + debug_command_names()));
    command->add_option("COMMAND", line->debug.command, "The command")->required();
    command->add_option("--args", line->debug.args, "Message type of the arguments, and JSON, @FILE or -")
        ->type_name("TYPE JSON")
        ->expected(2)
        ->allow_extra_args(false);
    command->add_option("-o,--output", line->debug.output, "Write to this file")->type_name("FILE");
    command->callback([line] { line->run = [line] { return run_debug(line->global, line->debug); }; });
}

std::string parse_error_text(const CLI::App &app, const CLI::ParseError &error) {
    const std::vector<std::string> unknown = app.remaining();
    if (!app.get_subcommands().empty() || unknown.empty()) {
        return error.what();
    }
    std::vector<std::string> names;
    for (const CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; })) {
        names.push_back(command->get_name());
    }
    return "unknown command or option \"" + unknown.front() + "\"" +
           nearest_names_text(unknown.front(), names);
}

// Help and version leave the parser as exceptions too, with exit code 0.
outcome_s parse_error(const CLI::App &app, const CLI::ParseError &error) {
    if (error.get_exit_code() != 0) {
        return usage_failure(parse_error_text(app, error) + "; see nyxctl --help");
    }
    std::ostringstream out;
    std::ostringstream err;
    app.exit(error, out, err);
    return write_stdout(out.str());
}

}  // namespace

outcome_s run_command_line(int argc, char **argv) {
    command_line_s line;
    CLI::App app("Client of the dataplane agent: any gRPC method with JSON, and debug commands.", "nyxctl");
    app.set_version_flag("--version", std::string("nyxctl ") + NYX_VERSION);
    app.footer(k_footer);
    app.require_subcommand(1);
    add_globals(&app, &line.global);
    add_list(&app, &line);
    add_describe(&app, &line);
    add_call(&app, &line);
    add_debug(&app, &line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return parse_error(app, error);
    }
    return line.run();
}

}  // namespace nyxctl
