// Back to the start, for tests.

#pragma once

namespace sim {

// Puts interfaces, ports, LIFs, LLDP and the agent's state back to the start, and drops open batches.
void reset_card();

}  // namespace sim
