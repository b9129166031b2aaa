#include "client/view/find_object.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cctype>
#include <iterator>

#include "base/nearest_names.h"
#include "client/core/bytes_text.h"
#include "client/view/list_rows.h"
#include "client/view/read_view.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

constexpr size_t k_id_size = 16;
constexpr size_t k_named_max = 12;

using elements_t = std::vector<const pb::Message *>;
using names_t = std::vector<std::string>;

// An id of at least `least_size` bytes as ids are shown, filled up with zeros; any other text unchanged.
std::string handle_text(const std::string &given, size_t least_size) {
    std::string bytes;
    std::string error;
    if (!bytes_from_text(given, types::BYTES_TEXT_UUID, &bytes, &error) || bytes.size() < least_size ||
        bytes.size() > k_id_size) {
        return given;
    }
    bytes.resize(k_id_size);
    return bytes_to_text(bytes, types::BYTES_TEXT_UUID);
}

// The texts that identify an element. Zero, as a number or a MAC address, identifies nothing.
names_t handles_of(const element_view_s &view, const pb::Message &element) {
    names_t handles;
    for (const char *path : view.handles) {
        const std::string text = cell_text(column_value(element, {path}));
        if (text != "-" && text != "0" && text != "00:00:00:00:00:00") {
            handles.push_back(text);
        }
    }
    return handles;
}

// A full id wins over equal names of other elements.
elements_t elements_with(const element_view_s &view, const elements_t &elements, const std::string &handle) {
    elements_t found;
    for (const pb::Message *element : elements) {
        const names_t handles = handles_of(view, *element);
        if (!handles.empty() && handles.front() == handle) {
            return {element};
        }
        if (std::ranges::count(handles, handle) > 0) {
            found.push_back(element);
        }
    }
    return found;
}

// Elements whose ids begin with these digits.
elements_t elements_below(const element_view_s &view, const elements_t &elements, std::string digits) {
    const auto erase_dashes = [](std::string text) {
        std::erase(text, '-');
        return text;
    };
    std::ranges::transform(digits, digits.begin(), [](unsigned char c) { return std::tolower(c); });
    digits = erase_dashes(std::move(digits));
    elements_t found;
    std::ranges::copy_if(elements, std::back_inserter(found), [&](const pb::Message *element) {
        const names_t handles = handles_of(view, *element);
        return !digits.empty() && !handles.empty() && erase_dashes(handles.front()).starts_with(digits);
    });
    return found;
}

// A text that is both a name and a short id is taken as the name.
elements_t elements_meant(const element_view_s &view, const elements_t &elements, const std::string &given) {
    elements_t found = elements_with(view, elements, handle_text(given, k_id_size));
    if (found.empty()) {
        found = elements_with(view, elements, handle_text(given, 1));
    }
    return found.empty() ? elements_below(view, elements, given) : found;
}

// "1, 2, ...": of each element the handle at `position`, or the last before it that it has.
std::string names_text(const element_view_s &view, const elements_t &elements, size_t position) {
    names_t names;
    for (size_t i = 0; i < std::min(elements.size(), k_named_max); i++) {
        const names_t handles = handles_of(view, *elements[i]);
        if (!handles.empty()) {
            names.push_back(handles[std::min(position, handles.size() - 1)]);
        }
    }
    return fmt::format("{}{}", fmt::join(names, ", "), elements.size() > k_named_max ? ", ..." : "");
}

outcome_s unknown_element(const element_view_s &view, const elements_t &elements, const std::string &given) {
    names_t names;
    for (const pb::Message *element : elements) {
        const names_t handles = handles_of(view, *element);
        names.insert(names.end(), handles.begin(), handles.end());
    }
    const std::string all =
        elements.empty() ? "the agent has none" : "known: " + names_text(view, elements, 1);
    return {NYXCTL_EXIT_API_STATUS,
            fmt::format("unknown {0} \"{1}\"{2}; {3}; see nyxctl show {0}s", view.name, given,
                        elements.size() > k_named_max ? base::nearest_names_text(given, names) : "", all)};
}

outcome_s ambiguous_element(const element_view_s &view, const elements_t &found, const std::string &given) {
    return {NYXCTL_EXIT_API_STATUS, fmt::format("several {}s are \"{}\"; give the id: {}", view.name, given,
                                                names_text(view, found, 0))};
}

}  // namespace

outcome_s find_object(const global_options_s &global, const element_view_s &view, const std::string &given,
                      found_object_s *found) {
    *found = {};
    outcome_s outcome = read_method(global, view.method, "{}", &found->response);
    if (!found->response) {
        return outcome;
    }
    const elements_t elements = elements_at(*found->response, "response");
    const elements_t meant = elements_meant(view, elements, given);
    if (meant.size() == 1) {
        found->object = meant.front();
        return outcome;
    }
    if (!outcome.ok()) {
        return outcome;
    }
    return meant.empty() ? unknown_element(view, elements, given) : ambiguous_element(view, meant, given);
}

std::vector<std::string> object_names(const global_options_s &global, std::string_view kind,
                                      const std::string &begin) {
    const auto view = std::ranges::find(element_views(), kind, &element_view_s::name);
    std::unique_ptr<pb::Message> response;
    names_t names;
    if (view == element_views().end() || !read_method(global, view->method, "{}", &response).ok()) {
        return names;
    }
    for (const pb::Message *element : elements_at(*response, "response")) {
        const names_t handles = handles_of(*view, *element);
        if (begin.empty() && !handles.empty()) {
            names.push_back(handles[std::min<size_t>(1, handles.size() - 1)]);
        } else {
            std::ranges::copy_if(handles, std::back_inserter(names),
                                 [&](const std::string &handle) { return handle.starts_with(begin); });
        }
    }
    return names;
}

outcome_s find_id(const global_options_s &global, std::string_view kind, const std::string &given,
                  std::string *id) {
    const auto view = std::ranges::find(element_views(), kind, &element_view_s::name);
    found_object_s found;
    outcome_s outcome = find_object(global, *view, given, &found);
    if (outcome.ok()) {
        const std::string text = cell_text(column_value(*found.object, {view->handles.front()}));
        std::string error;
        (void)bytes_from_text(text, types::BYTES_TEXT_UUID, id, &error);
    }
    return outcome;
}

}  // namespace nyxctl
