#include "client/view/json_diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "client/core/value.h"
#include "nyx/types/options.pb.h"

namespace pb = google::protobuf;

namespace nyxctl {
namespace {

// In the order of preference.
constexpr const char *k_id_pointers[] = {"/spec/id",          "/id",         "/type", "/reasons",   "/queue",
                                         "/queue_number",     "/table_name", "/port", "/spec/name", "/name",
                                         "/port/port_number", "/port_number"};
constexpr char k_absent[] = "(absent)";

std::string text_of(const json_t &value) {
    return value.is_string() ? value.get<std::string>() : dump_json(value);
}

struct by_id_s {  // numbers by their value, before all others
    bool operator()(const json_t &a, const json_t &b) const {
        if (a.is_number() != b.is_number()) return a.is_number();
        return a.is_number() ? a < b : text_of(a) < text_of(b);
    }
};

// Of an object by name, of a list by id.
using members_t = std::map<json_t, const json_t *, by_id_s>;

std::optional<members_t> elements_by(const json_t &list, const json_t::json_pointer &pointer) {
    members_t elements;
    for (const json_t &element : list) {
        const bool has_id =
            element.is_object() && element.contains(pointer) && element[pointer].is_primitive();
        if (!has_id || !elements.emplace(element[pointer], &element).second) {
            return {};
        }
    }
    return elements;
}

// The elements of a list have an id when each of them has it and no two share it; otherwise their index counts.
members_t members_of(const json_t &dom) {
    for (const char *id : k_id_pointers) {
        auto elements = dom.is_array() ? elements_by(dom, json_t::json_pointer(id)) : std::nullopt;
        if (elements) {
            return std::move(*elements);
        }
    }
    members_t members;
    for (const auto &[name, value] : dom.items()) {
        members.emplace(dom.is_array() ? json_t(members.size()) : json_t(name), &value);
    }
    return members;
}

// 64-bit numbers are texts in protobuf's JSON.
std::optional<uint64_t> number_of(const json_t &value) {
    const std::string text = text_of(value);
    uint64_t number = 0;
    const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = parsed.ec == std::errc() && parsed.ptr == text.data() + text.size();
    return is_number ? std::optional(number) : std::nullopt;
}

// As exact as a number in JSON can be.
json_t negative(uint64_t size) {
    return size <= uint64_t{INT64_MAX} ? json_t(-static_cast<int64_t>(size))
                                       : json_t(-static_cast<double>(size));
}

json_t change_of(const json_t &before, const json_t &after) {
    if (before.is_number_float() || after.is_number_float()) {
        return before.is_number() && after.is_number() ? json_t(after.get<double>() - before.get<double>())
                                                       : json_t();
    }
    const auto first = number_of(before);
    const auto second = number_of(after);
    if (!first || !second) {
        return nullptr;
    }
    return *second < *first ? negative(*first - *second) : json_t(*second - *first);
}

const json_t *member(const members_t &members, const json_t &id) {
    const auto found = members.find(id);
    return found == members.end() ? nullptr : found->second;
}

bool moves_by_itself(const pb::FieldDescriptor *field) {
    return field &&
           (field->options().GetExtension(types::counter) || field->options().GetExtension(types::volatile_));
}

struct comparison_s {
    using type_t = const pb::Descriptor *;  // of a message; null where only the JSON is known

    const member_types_t &types;
    differences_s differences = {};

    void compare_member(const std::string &path, const std::string &name, const json_t *before,
                        const json_t *after, type_t type) {
        const pb::FieldDescriptor *field = type ? type->FindFieldByName(name) : nullptr;
        if (moves_by_itself(field)) {
            differences.left_out += !before || !after || *before != *after;
        } else if (path.empty()) {
            compare(name, before, after, types.contains(name) ? types.at(name) : nullptr);
        } else {
            compare(path + "." + name, before, after, field ? field->message_type() : nullptr);
        }
    }

    void compare_members(const std::string &path, const json_t &before, const json_t &after, type_t type) {
        const members_t olds = members_of(before);
        const members_t news = members_of(after);
        members_t all = olds;
        all.insert(news.begin(), news.end());
        for (const auto &[id, unused] : all) {
            if (before.is_array()) {
                compare(path + "[" + text_of(id) + "]", member(olds, id), member(news, id), type);
            } else {
                compare_member(path, text_of(id), member(olds, id), member(news, id), type);
            }
        }
    }

    void compare(const std::string &path, const json_t *before, const json_t *after, type_t type) {
        if (before && after && before->is_structured() && before->type() == after->type()) {
            compare_members(path, *before, *after, type);
        } else if (!before || !after || *before != *after) {
            differences.rows.push_back({{"path", path.empty() ? "(document)" : path},
                                        {"old", before ? *before : json_t(k_absent)},
                                        {"new", after ? *after : json_t(k_absent)},
                                        {"change", before && after ? change_of(*before, *after) : json_t()}});
        }
    }
};

std::string shown_text(const json_t &value) {
    return value.is_string() ? cell_text(value.get<std::string>()) : value.is_null() ? "-" : dump_json(value);
}

}  // namespace

differences_s json_differences(const json_t &before, const json_t &after, const member_types_t &types) {
    comparison_s comparison{.types = types};
    comparison.compare("", &before, &after, nullptr);
    return comparison.differences;
}

std::string differences_text(const differences_s &differences) {
    std::string text;
    for (const json_t &row : differences.rows) {
        text += fmt::format("{}: {} -> {}", shown_text(row["path"]), shown_text(row["old"]),
                            shown_text(row["new"]));
        const json_t &change = row["change"];
        text += change.is_null()
                    ? "\n"
                    : fmt::format(" ({}{})\n", change.get<double>() >= 0 ? "+" : "", dump_json(change));
    }
    return text.empty() ? "no differences\n" : text;
}

json_t sorted_json(const json_t &dom) {
    if (!dom.is_structured()) {
        return dom;
    }
    json_t sorted = dom.is_array() ? json_t::array() : json_t::object();
    for (const auto &[id, value] : members_of(dom)) {
        if (dom.is_array()) {
            sorted.push_back(sorted_json(*value));
        } else {
            sorted[text_of(id)] = sorted_json(*value);
        }
    }
    return sorted;
}

}  // namespace nyxctl
