#include <fmt/format.h>

#include <chrono>
#include <iostream>

#include "client/cli/commands.h"
#include "client/core/json.h"
#include "client/core/text_io.h"
#include "client/table/entry_args.h"
#include "client/table/entry_list.h"
#include "client/table/record_rows.h"
#include "client/table/table_requests.h"

namespace nyxctl {
namespace {

struct operation_s {
    const char *name;
    const char *rpc;
    const char *about;
    const char *done;    // "1000 entries added"
    const char *reason;  // most often, of one that was not
    const char *examples;
    bool by_key;
};

constexpr operation_s k_operations[] = {
    {"add", "Create", "Add entries to a P4 table", "added",
     "the table has an entry with this key, or is full",
     "  nyxctl table add flow_info k1=7 action=0 d1=5 d2=0102030405060708\n"
     "  nyxctl table add checksum k1=1 mask.k1=255 action=2\n"
     "  nyxctl table add flow_info @entries.jsonl",
     false},
    {"update", "Update", "Replace entries of a P4 table", "updated", "no entry has this key",
     "  nyxctl table update flow_info k1=7 action=0 d1=6\n"
     "  nyxctl table update flow_info @entries.jsonl",
     false},
    {"del", "Delete", "Delete entries of a P4 table", "deleted", "no entry has this key",
     "  nyxctl table del flow_info k1=7\n"
     "  printf '{\"k1\": 7}\\n{\"k1\": 8}\\n' | nyxctl table del flow_info -",
     true},
    {"get", "Get", "Show entries of a P4 table", "read", "no entry has this key",
     "  nyxctl table get flow_info k1=7\n"
     "  nyxctl table get flow_info @keys.jsonl >entries.jsonl",
     true},
};

constexpr char k_specs_help[] =
    R"(

@FILE, or - for stdin, holds many entries: one JSON object of the message
TABLESpec in each line, or one JSON array of them; nyxctl describe TABLESpec
shows its fields. All are checked before the first is sent. They go in requests
of 1000; one that fails does not stop the others.

Examples:
)";

constexpr char k_keys_help[] =
    R"(

Here the words are only fields of the key. @FILE, or - for stdin, holds many
keys: one JSON object of the message TABLE_key_t in each line, or one JSON array
of them. All are checked before the first is sent. They go in requests of 1000;
one that fails does not stop the others. get shows many entries as JSON lines
that add and update take.

Examples:
)";

// WORDS name a file of entries, not one entry.
bool is_bulk(const std::vector<std::string> &words) {
    return words.size() == 1 && (words[0] == "-" || words[0].starts_with('@'));
}

// Shows people how far a long operation has come, once a second.
class progress_lines {
 public:
    explicit progress_lines(std::string subject) : subject_(std::move(subject)) {}

    void show(size_t done, const std::string &what) {
        const auto now = std::chrono::steady_clock::now();
        if (now - last_ >= std::chrono::seconds(1)) {
            std::cerr << subject_ << ": " << done << what << std::endl;
            last_ = now;
        }
    }

 private:
    const std::string subject_;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

// Scripts get nothing but failures on stderr.
progress_t progress_of(const global_options_s &global, progress_lines *lines, const std::string &what) {
    return global.json ? progress_t() : [=](size_t done) { lines->show(done, what); };
}

outcome_s read_entries(const given_s &given, const table_layout_s &layout, const operation_s &operation,
                       const progress_t &progress, message_list_t *entries) {
    const auto *type = operation.by_key ? layout.key : layout.spec;
    const std::vector<std::string> &words = given.all("WORDS");
    const bool cut = given.has("--cut");
    if (!is_bulk(words)) {
        auto entry = new_message(type);
        const auto fill = operation.by_key ? fill_key : fill_spec;
        outcome_s outcome = fill(layout, words, cut, entry.get());
        entries->push_back(std::move(entry));
        return outcome;
    }
    std::string text;
    if (outcome_s outcome = read_argument(words[0], &text); !outcome.ok()) {
        return outcome;
    }
    outcome_s outcome = parse_entries(text, type, cut, progress, entries);
    return outcome.ok() && entries->empty() ? usage_failure(fmt::format("\"{}\" holds no entries", words[0]))
                                            : outcome;
}

// JSON lines for people and other programs, with -j the same objects in one document.
outcome_s show_specs(const global_options_s &global, const message_list_t &specs) {
    std::string text;
    for (const auto &spec : specs) {
        const std::string line = message_json(*spec);
        text += (global.json && !text.empty() ? ",\n" : "") + line + (global.json ? "" : "\n");
    }
    return write_stdout(global.json ? "{\"entries\": [\n" + text + "\n]}\n" : text);
}

// How many entries the answers without failure held.
size_t count_done(const rows_s &answers) {
    size_t done = 0;
    for (const auto &row : answers.rows) {
        if (row[2] == "API_STATUS_OK") done += *row[1].as<uint64_t>() - *row[0].as<uint64_t>() + 1;
    }
    return done;
}

std::string count_text(size_t done, size_t all, const table_layout_s &layout, const operation_s &operation) {
    return fmt::format("{}: {}{} {} {}", layout.name, done, done == all ? "" : fmt::format(" of {}", all),
                       all == 1 ? "entry" : "entries", operation.done);
}

// `entry` is a Spec or a key.
std::string failure_of_one(const table_layout_s &layout, const operation_s &operation,
                           const google::protobuf::Message &entry, const std::string &status) {
    const auto *field = entry.GetDescriptor()->FindFieldByName("key");
    const auto &key = operation.by_key ? entry : entry.GetReflection()->GetMessage(entry, field);
    return fmt::format("{}: the entry with {} was not {}: {}; the service does not say why, most often {}",
                       layout.name, key_text(layout, key), operation.done, status, operation.reason);
}

outcome_s send_all(const global_options_s &global, const table_layout_s &layout, const operation_s &operation,
                   const message_list_t &entries, progress_lines *lines) {
    rows_s answers;
    message_list_t specs;
    const std::string what = fmt::format(" of {} entries {}", entries.size(), operation.done);
    const progress_t progress = progress_of(global, lines, what);
    outcome_s outcome = send_entries(global, layout, operation.rpc, entries, progress, &answers, &specs);
    if (outcome.exit_code == NYXCTL_EXIT_API_STATUS && entries.size() == 1) {
        outcome.text = failure_of_one(layout, operation, *entries.front(), cell_text(answers.rows[0][2]));
    }
    const bool get = operation.rpc == std::string_view("Get");
    if (get || global.json) {
        outcome_s shown = get ? show_specs(global, specs) : write_rows(global, answers);
        if (!shown.ok()) return shown;
    }
    if (!global.json && !answers.rows.empty() && (outcome.ok() || entries.size() > 1)) {
        const size_t done = get ? specs.size() : count_done(answers);
        std::cerr << count_text(done, entries.size(), layout, operation)
                  << (outcome.ok() || get ? "" : ", and maybe some of those in failed requests") << std::endl;
    }
    return outcome;
}

outcome_s show_one(const global_options_s &global, const table_layout_s &layout,
                   const google::protobuf::Message &key) {
    const auto spec = new_message(layout.spec);
    outcome_s outcome = get_entry(global, layout, key, spec.get());
    return outcome.ok() ? write_rows(global, spec_rows(layout, *spec)) : outcome;
}

outcome_s run_table(const given_s &given, const operation_s &operation) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(given.one("TABLE"), &layout); !outcome.ok()) {
        return outcome;
    }
    progress_lines lines(layout.name);
    message_list_t entries;
    const progress_t checked = progress_of(given.global, &lines, " entries checked, none sent");
    if (outcome_s outcome = read_entries(given, layout, operation, checked, &entries); !outcome.ok()) {
        return outcome;
    }
    const bool one = operation.rpc == std::string_view("Get") && !is_bulk(given.all("WORDS"));
    return one ? show_one(given.global, layout, *entries.front())
               : send_all(given.global, layout, operation, entries, &lines);
}

command_s command_of(const operation_s &operation) {
    return {fmt::format("table {}", operation.name),
            operation.about,
            fmt::format("{}{}{}", k_entry_words_help, operation.by_key ? k_keys_help : k_specs_help,
                        operation.examples),
            {{"TABLE", "The table", KIND_TABLE},
             {"WORDS", "The entry, or a file of entries",
              operation.by_key ? KIND_KEY_FIELD : KIND_ENTRY_FIELD, COUNT_SOME, "FIELD=VALUE|@FILE|-"},
             {"--cut", "Send values that do not fit; the agent cuts them", KIND_FLAG}},
            [&operation](const given_s &given) { return run_table(given, operation); }};
}

}  // namespace

commands_t table_commands() {
    commands_t commands = {{"table", "Add, update, delete and show entries of P4 tables",
                            "Examples:\n  nyxctl table add flow_info k1=7 d1=5\n"
                            "  nyxctl table get flow_info k1=7\n  nyxctl table add --help"}};
    for (const operation_s &operation : k_operations) {
        commands.push_back(command_of(operation));
    }
    return commands;
}

}  // namespace nyxctl
