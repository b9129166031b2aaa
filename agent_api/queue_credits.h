// The ASIC layer's transmit queue credits.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/sdk_ret.h"

namespace sdk::asic::pd {

struct queue_credit_s {
    uint32_t queue;
    uint32_t credit;
} __attribute__((packed));

// The records of this library's ports have room for as many queues; of a larger count the first 64 are read.
struct port_queue_credit_s {
    uint32_t num_queues;
    queue_credit_s queues[64];
} __attribute__((packed));
static_assert(offsetof(port_queue_credit_s, queues) == 4);
static_assert(sizeof(port_queue_credit_s) == 516);

using queue_credits_cb_t = void (*)(uint32_t port, port_queue_credit_s *credits, void *ctxt);

// Calls the callback once per port, before it returns. The record is gone when the callback returns. Any thread.
sdk_ret_t queue_credits_get(queue_credits_cb_t callback, void *ctxt);

}  // namespace sdk::asic::pd
