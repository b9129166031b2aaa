#include <iostream>

#include "client/cli/commands.h"
#include "client/core/bytes_text.h"
#include "client/core/json.h"
#include "client/core/text_io.h"
#include "client/table/entry_args.h"
#include "client/table/record_codec.h"
#include "client/table/record_rows.h"

namespace nyxctl {
namespace {

constexpr char k_explain_footer[] =
    R"(Without TABLE all tables are listed. KEY OFFSET is the offset of a key field in
the key record. Integers are little-endian. encode and table add take the fields
by these names.

Examples:
  nyxctl explain
  nyxctl explain flow_info)";

constexpr char k_encode_footer[] = R"(

Examples:
  nyxctl encode vlan_mapping k1=100 k2=7 d1=5
  nyxctl encode vlan_mapping k1=100 k2=7 --key)";

constexpr char k_decode_footer[] =
    R"(HEX is pairs of hex digits, also in groups ("00 6400", "00:64:00"), @FILE, or -
for stdin.

Examples:
  nyxctl decode vlan_mapping 006400070005000000
  nyxctl decode vlan_mapping 64000700 --key
  nyxctl encode vlan_mapping k1=100 | nyxctl decode vlan_mapping -)";

outcome_s run_explain(const given_s &given) {
    if (!given.has("TABLE")) {
        return write_rows(given.global, all_layout_rows());
    }
    table_layout_s layout{};
    if (outcome_s outcome = find_table(given.one("TABLE"), &layout); !outcome.ok()) {
        return outcome;
    }
    return write_result(given.global, layout_json(layout),
                        layout_summary(layout) + "\n" + rows_to_text(layout_rows(layout)));
}

outcome_s run_encode(const given_s &given) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(given.one("TABLE"), &layout); !outcome.ok()) {
        return outcome;
    }
    const bool key = given.has("--key");
    const auto entry = new_message(key ? layout.key : layout.spec);
    const auto fill = key ? fill_key : fill_spec;
    if (outcome_s outcome = fill(layout, given.all("WORDS"), given.has("--cut"), entry.get());
        !outcome.ok()) {
        return outcome;
    }
    const std::string record = key ? encode_key(layout, *entry) : encode_record(layout, *entry);
    const std::string hex = bytes_to_text(record, types::BYTES_TEXT_HEX);
    return write_result(given.global, json_text({{"record", hex}}), hex + "\n");
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
                     "have, a mask whose flag is 0, or a flag above 1"
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

outcome_s run_decode(const given_s &given) {
    table_layout_s layout{};
    if (outcome_s outcome = find_table(given.one("TABLE"), &layout); !outcome.ok()) {
        return outcome;
    }
    std::string record;
    if (outcome_s outcome = read_hex(given.one("HEX"), &record); !outcome.ok()) {
        return outcome;
    }
    return (given.has("--key") ? decode_key_record : decode_entry)(given.global, layout, record);
}

}  // namespace

commands_t record_commands() {
    const argument_s table = {"TABLE", "The table", KIND_TABLE};
    return {
        {"explain",
         "Show the record of a P4 table; needs no agent",
         k_explain_footer,
         {{"TABLE", "The table", KIND_TABLE, COUNT_OPTIONAL}},
         run_explain},
        {"encode",
         "Show the record of an entry in hex; needs no agent",
         std::string(k_entry_words_help) + k_encode_footer,
         {table,
          {"WORDS", "The entry", KIND_ENTRY_FIELD, COUNT_SOME, "FIELD=VALUE"},
          {"--key", "The key record", KIND_FLAG},
          {"--cut", "Cut values that do not fit, as the agent does", KIND_FLAG}},
         run_encode},
        {"decode",
         "Show the fields of a record in hex; needs no agent",
         k_decode_footer,
         {table,
          {"HEX", "The record", KIND_TEXT, COUNT_ONE, "HEX|@FILE|-"},
          {"--key", "It is a key record", KIND_FLAG}},
         run_decode},
    };
}

}  // namespace nyxctl
