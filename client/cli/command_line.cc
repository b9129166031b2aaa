#include "client/cli/command_line.h"

#include <sstream>

#include "base/nearest_names.h"
#include "client/cli/alias_commands.h"
#include "client/cli/command.h"
#include "client/cli/commands.h"
#include "client/cli/completion_command.h"
#include "client/cli/debug_command.h"
#include "client/cli/fault_commands.h"
#include "client/cli/show_commands.h"
#include "client/cli/snapshot_commands.h"
#include "client/cli/status_command.h"
#include "client/cli/table_commands.h"
#include "client/cli/watch_command.h"
#include "client/core/field_words.h"
#include "client/core/text_io.h"

namespace nyxctl {
namespace {

constexpr double k_timeout_seconds_max = 1e6;

constexpr char k_footer[] = R"(Options may stand before or after the command.

Examples:
  nyxctl status
  nyxctl show ports
  nyxctl watch sessions 0 100 --rates
  nyxctl table add registered_mac k1=00:1a:2b:3c:4d:5e k2=100 d1=1
  nyxctl set port 1 number_a=1500
  nyxctl list
  nyxctl describe flowCreate
  nyxctl call flowGet '{"key": [{"k1": "2001:db8::1", "k13": "2001:db8::2"}]}'
  nyxctl call nyx.NyxTblSvc/flowCreate @entries.json --timeout 60
  nyxctl debug tables

Exit codes:
  0   done
  1   local failure: a file, the output, or the agent closed without an answer; diff: the files
      differ; status: something is degraded
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

PATH=VALUE sets a field by its path: lists with an index, enumerations as people say them, types.IPPrefix as
10.0.0.0/24. JSON comes first.

Examples:
  nyxctl call flowGet '{"key": [{"k1": "2001:db8::1"}]}'
  nyxctl call InterfaceCreate request[0].id=0c request[0].loopback_if_spec.prefix=10.0.0.1/32
  nyxctl call flowGet @keys.json --canonical)";

constexpr char k_debug_footer[] =
    R"(COMMAND is a number or a name of nyx.Command in either spelling, tables or COMMAND_TABLES.
The command's output goes to stdout or FILE, its status to stderr.

Examples:
  nyxctl debug tables -o tables.txt
  nyxctl debug interrupt-dump --args IntrDumpArgs '{"selector": 1}')";

struct command_line_s : context_s {
    std::string service;
    std::string symbol;
    bool as_template = false;
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
    command->callback([line] { line->run = [line] { return run_list(line->global, line->service); }; });
}

void add_describe(CLI::App *app, command_line_s *line) {
    CLI::App *command =
        add_command(app, "describe", "Show a service, method, message or enum; needs no agent",
                    "Examples:\n  nyxctl describe flow_key_t\n"
                    "  nyxctl describe InterfaceCreate --template > request.json");
    command->add_option("SYMBOL", line->symbol, "Full name or an ending of it")->required();
    command->add_flag("--template", line->as_template,
                      "JSON with every field at its default, for call; choices go to stderr");
    command->callback([line] {
        line->run = [line] {
            return line->as_template ? run_template(line->global, line->symbol)
                                     : run_describe(line->global, line->symbol);
        };
    });
}

void add_call(CLI::App *app, command_line_s *line) {
    CLI::App *command = add_command(app, "call", "Call a gRPC method with JSON", k_call_footer);
    command->add_option("METHOD", line->call.method, "The method")->required();
    command->add_option("JSON", line->call.json, "The request")->type_name("[JSON|@FILE|-]");
    command->add_option("FIELD", line->call.fields, "Fields to set behind the JSON or without it")
        ->type_name("PATH=VALUE");
    command->add_flag(
        "--canonical", line->call.canonical,
        "JSON of request and response as protobuf has it: base64, lowerCamelCase, plain numbers");
    command->add_flag("--cut", line->call.cut,
                      "Send values that do not fit in a table's record, for the agent to cut");
    command->callback([line] {
        if (line->call.json && is_field_word(*line->call.json)) {
            line->call.fields.insert(line->call.fields.begin(), *line->call.json);
            line->call.json.reset();
        }
        line->run = [line] { return run_call(line->global, line->call); };
    });
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

// The command that was named last, and its name with those of the commands above it.
const CLI::App *named_command(const CLI::App *app, std::string *name) {
    *name = app->get_name();
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().front();
        *name += " " + app->get_name();
    }
    return app;
}

std::string parse_error_text(const CLI::App &app, const CLI::App &command, const CLI::ParseError &error) {
    std::vector<std::string> names;
    std::string list;
    for (const CLI::App *below : command.get_subcommands([](const CLI::App *) { return true; })) {
        if (!below->get_group().empty()) {
            names.push_back(below->get_name());
            list += (list.empty() ? "" : ", ") + below->get_name();
        }
    }
    const std::vector<std::string> unknown = app.remaining(true);
    if (names.empty()) {
        return error.what();
    }
    if (unknown.empty()) {
        return std::string(error.what()) + ": " + list;
    }
    return "unknown command or option \"" + unknown.front() + "\"" +
           base::nearest_names_text(unknown.front(), names);
}

// Help and version leave the parser as exceptions too, with exit code 0.
outcome_s parse_error(const CLI::App &app, const CLI::ParseError &error) {
    if (error.get_exit_code() != 0) {
        std::string name;
        const CLI::App *command = named_command(&app, &name);
        return usage_failure(parse_error_text(app, *command, error) + "; see " + name + " --help");
    }
    std::ostringstream out;
    std::ostringstream err;
    app.exit(error, out, err);
    return write_stdout(out.str());
}

}  // namespace

outcome_s run_command_line(int argc, char **argv) {
    command_line_s line;
    CLI::App app(
        "Client of the dataplane agent: what it has, what it can be told, any gRPC method, debug commands.",
        "nyxctl");
    app.set_version_flag("--version", std::string("nyxctl ") + NYX_VERSION);
    app.footer(k_footer);
    app.require_subcommand(1);
    add_globals(&app, &line.global);
    add_list(&app, &line);
    add_describe(&app, &line);
    add_call(&app, &line);
    add_debug(&app, &line);
    add_alias_commands(&app, &line);
    add_completion_commands(&app, &line);
    add_fault_commands(&app, &line);
    add_status_command(&app, &line);
    add_table_commands(&app, &line);
    add_show_commands(&app, &line);
    add_snapshot_commands(&app, &line);
    add_watch_command(&app, &line);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return parse_error(app, error);
    }
    return line.run();
}

}  // namespace nyxctl
