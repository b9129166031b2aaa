// What the card's three ports are like at the start, and what happens to their links. Any thread.

#pragma once

#include <cstdint>

#include "agent_api/interface.h"

namespace sim {

// The record of port 1, 2 or 3, whose link event trace begins anew. Each port has one tracer as long as the process lives.
nyx_if_info_s card_port(uint8_t number);

// The transceiver that a data port starts with, and an empty cage.
void put_transceiver(uint8_t number, port_status_s *status);
void take_transceiver(port_status_s *status);

// Sets what a port's record says of a link that is up or down, except for its state machine.
void put_link(bool is_up, nyx_if_info_s *port);

// Sets the state of a port's link state machine, `uptime_ms` after the card's start, and adds it to the port's trace. The
// last event at the start is one at 62.4 s.
void enter_link_state(uint8_t number, uint32_t state, uint64_t uptime_ms, nyx_if_info_s *port);

}  // namespace sim
