// The entries that are measured: the table `flow`, which has the most fields.

#pragma once

#include "agent_api/nyx_tbl.h"
#include "nyx/tables/flow.pb.h"

namespace bench {

// Requests for `count` entries or keys. All fields are set, to values that fill their width in the record and
// differ from entry to entry; they are the same in every run.
nyx::flowRequest flow_entries(int count);
nyx::flowGetRequest flow_keys(int count);

// One of those entries as a record.
nyx_tbl_flow_spec_s flow_record();

}  // namespace bench
