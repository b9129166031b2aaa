#include <fmt/format.h>

#include <algorithm>

#include "client/cli/commands.h"
#include "client/core/fields.h"
#include "client/core/interrupt.h"
#include "client/core/text_io.h"
#include "client/table/entry_args.h"
#include "client/table/entry_report.h"
#include "client/table/entry_source.h"
#include "client/table/entry_stream.h"
#include "client/table/record_rows.h"
#include "client/table/table_calls.h"

namespace nyxctl {
namespace {

struct table_command_s {
    const char *name;
    operation_e operation;
    const char *about;
    const char *word;          // "added": what has failed was not
    std::set<verdict_e> done;  // with which all is well
    const char *details;
    const char *examples;
    bool by_key = false;
    bool takes_file = false;  // and no words
};

const table_command_s k_commands[] = {
    {"add",
     OPERATION_ADD,
     "Add entries to a P4 table",
     "added",
     {VERDICT_ADDED},
     "An entry whose key the table has fails, also when its values are the same.",
     "  nyxctl table add flow_info k1=7 action=0 d1=5 d2=0102030405060708\n"
     "  nyxctl table add checksum k1=1 mask.k1=255 action=2\n"
     "  nyxctl table add flow_info @entries.jsonl --failed again.jsonl"},
    {"update",
     OPERATION_UPDATE,
     "Change fields of entries of a P4 table",
     "updated",
     {VERDICT_UPDATED, VERDICT_UNCHANGED},
     "Fields that are not given keep their values; with --replace they become zero.",
     "  nyxctl table update flow_info k1=7 d1=6\n"
     "  nyxctl table update flow_info @entries.csv --dry-run"},
    {"del",
     OPERATION_DELETE,
     "Delete entries of a P4 table",
     "deleted",
     {VERDICT_DELETED},
     "",
     "  nyxctl table del flow_info k1=7\n"
     "  printf '{\"k1\": 8}\\n{\"k1\": 9}\\n' | nyxctl table del flow_info -",
     true},
    {"get",
     OPERATION_GET,
     "Show entries of a P4 table",
     "read",
     {VERDICT_READ},
     "Many entries are shown as JSON lines that add, update and apply take.",
     "  nyxctl table get flow_info k1=7\n"
     "  nyxctl table get flow_info @keys.jsonl >entries.jsonl",
     true},
    {"apply",
     OPERATION_APPLY,
     "Make a P4 table hold the entries of a file",
     "applied",
     {VERDICT_ADDED, VERDICT_UPDATED, VERDICT_UNCHANGED, VERDICT_DELETED},
     "Adds entries that the table does not have, replaces those that differ, and\n"
     "leaves the others alone. With --previous, entries that OLD has and FILE has not\n"
     "are deleted; that takes 8 bytes of memory for each entry of FILE. Entries whose\n"
     "keys are in neither file stay: the agent can't list them.",
     "  nyxctl table apply flow_info entries.jsonl\n"
     "  nyxctl table apply flow_info new.csv --previous old.csv --dry-run",
     false,
     true},
    {"diff",
     OPERATION_APPLY,
     "Show what table apply would change",
     "equal",
     {},
     "Ends with 1 when the table differs from the file. + is an entry to add, - one to\n"
     "delete, ~ one to update.",
     "  nyxctl table diff flow_info entries.jsonl",
     false,
     true},
};

constexpr char k_files_help[] =
    R"(Many entries come from a file, or - for stdin, of any size: one JSON object in
each line, or one JSON array of them (nyxctl describe {0}), or CSV
under a line of field names, in which an empty value is not given. They go in
requests of 1000, several at a time. Their keys are read before, and again after
a request that failed, so that each entry is counted as what became of it. A
wrong line ends it, and nothing of its request is sent. Ctrl-C ends it after the
requests under way; --from goes on.)";

constexpr char k_words_help[] = "\n\nFILE is given as @FILE instead of the words. ";

// "@FILE" or "-", as a source takes it.
std::string file_argument(const std::string &path) {
    return path == "-" || path.starts_with('@') ? path : "@" + path;
}

std::vector<std::string> words_of(const given_s &given, const table_command_s &command) {
    return command.takes_file ? std::vector{file_argument(given.one("FILE"))} : given.all("WORDS");
}

outcome_s show_one(const given_s &given, const table_layout_s &layout, entry_source *source) {
    const auto key = new_message(layout.key);
    outcome_s outcome = source->read({}, key.get());
    const auto spec = new_message(layout.spec);
    if (outcome.ok()) {
        outcome = get_entry(given.global, layout, *key, spec.get());
    }
    return outcome.ok() ? write_rows(given.global, spec_rows(layout, *spec)) : outcome;
}

// Deletes what the file of --previous has and `kept` has not.
outcome_s delete_others(const given_s &given, const table_layout_s &layout, std::vector<key_hash_t> kept,
                        stream_options_s options, entry_report *report) {
    std::ranges::sort(kept);
    entry_source previous(layout, false, given.has("--cut"));
    if (outcome_s outcome = previous.open({file_argument(given.one("--previous"))}, 0); !outcome.ok()) {
        return outcome;
    }
    options.operation = OPERATION_DELETE;
    options.wants = [&](key_hash_t key) { return !std::ranges::binary_search(kept, key); };
    return report->run(&previous, options);
}

outcome_s run_stream_of(const given_s &given, const table_command_s &command, entry_source *source) {
    const bool is_diff = command.name == std::string_view("diff");
    const bool is_get = command.operation == OPERATION_GET;
    stream_options_s options = {.operation = command.operation,
                                .dry_run = is_diff || (!is_get && given.has("--dry-run")),
                                .keep_going = given.has("--keep-going")};
    if (given.has("--replace")) {
        options.operation = OPERATION_REPLACE;
    }
    report_options_s shown = {
        .shows_changes = options.dry_run || (command.operation == OPERATION_UPDATE && !source->is_file()),
        .done = command.done,
        .word = command.word,
        .failed_file = given.one("--failed")};
    if (is_diff) {
        shown.done = {VERDICT_ADDED, VERDICT_UPDATED, VERDICT_UNCHANGED, VERDICT_DELETED, VERDICT_ABSENT};
    }
    entry_report report(given.global, source->layout(), shown);
    if (outcome_s outcome = report.open(*source); !outcome.ok()) {
        return outcome;
    }
    std::vector<key_hash_t> keys;
    if (given.has("--previous")) {
        options.wants = [&](key_hash_t key) {
            keys.push_back(key);
            return true;
        };
    }
    outcome_s ended = report.run(source, options);
    if (ended.ok() && given.has("--previous")) {
        ended = delete_others(given, source->layout(), std::move(keys), options, &report);
    }
    outcome_s outcome = report.finish(ended);
    const size_t differences =
        report.count(VERDICT_ADDED) + report.count(VERDICT_UPDATED) + report.count(VERDICT_DELETED);
    return outcome.ok() && is_diff && differences > 0 ? local_failure("") : outcome;
}

outcome_s run_table(const given_s &given, const table_command_s &command) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(given.one("TABLE"), &layout); !outcome.ok()) {
        return outcome;
    }
    catch_interrupts();
    entry_source source(layout, command.by_key, given.has("--cut"));
    if (outcome_s outcome = source.open(words_of(given, command), given.number("--from")); !outcome.ok()) {
        return outcome;
    }
    return command.operation == OPERATION_GET && !source.is_file() ? show_one(given, layout, &source)
                                                                   : run_stream_of(given, command, &source);
}

arguments_t arguments_of(const table_command_s &command) {
    arguments_t arguments = {{"TABLE", "The table", KIND_TABLE}};
    if (command.takes_file) {
        arguments.push_back({"FILE", "The entries, - for stdin", KIND_FILE});
        arguments.push_back({"--previous", "Entries that the table was to hold before", KIND_FILE});
    } else {
        arguments.push_back({"WORDS", "The entry, or a file of entries",
                             command.by_key ? KIND_KEY_FIELD : KIND_ENTRY_FIELD, COUNT_SOME,
                             "FIELD=VALUE|@FILE|-"});
    }
    if (command.operation == OPERATION_UPDATE) {
        arguments.push_back({"--replace", "Set fields that are not given to zero", KIND_FLAG});
    }
    if (command.operation != OPERATION_GET && command.name != std::string_view("diff")) {
        arguments.push_back({"--dry-run", "Show what would change, and change nothing", KIND_FLAG});
        arguments.push_back({"--failed", "Write the entries to try again to this file", KIND_FILE});
    }
    arguments.push_back({"--keep-going", "Pass over wrong lines", KIND_FLAG});
    arguments.push_back({"--from", "Pass over the lines before this one", KIND_NUMBER});
    arguments.push_back({"--cut", "Send values that do not fit; the agent cuts them", KIND_FLAG});
    return arguments;
}

std::string help_of(const table_command_s &command) {
    const std::string files = fmt::format(k_files_help, command.by_key ? "TABLE_key_t" : "TABLESpec");
    const std::string words =
        command.takes_file
            ? ""
            : std::string(k_entry_words_help) +
                  (command.by_key ? "\nHere the words are only fields of the key." : "") + k_words_help;
    return fmt::format("{}{}{}\n\n{}\n\nExamples:\n{}", command.details, *command.details ? "\n\n" : "",
                       words, files, command.examples);
}

command_s command_of(const table_command_s &command) {
    return {fmt::format("table {}", command.name), command.about, help_of(command), arguments_of(command),
            [&command](const given_s &given) { return run_table(given, command); }};
}

}  // namespace

commands_t table_commands() {
    commands_t commands = {{"table", "Add, update, delete, show, apply and compare entries of P4 tables",
                            "Examples:\n  nyxctl table add flow_info k1=7 d1=5\n"
                            "  nyxctl table get flow_info k1=7\n  nyxctl table apply flow_info entries.csv\n"
                            "  nyxctl table add --help"}};
    for (const table_command_s &command : k_commands) {
        commands.push_back(command_of(command));
    }
    return commands;
}

}  // namespace nyxctl
