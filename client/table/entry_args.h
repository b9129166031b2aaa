// Entries of a P4 table from texts of their fields: words such as "k1=7 mask.k1=255 action=0 d1=5 d2=0a:0b", or rows
// under columns of these names.

#pragma once

#include <google/protobuf/message.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/core/message_plan.h"
#include "client/core/outcome.h"
#include "client/table/record_layout.h"

namespace nyxctl {

// How the words are written: a part of the help of every command that takes them.
extern const char k_entry_words_help[];

// Fills entries, messages of layout.spec, or keys, of layout.key, from values under the same names. Plain dN belongs to
// the action that is given, or else to the only one that has data. A mask that is given is valid. Values too wide for
// the record are refused unless `cut`. The layout must outlive it.
class entry_columns {
 public:
    entry_columns(const table_layout_s &layout, bool is_key, bool cut)
        : layout_(layout), is_key_(is_key), cut_(cut) {}

    // Usage failures name the column and the nearest fields of this table.
    outcome_s set_names(const std::vector<std::string> &names);

    size_t size() const { return columns_.size(); }

    // Sets the columns that have a value; std::string_view() means no value. Usage failures name the column, the value and
    // what is allowed.
    outcome_s fill(std::span<const std::string_view> values, google::protobuf::Message *message) const;

 private:
    struct target_s {
        const record_field_s *place;  // null for client_tag
        field_plan_s plan;
    };
    struct column_s {
        std::string name;
        std::vector<target_s> targets;  // several only for data of several actions
    };
    class row;

    column_s find(const std::string &name) const;
    outcome_s unknown(const std::string &name) const;

    const table_layout_s &layout_;
    const bool is_key_;
    const bool cut_;
    std::vector<column_s> columns_;
};

// Fills a message of layout.spec from FIELD=VALUE words, or one of layout.key from "k1=7", "key.k1=7".
outcome_s fill_spec(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                    google::protobuf::Message *spec);
outcome_s fill_key(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                   google::protobuf::Message *key);

}  // namespace nyxctl
