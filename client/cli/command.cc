#include "client/cli/command.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <optional>

#include "base/nearest_names.h"

namespace nyxctl {
namespace {

std::optional<uint32_t> read_number(std::string_view text) {
    const bool hex = text.starts_with("0x");
    text.remove_prefix(hex ? 2 : 0);
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, hex ? 16 : 10);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

std::optional<double> read_seconds(std::string_view text) {
    double seconds = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, seconds);
    return error == std::errc() && stop == end ? std::optional(seconds) : std::nullopt;
}

std::string range_complaint(const argument_s &argument, const std::string &value) {
    const bool is_whole = argument.kind == KIND_NUMBER;
    std::optional<double> number = read_seconds(value);
    if (is_whole) {
        number = read_number(value);
    }
    return number && *number >= argument.least && *number <= argument.most
               ? ""
               : fmt::format("invalid {} \"{}\"; give {} to {}", is_whole ? "number" : "number of seconds",
                             value, argument.least, argument.most);
}

}  // namespace

const std::vector<std::string> &given_s::all(std::string_view key) const {
    static const std::vector<std::string> none;
    const auto found = values.find(key);
    return found == values.end() ? none : found->second;
}

std::string given_s::one(std::string_view key) const { return has(key) ? all(key).front() : ""; }

std::vector<uint32_t> given_s::numbers(std::string_view key) const {
    std::vector<uint32_t> numbers;
    for (const std::string &text : all(key)) {
        numbers.push_back(read_number(text).value_or(0));
    }
    return numbers;
}

uint32_t given_s::number(std::string_view key) const { return has(key) ? numbers(key).front() : 0; }

double given_s::seconds(std::string_view key) const { return read_seconds(one(key)).value_or(0); }

std::string complaint(const argument_s &argument, const std::string &value) {
    if (argument.kind == KIND_NUMBER || argument.kind == KIND_SECONDS) {
        return range_complaint(argument, value);
    }
    if (argument.kind == KIND_ID && value.empty()) {
        return "invalid id \"\"; give the id or another name of the object";
    }
    if (argument.kind == KIND_CHOICE && std::ranges::count(argument.choices, value) == 0) {
        return fmt::format("invalid \"{}\"; give one of {}{}", value, fmt::join(argument.choices, ", "),
                           base::nearest_names_text(value, argument.choices));
    }
    return "";
}

}  // namespace nyxctl
