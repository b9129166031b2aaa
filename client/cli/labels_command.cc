#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "base/nearest_names.h"
#include "client/cli/commands.h"
#include "client/core/labels.h"
#include "client/core/symbols.h"
#include "client/core/text_io.h"
#include "client/table/record_layout.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr char k_footer[] =
    R"(The contract leaves the meaning of many fields to the card. TOML files say what
people call them; views, words of commands, completion and metrics then do, too.
Of several files, the later ones win: those of share/svc_quill/labels.d beside
the program, those of /etc/nyx/labels.d, and what --labels names.

  ["nyx.SystemTemperature.value_1"]     a field
  name = "core"
  unit = "°C"
  scale = 0.1                           what people see is the number times this
  help = "Hottest sensor of the chip"
  warn = 90                             limits: above this, or
  critical = { above = 105, below = 5 }
  short = true                          show it first; false: only with --all
  ["nyx.LifStatus.lif_word_3"]
  counter = true                        it counts events
  ["nyx.PortStats.mac_stats[17]"]       an element of a list, by its number
  name = "rx frames"
  ["nyx.PortLinkState"]                 an enumeration, or any field
  values = { "1" = "down", "2" = "up" }
  ["nyx.LedStatus.LED_STATUS_1"]        an enumerator
  name = "green"
  ["flow.k1"]                           a field of a table, see nyxctl explain;
  name = "source"                       flow.MEMBER.d1 for data of one action

Examples:
  nyxctl labels check
  nyxctl show ports --labels none
  nyxctl show system -j --labels json)";

constexpr char k_check_footer[] =
    R"(Exit codes: 0 everything fits, 1 something does not.

Example:
  nyxctl labels check)";

// All that an entry can be about, but for elements of lists.
class known_keys {
 public:
    known_keys() {
        for (const std::string &name : all_message_names()) {
            add(pb::DescriptorPool::generated_pool()->FindMessageTypeByName(name));
        }
        for (const std::string &table : table_names()) {
            table_layout_s layout{};
            (void)find_table(table, &layout);
            add(table + ".entries");  // only limits, for health
            for (const record_field_s &field : layout.fields) {
                add(fmt::format("{}.{}", table, field.short_name()));
            }
        }
    }

    // "", or what is wrong with the key.
    std::string complaint(const std::string &key) const {
        const size_t bracket = key.ends_with(']') ? key.rfind('[') : key.npos;
        const std::string whole = key.substr(0, bracket);
        const auto targets = label_targets(whole);
        const auto *field = pb::DescriptorPool::generated_pool()->FindFieldByName(targets.front());
        if (bracket != key.npos && field && !field->is_repeated()) {
            return fmt::format("{} is not a list; leave {} out", whole, key.substr(bracket));
        }
        return set_.contains(whole) || targets.front() != whole
                   ? ""
                   : "there is no such thing" + base::nearest_names_text(whole, names_);
    }

 private:
    void add(const std::string &name) {
        if (set_.insert(name).second) {
            names_.push_back(name);
        }
    }

    void add(const pb::Descriptor *type) {
        for (int i = 0; type && i < type->field_count(); i++) {
            add(type->field(i)->full_name());
            const pb::EnumDescriptor *values = type->field(i)->enum_type();
            for (int j = 0; values && j < values->value_count(); j++) {
                add(values->full_name());
                add(values->full_name() + "." + values->value(j)->name());
            }
        }
    }

    std::set<std::string> set_;
    std::vector<std::string> names_;
};

outcome_s run_check(const given_s &given) {
    if (given.has("FILE")) {
        use_labels({given.one("FILE")});
    }
    const known_keys known;
    rows_s rows = {.subject = "problems", .columns = {"place", "problem"}, .rows = {}};
    const auto add = [&](const std::string &text) {
        const size_t colon = text.find(": ");
        rows.rows.push_back({text.substr(0, colon), text.substr(std::min(colon + 2, text.size()))});
    };
    const auto &keys = labels().keys();
    std::ranges::for_each(labels_problems(), add);
    for (const auto &[key, place] : keys) {
        const std::string complaint = known.complaint(key);
        if (!complaint.empty()) {
            add(fmt::format("{}: {}: {}", place, key, complaint));
        }
    }
    std::string text = rows.rows.empty() ? fmt::format("{} entries, all of them fit\n", keys.size()) : "";
    for (const row_t &row : rows.rows) {
        text += fmt::format("{}: {}\n", cell_text(row[0]), cell_text(row[1]));
    }
    const outcome_s written = write_result(given.global, rows_to_json(rows), text);
    if (!written.ok() || rows.rows.empty()) {
        return written;
    }
    return local_failure(fmt::format("{} of {} entries do not fit", rows.rows.size(), keys.size()));
}

}  // namespace

commands_t labels_commands() {
    return {{"labels", "Names, units and limits of fields, and texts of values", k_footer},
            {"labels check",
             "Name the entries that fit nothing; needs no agent",
             k_check_footer,
             {{"FILE", "Only this file; without it all that the client reads", KIND_FILE, COUNT_OPTIONAL}},
             run_check}};
}

}  // namespace nyxctl
