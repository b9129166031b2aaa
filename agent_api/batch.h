// Configuration batches: changes that take effect together. Rules for all operations: sdk_ret.h.
//
// The services open a batch for each request that changes interfaces or ports, add the request's changes, and commit
// it when all were accepted or destroy it when one was refused. A request can also name a batch by its handle, as its
// batch cookie: the services then add to that batch and neither commit nor destroy it. Such a handle is the client's
// word, so operations refuse one that is not open, for example with SDK_RET_INVALID_ARG.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/sdk_ret.h"

struct nyx_batch_params_s {
    uint64_t
        epoch;  // of the configuration that the batch leads to: the agent state's counter after incrementing it
    uint8_t async;  // 0, always: commit returns when the changes are made
} __attribute__((packed));
static_assert(offsetof(nyx_batch_params_s, async) == 8);
static_assert(sizeof(nyx_batch_params_s) == 9);

// Opens a batch. Returns its handle, which is not that of another open batch; or 0 when no batch can be opened: the
// client receives API_STATUS_ERROR, and the epoch stays used.
uint64_t nyx_batch_start(nyx_batch_params_s *params);

// Makes the changes of the batch, and closes the handle, also after a failure. The code is the outcome of the
// client's request. An agent should make all changes or none; the services don't look.
sdk::sdk_ret_t nyx_batch_commit(uint64_t handle);

// Drops the changes of the batch, and closes the handle. The code is ignored: the client receives the code of the
// change that failed.
sdk::sdk_ret_t nyx_batch_destroy(uint64_t handle);
