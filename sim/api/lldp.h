// The stand-in's LLDP state of uplinks: uplink 1 has a neighbour, uplink 2 does not. Any thread.

#pragma once

#include "agent_api/interface_lldp.h"

namespace sim {

// Sets the LLDP status of an index, known or new. For tests.
void put_lldp_status(uint16_t lldp_if_index, nyx_if_lldp_status_s status);

// Lets the neighbour of a known index, at first the one of the card's start, come and go; and counts frames.
void set_lldp_neighbor(uint16_t lldp_if_index, bool is_there);
void count_lldp_frames(uint16_t lldp_if_index, uint64_t sent, uint64_t received);

void reset_lldp();

}  // namespace sim
