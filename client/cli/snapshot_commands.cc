#include "client/cli/snapshot_commands.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "client/core/json.h"
#include "client/core/text_io.h"
#include "client/view/json_diff.h"
#include "client/view/read_view.h"

namespace nyxctl {
namespace {

constexpr char k_snapshot_footer[] =
    R"(One JSON document: an object for each method that reads without parameters, with its full response.
Keys are in alphabetical order and lists in the order of their ids, so that two documents can be
compared line by line. A method that fails stands there with {"error": TEXT}; the exit code is that of
the first failure, and the document is complete. Only an unreachable agent gives no document.

Examples:
  nyxctl snapshot -o before.json
  nyxctl snapshot | jq .ports)";

constexpr char k_diff_footer[] =
    R"help(One line for each difference, "path: old -> new", for numbers with the change. Elements of lists are
found again by their id, otherwise by their index; what one side lacks is "(absent)". With -j the rows are
{"differences": [{"path": ..., "old": ..., "new": ..., "change": ...}]}.
Exit code: 0 no differences, 1 differences, 2 a file that cannot be read or is no JSON.

Example:
  nyxctl diff before.json after.json)help";

struct diff_options_s {
    std::string before;
    std::string after;
};

// What is to stand in the document.
outcome_s read_part(const global_options_s &global, const snapshot_part_s &part, json_t *value) {
    std::unique_ptr<google::protobuf::Message> response;
    outcome_s outcome = read_method(global, part.method, part.request, &response);
    *value = {{"error", outcome.text}};
    if (!response) {
        return outcome;
    }
    std::string json;
    std::string error;
    if (outcome_s shown = message_to_json(*response, &json); !shown.ok()) {
        (*value)["error"] = shown.text;
        return shown;
    }
    if (!parse_json(json, value, &error)) {
        return local_failure(error);
    }
    if (!outcome.ok()) {
        (*value)["error"] = outcome.text;
    }
    return outcome;
}

outcome_s write_document(const std::string &text, const std::string &path) {
    if (path.empty()) {
        return write_stdout(text);
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    return file ? outcome_s() : local_failure("cannot write \"" + path + "\": " + std::strerror(errno));
}

outcome_s run_snapshot(const global_options_s &global, const std::string &output) {
    json_t document = json_t::object();
    outcome_s first;
    for (const snapshot_part_s &part : snapshot_parts()) {
        json_t value;
        const outcome_s outcome = read_part(global, part, &value);
        if (outcome.exit_code == NYXCTL_EXIT_UNREACHABLE) {
            return outcome;
        }
        document[part.name] = std::move(value);
        first = first.ok() ? outcome : first;
    }
    const outcome_s written = write_document(dump_json(sorted_json(document), 2) + "\n", output);
    return written.ok() ? first : written;
}

outcome_s read_document(const std::string &path, json_t *dom) {
    std::string text;
    std::string error;
    if (outcome_s outcome = read_file(path, &text); !outcome.ok()) {
        return usage_failure(outcome.text);
    }
    return parse_json(text, dom, &error) ? outcome_s()
                                         : usage_failure("\"" + path + "\" is no JSON: " + error);
}

outcome_s run_diff(const global_options_s &global, const diff_options_s &options) {
    json_t before;
    json_t after;
    for (const auto &[path, dom] : {std::pair(options.before, &before), std::pair(options.after, &after)}) {
        if (outcome_s outcome = read_document(path, dom); !outcome.ok()) {
            return outcome;
        }
    }
    const json_t differences = json_differences(before, after);
    const std::string text =
        global.json ? dump_json({{"differences", differences}}, 2) + "\n" : differences_text(differences);
    if (outcome_s outcome = write_stdout(text); !outcome.ok()) {
        return usage_failure(outcome.text);
    }
    if (differences.empty()) {
        return {};
    }
    // With -j stderr has an object for every exit code but 0.
    return local_failure(global.json ? "the files differ" : "");
}

void add_diff(CLI::App *app, context_s *context) {
    const auto options = std::make_shared<diff_options_s>();
    CLI::App *command = add_command(
        app, "diff", "Compare two snapshots, or any two JSON files; needs no agent", k_diff_footer);
    command->add_option("BEFORE", options->before, "The older file")->required();
    command->add_option("AFTER", options->after, "The newer file")->required();
    command->callback(
        [context, options] { context->run = [=] { return run_diff(context->global, *options); }; });
}

}  // namespace

void add_snapshot_commands(CLI::App *app, context_s *context) {
    const auto output = std::make_shared<std::string>();
    CLI::App *command =
        add_command(app, "snapshot", "Everything readable as one JSON document", k_snapshot_footer);
    command->add_option("-o,--output", *output, "Write to this file")->type_name("FILE");
    command->callback(
        [context, output] { context->run = [=] { return run_snapshot(context->global, *output); }; });
    add_diff(app, context);
}

}  // namespace nyxctl
