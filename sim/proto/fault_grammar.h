// How a fault is written, for the help of the programs that take one.

#pragma once

namespace sim {

inline constexpr char k_fault_grammar[] =
    R"(  OPERATION:code=CODE[,LIMIT...]   fail with a return code
  OPERATION:delay=MS[,LIMIT...]    take MS milliseconds longer, an hour at most
CODE is a number above 0 or a name such as SDK_RET_RETRY_OPERATION. With both
code= and delay=, a call is delayed and then fails.

Without limits, the fault affects every call until it is removed. Limits count
the calls of the operation since the fault was added; a walk over objects
counts as one call for each object:
  key=HEX           only calls for objects whose key starts with these bytes;
                    other calls are not counted
  after=N           all but the first N calls
  nth=N             only the N-th call
  every=N           every N-th call; with after=, counted from there
  chance=PERCENT    calls at random, the same ones in every run; seed=S
                    (default 1) selects others
  walk=M            only walks: each one breaks after M records
  full=N            only nyx_tbl_<table>_create: fails while the table has N or
                    more entries, with SDK_RET_RESOURCE_EXHAUSTION unless code=
                    is given
A fault takes at most one of nth=, every=, chance=, walk= and full=. nth= does
not go with after=, and full= goes only with code=.
)";

}  // namespace sim
