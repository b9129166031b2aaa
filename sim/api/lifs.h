// The stand-in's LIF library and the implementation objects of its LIFs. Any thread.

#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "agent_api/lif.h"
#include "agent_api/lif_impl.h"
#include "sim/card/card_counters.h"
#include "sim/card/card_lifs.h"

namespace sim {

std::unique_ptr<api::impl::lif_impl> make_lif_impl(lif_impl_s answers);

// Adds or replaces a LIF without checking the record. For tests.
void put_lif(const nyx_lif_info_s &info);

// Sets an entry of the implementation table; a null object removes it. Objects are never freed, so that those a
// request has looked up stay valid. For tests.
void put_lif_impl(uint16_t lif_id, std::unique_ptr<api::impl::lif_impl> object);

// Adds to the words of LIF 1 to 5.
using lif_counts = std::array<uint64_t, LIF_COUNTERS>;
void count_at_lif(uint8_t number, const lif_counts &growth);

// How often the statistics of a LIF were reset; 0 if it is unknown.
uint64_t lif_stats_resets(const nyx_obj_key_s &key);

void reset_lifs();

}  // namespace sim
