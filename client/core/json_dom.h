// JSON text to a tree and back.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace nyxctl {

using json_t = nlohmann::ordered_json;

// Refuses what the grammar does not allow, more than k_json_depth_max levels, and a key that occurs twice in
// an object (the tree would silently keep one of the two). Then returns false, sets `error`, and `dom` is
// unspecified.
[[nodiscard]] bool parse_json(std::string_view text, json_t *dom, std::string *error);

// One line, or several with `indent` spaces a level. Strings that are not UTF-8 get replacement characters.
std::string dump_json(const json_t &dom, int indent = -1);

}  // namespace nyxctl
