// The differences between two JSON documents.

#pragma once

#include <google/protobuf/descriptor.h>

#include <cstddef>
#include <map>
#include <string>

#include "client/core/json_dom.h"

namespace nyxctl {

struct differences_s {
    json_t rows = json_t::array();  // {"path", "old", "new", "change"}; change is null except for numbers
    size_t left_out = 0;            // fields that differ besides
};

// What the members of a document are, by their names.
using member_types_t = std::map<std::string, const google::protobuf::Descriptor *>;

// Lists whose elements all have an id of their own ("spec.id", "id", "type", "table_name", "port", "name" and the like)
// are compared by it, ports[00..01].status, others by index. What is missing on one side is "(absent)" there. Fields with
// the options types.counter and types.volatile in members of `types` are left out.
differences_s json_differences(const json_t &before, const json_t &after, const member_types_t &types = {});

// A line for each: "path: old -> new (+3)", or a line that says that nothing differs.
std::string differences_text(const differences_s &differences);

// Lists with ids in the order of these.
json_t sorted_json(const json_t &dom);

}  // namespace nyxctl
