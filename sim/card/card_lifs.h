// What the card's five LIFs are like at the start. LIF N has the id 64 + N; the last has no implementation object.

#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "sim/api/lifs.h"

namespace sim {

std::vector<nyx_lif_info_s> card_lifs();
std::map<uint16_t, lif_impl_s> card_lif_impls();  // by LIF id

}  // namespace sim
