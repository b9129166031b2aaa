// Faults of the stand-in, as data: what an operation of the agent's libraries does instead of its work.
//
// A fault is written
//     OPERATION:code=CODE[,nth=N][,key=HEX]   fail with a return code
//     OPERATION:delay=MS[,nth=N][,key=HEX]    take so many milliseconds, then go on
// where CODE is a number or a name (6, SDK_RET_RESOURCE_EXHAUSTION), nth=N limits it to the N-th call from
// now on, and key=HEX to calls for the object with these first key bytes. Without limits it lasts for ever.
// Any thread.

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

}  // namespace sim
