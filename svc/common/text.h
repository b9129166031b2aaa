// Text out of records: names from hardware and from network neighbours, maybe unterminated, in any encoding.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace svc {

// The same bytes when they are UTF-8 (RFC 3629); otherwise each byte that is not part of it becomes U+FFFD. A message
// with anything else in a string field is refused whole by those who receive it.
std::string to_utf8(std::string_view bytes);

// A character array, up to its first zero byte.
template <size_t N>
std::string text_of(const char (&field)[N]) {
    const std::string_view bytes(field, N);
    return to_utf8(bytes.substr(0, bytes.find('\0')));
}

}  // namespace svc
