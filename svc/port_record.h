// Port records as messages, and port settings as records.

#pragma once

#include "agent_api/interface.h"
#include "nyx/port.pb.h"

// Appends a nyx_if_info_s to a nyx::PortGetResponse if it describes a port; otherwise does nothing.
void nyx_port_api_info_to_proto(void *info, void *ctxt);

// Fills an empty message. A management port has no transceiver.
void nyx_port_api_status_to_proto(nyx::PortStatus *proto, const nyx_if_status_s *status,
                                  sdk::types::port_type_t type);

// Fills a zeroed record. Enumerators that the port API does not know become 0.
void nyx_port_proto_to_api_spec(nyx_if_spec_s *spec, const nyx::PortSpec &proto);
