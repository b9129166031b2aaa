#include "sim/card/card_lifs.h"

#include <cstdio>
#include <numeric>

#include "sim/card/card.h"

namespace sim {

namespace {

constexpr uint16_t k_lif_id = 64;
constexpr uint8_t k_lif_mac = 4;
constexpr uint32_t k_uplink_1_if_index = 0x40010000, k_uplink_2_if_index = 0x40020000;

struct card_lif_s {
    uint32_t type;
    uint8_t type_qualifier;
    const char *name;
    nyx_state_e admin_state;
    nyx_state_e oper_state;
};

constexpr card_lif_s k_lifs[] = {
    {1, 0, "host0-lif", NYX_STATE_UP, NYX_STATE_UP},
    {1, 1, "host1-lif-large", NYX_STATE_UP, NYX_STATE_UP},  // the longest possible name
    {2, 0, "mgmt-lif", NYX_STATE_UP, NYX_STATE_DOWN},
    {5, 0, "control-lif", NYX_STATE_DOWN, NYX_STATE_DOWN},
    {10, 0, "spare-lif", NYX_STATE_NONE, NYX_STATE_NONE},
};

// 02:ac:3e:01:00:00 and the addresses after it.
std::vector<uint64_t> macs(size_t count) {
    std::vector<uint64_t> macs(count);
    std::iota(macs.begin(), macs.end(), 0x02ac3e010000);
    return macs;
}

}  // namespace

std::vector<nyx_lif_info_s> card_lifs() {
    std::vector<nyx_lif_info_s> lifs;
    for (const auto &lif : k_lifs) {
        const auto number = static_cast<uint8_t>(lifs.size() + 1);
        auto &info = lifs.emplace_back();
        info.key = lif_key(number);
        info.lif_id = k_lif_id + number;
        info.type = lif.type;
        info.type_qualifier = lif.type_qualifier;
        info.mac = card_mac(k_lif_mac, number);
        info.lif_word_1 = number * 100u + 1;
        info.lif_word_2 = number * 100u + 2;
        info.lif_word_3 = number * 100u + 3;
        snprintf(info.name, sizeof(info.name), "%s", lif.name);
        info.admin_state = lif.admin_state;
        info.oper_state = lif.oper_state;
    }
    return lifs;
}

std::map<uint16_t, lif_impl_s> card_lif_impls() {
    std::map<uint16_t, lif_impl_s> impls;
    impls[k_lif_id + 1] = {.vlan_insert = true,
                           .vlan_strip = true,
                           .rdma = true,
                           .rdma_sniff = false,
                           .trunk = false,
                           .broadcast = true,
                           .all_multicast = false,
                           .promiscuous = false,
                           .pinned_if_idx = k_uplink_1_if_index,
                           .impl_value = 1,
                           .macs = macs(3),
                           .vlans = {10, 20},
                           .mac_vlans = {{0x02ac3e010000, 10}, {0x00000000000a, 100}}};
    impls[k_lif_id + 2] = {.vlan_insert = false,
                           .vlan_strip = false,
                           .rdma = false,
                           .rdma_sniff = true,
                           .trunk = true,
                           .broadcast = true,
                           .all_multicast = true,
                           .promiscuous = true,
                           .pinned_if_idx = k_uplink_2_if_index,
                           .impl_value = 2,
                           .macs = macs(70),
                           .vlans = {30},
                           .mac_vlans = {}};
    impls[k_lif_id + 3] = {};
    impls[k_lif_id + 3].impl_value = 3;
    impls[k_lif_id + 4] = {};
    impls[k_lif_id + 4].broadcast = true;
    impls[k_lif_id + 4].impl_value = 4;
    return impls;
}

}  // namespace sim
