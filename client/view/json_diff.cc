#include "client/view/json_diff.h"

#include <charconv>
#include <cstdint>
#include <map>
#include <optional>

namespace nyxctl {
namespace {

// Better ones first.
constexpr const char *k_id_pointers[] = {"/spec/id",          "/id",         "/type", "/reasons",   "/queue",
                                         "/queue_number",     "/table_name", "/port", "/spec/name", "/name",
                                         "/port/port_number", "/port_number"};
constexpr char k_absent[] = "(absent)";

std::string id_text(const json_t &id) { return id.is_string() ? id.get<std::string>() : dump_json(id); }

struct by_id_s {  // numbers by their value, before all others
    bool operator()(const json_t &a, const json_t &b) const {
        if (a.is_number() != b.is_number()) return a.is_number();
        return a.is_number() ? a < b : id_text(a) < id_text(b);
    }
};

using elements_t = std::map<json_t, const json_t *, by_id_s>;

std::optional<elements_t> elements_by(const json_t &list, const json_t::json_pointer &pointer) {
    elements_t elements;
    for (const json_t &element : list) {
        const bool has_id =
            element.is_object() && element.contains(pointer) && element[pointer].is_primitive();
        if (!has_id || !elements.emplace(element[pointer], &element).second) {
            return {};
        }
    }
    return elements;
}

elements_t elements_by_index(const json_t &list) {
    elements_t elements;
    for (size_t i = 0; i < list.size(); i++) {
        elements.emplace(i, &list[i]);
    }
    return elements;
}

struct lists_s {
    elements_t before;
    elements_t after;
};

// By the same id on both sides.
lists_s elements_of(const json_t &before, const json_t &after) {
    for (const char *id : k_id_pointers) {
        const json_t::json_pointer pointer(id);
        auto first = elements_by(before, pointer);
        auto second = elements_by(after, pointer);
        if (first && second) {
            return {std::move(*first), std::move(*second)};
        }
    }
    return {elements_by_index(before), elements_by_index(after)};
}

// The number in a cell: 64-bit ones are texts in protobuf's JSON.
std::optional<uint64_t> number_of(const json_t &value) {
    const std::string text = value.is_string() ? value.get<std::string>() : dump_json(value);
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

class differences_c {
 public:
    explicit differences_c(rows_s *rows) : rows_(rows) {}

    void compare(const std::string &path, const json_t &before, const json_t &after) {
        if (before.is_object() && after.is_object()) {
            compare_objects(path, before, after);
        } else if (before.is_array() && after.is_array()) {
            compare_lists(path, elements_of(before, after));
        } else if (before != after) {
            add(path, before, after, change_of(before, after));
        }
    }

 private:
    void add(const std::string &path, const json_t &before, const json_t &after, json_t change) {
        rows_->rows.push_back({path.empty() ? "(document)" : path, before, after, std::move(change)});
    }

    void compare_objects(const std::string &path, const json_t &before, const json_t &after) {
        const std::string prefix = path.empty() ? "" : path + ".";
        for (const auto &[name, value] : before.items()) {
            if (after.contains(name)) {
                compare(prefix + name, value, after[name]);
            } else {
                add(prefix + name, value, k_absent, nullptr);
            }
        }
        for (const auto &[name, value] : after.items()) {
            if (!before.contains(name)) {
                add(prefix + name, k_absent, value, nullptr);
            }
        }
    }

    void compare_lists(const std::string &path, const lists_s &lists) {
        for (const auto &[id, element] : lists.before) {
            const auto other = lists.after.find(id);
            const std::string name = path + "[" + id_text(id) + "]";
            if (other != lists.after.end()) {
                compare(name, *element, *other->second);
            } else {
                add(name, *element, k_absent, nullptr);
            }
        }
        for (const auto &[id, element] : lists.after) {
            if (!lists.before.contains(id)) {
                add(path + "[" + id_text(id) + "]", k_absent, *element, nullptr);
            }
        }
    }

    rows_s *rows_;
};

}  // namespace

rows_s json_differences(const json_t &before, const json_t &after) {
    rows_s rows{"differences", {"path", "old", "new", "change"}, {}};
    differences_c(&rows).compare("", before, after);
    return rows;
}

std::string differences_text(const rows_s &differences) {
    std::string text;
    for (const auto &row : differences.rows) {
        text += cell_text(row[0]) + ": " + cell_text(row[1]) + " -> " + cell_text(row[2]);
        const std::string sign = row[3].is_number() && row[3].get<double>() >= 0 ? "+" : "";
        text += row[3].is_null() ? "\n" : " (" + sign + cell_text(row[3]) + ")\n";
    }
    return text.empty() ? "no differences\n" : text;
}

json_t sorted_json(const json_t &dom) {
    if (dom.is_array()) {
        json_t list = json_t::array();
        for (const auto &[id, element] : elements_of(dom, dom).before) {
            list.push_back(sorted_json(*element));
        }
        return list;
    }
    if (!dom.is_object()) {
        return dom;
    }
    std::map<std::string, json_t> members;
    for (const auto &[name, value] : dom.items()) {
        members.emplace(name, sorted_json(value));
    }
    json_t object = json_t::object();
    for (auto &[name, value] : members) {
        object[name] = std::move(value);
    }
    return object;
}

}  // namespace nyxctl
