// Faults of the stand-in, as data: what an operation of the agent's libraries does instead of its work. How they are
// written: sim/proto/fault_grammar.h.
//
// A walk over objects asks once before each object, so that nth=, after= and key= let it fail halfway too; a walk over
// nothing counts as one call. Any thread.

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent_api/sdk_ret.h"

namespace sim {

struct fault_s {
    std::string text;  // as it was written
    std::string operation;
    sdk::sdk_ret_t code = sdk::SDK_RET_OK;
    std::optional<uint64_t> delay_ms;
    std::optional<uint64_t> after, nth, every, walk, full, chance, seed;  // above
    std::vector<uint8_t> key;
};

// Longer texts are no faults.
inline constexpr size_t k_max_fault_size = 512;  // bytes

// Throws std::invalid_argument with a text for people when `text` is no fault or names no operation.
fault_s parse_fault(std::string_view text);

// Returns the fault's id: 1, 2, and so on, never used again.
uint32_t add_fault(fault_s fault);

struct armed_fault_s {
    uint32_t id;
    std::string text;
    uint64_t calls, strikes;  // of its operation for its key since it was added, and how many were struck
};

// In the order they were added.
std::vector<armed_fault_s> armed_faults();

// Removes these faults, all for no ids, and sets `removed` to what they were. Without a fault of one of the ids
// returns that id and removes none.
std::optional<uint32_t> remove_faults(std::span<const uint32_t> ids, std::vector<armed_fault_s> *removed);
void clear_faults();

// Names of all operations that can fail, in alphabetical order.
std::vector<std::string> fault_operations();
std::string table_operation(std::string_view table, std::string_view operation);

// Whether there is any fault; operations ask this first, because it costs nothing.
bool faults_armed();

// To be called once by each operation that begins: waits where a delay asks for it, and returns the code to
// fail with, or SDK_RET_OK. `record`: of a walk, how many records it has visited.
sdk::sdk_ret_t injected_fault(std::string_view operation, std::span<const uint8_t> key = {},
                              std::optional<uint64_t> record = {});

// The same for full=, without waiting: to be called while the table is locked, which has `entries` entries.
sdk::sdk_ret_t full_table_fault(std::string_view operation, size_t entries);

// The same as injected_fault(), free while there is no fault.
inline sdk::sdk_ret_t fault(std::string_view operation, std::span<const uint8_t> key = {},
                            std::optional<uint64_t> record = {}) {
    return faults_armed() ? injected_fault(operation, key, record) : sdk::SDK_RET_OK;
}

// Visits records up to the first fault. `key_of` gives the key bytes of a record, for faults limited to a key.
template <class Records, class KeyOf, class Visit>
sdk::sdk_ret_t walk(std::string_view operation, Records &&records, KeyOf key_of, Visit visit) {
    if (records.empty()) {
        return fault(operation, {}, 0);
    }
    uint64_t visited = 0;
    for (auto &record : records) {
        if (const auto ret = fault(operation, key_of(record), visited++)) {
            return ret;
        }
        visit(record);
    }
    return sdk::SDK_RET_OK;
}

}  // namespace sim
