// Entries of a P4 table from words such as "k1=7 mask.k1=255 action=0 d1=5 d2=0a:0b".

#pragma once

#include <google/protobuf/message.h>

#include <string>
#include <vector>

#include "client/core/outcome.h"
#include "client/table/record_layout.h"

namespace nyxctl {

// How the words are written: a part of the help of every command that takes them.
extern const char k_entry_words_help[];

// Fills `spec`, an empty message of layout.spec, from the words. Plain dN belongs to the action that is given, or else
// to the only one that has data. A mask that is given is valid. Values too wide for the record are refused unless `cut`.
// Usage failures name the word, what is allowed, and the nearest fields of this table.
outcome_s fill_spec(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                    google::protobuf::Message *spec);

// The same for an empty key message, of layout.key: "k1=7", "key.k1=7".
outcome_s fill_key(const table_layout_s &layout, const std::vector<std::string> &words, bool cut,
                   google::protobuf::Message *key);

}  // namespace nyxctl
