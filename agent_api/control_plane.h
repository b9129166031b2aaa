// Hooks of the control plane: it hears of every interface change first, and may refuse it. Rules for all operations:
// sdk_ret.h.
//
// The services call the hook for each entry of a request, before they look whether the interface exists, and also
// when if_api_bypass is set (agent_state.h). A code other than SDK_RET_OK refuses the change: the request ends, with
// that code translated, and its own batch is destroyed. Nobody tells the control plane when a later step fails or the
// batch is destroyed, so a hook that keeps something must cope with changes that were never made.

#pragma once

#include <cstdint>

#include "agent_api/interface.h"

namespace nyx_ms {

// An interface is to be created with, or changed to, `spec`, whose limits the services have checked. There is no
// batch: whether the hook acts at once is up to the control plane.
sdk::sdk_ret_t interface_create(nyx_if_spec_s *spec);
sdk::sdk_ret_t interface_update(nyx_if_spec_s *spec);

// The interface is to be deleted, as part of the batch. Whatever the code of a refusal, the log says that the
// interface was not found.
sdk::sdk_ret_t interface_delete(nyx_obj_key_s *key, uint64_t batch);

}  // namespace nyx_ms
