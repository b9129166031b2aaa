// Faults of the stand-in, as data: what an operation of the agent's libraries does instead of its work.
//
// A fault is written
//     OPERATION:code=CODE[,nth=N][,key=HEX]   fail with a return code
//     OPERATION:delay=MS[,nth=N][,key=HEX]    take so many milliseconds, then go on
// where CODE is a number or a name (6, SDK_RET_RESOURCE_EXHAUSTION), nth=N limits it to the N-th call from
// now on, and key=HEX to calls for the object with these first key bytes. Without limits it lasts for ever.
// A walk over objects counts as one call for each object, so that nth= and key= let it fail halfway; a walk over
// nothing counts as one call. Any thread.

#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "agent_api/sdk_ret.h"

namespace sim {

struct fault_s {
    std::string operation;
    sdk::sdk_ret_t code = sdk::SDK_RET_OK;
    std::chrono::milliseconds delay{0};
    std::optional<uint64_t> nth;  // counts from 1
    std::vector<uint8_t> key;
};

// Throws std::invalid_argument with a text for people when `text` is no fault or names no operation.
fault_s parse_fault(std::string_view text);

void add_fault(fault_s fault);
void clear_faults();

// Names of all operations that can fail.
std::vector<std::string> fault_operations();
std::string table_operation(std::string_view table, std::string_view operation);

// Whether there is any fault; operations ask this first, because it costs nothing.
bool faults_armed();

// To be called once by each operation that begins: waits where a delay asks for it, and returns the code to
// fail with, or SDK_RET_OK.
sdk::sdk_ret_t injected_fault(std::string_view operation, std::span<const uint8_t> key = {});

// The same, free while there is no fault.
inline sdk::sdk_ret_t fault(std::string_view operation, std::span<const uint8_t> key = {}) {
    return faults_armed() ? injected_fault(operation, key) : sdk::SDK_RET_OK;
}

// Visits records up to the first fault. `key_of` gives the key bytes of a record, for faults limited to a key.
template <class Records, class KeyOf, class Visit>
sdk::sdk_ret_t walk(std::string_view operation, Records &&records, KeyOf key_of, Visit visit) {
    if (records.empty()) {
        return fault(operation);
    }
    for (auto &record : records) {
        if (const auto ret = fault(operation, key_of(record))) {
            return ret;
        }
        visit(record);
    }
    return sdk::SDK_RET_OK;
}

}  // namespace sim
