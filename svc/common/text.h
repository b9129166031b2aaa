// Text in records: names from hardware and network neighbours, perhaps unterminated, in any encoding.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "base/text.h"

namespace svc {

// The text of a character array, up to its first zero byte, as UTF-8.
template <size_t N>
std::string text_of(const char (&field)[N]) {
    const std::string_view bytes(field, N);
    return base::to_utf8(bytes.substr(0, bytes.find('\0')));
}

// The same for a line of the log.
template <size_t N>
std::string log_text_of(const char (&field)[N]) {
    return base::without_controls(text_of(field));
}

}  // namespace svc
