// Byte strings, and integers that are addresses, as people write and read them. What bytes_to_text() and
// number_to_text() return is read back to the same with the same form.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "nyx/types/options.pb.h"

namespace nyxctl {

// Reads `text` as bytes in network order. Accepted for every form:
//   pairs of hexadecimal digits, with or without "0x": 00a1ff
//   the same in groups, divided by ':' or '.' (groups of one size) or by '-': 00:1a:2b, 001a.2b3c, a UUID
//   base64, only after "base64:"
//   nothing, for no bytes
// With BYTES_TEXT_IPV6 also an IPv6 address (16 bytes) and a dotted IPv4 address (4 bytes); colons then mean
// an address, except around 16 pairs. Elsewhere four dotted groups that could be an IPv4 address are refused,
// because their digits would be read as hexadecimal. The number of bytes is not checked.
// On refusal returns false and sets `error` to what is wrong with which text and what is allowed; `bytes` is
// then unspecified.
[[nodiscard]] bool bytes_from_text(std::string_view text, types::BytesText form, std::string *bytes,
                                   std::string *error);

// Shows 6 bytes of BYTES_TEXT_MAC, 16 of BYTES_TEXT_IPV6 and 16 of BYTES_TEXT_UUID in the form's notation,
// and everything else as lower-case hexadecimal digits.
std::string bytes_to_text(std::string_view bytes, types::BytesText form);

// Whether the text is written as an address of the form and not as a number: with colons, dots or dashes.
bool is_number_text(std::string_view text, types::NumberText form);

// Reads such a text. On refusal returns false and sets `error` to what is wrong with which text and what is allowed;
// `number` is then unspecified.
[[nodiscard]] bool number_from_text(std::string_view text, types::NumberText form, uint64_t *number,
                                    std::string *error);

// The number in the form's notation; nullopt for plain numbers, and for numbers too large for an address.
std::optional<std::string> number_to_text(uint64_t number, types::NumberText form);

}  // namespace nyxctl
