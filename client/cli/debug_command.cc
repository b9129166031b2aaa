#include "client/cli/debug_command.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "client/core/json.h"
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

}  // namespace nyxctl
