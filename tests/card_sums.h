// What came in at the card, what went out, and what was dropped, as clients of the agent's operations see it.

#pragma once

#include <cstdint>
#include <vector>

#include "agent_api/debug_stats.h"
#include "agent_api/lif.h"
#include "agent_api/port.h"
#include "sim/card/card_counters.h"
#include "sim/scenario/traffic.h"

namespace test {

template <class Record>
std::vector<Record> all(sdk::sdk_ret_t (*read_all)(nyx_read_cb_t, void *)) {
    std::vector<Record> records;
    (void)read_all(
        [](void *info, void *ctxt) {
            static_cast<std::vector<Record> *>(ctxt)->push_back(*static_cast<Record *>(info));
        },
        &records);
    return records;
}

inline std::vector<nyx_if_info_s> ports() {
    auto records = all<nyx_if_info_s>(api::port_get_all);
    std::erase_if(records, [](auto &record) { return record.spec.type != NYX_IF_TYPE_ETH; });
    return records;
}

inline std::vector<nyx_lif_info_s> lifs() { return all<nyx_lif_info_s>(nyx_lif_read_all); }

inline std::vector<nyx_pb_debug_stats_s> buffers() {
    std::vector<nyx_pb_debug_stats_s> stats;
    (void)debug::nyx_pb_stats_get(
        [](nyx_pb_debug_stats_s *port, void *ctxt) {
            static_cast<std::vector<nyx_pb_debug_stats_s> *>(ctxt)->push_back(*port);
        },
        &stats);
    return stats;
}

inline uint32_t drops_of(const nyx_pb_debug_stats_s &port) {
    uint32_t drops = 0;
    for (size_t reason = 0; reason < sim::k_drop_reasons; reason++) {
        drops += port.drop[reason];
    }
    return drops;
}

// Modulo 2^32, to which some counters are cut.
struct sums_s {
    uint32_t in = 0, out = 0, drops = 0;
    bool balance = true;  // of all, and in each port of the packet buffer
};

inline sums_s sums() {
    sums_s sums;
    for (const auto &port : ports()) {
        sums.in += static_cast<uint32_t>(port.stats.mac_counter[sim::PORT_RX_FRAMES]);
        sums.out += static_cast<uint32_t>(port.stats.mac_counter[sim::PORT_TX_FRAMES]);
    }
    for (const auto &lif : lifs()) {
        sums.in += lif.lif_word_1;
        sums.out += lif.lif_word_2;
    }
    for (const auto &port : buffers()) {
        const uint32_t drops = drops_of(port);
        sums.drops += drops;
        sums.balance = sums.balance &&
                       static_cast<uint32_t>(port.input_queue[0].count - port.output_queue[0].count) == drops;
    }
    sums.balance = sums.balance && sums.in == sums.out + sums.drops;
    return sums;
}

}  // namespace test
