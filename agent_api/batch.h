// Configuration batches: changes that take effect together.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/sdk_ret.h"

struct nyx_batch_params_s {
    uint64_t epoch;  // of the configuration that the batch leads to, from the agent state's counter
    uint8_t async;   // 0: commit returns when the changes are made
} __attribute__((packed));
static_assert(offsetof(nyx_batch_params_s, async) == 8);
static_assert(sizeof(nyx_batch_params_s) == 9);

// Opens a batch and returns its handle, or 0 when there is none to be had. Any thread.
uint64_t nyx_batch_start(nyx_batch_params_s *params);

// Makes the changes of the batch. The handle is closed, also when it fails; then no change was made.
sdk::sdk_ret_t nyx_batch_commit(uint64_t handle);

// Drops the changes of the batch and closes the handle.
sdk::sdk_ret_t nyx_batch_destroy(uint64_t handle);
