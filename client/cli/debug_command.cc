#include "client/cli/debug_command.h"

#include <fcntl.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <iostream>

#include "client/cli/commands.h"
#include "client/core/debug_socket.h"
#include "client/core/json.h"
#include "client/core/status_fields.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "nyx/debug_command.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr std::string_view k_name_prefix = "COMMAND_";

// "tables", "flow-dump"
std::string short_name(std::string_view name) {
    std::string result(name);
    std::ranges::transform(result, result.begin(),
                           [](unsigned char c) { return c == '-' ? '_' : std::toupper(c); });
    if (result.starts_with(k_name_prefix)) {
        result.erase(0, k_name_prefix.size());
    }
    std::ranges::transform(result, result.begin(),
                           [](unsigned char c) { return c == '_' ? '-' : std::tolower(c); });
    return result;
}

bool all_digits(const std::string &text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char c) { return std::isdigit(c) != 0; });
}

outcome_s unknown_command(const std::string &text) {
    return usage_failure("unknown debug command \"" + text +
                         "\"; give a number of 0 to 2147483647 or one of: " + debug_command_names());
}

outcome_s pack_arguments(const debug_options_s &options, pb::Any *any) {
    const pb::Descriptor *type = nullptr;
    if (outcome_s outcome = find_message(options.args[0], &type); !outcome.ok()) {
        return outcome;
    }
    std::string json;
    if (outcome_s outcome = read_argument(options.args[1], &json); !outcome.ok()) {
        return outcome;
    }
    const auto arguments = new_message(type);
    if (outcome_s outcome = json_to_message(json, arguments.get()); !outcome.ok()) {
        return outcome;
    }
    any->PackFrom(*arguments);
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

std::string debug_command_names() {
    std::string names;
    const pb::EnumDescriptor *commands = nyx::Command_descriptor();
    for (int i = 0; i < commands->value_count(); ++i) {
        names += (i == 0 ? "" : ", ") + short_name(commands->value(i)->name());
    }
    return names;
}

outcome_s debug_command_number(const std::string &text, int *number) {
    if (all_digits(text)) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
        return error == std::errc() ? outcome_s() : unknown_command(text);
    }
    const std::string wanted = short_name(text);
    const pb::EnumDescriptor *commands = nyx::Command_descriptor();
    for (int i = 0; i < commands->value_count(); ++i) {
        if (short_name(commands->value(i)->name()) == wanted) {
            *number = commands->value(i)->number();
            return {};
        }
    }
    return unknown_command(text);
}

outcome_s build_debug_request(const debug_options_s &options, types::ServiceRequestMessage *request) {
    int number = 0;
    if (outcome_s outcome = debug_command_number(options.command, &number); !outcome.ok()) {
        return outcome;
    }
    nyx::CommandMessage command;
    command.set_command(static_cast<nyx::Command>(number));
    if (!options.args.empty()) {
        if (outcome_s outcome = pack_arguments(options, command.mutable_command_args()); !outcome.ok()) {
            return outcome;
        }
    }
    request->set_config_op(types::SERVICE_OP_NONE);
    request->mutable_config_msg()->PackFrom(command);
    return {};
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
