// The stand-in's debug library, as tests see it.

#pragma once

#include <optional>

#include "agent_api/debug.h"

namespace sim {

// The last context that reached debug::nyx_handle_cmd, whether its command exists or not. Any thread.
std::optional<cmd_ctxt_s> last_command();
void forget_last_command();

}  // namespace sim
