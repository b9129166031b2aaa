// What a scenario does to the card. Any thread.

#pragma once

#include <cstdint>
#include <span>

#include "sim/scenario/scenario.h"
#include "sim/scenario/traffic.h"

namespace sim {

// The card as after a restart: without tables, created interfaces and open batches, with counters at 0.
void restart_card();

// Changes the link of port 1, 2 or 3 and that of its uplink. Times since the start of the scenario.
void set_link(uint8_t number, bool is_up, uint64_t at_ms);

void set_transceiver(uint8_t number, bool is_there);

// Creates the entry with this number, from 0, which is its key.
void fill_table(size_t table, uint64_t number);

// Adds to all counters. `flows`: how many there were before.
void add_growth(const growth_s &growth, uint64_t flows);

// Sets what has no past: sensors, the LED that they switch, queue credits.
void set_sensors(std::span<const sensor_s> sensors, uint64_t seed, uint64_t at_ms);

}  // namespace sim
