#include <fmt/format.h>

#include <iostream>

#include "client/cli/commands.h"
#include "client/core/field_words.h"
#include "client/core/grpc_call.h"
#include "client/core/json.h"
#include "client/core/record_width.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/core/template.h"
#include "client/core/text_io.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr char k_call_footer[] =
    R"(METHOD is a full name, or the end of one in whole parts:
nyx.NyxTblSvc/flowCreate or flowCreate. JSON is a JSON object, @FILE, or - for
stdin; without it the request is empty. Bytes are hex digits ("00a1ff",
"00:a1:ff"), MAC, IPv6 or UUID text where the field holds one, or "base64:" and
base64.

PATH=VALUE sets a field by its path: lists with an index, enumerations as the
views show them, types.IPPrefix as 10.0.0.0/24. JSON comes first.

Examples:
  nyxctl call PortGet
  nyxctl call InterfaceCreate request[0].id=0c \
      request[0].loopback_if_spec.prefix=10.0.0.1/32
  nyxctl call flowGet @keys.json --canonical)";

rows_s method_rows(const std::vector<const pb::ServiceDescriptor *> &services) {
    rows_s rows = {.subject = "methods", .columns = {"service", "method", "request", "response"}, .rows = {}};
    for (const pb::ServiceDescriptor *service : services) {
        for (int i = 0; i < service->method_count(); i++) {
            const pb::MethodDescriptor *method = service->method(i);
            rows.rows.push_back({service->full_name(), method->name(), method->input_type()->full_name(),
                                 method->output_type()->full_name()});
        }
    }
    return rows;
}

std::string method_lines(const std::vector<const pb::ServiceDescriptor *> &services) {
    std::string text;
    for (const pb::ServiceDescriptor *service : services) {
        text += service->full_name() + "\n";
        for (int i = 0; i < service->method_count(); i++) {
            text += method_path(service->method(i)) + "\n";
        }
    }
    return text;
}

outcome_s run_list(const given_s &given) {
    std::vector<const pb::ServiceDescriptor *> services = all_services();
    if (given.has("SERVICE")) {
        services.assign(1, nullptr);
        if (outcome_s outcome = find_service(given.one("SERVICE"), &services.front()); !outcome.ok()) {
            return outcome;
        }
    }
    return write_result(given.global, rows_to_json(method_rows(services)), method_lines(services));
}

outcome_s run_template(const given_s &given) {
    const pb::Descriptor *type = nullptr;
    if (outcome_s outcome = find_template_type(given.one("SYMBOL"), &type); !outcome.ok()) {
        return outcome;
    }
    const template_s filled = message_template(type);
    for (const std::string &choice : filled.choices) {
        std::cerr << (given.global.json ? "" : "# " + choice + "\n");
    }
    return write_stdout(filled.json + "\n");
}

outcome_s run_describe(const given_s &given) {
    if (given.has("--template")) {
        return run_template(given);
    }
    const std::string symbol = given.one("SYMBOL");
    std::string text;
    outcome_s outcome = describe_symbol(symbol, &text);
    return outcome.ok()
               ? write_result(given.global, json_text({{"symbol", symbol}, {"definition", text}}), text)
               : outcome;
}

// JSON, if there is any, comes before the fields.
outcome_s read_request(const given_s &given, json_style_e style, pb::Message *request) {
    std::string json = given.one("JSON");
    const bool is_field = is_field_word(json);
    outcome_s outcome = given.has("JSON") && !is_field ? read_argument(json, &json) : outcome_s();
    if (outcome.ok()) {
        outcome = json_to_message(given.has("JSON") && !is_field ? json : "{}", request, style);
    }
    if (outcome.ok() && is_field) {
        outcome = set_field(request, json);
    }
    for (const std::string &field : given.all("FIELD")) {
        if (!outcome.ok()) {
            break;
        }
        outcome = set_field(request, field);
    }
    return outcome;
}

outcome_s show_response(const pb::MethodDescriptor *method, const pb::Message &response, json_style_e style) {
    std::string json;
    if (outcome_s outcome = message_to_json(response, &json, style); !outcome.ok()) {
        return outcome;
    }
    if (outcome_s outcome = write_stdout(json + "\n"); !outcome.ok()) {
        return outcome;
    }
    const auto failed = failed_api_status(response);
    return failed ? outcome_s{NYXCTL_EXIT_API_STATUS, method_path(method) + ": " + *failed} : outcome_s();
}

outcome_s run_call(const given_s &given) {
    const pb::MethodDescriptor *method = nullptr;
    if (outcome_s outcome = find_method(given.one("METHOD"), &method); !outcome.ok()) {
        return outcome;
    }
    const json_style_e style = given.has("--canonical")  ? json_style_e::canonical
                               : given.global.json_texts ? json_style_e::labelled
                                                         : json_style_e::people;
    const auto request = new_message(method->input_type());
    if (outcome_s outcome = read_request(given, style, request.get()); !outcome.ok()) {
        return outcome;
    }
    const bool of_table = method->service()->full_name() == "nyx.NyxTblSvc";
    if (outcome_s outcome = check_widths(*request); of_table && !given.has("--cut") && !outcome.ok()) {
        return outcome;
    }
    const auto response = new_message(method->output_type());
    outcome_s outcome = grpc_call(given.global, method, *request, response.get());
    return outcome.ok() ? show_response(method, *response, style) : outcome;
}

}  // namespace

commands_t call_commands() {
    return {
        {"list",
         "List services and their methods; needs no agent",
         "Example:\n  nyxctl list NyxTblSvc",
         {{"SERVICE", "Full name or the end of one; without it all services", KIND_SERVICE, COUNT_OPTIONAL}},
         run_list},
        {"describe",
         "Show the contract of a symbol; needs no agent",
         "Examples:\n  nyxctl describe flow_key_t\n"
         "  nyxctl describe InterfaceCreate --template > request.json",
         {{"SYMBOL", "Service, method, message or enum: its full name or the end of it", KIND_SYMBOL},
          {"--template", "JSON with every field at its default, for call; choices go to stderr", KIND_FLAG}},
         run_describe},
        {"call",
         "Call a gRPC method with JSON",
         k_call_footer,
         {{"METHOD", "The method", KIND_METHOD},
          {"JSON", "The request", KIND_REQUEST_FIELD, COUNT_OPTIONAL, "[JSON|@FILE|-]"},
          {"FIELD", "Fields to set, after the JSON or without it", KIND_REQUEST_FIELD, COUNT_ANY,
           "PATH=VALUE"},
          {"--canonical",
           "JSON of request and response as protobuf has it: base64, lowerCamelCase, plain numbers",
           KIND_FLAG},
          {"--cut", "Send values that do not fit in a table's record; the agent cuts them", KIND_FLAG}},
         run_call},
    };
}

}  // namespace nyxctl
