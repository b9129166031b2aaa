// The stand-in's debug library: what tests set and read.

#pragma once

#include <optional>

#include "agent_api/debug_command.h"

namespace sim {

// The last context that debug::nyx_handle_cmd received, for a known command or not. Any thread.
std::optional<cmd_ctxt_s> last_command();
void forget_last_command();

}  // namespace sim
