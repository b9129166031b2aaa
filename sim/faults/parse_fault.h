// A fault as data: what an operation of the agent's libraries does instead of its work.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent_api/sdk_ret.h"

namespace sim {

// The settings as sim/proto/fault_grammar.h describes them.
struct fault_s {
    std::string text;  // as it was written
    std::string operation;
    sdk::sdk_ret_t code = sdk::SDK_RET_OK;
    std::optional<uint64_t> delay_ms;
    std::optional<uint64_t> after, nth, every, walk, full, chance, seed;
    std::vector<uint8_t> key;
};

inline constexpr size_t k_max_fault_size = 512;  // bytes; parse_fault() refuses longer texts

// Throws std::invalid_argument when `text` is not a valid fault, or its operation is unknown. The exception's text is
// for people: what is wrong, and what is allowed.
fault_s parse_fault(std::string_view text);

}  // namespace sim
