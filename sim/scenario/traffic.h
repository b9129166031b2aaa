// The traffic of a scenario, from which all counters of the card are made, so that they balance: what comes in at ports and
// LIFs goes out at ports and LIFs, or the packet buffer has dropped it.

#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "sim/api/lifs.h"
#include "sim/api/ports.h"
#include "sim/card/card_counters.h"
#include "sim/scenario/scenario.h"

namespace sim {

constexpr size_t k_buffer_ports = 8, k_drop_reasons = 14;

struct buffer_counts_s {
    uint64_t in, out;
    std::array<uint64_t, k_drop_reasons> drops;
};

using session_counts = std::array<uint64_t, SESSION_COUNTERS>;

// By how much the counters of the card grow.
struct growth_s {
    std::array<port_counts, k_ports> ports = {};
    std::array<lif_counts, k_lifs> lifs = {};
    std::array<buffer_counts_s, k_buffer_ports> buffer = {};
    std::map<uint32_t, session_counts> sessions;
    uint64_t flows = 0;  // new ones
};

using links = std::array<bool, k_ports>;  // which are up

// One thread at a time.
class traffic {
 public:
    traffic(std::span<const traffic_s> stanzas, uint64_t seed);

    // Adds what passes from one moment to a later one, during which no link changes. How a time is cut into such parts does
    // not matter for the sum.
    void pass(uint64_t from_ms, uint64_t to_ms, const links &up, growth_s *growth);

 private:
    // Packets that were sent on and that were lost because the link was down.
    struct passed_s {
        uint64_t sent = 0, lost = 0;
    };

    // One direction of a stanza.
    struct direction_s {
        traffic_s stanza;   // whose replies are not looked at
        uint64_t number;    // distinguishes the random numbers of directions
        size_t in_session;  // place of its first counter
        passed_s passed = {};
    };

    void count(const direction_s &direction, const passed_s &before, growth_s *growth) const;
    uint64_t packets_until(const direction_s &direction, uint64_t ms) const;
    uint64_t ahead(const direction_s &direction, uint64_t second) const;

    const uint64_t seed_;
    std::vector<direction_s> directions_;
};

}  // namespace sim
