// How much the agent and the layers below it log.

#pragma once

#include <cstdint>

namespace sdk::types {

enum trace_level_e : uint32_t {
    TRACE_LEVEL_NONE = 0,
    TRACE_LEVEL_ERROR = 1,
    TRACE_LEVEL_WARN = 2,
    TRACE_LEVEL_INFO = 3,
    TRACE_LEVEL_DEBUG = 4,
    TRACE_LEVEL_VERBOSE = 5,
};

}  // namespace sdk::types

namespace core {

// Sets the level of the agent's own trace logger. Any thread.
void trace_update(sdk::types::trace_level_e level);

// Writes out what the agent has logged. Any thread.
void flush_logs();

}  // namespace core

namespace debug {

// Sets the level of the SDK layers. Any thread.
void nyx_set_trace_level(sdk::types::trace_level_e level);

}  // namespace debug
