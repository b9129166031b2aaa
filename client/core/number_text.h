// Integers that people write as addresses.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "nyx/types/options.pb.h"

namespace nyxctl {

// Whether the text is written as an address of the form and not as a number: with colons, dots or dashes.
bool is_number_text(std::string_view text, types::NumberText form);

// Reads such a text. On refusal returns false and sets `error` to what is wrong with which text and what is allowed;
// `number` is then unspecified.
[[nodiscard]] bool number_from_text(std::string_view text, types::NumberText form, uint64_t *number,
                                    std::string *error);

// The number in the form's notation; none for a number that is no such address, and for plain numbers.
std::optional<std::string> number_to_text(uint64_t number, types::NumberText form);

}  // namespace nyxctl
