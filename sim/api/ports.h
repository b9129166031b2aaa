// The stand-in's port library. Reads return uplinks too. Any thread.

#pragma once

#include <array>
#include <cstdint>

#include "agent_api/port.h"
#include "sim/card/card_counters.h"

namespace sim {

// Adds or replaces a port without checking the record. The caller keeps its link event tracer. For tests.
void put_port(const nyx_if_info_s &info);

// Adds to the first counters of port 1, 2 or 3. Apart from the records, because a change copies those of all interfaces.
using port_counts = std::array<uint64_t, PORT_COUNTERS>;
void count_at_port(uint8_t number, const port_counts &growth);
void forget_port_counts();

}  // namespace sim
