// What is plugged into a port, from the module's identification memory.

#pragma once

#include "agent_api/interface.h"
#include "nyx/port.pb.h"

namespace svc {

// Fills an empty message. A transceiver number beyond sdk::platform::g_xcvr, or without a descriptor there, counts as
// an SFP-class module.
void xcvr_to_proto(nyx::PortXcvrStatus *proto, const port_status_s &port);

}  // namespace svc
