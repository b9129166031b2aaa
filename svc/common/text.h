// Text out of records: names from hardware and from network neighbours, maybe unterminated, in any encoding.

#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

namespace svc {

// The same bytes when they are UTF-8 (RFC 3629); otherwise each byte that is not part of it becomes U+FFFD. A message
// with anything else in a string field is refused whole by those who receive it.
std::string to_utf8(std::string_view bytes);

// The same without a character at its end that has been cut.
std::string_view without_cut_character(std::string_view bytes);

// A character array, up to its first zero byte.
template <size_t N>
std::string text_of(const char (&field)[N]) {
    const std::string_view bytes(field, N);
    return to_utf8(bytes.substr(0, bytes.find('\0')));
}

// The same for a line of the log, which it can neither end nor colour: control characters become '?'.
template <size_t N>
std::string log_text_of(const char (&field)[N]) {
    std::string text = text_of(field);
    std::ranges::replace_if(
        text, [](unsigned char c) { return c < 0x20 || c == 0x7f; }, '?');
    return text;
}

}  // namespace svc
