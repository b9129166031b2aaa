// Interface records as messages: specification, status, statistics.

#pragma once

#include "agent_api/interface.h"
#include "nyx/interface.pb.h"

// Appends a nyx_if_info_s to a nyx::InterfaceGetResponse.
void nyx_if_api_info_to_proto(void *info, void *ctxt);

// Fills the LLDP status of an uplink with what the agent knows about its LLDP interface index.
void nyx_if_lldp_status_to_proto(nyx::UplinkIfStatus *proto, uint16_t lldp_if_index);
