// The stand-in's interface library: uplinks, host interfaces and what is created. Any thread.

#pragma once

#include "agent_api/interface.h"

namespace sim {

// Adds or replaces an interface as it stands, whatever the record says. For tests.
void put_interface(const nyx_if_info_s &info);

}  // namespace sim
