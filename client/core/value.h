// A value on its way to a terminal or into JSON, no longer tied to the message that it is from.

#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace nyxctl {

// An enumerator: the contract's name for JSON ("STATE_UP"), and what people call it ("up").
struct enumerator_s {
    std::string name;
    std::string text;

    bool operator==(const enumerator_s &) const = default;
};

// A count of events, which wraps around at its width.
struct counter_s {
    uint64_t count;
    unsigned bits;  // 32 or 64

    bool operator==(const counter_s &) const = default;
};

// Null, a truth value, a number, a text, an enumerator, a counter, or a list of these; and what people read instead of
// it, if anything: "58 °C" for 58. Scripts and comparisons see only the value.
class value_s {
 public:
    using list_t = std::vector<value_s>;
    using content_t = std::variant<std::nullptr_t, bool, uint64_t, int64_t, double, std::string, enumerator_s,
                                   counter_s, list_t>;

    value_s(std::nullptr_t = nullptr) {}
    value_s(const char *text) : content_(std::string(text)) {}
    template <typename Content>
    requires(std::constructible_from<content_t, Content> && !std::integral<Content>) value_s(Content content)
        : content_(std::move(content)) {}
    value_s(bool truth) : content_(truth) {}
    template <std::integral Integer>  // the same number is the same value, whatever type it had
    value_s(Integer number)
        : content_(std::cmp_less(number, 0) ? content_t(static_cast<int64_t>(number))
                                            : content_t(static_cast<uint64_t>(number))) {}

    bool operator==(const value_s &other) const { return content_ == other.content_; }

    // The same value, which people read as `text`; "" takes nothing back.
    value_s shown_as(std::string text) const {
        value_s value = *this;
        value.shown_ = text.empty() ? shown_ : std::move(text);
        return value;
    }
    const std::string &shown() const { return shown_; }  // "" without such a text

    const content_t &content() const { return content_; }
    bool is_null() const { return as<std::nullptr_t>() != nullptr; }
    bool is_number() const { return as<uint64_t>() || as<int64_t>() || as<double>() || as<counter_s>(); }

    // The content if it is of that type, else null.
    template <typename Content>
    const Content *as() const {
        return std::get_if<Content>(&content_);
    }

 private:
    content_t content_ = nullptr;
    std::string shown_;
};

// As people read it: shown() or else texts and numbers as they are, "yes" and "no", "-" for null and for an empty text, lists divided
// by commas. Control characters of foreign texts become '?', so that they can't reach the terminal.
std::string cell_text(const value_s &value);

// The same without shown(): the short text of the contract.
std::string plain_text(const value_s &value);

// As JSON in one line. Text that is not UTF-8 gets replacement characters.
std::string json_text(const value_s &value);

// {"status":"ok"}
using members_t = std::vector<std::pair<std::string, value_s>>;
std::string json_text(const members_t &members);

// The same JSON over several lines, in steps of two spaces.
std::string indented(std::string_view json);

}  // namespace nyxctl
