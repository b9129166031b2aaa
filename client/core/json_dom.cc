#include "client/core/json_dom.h"

#include <fmt/format.h>

#include "client/core/json_reader.h"

namespace nyxctl {
namespace {

// Objects and lists within each other, without looking at anything else.
size_t depth_of(std::string_view json) {
    size_t depth = 0;
    size_t deepest = 0;
    bool in_string = false;
    for (size_t i = 0; i < json.size(); i++) {
        if (in_string && json[i] == '\\') {
            i++;
        } else if (json[i] == '"') {
            in_string = !in_string;
        } else if (!in_string && (json[i] == '{' || json[i] == '[')) {
            deepest = std::max(deepest, ++depth);
        } else if (!in_string && (json[i] == '}' || json[i] == ']')) {
            depth -= depth > 0;
        }
    }
    return deepest;
}

}  // namespace

bool parse_json(std::string_view text, json_t *dom, std::string *error) {
    if (depth_of(text) > k_json_depth_max) {
        *error = fmt::format("nested deeper than {} levels", k_json_depth_max);
        return false;
    }
    try {
        *dom = json_t::parse(text);
    } catch (const json_t::exception &e) {
        *error = json_error_text(e.what());
        return false;
    }
    return true;
}

std::string dump_json(const json_t &dom, int indent) {
    return dom.dump(indent, ' ', false, json_t::error_handler_t::replace);
}

}  // namespace nyxctl
