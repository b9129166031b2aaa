// The agent's state, as far as services see it.

#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace core {

struct agent_state {
    // The one state of the agent; never null.
    static agent_state *state();

    // Epoch of the configuration, incremented by everybody who opens a batch. Any thread.
    std::atomic<uint32_t> epoch;

    uint8_t reserved[12];

    // Set when interfaces are the control plane's alone: interface operations then stop after its hook, and leave
    // the interface API out. Any thread.
    std::atomic<bool> if_api_bypass;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free && std::atomic<bool>::is_always_lock_free);
static_assert(offsetof(agent_state, epoch) == 0);
static_assert(offsetof(agent_state, if_api_bypass) == 16);

}  // namespace core
