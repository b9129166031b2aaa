// The link event trace of a port, read while the port API writes it.

#pragma once

#include <google/protobuf/repeated_ptr_field.h>

#include <cstdint>

#include "agent_api/link_event_tracer.h"
#include "nyx/port.pb.h"

namespace svc {

// Appends the previous and the current generation of the trace, oldest record first. Records that are overwritten
// meanwhile are left out. A tracer whose records hold more than 4 bytes of data is not a port's, and is not read.
// Timestamps are in the process's time zone of the moment. Any thread, no lock.
void link_event_trace_to_proto(google::protobuf::RepeatedPtrField<nyx::PortLinkSMRecord> *records,
                               const link_event_tracer_s &tracer);

nyx::PortLinkSMState link_sm_state_to_proto(uint32_t state);

}  // namespace svc
