// The stand-in's port library: ports, and uplinks among what it reads. Any thread.

#pragma once

#include "agent_api/port.h"

namespace sim {

// Adds or replaces a port as it stands, whatever the record says; its link event tracer stays the caller's. For tests.
void put_port(const nyx_if_info_s &info);

}  // namespace sim
