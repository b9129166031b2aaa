// Changes per second of counters, computed from two readings; nothing is cleared on the device.

#pragma once

#include <cstdint>
#include <optional>

#include "client/view/shown.h"

namespace nyxctl {

// How much a counter of 32 or 64 bits grew. One that went down wrapped around when that means a growth of less than a
// quarter of its range; otherwise somebody reset it, and the growth is unknown.
std::optional<uint64_t> counter_growth(uint64_t before, uint64_t now, unsigned bits);

// `now` with a column "NAME_per_s" after every column NAME that has counters: growth per second since `before`,
// "reset" for a counter that was reset, null where there is nothing to compare with. Rows are the same when their keys
// are, equal ones by their order.
shown_s with_rates(const shown_s &before, const shown_s &now, double seconds);

// Leaves `count` rows of `now` in their order: those that differ from `before`, and then the first ones. The others are
// left out.
void keep_changed(const shown_s &before, size_t count, shown_s *now);

}  // namespace nyxctl
