#include <iostream>

#include "client/cli/commands.h"
#include "client/core/field_words.h"
#include "client/core/grpc_call.h"
#include "client/core/json.h"
#include "client/core/record_width.h"
#include "client/core/rows.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/core/template.h"
#include "client/core/text_io.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

void append_service(const pb::ServiceDescriptor *service, std::string *text) {
    *text += service->full_name() + "\n";
    for (int i = 0; i < service->method_count(); ++i) {
        *text += method_path(service->method(i)) + "\n";
    }
}

json_style_e style_of(const call_options_s &options) {
    return options.canonical ? json_style_e::canonical : json_style_e::people;
}

rows_s method_rows(const std::vector<const pb::ServiceDescriptor *> &services) {
    rows_s rows = {.subject = "methods", .columns = {"service", "method", "request", "response"}, .rows = {}};
    for (const pb::ServiceDescriptor *service : services) {
        for (int i = 0; i < service->method_count(); ++i) {
            const pb::MethodDescriptor *method = service->method(i);
            rows.rows.push_back({service->full_name(), method->name(), method->input_type()->full_name(),
                                 method->output_type()->full_name()});
        }
    }
    return rows;
}

outcome_s read_request(const call_options_s &options, pb::Message *request) {
    std::string json = "{}";
    if (options.json) {
        if (outcome_s outcome = read_argument(*options.json, &json); !outcome.ok()) {
            return outcome;
        }
    }
    if (outcome_s outcome = json_to_message(json, request, style_of(options)); !outcome.ok()) {
        return outcome;
    }
    for (const std::string &field : options.fields) {
        if (outcome_s outcome = set_field(request, field); !outcome.ok()) {
            return outcome;
        }
    }
    return {};
}

outcome_s show_response(const pb::MethodDescriptor *method, const pb::Message &response, json_style_e style) {
    std::string json;
    if (outcome_s outcome = message_to_json(response, &json, style); !outcome.ok()) {
        return outcome;
    }
    if (outcome_s outcome = write_stdout(json + "\n"); !outcome.ok()) {
        return outcome;
    }
    if (const auto failed = failed_api_status(response)) {
        return {NYXCTL_EXIT_API_STATUS, method_path(method) + ": " + *failed};
    }
    return {};
}

}  // namespace

outcome_s run_list(const global_options_s &global, const std::string &name) {
    std::vector<const pb::ServiceDescriptor *> services = all_services();
    if (!name.empty()) {
        services.assign(1, nullptr);
        if (outcome_s outcome = find_service(name, &services.front()); !outcome.ok()) {
            return outcome;
        }
    }
    if (global.json) {
        return write_stdout(indented(rows_to_json(method_rows(services))) + "\n");
    }
    std::string text;
    for (const pb::ServiceDescriptor *service : services) {
        append_service(service, &text);
    }
    return write_stdout(text);
}

outcome_s run_describe(const global_options_s &global, const std::string &symbol) {
    std::string text;
    if (outcome_s outcome = describe_symbol(symbol, &text); !outcome.ok()) {
        return outcome;
    }
    return write_stdout(global.json ? indented(json_text({{"symbol", symbol}, {"definition", text}})) + "\n"
                                    : text);
}

outcome_s run_template(const global_options_s &global, const std::string &symbol) {
    const pb::Descriptor *type = nullptr;
    if (outcome_s outcome = find_template_type(symbol, &type); !outcome.ok()) {
        return outcome;
    }
    const template_s filled = message_template(type);
    for (const std::string &choice : filled.choices) {
        std::cerr << (global.json ? "" : "# " + choice + "\n");
    }
    return write_stdout(filled.json + "\n");
}

outcome_s run_call(const global_options_s &global, const call_options_s &options) {
    const pb::MethodDescriptor *method = nullptr;
    if (outcome_s outcome = find_method(options.method, &method); !outcome.ok()) {
        return outcome;
    }
    const auto request = new_message(method->input_type());
    if (outcome_s outcome = read_request(options, request.get()); !outcome.ok()) {
        return outcome;
    }
    const bool of_table = method->service()->full_name() == "nyx.NyxTblSvc";
    if (outcome_s outcome = check_widths(*request); of_table && !options.cut && !outcome.ok()) {
        return outcome;
    }
    const auto response = new_message(method->output_type());
    outcome_s outcome = grpc_call(global, method, *request, response.get());
    return outcome.ok() ? show_response(method, *response, style_of(options)) : outcome;
}

}  // namespace nyxctl
