// Interface specifications from messages to records: what may be configured on which kind of interface.

#pragma once

#include "agent_api/interface.h"
#include "agent_api/sdk_ret.h"
#include "nyx/interface.pb.h"

// Fills a zeroed record. SDK_RET_INVALID_ARG, logged, for a specification that breaks a rule of its kind; the record
// is then filled in part. An interface of no kind is refused without a line.
sdk::sdk_ret_t nyx_if_proto_to_api_spec(nyx_if_spec_s *spec, const nyx::InterfaceSpec &proto);
