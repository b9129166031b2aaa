// Statistics of the packet pipeline, and quiescing it. Rules for all operations: sdk_ret.h. What the words of the
// records count is defined by the agent; the services pass them on by position.

#pragma once

#include <cstdint>
#include <type_traits>

#include "agent_api/sdk_ret.h"

struct nyx_flow_stats_summary_s {
    uint64_t word[10];
};
static_assert(std::has_unique_object_representations_v<nyx_flow_stats_summary_s>);  // no gaps

struct nyx_datapath_assist_stats_s {
    uint64_t word[16];  // words 0 to 10 and 12 are reported
};
static_assert(std::has_unique_object_representations_v<nyx_datapath_assist_stats_s>);  // no gaps

struct session_stats_entry_s {
    uint64_t word[4];
};
static_assert(std::has_unique_object_representations_v<session_stats_entry_s>);  // no gaps

struct nyx_meter_stats_entry_s;  // the agent's own; the services don't look into it

using nyx_session_stats_cb_t = void (*)(uint32_t index, session_stats_entry_s *entry, void *ctxt);
using nyx_meter_stats_cb_t = void (*)(nyx_meter_stats_entry_s *entry, void *ctxt);

// Fills `summary`. SDK_RET_INVALID_OPERATION when the device mode that the card runs in does not offer it, which a
// client receives as gRPC status UNIMPLEMENTED; every other failure is translated.
sdk::sdk_ret_t nyx_flow_summary_get(nyx_flow_stats_summary_s *summary);

// Fills `stats`.
sdk::sdk_ret_t nyx_datapath_assist_stats_get(nyx_datapath_assist_stats_s *stats);

// Walk over the sessions, or meters, with statistics between the indexes `low` and `high`. The client's range is
// passed on unchecked: `low` may be above `high`, and any number may be missing. Whether `high` belongs to the range
// is up to the agent. No meter is reported to clients, only the code of the walk.
sdk::sdk_ret_t nyx_session_stats_get(nyx_session_stats_cb_t callback, uint32_t low, uint32_t high,
                                     void *ctxt);
sdk::sdk_ret_t nyx_meter_stats_get(nyx_meter_stats_cb_t callback, uint32_t low, uint32_t high, void *ctxt);

// Switch the collection of statistics on or off at once. The codes are ignored: no client learns of a failure, nor
// whether the collection was on before.
sdk::sdk_ret_t nyx_session_stats_enable();
sdk::sdk_ret_t nyx_session_stats_disable();
sdk::sdk_ret_t nyx_lif_stats_enable();
sdk::sdk_ret_t nyx_lif_stats_disable();

// Start and stop quiescing the pipeline. The codes are ignored: no client learns of a refusal. Whether the operation
// returns before the pipeline is quiet, and what a start means while the pipeline is quiet already, is up to the
// agent.
sdk::sdk_ret_t nyx_quiesce_start();
sdk::sdk_ret_t nyx_quiesce_stop();
