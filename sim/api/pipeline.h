// The stand-in's pipeline: what tests set and read.

#pragma once

#include <cstdint>
#include <functional>
#include <map>

#include "agent_api/pipeline.h"

namespace sim {

// Sessions 1 to 8, 100 and 4000000000.
std::map<uint32_t, session_stats_entry_s> default_sessions();

struct pipeline_state_s {
    nyx_flow_stats_summary_s flow_summary = {{5120, 4096, 1024, 3900, 1100, 96, 24, 7, 3, 1}};
    nyx_datapath_assist_stats_s datapath_assist = {
        {90000, 89000, 1000, 700, 300, 64, 32, 16, 8, 4, 2, 11, 12, 0, 0, 0}};
    std::map<uint32_t, session_stats_entry_s> sessions = default_sessions();
    bool session_stats_enabled = true;
    bool lif_stats_enabled = true;
    bool quiesced = false;
};

// Any thread. put_pipeline_state({}) goes back to the start.
pipeline_state_s pipeline_state();
void put_pipeline_state(pipeline_state_s state);

// Changes it under its lock: `change` must neither wait nor use it in another way.
void change_pipeline_state(const std::function<void(pipeline_state_s &)> &change);

}  // namespace sim
