// What the card's three ports are like at the start.

#pragma once

#include <cstdint>

#include "agent_api/interface.h"

namespace sim {

// The record of port 1, 2 or 3. Its link event tracer stays as long as the process.
nyx_if_info_s card_port(uint8_t number);

}  // namespace sim
