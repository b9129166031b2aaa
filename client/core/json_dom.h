// Whole JSON documents as trees, for what is compared or sorted.

#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace nyxctl {

using json_t = nlohmann::ordered_json;

// Refuses what the grammar does not allow, and more than k_json_depth_max levels. Then returns false, sets `error`, and
// `dom` is unspecified.
[[nodiscard]] bool parse_json(std::string_view text, json_t *dom, std::string *error);

// One line, or several with `indent` spaces a level. Strings that are not UTF-8 get replacement characters.
std::string dump_json(const json_t &dom, int indent = -1);

}  // namespace nyxctl
