// The differences between two JSON documents.

#pragma once

#include <string>

#include "client/core/json_dom.h"
#include "client/core/rows.h"

namespace nyxctl {

// A row for each difference: path, old, new, and for numbers the change. Lists whose elements all have an id of their
// own ("spec.id", "id", "type", "table_name", "port", "name" and the like) are compared by it, ports[00..01].status,
// others by index. What is on one side alone is "(absent)" on the other.
rows_s json_differences(const json_t &before, const json_t &after);

// A line for each: "path: old -> new (+3)".
std::string differences_text(const rows_s &differences);

// Keys in alphabetical order, and lists with ids in the order of these.
json_t sorted_json(const json_t &dom);

}  // namespace nyxctl
