// The open configuration batches of the stand-in. Any thread.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/batch.h"
#include "sim/card/if_records.h"

namespace sim {

// Adds a change to a batch, which makes it when it is committed. SDK_RET_INVALID_ARG: unknown batch.
sdk::sdk_ret_t add_change(uint64_t batch, if_change change);

size_t open_batches();

// Parameters of the batch that was opened last; all zero before the first.
nyx_batch_params_s last_batch_params();

// Closes all batches without committing them.
void drop_batches();

}  // namespace sim
