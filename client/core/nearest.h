// Suggestions for a misspelled name.

#pragma once

#include <span>
#include <string>
#include <string_view>

namespace nyxctl {

// A text of the form "; nearest: a, b, c" with the names that look most like `given`, best first, or "" when
// none is close. Case does not count. Of a dotted name only as many of the last parts are compared as `given`
// has.
std::string nearest_names_text(std::string_view given, std::span<const std::string> names);

}  // namespace nyxctl
