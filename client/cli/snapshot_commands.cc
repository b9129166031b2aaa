#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "client/cli/commands.h"
#include "client/core/json.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "client/view/json_diff.h"
#include "client/view/read_view.h"

namespace nyxctl {
namespace {

constexpr char k_snapshot_footer[] =
    R"(One JSON document: an object for each method that reads without parameters,
with its full response. Keys are in alphabetical order and lists in the order of
their ids, so that two documents can be compared line by line. A method that
fails has {"error": TEXT}; the document is complete, and the exit code is that
of the first failure. Only an unreachable agent gives no document.

Examples:
  nyxctl snapshot -o before.json
  nyxctl snapshot | jq .ports)";

constexpr char k_diff_footer[] =
    R"help(One line for each difference, "path: old -> new", for numbers with the change.
Elements of lists are matched by their id, others by their index; what one side
lacks is "(absent)". With -j the rows are
{"differences": [{"path": ..., "old": ..., "new": ..., "change": ...}],
"left_out": N}.
Of snapshots, counters and what changes by itself (memory, sensors) are left out
without --all; how many of these differ is said on stderr, and in "left_out".
Exit code: 0 no differences, 1 differences, 2 a file cannot be read or is not
JSON.

Examples:
  nyxctl diff before.json after.json
  nyxctl diff --all before.json after.json)help";

// What the document says of the method.
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
    return file ? outcome_s()
                : local_failure(fmt::format("cannot write \"{}\": {}", path, std::strerror(errno)));
}

outcome_s run_snapshot(const given_s &given) {
    json_t document = json_t::object();
    outcome_s first;
    for (const snapshot_part_s &part : snapshot_parts()) {
        json_t value;
        const outcome_s outcome = read_part(given.global, part, &value);
        if (outcome.exit_code == NYXCTL_EXIT_UNREACHABLE) {
            return outcome;
        }
        document[part.name] = std::move(value);
        first = first.ok() ? outcome : first;
    }
    const outcome_s written =
        write_document(dump_json(sorted_json(document), 2) + "\n", given.one("--output"));
    return written.ok() ? first : written;
}

outcome_s read_document(const std::string &path, json_t *dom) {
    std::string text;
    std::string error;
    if (outcome_s outcome = read_file(path, &text); !outcome.ok()) {
        return usage_failure(outcome.text);
    }
    return parse_json(text, dom, &error) ? outcome_s()
                                         : usage_failure(fmt::format("\"{}\" is not JSON: {}", path, error));
}

member_types_t snapshot_types() {
    member_types_t types;
    for (const snapshot_part_s &part : snapshot_parts()) {
        const google::protobuf::MethodDescriptor *method = nullptr;
        if (find_method(part.method, &method).ok()) {
            types[part.name] = method->output_type();
        }
    }
    return types;
}

outcome_s run_diff(const given_s &given) {
    json_t before;
    json_t after;
    outcome_s outcome = read_document(given.one("BEFORE"), &before);
    if (outcome.ok()) {
        outcome = read_document(given.one("AFTER"), &after);
    }
    if (!outcome.ok()) {
        return outcome;
    }
    const differences_s differences =
        json_differences(before, after, given.has("--all") ? member_types_t() : snapshot_types());
    outcome = write_result(given.global,
                           dump_json({{"differences", differences.rows}, {"left_out", differences.left_out}}),
                           differences_text(differences));
    if (!outcome.ok()) {
        return usage_failure(outcome.text);
    }
    if (differences.left_out > 0 && !given.global.json) {
        std::cerr << fmt::format("{} counters and volatile fields differ, too; --all shows them\n",
                                 differences.left_out);
    }
    if (differences.rows.empty()) {
        return {};
    }
    // With -j stderr has an object for every exit code but 0.
    return local_failure(given.global.json ? "the files differ" : "");
}

}  // namespace

commands_t snapshot_commands() {
    return {{"snapshot",
             "Everything readable as one JSON document",
             k_snapshot_footer,
             {{"-o,--output", "Write to this file", KIND_FILE}},
             run_snapshot},
            {"diff",
             "Compare two snapshots or JSON files; needs no agent",
             k_diff_footer,
             {{"BEFORE", "The older file", KIND_FILE},
              {"AFTER", "The newer file", KIND_FILE},
              {"--all", "Counters and volatile fields of snapshots, too", KIND_FLAG}},
             run_diff}};
}

}  // namespace nyxctl
