// The port API: the card's physical Ethernet ports. Its records are those of the interface API (interface.h). Rules
// for all operations: sdk_ret.h.

#pragma once

#include <cstdint>

#include "agent_api/interface.h"
#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"

namespace api {

// Fills `info` for the port with this key. SDK_RET_LOOKUP_FAILURE when there is none, which a client receives as
// API_STATUS_LOOKUP_FAILURE; the services treat all failures alike. A record of another type than NYX_IF_TYPE_ETH is
// left out of the response, without an error.
sdk::sdk_ret_t port_get(nyx_obj_key_s *key, nyx_if_info_s *info);

// Walks over everything that the port API knows; the record is a nyx_if_info_s. Those of another type than
// NYX_IF_TYPE_ETH are left out of the response.
sdk::sdk_ret_t port_get_all(nyx_read_cb_t callback, void *ctxt);

// Adds to the batch that the port with the key of `spec` takes all settings of `spec`, zeros included: there is no
// mask. The type is NYX_IF_TYPE_ETH, admin_state 0, and the settings hold only values that port_spec_s names. The
// services don't look whether there is such a port: the operation refuses an unknown key at once, or the commit does.
sdk::sdk_ret_t port_update(nyx_if_spec_s *spec, uint64_t batch);

// Clears the counters of the port with this key at once. What the all-zero key clears is up to the port API:
// clients send it as an empty id or as zeros. The code is ignored: no client learns of a failure.
sdk::sdk_ret_t port_stats_reset(const nyx_obj_key_s *key);

}  // namespace api
