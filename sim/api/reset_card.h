// The card as after a start, for tests.

#pragma once

namespace sim {

// Resets interfaces, ports, LIFs, LLDP and the agent's state to those of a start, and drops open batches.
void reset_card();

}  // namespace sim
