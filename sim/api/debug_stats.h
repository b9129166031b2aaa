// The stand-in's statistics of the debug library and its AACS server: what tests set and read.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "agent_api/debug_stats.h"

namespace sim {

std::vector<nyx_slab_info_s> default_slabs();
std::vector<nyx_pb_debug_stats_s> default_pb_ports();  // 0 to 7, two queues of each in use

struct debug_stats_state_s {
    std::vector<nyx_slab_info_s> slabs = default_slabs();
    std::vector<nyx_pb_debug_stats_s> pb_ports = default_pb_ports();

    // If not empty, reported instead of the counters of the stand-in's tables. Those have the operation counters
    // 0 creates, 1 failed creates, 2 updates, 4 failed updates, 5 deletes, 6 failed deletes, 7 reads, 8 failed reads,
    // and the table counters 0 entries now, 1 the most entries so far.
    std::vector<nyx_table_stats_s> tables;

    uint32_t llc_mask = UINT32_MAX;
    std::optional<unsigned int> aacs_port;  // while the server runs
};

// Any thread. put_debug_stats_state({}) goes back to the start.
debug_stats_state_s debug_stats_state();
void put_debug_stats_state(debug_stats_state_s state);

// Changes it under its lock: `change` must neither wait nor use it in another way.
void change_debug_stats_state(const std::function<void(debug_stats_state_s &)> &change);

}  // namespace sim
