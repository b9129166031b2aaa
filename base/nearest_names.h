// Suggestions for a misspelled name.

#pragma once

#include <algorithm>
#include <cctype>
#include <compare>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/edit_distance.h"

namespace base {

namespace detail {

inline std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

// The part of a dotted name that follows all but the last `dots` of its dots.
inline std::string_view last_parts(std::string_view name, size_t dots) {
    size_t at = name.size();
    for (size_t i = 0; i <= dots; ++i) {
        at = at == 0 ? name.npos : name.rfind('.', at - 1);
        if (at == name.npos) {
            return name;
        }
    }
    return name.substr(at + 1);
}

// A name that contains the given one is as good as one with a single wrong letter.
inline size_t mistakes(std::string_view given, std::string_view name) {
    const size_t distance = edit_distance(given, name);
    const bool contained = given.size() >= 3 && name.find(given) != name.npos;
    return contained ? std::min<size_t>(distance, 1) : distance;
}

// In the order of preference: the closest, and among those the shortest.
struct candidate_s {
    size_t mistakes;
    size_t size;
    std::string_view name;

    auto operator<=>(const candidate_s &) const = default;
};

}  // namespace detail

// Returns "; nearest: a, b, c" with up to four of `names` that look most like `given`, best first, or "" when none is
// close. Ignores case. Of a dotted name, compares only as many of the last parts as `given` has. Takes time in
// proportion to the size of all names; of `given`, the first 128 bytes count.
inline std::string nearest_names_text(std::string_view given, std::span<const std::string> names) {
    constexpr size_t k_suggestions_max = 4, k_compared_max = 128;
    const std::string wanted = detail::lower(given.substr(0, k_compared_max));
    const auto dots = static_cast<size_t>(std::ranges::count(wanted, '.'));
    const size_t mistakes_max = wanted.size() / 3 + 1;
    std::vector<detail::candidate_s> found;
    for (const std::string &name : names) {
        const size_t mistakes = detail::mistakes(wanted, detail::lower(detail::last_parts(name, dots)));
        if (mistakes <= mistakes_max) {
            found.push_back({mistakes, name.size(), name});
        }
    }
    std::ranges::sort(found);
    std::string text;
    for (size_t i = 0; i < std::min(found.size(), k_suggestions_max); ++i) {
        text += (i == 0 ? "; nearest: " : ", ") + std::string(found[i].name);
    }
    return text;
}

// The same; when none is close, "; known: a, b, c" with all of them. For short lists of names.
inline std::string nearest_or_known_text(std::string_view given, std::span<const std::string> names) {
    if (const std::string nearest = nearest_names_text(given, names); !nearest.empty()) {
        return nearest;
    }
    std::string text;
    for (const std::string &name : names) {
        text += (text.empty() ? "; known: " : ", ") + name;
    }
    return text;
}

}  // namespace base
