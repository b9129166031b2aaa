#include "client/core/value.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

#include "base/text.h"

namespace nyxctl {
namespace {

constexpr size_t k_step = 2;

std::string joined(const value_s::list_t &list, std::string (*text)(const value_s &)) {
    std::vector<std::string> texts;
    std::ranges::transform(list, std::back_inserter(texts), text);
    return fmt::format("{}", fmt::join(texts, ","));
}

struct to_cell_s {
    std::string operator()(std::nullptr_t) const { return "-"; }
    std::string operator()(bool truth) const { return truth ? "yes" : "no"; }
    std::string operator()(double number) const { return fmt::format("{:#}", number); }
    std::string operator()(auto integer) const { return fmt::to_string(integer); }
    std::string operator()(const counter_s &counter) const { return fmt::to_string(counter.count); }
    std::string operator()(const enumerator_s &enumerator) const { return enumerator.text; }
    std::string operator()(const std::string &text) const {
        return text.empty() ? "-" : base::without_controls(text);
    }
    std::string operator()(const value_s::list_t &list) const {
        return list.empty() ? "-" : joined(list, cell_text);
    }
};

struct to_json_s : to_cell_s {
    using to_cell_s::operator();
    std::string operator()(std::nullptr_t) const { return "null"; }
    std::string operator()(bool truth) const { return truth ? "true" : "false"; }
    std::string operator()(const enumerator_s &enumerator) const { return (*this)(enumerator.name); }
    std::string operator()(const std::string &text) const {
        std::string json = "\"";
        for (const char c : base::to_utf8(text)) {
            if (static_cast<unsigned char>(c) < 0x20) {
                fmt::format_to(std::back_inserter(json), "\\u{:04x}", c);
            } else {
                json += c == '"' || c == '\\' ? "\\" : "";
                json += c;
            }
        }
        return json + '"';
    }
    std::string operator()(const value_s::list_t &list) const {
        return fmt::format("[{}]", joined(list, json_text));
    }
};

}  // namespace

std::string plain_text(const value_s &value) { return std::visit(to_cell_s(), value.content()); }

std::string cell_text(const value_s &value) {
    return value.shown().empty() ? plain_text(value) : base::without_controls(value.shown());
}

std::string json_text(const value_s &value) { return std::visit(to_json_s(), value.content()); }

std::string json_text(const members_t &members) {
    std::vector<std::string> texts;
    for (const auto &[name, value] : members) {
        texts.push_back(json_text(name) + ":" + json_text(value));
    }
    return fmt::format("{{{}}}", fmt::join(texts, ","));
}

std::string indented(std::string_view json) {
    std::string text;
    size_t depth = 0;
    const auto new_line = [&] { text.append("\n").append(depth * k_step, ' '); };
    bool in_string = false;
    for (size_t i = 0; i < json.size(); i++) {
        const char c = json[i];
        const bool is_empty = i > 0 && (json[i - 1] == '{' || json[i - 1] == '[');
        if (!in_string && (c == '}' || c == ']')) {
            depth--;
            is_empty ? void() : new_line();
        } else if (!in_string && is_empty) {
            new_line();
        }
        text += c;
        if (in_string) {
            in_string = c != '"';
            if (c == '\\') text += json[++i];
            continue;
        }
        in_string = c == '"';
        depth += c == '{' || c == '[';
        text += c == ':' ? " " : "";
        if (c == ',') new_line();
    }
    return text;
}

}  // namespace nyxctl
