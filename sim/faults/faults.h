// The faults that are armed. Any thread.
//
// An operation asks once for each call. A walk over objects asks before each object, so that nth=, after= and key= can
// let it fail halfway; a walk over nothing counts as one call.

#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent_api/sdk_ret.h"
#include "sim/faults/parse_fault.h"

namespace sim {

// Arms a fault and returns its id: 1, 2, and so on, never used again.
uint32_t add_fault(fault_s fault);

struct armed_fault_s {
    uint32_t id;
    std::string text;
    uint64_t calls;    // of its operation, for its key, since it was added
    uint64_t strikes;  // those of them that failed or were delayed
};

// In the order they were added.
std::vector<armed_fault_s> armed_faults();

// Removes the faults with these ids, or all faults if `ids` is empty, and sets `removed` to what they were. If an id is
// unknown, removes nothing and returns that id.
std::optional<uint32_t> remove_faults(std::span<const uint32_t> ids, std::vector<armed_fault_s> *removed);
void clear_faults();

// Names of all operations that can fail, in alphabetical order.
std::vector<std::string> fault_operations();
std::string table_operation(std::string_view table, std::string_view operation);

// Whether any fault is armed, or something runs before operations. Operations ask this first, because it costs nothing.
bool faults_armed();

// Lets `work` run when an operation begins, on its thread and without a lock; null: nothing. It must not begin operations.
void run_before_operations(void (*work)());

// For operations that read the card before they call walk() or fault().
void begin_operation();

// Each operation calls this once when it begins: waits if a fault delays the call, and returns the code to fail with, or
// SDK_RET_OK. `record`: in a walk, how many records it has visited.
sdk::sdk_ret_t injected_fault(std::string_view operation, std::span<const uint8_t> key = {},
                              std::optional<uint64_t> record = {});

// The same for full=, without waiting. The caller holds the lock of the table, which has `entries` entries.
sdk::sdk_ret_t full_table_fault(std::string_view operation, size_t entries);

// injected_fault(), but free while no fault is armed.
inline sdk::sdk_ret_t fault(std::string_view operation, std::span<const uint8_t> key = {},
                            std::optional<uint64_t> record = {}) {
    return faults_armed() ? injected_fault(operation, key, record) : sdk::SDK_RET_OK;
}

// Visits records up to the first fault. `key_of` returns the key bytes of a record, for faults with key=.
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
