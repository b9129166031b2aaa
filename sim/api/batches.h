// The open configuration batches of the stand-in. Any thread.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/batch.h"
#include "sim/card/if_records.h"

namespace sim {

// Adds a change to a batch; it is made when the batch is committed. SDK_RET_INVALID_ARG: there is no such batch.
sdk::sdk_ret_t add_change(uint64_t batch, if_change change);

size_t open_batches();

// Parameters of the batch opened last; zero before the first.
nyx_batch_params_s last_batch_params();

// Closes all batches without a commit.
void drop_batches();

}  // namespace sim
