// The stand-in's interface library: uplinks, host interfaces and created interfaces. Any thread.

#pragma once

#include "agent_api/interface.h"

namespace sim {

// Adds or replaces an interface without checking the record. For tests.
void put_interface(const nyx_if_info_s &info);

}  // namespace sim
