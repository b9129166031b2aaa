#include "client/core/nearest.h"

#include <algorithm>
#include <cctype>
#include <compare>
#include <vector>

#include "base/edit_distance.h"

namespace nyxctl {
namespace {

constexpr size_t k_suggestions_max = 4;
constexpr size_t k_compared_max = 128;  // longer input is no misspelled name, and the distance is quadratic

std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

std::string_view last_parts(std::string_view name, size_t dots) {
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
size_t score(std::string_view given, std::string_view name) {
    const size_t distance = base::edit_distance(given, name);
    const bool contained = given.size() >= 3 && name.find(given) != name.npos;
    return contained ? std::min<size_t>(distance, 1) : distance;
}

// In the order of preference: the closest, and among those the shortest.
struct candidate_s {
    size_t points;
    size_t size;
    std::string_view name;

    auto operator<=>(const candidate_s &) const = default;
};

}  // namespace

std::string nearest_names_text(std::string_view given, std::span<const std::string> names) {
    const std::string wanted = lower(given.substr(0, k_compared_max));
    const size_t dots = std::ranges::count(wanted, '.');
    const size_t worst = wanted.size() / 3 + 1;
    std::vector<candidate_s> found;
    for (const std::string &name : names) {
        const size_t points = score(wanted, lower(last_parts(name, dots)));
        if (points <= worst) {
            found.push_back({points, name.size(), name});
        }
    }
    std::ranges::sort(found);
    std::string text;
    for (size_t i = 0; i < std::min(found.size(), k_suggestions_max); ++i) {
        text += (i == 0 ? "; nearest: " : ", ") + std::string(found[i].name);
    }
    return text;
}

}  // namespace nyxctl
