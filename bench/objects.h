// Objects that walks are measured with; the same in every run.

#pragma once

#include <vector>

#include "agent_api/interface.h"

namespace bench {

// 5,000 interfaces: the card's own, and created ones of the other kinds in equal parts.
const std::vector<nyx_if_info_s> &interface_records();

// The card's three ports.
const std::vector<nyx_if_info_s> &port_records();

}  // namespace bench
