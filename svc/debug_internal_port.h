// Ports of the card's internal switch, as messages.

#pragma once

#include <cstdint>

#include "nyx/debug.pb.h"

// Appends one port, counted from 0.
void marvell_get_port_info(uint8_t port, nyx::InternalPortResponseMsg *rsp);

namespace svc {

// Appends one port, counted from 1, or all ports for 0. False when the switch has no such port.
bool append_internal_ports(uint8_t port_number, nyx::InternalPortResponseMsg *rsp);

}  // namespace svc
