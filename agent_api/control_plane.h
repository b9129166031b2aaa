// Hooks of the control plane: it hears of every interface change first, and may refuse it.

#pragma once

#include <cstdint>

#include "agent_api/interface.h"

namespace nyx_ms {

// Any thread. Anything but SDK_RET_OK refuses the change.
sdk::sdk_ret_t interface_create(nyx_if_spec_s *spec);
sdk::sdk_ret_t interface_update(nyx_if_spec_s *spec);
sdk::sdk_ret_t interface_delete(nyx_obj_key_s *key, uint64_t batch);

}  // namespace nyx_ms
