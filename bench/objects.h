// Objects that walks are measured with; the same in every run.

#pragma once

#include <vector>

#include "agent_api/interface.h"

namespace bench {

// 5,000 interfaces, or as many as set_walk_size() asked for: the card's own, and new ones of the other kinds in equal parts.
const std::vector<nyx_if_info_s> &interface_records();

void set_walk_size(size_t interfaces);

// The card's three ports.
const std::vector<nyx_if_info_s> &port_records();

}  // namespace bench
