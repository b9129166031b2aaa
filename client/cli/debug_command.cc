#include "client/cli/debug_command.h"

#include <fcntl.h>
#include <fmt/format.h>

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

constexpr char k_footer[] =
    R"(COMMAND is a number or a name of nyx.Command in either spelling, tables or
COMMAND_TABLES. Its output goes to stdout or FILE, its status to stderr.

Examples:
  nyxctl debug tables -o tables.txt
  nyxctl debug interrupt-dump --args IntrDumpArgs '{{"selector": 1}}'

Commands:
  {})";

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

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    const pb::EnumDescriptor *commands = nyx::Command_descriptor();
    for (int i = 0; i < commands->value_count(); i++) {
        names.push_back(short_name(commands->value(i)->name()));
    }
    return names;
}

outcome_s command_number(const std::string &text, int *number) {
    const char *end = text.data() + text.size();
    if (const auto parsed = std::from_chars(text.data(), end, *number);
        parsed.ec == std::errc() && parsed.ptr == end && *number >= 0) {
        return {};
    }
    const std::vector<std::string> names = command_names();
    const auto found = std::ranges::find(names, short_name(text));
    if (found == names.end()) {
        return usage_failure(
            fmt::format("unknown debug command \"{}\"; give a number of 0 to 2147483647 or one of: {}", text,
                        fmt::join(names, ", ")));
    }
    *number = nyx::Command_descriptor()->value(static_cast<int>(found - names.begin()))->number();
    return {};
}

outcome_s pack_arguments(const std::vector<std::string> &args, pb::Any *any) {
    const pb::Descriptor *type = nullptr;
    if (outcome_s outcome = find_message(args[0], &type); !outcome.ok()) {
        return outcome;
    }
    std::string json;
    if (outcome_s outcome = read_argument(args[1], &json); !outcome.ok()) {
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
        // The agent's writes to a descriptor opened for reading would vanish without a word.
        const int flags = fcntl(STDOUT_FILENO, F_GETFL);
        const bool writable = flags >= 0 && (flags & O_ACCMODE) != O_RDONLY;
        return writable ? outcome_s() : local_failure("stdout is closed; open it or give -o FILE");
    }
    // A FIFO that nobody reads is an error at once with O_NONBLOCK; the agent's writes then block as usual.
    *file = base::unique_fd(open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC | O_NONBLOCK, 0666));
    return file->valid() && fcntl(file->get(), F_SETFL, 0) == 0
               ? outcome_s()
               : local_failure(fmt::format("cannot open \"{}\": {}", path, std::strerror(errno)));
}

// The agent itself writes to stdout or to the file, which is emptied once the agent is connected.
outcome_s run_debug(const given_s &given) {
    types::ServiceRequestMessage request;
    if (outcome_s outcome = build_debug_request(given.one("COMMAND"), given.all("--args"), &request);
        !outcome.ok()) {
        return outcome;
    }
    const deadline_t deadline = std::chrono::steady_clock::now() + given.global.timeout();
    base::unique_fd socket;
    if (outcome_s outcome = debug_connect(given.global.socket, deadline, &socket); !outcome.ok()) {
        return outcome;
    }
    base::unique_fd file;
    if (outcome_s outcome = open_output(given.one("--output"), &file); !outcome.ok()) {
        return outcome;
    }
    types::ServiceResponseMessage response;
    const int output_fd = file.valid() ? file.get() : STDOUT_FILENO;
    if (outcome_s outcome = debug_exchange(socket, request, output_fd, deadline, &response); !outcome.ok()) {
        return outcome;
    }
    std::cerr << "status: " << api_status_text(response.api_status()) << std::endl;
    if (file.close() != 0) {
        return local_failure(
            fmt::format("cannot finish \"{}\": {}", given.one("--output"), std::strerror(errno)));
    }
    return {response.api_status() == types::API_STATUS_OK ? NYXCTL_EXIT_OK : NYXCTL_EXIT_API_STATUS, ""};
}

}  // namespace

outcome_s build_debug_request(const std::string &command, const std::vector<std::string> &args,
                              types::ServiceRequestMessage *request) {
    int number = 0;
    if (outcome_s outcome = command_number(command, &number); !outcome.ok()) {
        return outcome;
    }
    nyx::CommandMessage message;
    message.set_command(static_cast<nyx::Command>(number));
    if (!args.empty()) {
        if (outcome_s outcome = pack_arguments(args, message.mutable_command_args()); !outcome.ok()) {
            return outcome;
        }
    }
    request->set_config_op(types::SERVICE_OP_NONE);
    request->mutable_config_msg()->PackFrom(message);
    return {};
}

commands_t debug_commands() {
    const std::vector<std::string> names = command_names();
    return {{"debug",
             "Send a debug command over the agent's socket",
             fmt::format(k_footer, fmt::join(names, "\n  ")),
             {{"COMMAND", "The command", KIND_TEXT, COUNT_ONE, "", names},
              {"--args", "Message type of the arguments, and JSON, @FILE or -", KIND_MESSAGE, COUNT_TWO,
               "TYPE JSON"},
              {"-o,--output", "Write to this file", KIND_FILE}},
             run_debug}};
}

}  // namespace nyxctl
