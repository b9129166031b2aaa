// The card's internal Ethernet switch. Ports are counted from 0.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/sdk_ret.h"

namespace sdk::iswitch {

struct iswitch_port_status_s_ {
    uint8_t flag;  // 0: link down
    uint8_t value_a;
    uint16_t value_b;
    uint32_t mode;
} __attribute__((packed));
static_assert(offsetof(iswitch_port_status_s_, flag) == 0);
static_assert(offsetof(iswitch_port_status_s_, value_a) == 1);
static_assert(offsetof(iswitch_port_status_s_, value_b) == 2);
static_assert(offsetof(iswitch_port_status_s_, mode) == 4);
static_assert(sizeof(iswitch_port_status_s_) == 8);

struct iswitch_port_stats_s_ {
    uint64_t counter[16];  // 13 are reported
} __attribute__((packed));
static_assert(sizeof(iswitch_port_stats_s_) == 128);

// All operations: any thread.

uint32_t iswitch_get_max_ports();

// Fill a zeroed record; after a failure it is still zero.
sdk_ret_t iswitch_get_port_status(uint8_t port, iswitch_port_status_s_ *status);
sdk_ret_t iswitch_get_port_stats(uint8_t port, iswitch_port_stats_s_ *stats);

// A zero-terminated text that stays in place for ever; null when there is none.
const char *iswitch_get_port_descr(uint8_t port);

}  // namespace sdk::iswitch
