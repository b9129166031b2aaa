// The TOML of labels.h.

#include <fmt/format.h>

#include "base/nearest_names.h"
#include "base/toml.h"
#include "client/core/labels.h"

namespace nyxctl {
namespace {

const std::vector<std::string> k_members = {"name",  "unit", "help",     "scale", "counter",
                                            "short", "warn", "critical", "values"};

// Takes one member of an entry. Returns "", or what would have been right.
using take_t = std::string (*)(const toml::node &node, label_s *label);

template <typename Value, auto Member>
std::string take(const toml::node &node, label_s *label) {
    const auto value = node.value<Value>();
    if (value) {
        label->*Member = *value;
    }
    return value                                ? ""
           : std::is_same_v<Value, std::string> ? "a text"
           : std::is_same_v<Value, bool>        ? "true or false"
                                                : "a number";
}

template <auto Member>
std::string take_limit(const toml::node &node, label_s *label) {
    limit_s limit{.above = node.value<double>(), .below = {}};
    if (const toml::table *table = node.as_table()) {
        limit = {.above = (*table)["above"].value<double>(), .below = (*table)["below"].value<double>()};
    }
    label->*Member = limit;
    return limit.above || limit.below ? "" : "a number, or { above = 90, below = 5 }";
}

std::string take_values(const toml::node &node, label_s *label) {
    const toml::table *table = node.as_table();
    for (const auto &[key, text] : table ? *table : toml::table()) {
        if (!text.value<std::string>()) {
            table = nullptr;
            break;
        }
        label->values[std::string(key.str())] = *text.value<std::string>();
    }
    return table ? "" : R"(texts by number, such as { "1" = "up" })";
}

const std::map<std::string_view, take_t> k_takers = {{"name", take<std::string, &label_s::name>},
                                                     {"unit", take<std::string, &label_s::unit>},
                                                     {"help", take<std::string, &label_s::help>},
                                                     {"scale", take<double, &label_s::scale>},
                                                     {"counter", take<bool, &label_s::counter>},
                                                     {"short", take<bool, &label_s::is_short>},
                                                     {"warn", take_limit<&label_s::warn>},
                                                     {"critical", take_limit<&label_s::critical>},
                                                     {"values", take_values}};

std::string place_of(const toml::node &node, const std::string &file) {
    return fmt::format("{}:{}", file, node.source().begin.line);
}

std::string take_member(std::string_view member, const toml::node &node, label_s *label) {
    const auto taker = k_takers.find(member);
    if (taker != k_takers.end()) {
        const std::string right = taker->second(node, label);
        return right.empty() ? "" : fmt::format("{}: give {}", member, right);
    }
    return fmt::format("unknown \"{}\"{}", member,
                       node.is_table()
                           ? "; put the whole key of an entry in quotes: [\"nyx.PortSpec.number_a\"]"
                           : base::nearest_names_text(member, k_members));
}

}  // namespace

std::vector<std::string> label_book::add(std::string_view toml, const std::string &file) {
    toml::table entries;
    try {
        entries = toml::parse(toml, file);
    } catch (const toml::parse_error &error) {
        return {fmt::format("{}:{}: {}", file, error.source().begin.line, error.description())};
    } catch (const std::invalid_argument &error) {
        return {fmt::format("{}: {}", file, error.what())};
    }
    std::vector<std::string> problems;
    for (const auto &[key, node] : entries) {
        const std::string name(key.str());
        const toml::table *members = node.as_table();
        if (!members) {
            problems.push_back(
                fmt::format("{}: \"{}\" is not an entry; give [\"{}\"] and its members below it",
                            place_of(node, file), name, name));
            continue;
        }
        keys_.push_back({name, place_of(node, file)});
        const auto targets = label_targets(name);
        for (const auto &[member, value] : *members) {
            std::string wrong;
            for (const std::string &target : targets) {
                wrong = take_member(member.str(), value, &labels_[target]);
            }
            if (!wrong.empty()) {
                problems.push_back(fmt::format("{}: {}: {}", place_of(value, file), name, wrong));
            }
        }
    }
    return problems;
}

}  // namespace nyxctl
