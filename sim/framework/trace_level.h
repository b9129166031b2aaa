// The trace level of the layers below the agent, for tests.

#pragma once

#include "agent_api/trace_level.h"

namespace sim {

// The level last set with debug::nyx_set_trace_level; TRACE_LEVEL_INFO at the start. Any thread.
sdk::types::trace_level_e sdk_trace_level();

}  // namespace sim
