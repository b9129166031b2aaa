// Foreign texts made harmless.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace base {

namespace detail {

inline constexpr std::string_view k_replacement = "\xef\xbf\xbd";  // U+FFFD

inline bool lies_in(char c, uint8_t low, uint8_t high) {
    const auto byte = static_cast<uint8_t>(c);
    return byte >= low && byte <= high;
}

inline bool is_tail(std::string_view bytes) {
    return std::ranges::all_of(bytes, [](char c) { return lies_in(c, 0x80, 0xbf); });
}

// The second byte rules out overlong forms, surrogates and what is above U+10FFFF.
inline bool second_fits(char first, char second) {
    switch (static_cast<uint8_t>(first)) {
        case 0xe0:
            return lies_in(second, 0xa0, 0xbf);
        case 0xed:
            return lies_in(second, 0x80, 0x9f);
        case 0xf0:
            return lies_in(second, 0x90, 0xbf);
        case 0xf4:
            return lies_in(second, 0x80, 0x8f);
        default:
            return lies_in(second, 0x80, 0xbf);
    }
}

// Bytes that a character takes by its first one; 0 for a byte that begins none.
inline size_t character_size(char first) {
    if (lies_in(first, 0x00, 0x7f)) {
        return 1;
    }
    return lies_in(first, 0xc2, 0xdf)   ? 2
           : lies_in(first, 0xe0, 0xef) ? 3
           : lies_in(first, 0xf0, 0xf4) ? 4
                                        : 0;
}

// The character that the bytes begin with; empty when they begin with none.
inline std::string_view first_character(std::string_view bytes) {
    const size_t size = character_size(bytes[0]);
    if (size > bytes.size() ||
        (size > 1 && !(second_fits(bytes[0], bytes[1]) && is_tail(bytes.substr(2, size - 2))))) {
        return {};
    }
    return bytes.substr(0, size);
}

}  // namespace detail

// Returns the same bytes when they are UTF-8 (RFC 3629); otherwise replaces each byte that is not part of a character
// by U+FFFD. A message with anything else in a string field is refused whole by those who receive it.
inline std::string to_utf8(std::string_view bytes) {
    if (std::ranges::all_of(bytes, [](char c) { return detail::lies_in(c, 0x00, 0x7f); })) {
        return std::string(bytes);
    }
    std::string text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto character = detail::first_character(bytes);
        text += character.empty() ? detail::k_replacement : character;
        bytes.remove_prefix(std::max<size_t>(character.size(), 1));
    }
    return text;
}

// Drops a character at the end that has been cut.
inline std::string_view without_cut_character(std::string_view bytes) {
    constexpr size_t k_max_size = 4;
    for (size_t tail = 1; tail <= std::min(bytes.size(), k_max_size); tail++) {
        const size_t start = bytes.size() - tail;
        if (!detail::lies_in(bytes[start], 0x80, 0xbf)) {
            return detail::character_size(bytes[start]) > tail ? bytes.substr(0, start) : bytes;
        }
    }
    return bytes;
}

// Replaces control characters by '?': they could move a terminal's cursor, or begin another line of a log.
inline std::string without_controls(std::string text) {
    const auto is_control = [](unsigned char c) { return c < 0x20 || c == 0x7f; };
    std::ranges::replace_if(text, is_control, '?');
    return text;
}

}  // namespace base
