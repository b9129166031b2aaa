// What happens to a living card, as written in a TOML file; docs/clients.md describes it by example.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "sim/faults/parse_fault.h"

namespace sim {

constexpr size_t k_max_scenario_bytes = 64 * 1024, k_max_stanzas = 16;  // stanzas of each kind

constexpr size_t k_ports = 3, k_lifs = 5;

// Where packets come from and go to: 0 to 2 are ports 1 to 3, 3 to 7 are LIFs 1 to 5.
using endpoint = size_t;

// A [[traffic]]: packets from one place to another, and those that come back.
struct traffic_s {
    endpoint from, to;
    uint64_t packets, replies;    // a second, on average
    uint64_t bytes, reply_bytes;  // of a packet
    uint64_t burst;               // percent by which each second may differ from the average
    uint64_t drops, errors;       // of a million
    uint64_t drop_reason;         // of the packet buffer
    uint64_t session;             // that counts them; 0: none
};

// A [[sensor]], which goes from one value to another and back again.
struct sensor_s {
    size_t group, index;  // temperature, voltage or power; place in its record
    uint64_t from, to;
    uint64_t period_ms;
    uint64_t limit;  // above it, the LED's state is 2
};

enum event_e { EVENT_LINK_DOWN, EVENT_TRANSCEIVER_OUT, EVENT_NEIGHBOR_GONE, EVENT_FAULT, EVENT_RESTART };

// An [[event]]. Times in milliseconds since the start of the scenario.
struct event_s {
    event_e what;
    uint64_t port;
    uint64_t at_ms, lasts_ms;
    uint64_t every_ms;   // 0: only once
    uint64_t jitter_ms;  // each time may be later by up to this
    fault_s fault;       // of EVENT_FAULT
};

// A [[fill]]: entries that appear in a table.
struct fill_s {
    size_t table;
    uint64_t at_ms, per_second, entries;
};

struct scenario_s {
    std::string title;
    std::vector<traffic_s> traffic;
    std::vector<sensor_s> sensors;
    std::vector<event_s> events;
    std::vector<fill_s> fills;
};

// Throws std::invalid_argument, with a text for people, for a text that is no scenario or is longer than
// k_max_scenario_bytes.
scenario_s parse_scenario(std::string_view toml);

}  // namespace sim
