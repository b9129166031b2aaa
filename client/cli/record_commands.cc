#include "client/cli/record_commands.h"

#include <iostream>
#include <memory>

#include "client/core/bytes_text.h"
#include "client/core/json.h"
#include "client/core/text_io.h"
#include "client/table/entry_args.h"
#include "client/table/record_codec.h"
#include "client/table/record_rows.h"

namespace nyxctl {
namespace {

constexpr char k_explain_footer[] =
    R"(Without TABLE all tables are listed. KEY OFFSET is where a field of the key stands in the key record.
Integers are little-endian. The names of the fields are those that encode and table add take.

Examples:
  nyxctl explain
  nyxctl explain flow_info)";

constexpr char k_encode_footer[] = R"(

Examples:
  nyxctl encode vlan_mapping k1=100 k2=7 d1=5
  nyxctl encode vlan_mapping k1=100 k2=7 --key)";

constexpr char k_decode_footer[] =
    R"(HEX is pairs of hex digits, also in groups ("00 6400" as "00:64:00"), @FILE, or - for stdin.

Examples:
  nyxctl decode vlan_mapping 006400070005000000
  nyxctl decode vlan_mapping 64000700 --key
  nyxctl encode vlan_mapping k1=100 | nyxctl decode vlan_mapping -)";

struct record_options_s {
    std::string table;
    std::vector<std::string> words;
    std::string hex;
    bool key = false;
    bool cut = false;
};

outcome_s run_explain(const global_options_s &global, const record_options_s &options) {
    if (options.table.empty()) {
        return write_rows(global, all_layout_rows());
    }
    table_layout_s layout{};
    if (outcome_s outcome = find_table(options.table, &layout); !outcome.ok()) {
        return outcome;
    }
    return write_stdout(global.json ? indented(layout_json(layout)) + "\n"
                                    : layout_summary(layout) + "\n" + rows_to_text(layout_rows(layout)));
}

outcome_s run_encode(const global_options_s &global, const record_options_s &options) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(options.table, &layout); !outcome.ok()) {
        return outcome;
    }
    const auto entry = new_message(options.key ? layout.key : layout.spec);
    const auto fill = options.key ? fill_key : fill_spec;
    if (outcome_s outcome = fill(layout, options.words, options.cut, entry.get()); !outcome.ok()) {
        return outcome;
    }
    const std::string record = options.key ? encode_key(layout, *entry) : encode_record(layout, *entry);
    const std::string hex = bytes_to_text(record, types::BYTES_TEXT_HEX);
    return write_stdout((global.json ? indented(json_text({{"record", hex}})) : hex) + "\n");
}

outcome_s read_hex(const std::string &argument, std::string *record) {
    std::string text;
    if (outcome_s outcome = read_argument(argument, &text); !outcome.ok()) {
        return outcome;
    }
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    std::string error;
    return bytes_from_text(text, types::BYTES_TEXT_HEX, record, &error) ? outcome_s()
                                                                        : usage_failure("HEX: " + error);
}

outcome_s decode_entry(const global_options_s &global, const table_layout_s &layout,
                       const std::string &record) {
    const auto spec = new_message(layout.spec);
    if (outcome_s outcome = decode_record(layout, record, spec.get()); !outcome.ok()) {
        return outcome;
    }
    if (!global.json && encode_record(layout, *spec) != record) {
        std::cerr << "nyxctl: note: some bytes belong to none of these fields: data that the action does not "
                     "have, a "
                     "mask whose flag is 0, or a flag above 1"
                  << std::endl;
    }
    return write_rows(global, spec_rows(layout, *spec));
}

outcome_s decode_key_record(const global_options_s &global, const table_layout_s &layout,
                            const std::string &record) {
    const auto key = new_message(layout.key);
    outcome_s outcome = decode_key(layout, record, key.get());
    return outcome.ok() ? write_rows(global, key_rows(layout, *key)) : outcome;
}

outcome_s run_decode(const global_options_s &global, const record_options_s &options) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(options.table, &layout); !outcome.ok()) {
        return outcome;
    }
    std::string record;
    if (outcome_s outcome = read_hex(options.hex, &record); !outcome.ok()) {
        return outcome;
    }
    return (options.key ? decode_key_record : decode_entry)(global, layout, record);
}

using options_t = std::shared_ptr<record_options_s>;

template <typename RUN>
void set_run(CLI::App *command, context_s *context, const options_t &options, RUN run) {
    command->callback([=] { context->run = [=] { return run(context->global, *options); }; });
}

void add_explain(CLI::App *app, context_s *context) {
    const auto options = std::make_shared<record_options_s>();
    CLI::App *command =
        add_command(app, "explain", "Show the record of a P4 table; needs no agent", k_explain_footer);
    command->add_option("TABLE", options->table, "The table");
    set_run(command, context, options, run_explain);
}

void add_encode(CLI::App *app, context_s *context) {
    const auto options = std::make_shared<record_options_s>();
    CLI::App *command = add_command(app, "encode", "Show the record of an entry in hex; needs no agent",
                                    std::string(k_entry_words_help) + k_encode_footer);
    command->add_option("TABLE", options->table, "The table")->required();
    command->add_option("WORDS", options->words, "The entry")->type_name("FIELD=VALUE ...")->required();
    command->add_flag("--key", options->key, "The key record");
    command->add_flag("--cut", options->cut, "Cut values that do not fit, as the agent does");
    set_run(command, context, options, run_encode);
}

void add_decode(CLI::App *app, context_s *context) {
    const auto options = std::make_shared<record_options_s>();
    CLI::App *command =
        add_command(app, "decode", "Show the fields of a record in hex; needs no agent", k_decode_footer);
    command->add_option("TABLE", options->table, "The table")->required();
    command->add_option("HEX", options->hex, "The record")->type_name("HEX|@FILE|-")->required();
    command->add_flag("--key", options->key, "It is a key record");
    set_run(command, context, options, run_decode);
}

}  // namespace

void add_record_commands(CLI::App *app, context_s *context) {
    add_explain(app, context);
    add_encode(app, context);
    add_decode(app, context);
}

}  // namespace nyxctl
