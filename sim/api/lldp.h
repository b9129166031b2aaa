// The stand-in's LLDP state of uplinks: uplink 1 has a neighbour, uplink 2 has none. Any thread.

#pragma once

#include "agent_api/interface_lldp.h"

namespace sim {

// Sets what the LLDP status of an index is, of a new one also. For tests.
void put_lldp_status(uint16_t lldp_if_index, nyx_if_lldp_status_s status);

void reset_lldp();

}  // namespace sim
