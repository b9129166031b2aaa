// Statistics of the packet pipeline, and quiescing it.

#pragma once

#include <cstdint>
#include <type_traits>

#include "agent_api/sdk_ret.h"

struct nyx_flow_stats_summary_s {
    uint64_t word[10];
};
static_assert(std::has_unique_object_representations_v<nyx_flow_stats_summary_s>);  // no gaps

struct nyx_datapath_assist_stats_s {
    uint64_t word[16];  // 13 are in use
};
static_assert(std::has_unique_object_representations_v<nyx_datapath_assist_stats_s>);  // no gaps

struct session_stats_entry_s {
    uint64_t word[4];
};
static_assert(std::has_unique_object_representations_v<session_stats_entry_s>);  // no gaps

struct nyx_meter_stats_entry_s;  // the agent's own

using nyx_session_stats_cb_t = void (*)(uint32_t index, session_stats_entry_s *entry, void *ctxt);
using nyx_meter_stats_cb_t = void (*)(nyx_meter_stats_entry_s *entry, void *ctxt);

// All operations: any thread.

// SDK_RET_INVALID_OPERATION: the device mode does not offer it.
sdk::sdk_ret_t nyx_flow_summary_get(nyx_flow_stats_summary_s *summary);

sdk::sdk_ret_t nyx_datapath_assist_stats_get(nyx_datapath_assist_stats_s *stats);

// Call the callback for each session or meter of the range that exists, before they return. The entry is gone when
// the callback returns. Whether `high` belongs to the range is the agent's.
sdk::sdk_ret_t nyx_session_stats_get(nyx_session_stats_cb_t callback, uint32_t low, uint32_t high,
                                     void *ctxt);
sdk::sdk_ret_t nyx_meter_stats_get(nyx_meter_stats_cb_t callback, uint32_t low, uint32_t high, void *ctxt);

sdk::sdk_ret_t nyx_session_stats_enable();
sdk::sdk_ret_t nyx_session_stats_disable();
sdk::sdk_ret_t nyx_lif_stats_enable();
sdk::sdk_ret_t nyx_lif_stats_disable();

sdk::sdk_ret_t nyx_quiesce_start();
sdk::sdk_ret_t nyx_quiesce_stop();
