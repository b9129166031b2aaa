// The limits of a fault, for the help of those who take one.

#pragma once

namespace base {

inline constexpr char k_fault_limits[] =
    R"(  key=HEX           only calls for objects whose key starts with these bytes
  after=N           not the first N calls
  walk=M            of a walk: each one breaks after M records
  nth=N             only the N-th call
  every=N           every N-th call
  chance=PERCENT    at random, the same calls in every run; seed=S (default 1) makes it others
  full=N            nyx_tbl_<table>_create alone: fails while the table has N or more entries, with
                    SDK_RET_RESOURCE_EXHAUSTION unless code= says otherwise
)";

}  // namespace base
