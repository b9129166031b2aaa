#include "client/cli/commands.h"

#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <iostream>

#include "client/cli/debug_command.h"
#include "client/core/debug_socket.h"
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

outcome_s open_output(const std::string &path, base::unique_fd *file) {
    if (path.empty()) {
        // The agent's writes to a descriptor that takes none would vanish without a word.
        const int flags = fcntl(STDOUT_FILENO, F_GETFL);
        const bool writable = flags >= 0 && (flags & O_ACCMODE) != O_RDONLY;
        return writable ? outcome_s() : local_failure("stdout is closed; open it or give -o FILE");
    }
    // A FIFO that nobody reads is an error at once with O_NONBLOCK; the agent's writes then block as usual.
    *file = base::unique_fd(open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC | O_NONBLOCK, 0666));
    return file->valid() && fcntl(file->get(), F_SETFL, 0) == 0
               ? outcome_s()
               : local_failure("cannot open \"" + path + "\": " + std::strerror(errno));
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

outcome_s run_debug(const global_options_s &global, const debug_options_s &options) {
    types::ServiceRequestMessage request;
    if (outcome_s outcome = build_debug_request(options, &request); !outcome.ok()) {
        return outcome;
    }
    const deadline_t deadline = std::chrono::steady_clock::now() + global.timeout();
    base::unique_fd socket;
    if (outcome_s outcome = debug_connect(global.socket, deadline, &socket); !outcome.ok()) {
        return outcome;
    }
    base::unique_fd file;
    if (outcome_s outcome = open_output(options.output, &file); !outcome.ok()) {
        return outcome;
    }
    types::ServiceResponseMessage response;
    const int output_fd = file.valid() ? file.get() : STDOUT_FILENO;
    if (outcome_s outcome = debug_exchange(socket, request, output_fd, deadline, &response); !outcome.ok()) {
        return outcome;
    }
    std::cerr << "status: " << api_status_text(response.api_status()) << std::endl;
    if (file.close() != 0) {
        return local_failure("cannot finish \"" + options.output + "\": " + std::strerror(errno));
    }
    return {response.api_status() == types::API_STATUS_OK ? NYXCTL_EXIT_OK : NYXCTL_EXIT_API_STATUS, ""};
}

}  // namespace nyxctl
