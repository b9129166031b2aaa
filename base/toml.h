// toml++, which takes seconds to compile: to be included where TOML is read, nowhere else.

#pragma once

#include <stdexcept>

namespace base {

constexpr void check_toml(bool holds) {
    if (!holds) {
        throw std::invalid_argument("the text is not TOML");
    }
}

}  // namespace base

// The reader asserts what some texts that are not TOML do not fulfil ("[[" and a line break), and with NDEBUG relies on it.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(condition) base::check_toml(static_cast<bool>(condition))
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")
