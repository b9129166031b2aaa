// The ASIC layer's transmit queue credits.

#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "agent_api/sdk_ret.h"

namespace sdk::asic::pd {

struct queue_credit_s {
    uint32_t queue;
    uint32_t credit;
} __attribute__((packed));
static_assert(sizeof(queue_credit_s) == 8);

// The start of a port's record; `num_queues` records of type queue_credit_s follow it without a gap.
struct port_queue_credit_s {
    uint32_t num_queues;
} __attribute__((packed));
static_assert(sizeof(port_queue_credit_s) == 4);

// The queues of a port. `credits` must be the start of a whole record.
inline std::span<const queue_credit_s> queues_of(const port_queue_credit_s *credits) {
    return {reinterpret_cast<const queue_credit_s *>(credits + 1), credits->num_queues};
}

using queue_credits_cb_t = void (*)(uint32_t port, port_queue_credit_s *credits, void *ctxt);

// Calls the callback once per port, in the ports' order, before it returns. A record is read only until its callback
// returns. Any thread; returns SDK_RET_OK or why the walk ended, ports before that have then been reported.
sdk_ret_t queue_credits_get(queue_credits_cb_t callback, void *ctxt);

}  // namespace sdk::asic::pd
