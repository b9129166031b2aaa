// The card's internal Ethernet switch. Ports are counted from 0. Rules for all operations: sdk_ret.h.

#pragma once

#include <cstddef>
#include <cstdint>

#include "agent_api/sdk_ret.h"

namespace sdk::iswitch {

// The meaning of the values is defined by the switch.
struct iswitch_port_status_s_ {
    uint8_t flag;  // 0: link down, else up
    uint8_t value_a;
    uint16_t value_b;
    uint32_t mode;  // 0, 1 or another number
} __attribute__((packed));
static_assert(offsetof(iswitch_port_status_s_, flag) == 0);
static_assert(offsetof(iswitch_port_status_s_, value_a) == 1);
static_assert(offsetof(iswitch_port_status_s_, value_b) == 2);
static_assert(offsetof(iswitch_port_status_s_, mode) == 4);
static_assert(sizeof(iswitch_port_status_s_) == 8);

struct iswitch_port_stats_s_ {
    uint64_t counter[16];  // the first 13 are reported
} __attribute__((packed));
static_assert(sizeof(iswitch_port_stats_s_) == 128);

// Number of ports, read anew for each entry of a request. Of more than 256 ports the first 256 can be reported. 0
// when the switch can't be reached.
uint32_t iswitch_get_max_ports();

// Each fills its record for a port below the number of ports. The code is ignored and the record reported in any
// case, so a failing operation leaves it zero.
sdk_ret_t iswitch_get_port_status(uint8_t port, iswitch_port_status_s_ *status);
sdk_ret_t iswitch_get_port_stats(uint8_t port, iswitch_port_stats_s_ *stats);

// Returns the description of a port, a text with a terminating zero that stays in place as long as services run; null
// when there is none.
const char *iswitch_get_port_descr(uint8_t port);

}  // namespace sdk::iswitch
