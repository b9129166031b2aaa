// The card's five LIFs at the start. LIF N has the id 64 + N; the last one has no implementation object.

#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "agent_api/lif.h"
#include "agent_api/lif_impl.h"

namespace sim {

// The values that an implementation object returns.
struct lif_impl_s {
    bool vlan_insert, vlan_strip, rdma, rdma_sniff, trunk;
    bool broadcast, all_multicast, promiscuous;
    uint32_t pinned_if_idx;
    uint32_t impl_value;
    std::vector<uint64_t> macs;
    std::vector<uint32_t> vlans;
    std::vector<api::impl::mac_vlan_filter_s> mac_vlans;
};

std::vector<nyx_lif_info_s> card_lifs();
std::map<uint16_t, lif_impl_s> card_lif_impls();  // by LIF id

}  // namespace sim
