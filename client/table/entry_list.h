// Many entries, or keys of entries, of a P4 table in one text.

#pragma once

#include <google/protobuf/message.h>

#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "client/core/outcome.h"

namespace nyxctl {

using message_list_t = std::vector<std::unique_ptr<google::protobuf::Message>>;
using entries_t = std::span<const std::unique_ptr<google::protobuf::Message>>;

// How many entries are done; called now and then.
using progress_t = std::function<void(size_t done)>;

// Appends the messages of a text: one JSON object in each line, empty lines aside, or one JSON array of objects. The
// first that is wrong, or holds a value too wide for the record unless `cut`, is a usage failure that names its line or
// its place in the array.
outcome_s parse_entries(std::string_view text, const google::protobuf::Descriptor *type, bool cut,
                        const progress_t &progress, message_list_t *entries);

}  // namespace nyxctl
