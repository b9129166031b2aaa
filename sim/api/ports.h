// The stand-in's port library. Reads return uplinks too. Any thread.

#pragma once

#include "agent_api/port.h"

namespace sim {

// Adds or replaces a port without checking the record. The caller keeps its link event tracer. For tests.
void put_port(const nyx_if_info_s &info);

}  // namespace sim
