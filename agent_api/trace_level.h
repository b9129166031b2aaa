// How much the agent and the layers below it log. Rules for all operations: sdk_ret.h; these can't fail.

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

// Sets the level of the agent's own trace logger: utils::log::trace_level (trace_logger.h). Two threads may set
// different levels at the same time, and nyx_set_trace_level below may then be left with the other one's.
void trace_update(sdk::types::trace_level_e level);

// Writes out what the agent has logged, and returns when that is done.
void flush_logs();

}  // namespace core

namespace debug {

// Sets the level of the SDK layers. Called right after core::trace_update, with the same level.
void nyx_set_trace_level(sdk::types::trace_level_e level);

}  // namespace debug
