// Statistics of the packet buffer and of the P4 tables, as messages.

#pragma once

#include "agent_api/debug_stats.h"

// Callbacks of the debug library's walks. Each appends one record to the response that `ctxt` is, a
// nyx::PbStatsGetResponse and a nyx::TableStatsGetResponse.
void nyx_pb_stats_entry_to_proto(nyx_pb_debug_stats_s *stats, void *ctxt);
void nyx_table_stats_entry_to_proto(nyx_table_stats_s *stats, void *ctxt);
