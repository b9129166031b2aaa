// The differences between two JSON documents.

#pragma once

#include <string>

#include "client/core/json_dom.h"

namespace nyxctl {

// A list of {"path", "old", "new", "change"}, one for each difference; change is null except for numbers. Lists whose
// elements all have an id of their own ("spec.id", "id", "type", "table_name", "port", "name" and the like) are compared
// by it, ports[00..01].status, others by index. What is missing on one side is "(absent)" there.
json_t json_differences(const json_t &before, const json_t &after);

// A line for each: "path: old -> new (+3)".
std::string differences_text(const json_t &differences);

// Lists with ids in the order of these.
json_t sorted_json(const json_t &dom);

}  // namespace nyxctl
