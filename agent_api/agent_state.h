// The agent's state, as far as the services see it. They use the members below, and neither make nor copy the object:
// the rest of it belongs to the agent.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace core {

struct agent_state {
    // The one state of the agent. Never null, and the same object for as long as services run. Any thread.
    static agent_state *state();

    // Epoch of the configuration. Everybody who opens a batch increments it first and gives the batch the new value
    // (batch.h). Any thread.
    std::atomic<uint32_t> epoch;

    uint8_t reserved[12];

    // Set when the control plane alone manages interfaces. The interface operations of the services then end after
    // its hook (control_plane.h) and don't call the interface API; InterfaceGet by id answers records of zeros,
    // without ids it still walks. The services read it for each entry of a request, so it may change at any time. Any
    // thread.
    std::atomic<bool> if_api_bypass;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
static_assert(offsetof(agent_state, epoch) == 0);
static_assert(offsetof(agent_state, if_api_bypass) == 16);

}  // namespace core
