// The port API: the card's physical Ethernet ports.

#pragma once

#include <cstdint>

#include "agent_api/interface.h"
#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"

namespace api {

// All operations: any thread.

// Fills the zeroed `info`; SDK_RET_LOOKUP_FAILURE when there is nothing with this key. The record may be of another
// type than NYX_IF_TYPE_ETH.
sdk::sdk_ret_t port_get(nyx_obj_key_s *key, nyx_if_info_s *info);

// Passes the nyx_if_info_s of every interface that the port API knows to the callback, ports and others.
sdk::sdk_ret_t port_get_all(nyx_read_cb_t callback, void *ctxt);

// Replaces all settings of the port that `spec` names when the batch is committed.
sdk::sdk_ret_t port_update(nyx_if_spec_s *spec, uint64_t batch);

// Clears the counters of one port. The all-zero key names no particular port.
sdk::sdk_ret_t port_stats_reset(const nyx_obj_key_s *key);

}  // namespace api
