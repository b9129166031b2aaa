// Reads JSON (RFC 8259) of any size and depth, piece by piece. No recursion: a file of nothing but brackets must not
// overflow the stack of the thread that reads it.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace base {

// Gives the next piece of a text, empty at its end. A piece holds until the next call.
using text_source = std::function<std::string_view()>;

// Reports the values of a text, in order, to a visitor:
//
//     void begin(std::string_view key, bool is_array);          an object or array begins
//     void end();                                               it ends
//     void value(std::string_view key, std::string_view text);  a string without its escapes, a number, or a literal
//
// The key is empty in an array and at the top. Both texts hold until the visitor returns. Memory is taken for the
// longest string, and a byte for each level of nesting. For one thread.
template <class Visitor>
class json_scanner {
 public:
    json_scanner(text_source source, Visitor *visitor) : source_(std::move(source)), visitor_(visitor) {}

    // Throws std::runtime_error with the line when the text is not JSON; the visitor has seen what comes before.
    void run() {
        skip_byte_order_mark();
        do {
            while (begin_value()) {
            }
        } while (next_value());
        if (skip_space()) {
            fail("garbage after data");
        }
    }

 private:
    [[noreturn]] void fail(const char *message) const {
        throw std::runtime_error("line " + std::to_string(lines_ + std::count(begin_, at_, '\n')) + ": " +
                                 message);
    }

    // False at the end of the text.
    bool more() {
        if (at_ == end_) {
            lines_ += std::count(begin_, end_, '\n');
            const std::string_view piece = source_();
            begin_ = at_ = piece.data();
            end_ = begin_ + piece.size();
        }
        return at_ != end_;
    }

    char next(const char *message_at_end) {
        if (!more()) {
            fail(message_at_end);
        }
        return *at_++;
    }

    void skip_byte_order_mark() {
        if (more() && *at_ == '\xef' &&
            (next(""), next("expected value") != '\xbb' || next("expected value") != '\xbf')) {
            fail("expected value");
        }
    }

    // False at the end of the text.
    bool skip_space() {
        while (more() && (*at_ == ' ' || *at_ == '\n' || *at_ == '\r' || *at_ == '\t')) {
            at_++;
        }
        return at_ != end_;
    }

    bool take(char c) {
        const bool found = skip_space() && *at_ == c;
        at_ += found;
        return found;
    }

    void expect(char c, const char *message) {
        if (!take(c)) {
            fail(message);
        }
    }

    // Reads a value whole; or only the beginning of an object or array up to its first value, and is true then.
    bool begin_value() {
        if (take('{')) {
            return begin_container('}');
        }
        if (take('[')) {
            return begin_container(']');
        }
        if (take('"')) {
            read_string(&value_);
        } else {
            read_word();
        }
        visitor_->value(key_, value_);
        return false;
    }

    bool begin_container(char closing) {
        visitor_->begin(key_, closing == ']');
        open_.push_back(closing);
        if (take(closing)) {
            end_container();
            return false;
        }
        read_key();
        return true;
    }

    void end_container() {
        open_.pop_back();
        visitor_->end();
    }

    // Goes on to the value after the one that was read; false when there is none.
    bool next_value() {
        while (!open_.empty()) {
            if (take(',')) {
                read_key();
                return true;
            }
            expect(open_.back(), open_.back() == '}' ? "expected '}' or ','" : "expected ']' or ','");
            end_container();
        }
        return false;
    }

    void read_key() {
        key_.clear();
        if (open_.back() == '}') {
            expect('"', "expected key string");
            read_string(&key_);
            expect(':', "expected ':'");
        }
    }

    // The rest of a string after its opening quote.
    void read_string(std::string *text) {
        constexpr const char *k_at_end = "unterminated string";
        text->clear();
        for (;;) {
            const char *const run = at_;
            while (at_ != end_ && is_plain(*at_)) {
                at_++;
            }
            text->append(run, at_);
            const char c = next(k_at_end);
            if (c == '"') {
                return;
            }
            if (c == '\\') {
                read_escape(text);
            } else {
                read_character(c, text);
            }
        }
    }

    static bool is_plain(char c) { return c >= 0x20 && c < 0x7f && c != '"' && c != '\\'; }

    // A lead byte is followed by as many continuation bytes as it announces. Overlong forms pass, as they do with
    // Boost.
    void read_character(char lead, std::string *text) {
        const auto byte = static_cast<uint8_t>(lead);
        const int tails = byte < 0x80 ? 0 : byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
        bool is_utf8 = (byte >= 0x20 && byte < 0x80) || (byte >= 0xc0 && byte < 0xf8);
        *text += lead;
        for (int i = 0; i < tails && is_utf8; i++) {
            *text += next("unterminated string");
            is_utf8 = (static_cast<uint8_t>(text->back()) & 0xc0) == 0x80;
        }
        if (!is_utf8) {
            fail("invalid character");
        }
    }

    // What comes after a backslash.
    void read_escape(std::string *text) {
        constexpr std::string_view k_names = "\"\\/bfnrt", k_meanings = "\"\\/\b\f\n\r\t";
        const char name = next(k_bad_escape);
        if (name == 'u') {
            append_utf8(text, read_code_point());
            return;
        }
        const size_t index = k_names.find(name);
        if (index == k_names.npos) {
            fail(k_bad_escape);
        }
        *text += k_meanings[index];
    }

    uint32_t read_code_point() {
        const uint32_t first = read_hex();
        if (first < 0xd800 || first > 0xdfff) {
            return first;
        }
        const bool is_pair = first < 0xdc00 && next(k_bad_escape) == '\\' && next(k_bad_escape) == 'u';
        const uint32_t second = is_pair ? read_hex() : 0;
        if (second < 0xdc00 || second > 0xdfff) {
            fail("half a surrogate pair");
        }
        return 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
    }

    uint32_t read_hex() {
        constexpr std::string_view k_digits = "0123456789abcdefABCDEF";
        uint32_t number = 0;
        for (int i = 0; i < 4; i++) {
            const size_t digit = k_digits.find(next(k_bad_escape));
            if (digit == k_digits.npos) {
                fail(k_bad_escape);
            }
            number = number * 16 + static_cast<uint32_t>(digit < 16 ? digit : digit - 6);
        }
        return number;
    }

    static void append_utf8(std::string *text, uint32_t code_point) {
        const int tails = code_point < 0x80 ? 0 : code_point < 0x800 ? 1 : code_point < 0x10000 ? 2 : 3;
        constexpr uint8_t k_leads[] = {0x00, 0xc0, 0xe0, 0xf0};
        *text += static_cast<char>(k_leads[tails] | code_point >> (6 * tails));
        for (int tail = tails - 1; tail >= 0; tail--) {
            *text += static_cast<char>(0x80 | (code_point >> (6 * tail) & 0x3f));
        }
    }

    // A number or a literal.
    void read_word() {
        constexpr std::string_view k_characters = "0123456789+-.Eaeflnrstu";
        value_.clear();
        while (more() && k_characters.find(*at_) != k_characters.npos) {
            value_ += *at_++;
        }
        if (value_ != "null" && value_ != "true" && value_ != "false" && !is_number(value_)) {
            fail("expected value");
        }
    }

    static bool is_number(std::string_view text) {
        const auto take_any = [&](std::string_view characters) {
            const bool found = !text.empty() && characters.find(text[0]) != characters.npos;
            text.remove_prefix(found);
            return found;
        };
        const auto take_digits = [&] {
            const size_t size = std::min(text.find_first_not_of("0123456789"), text.size());
            text.remove_prefix(size);
            return size > 0;
        };
        (void)take_any("-");
        return (take_any("0") || take_digits()) && (!take_any(".") || take_digits()) &&
               (!take_any("eE") || (take_any("+-"), take_digits())) && text.empty();
    }

    static constexpr const char *k_bad_escape = "invalid escape sequence";

    const text_source source_;
    Visitor *const visitor_;
    const char *begin_ = nullptr, *at_ = nullptr, *end_ = nullptr;  // of the current piece
    std::ptrdiff_t lines_ = 1;                                      // up to that piece
    std::string open_;  // the closing brackets that are due, the innermost last
    std::string key_, value_;
};

}  // namespace base
