// Interface specifications from messages to records: what may be configured on which kind of interface.

#pragma once

#include "agent_api/interface.h"
#include "agent_api/sdk_ret.h"
#include "nyx/interface.pb.h"

// Fills a zeroed record. Returns SDK_RET_INVALID_ARG and logs why when a specification breaks a rule of its kind; the
// record is then filled in part. A specification without a kind is refused without a log line.
sdk::sdk_ret_t nyx_if_proto_to_api_spec(nyx_if_spec_s *spec, const nyx::InterfaceSpec &proto);
