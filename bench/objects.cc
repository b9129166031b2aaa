#include "bench/objects.h"

#include <cstring>

#include "agent_api/port.h"
#include "sim/card/card.h"

namespace bench {

namespace {

size_t g_interfaces = 5000;

ip_prefix_s prefix(ip_af_e family, uint32_t number) {
    ip_prefix_s pfx = {.addr = {.af = family, .addr = {}}, .len = 24};
    memcpy(pfx.addr.addr, &number, sizeof(number));
    return pfx;
}

void fill_l3(l3_if_spec_s &l3, uint32_t number) {
    l3.vpc = sim::host_interface_key(1);
    l3.port = sim::port_key(1);
    l3.prefix[0] = prefix(IP_AF_IPV4, number);
    l3.prefix[1] = prefix(IP_AF_IPV6, number);
    l3.encap.type = 1;
    l3.encap.value.vlan = static_cast<uint16_t>(number);
    l3.mac = sim::card_mac(9, 1);
}

nyx_if_info_s created(uint32_t number) {
    auto info = nyx_if_info_s();
    info.spec.key.id[0] = 0x0c;
    memcpy(info.spec.key.id + 12, &number, sizeof(number));
    info.spec.admin_state = info.status.oper_state = NYX_STATE_UP;
    info.status.if_index = number;
    switch (number % 3) {
        case 0:
            info.spec.type = NYX_IF_TYPE_L3;
            fill_l3(info.spec.l3, number);
            break;
        case 1:
            info.spec.type = NYX_IF_TYPE_LOOPBACK;
            info.spec.loopback.prefix = prefix(IP_AF_IPV4, number);
            info.spec.loopback.num_bgp_community = 1;
            break;
        default:
            info.spec.type = NYX_IF_TYPE_CONTROL;
            info.spec.control.prefix = prefix(IP_AF_IPV4, number);
            info.spec.control.mac = sim::card_mac(9, 2);
    }
    return info;
}

std::vector<nyx_if_info_s> values_of(const sim::if_record_map &map) {
    std::vector<nyx_if_info_s> records;
    for (const auto &[key, info] : map) {
        records.push_back(info);
    }
    return records;
}

std::vector<nyx_if_info_s> make_interfaces() {
    auto records = values_of(sim::card_records().interfaces);
    while (records.size() < g_interfaces) {
        records.push_back(created(static_cast<uint32_t>(records.size())));
    }
    return records;
}

}  // namespace

void set_walk_size(size_t interfaces) { g_interfaces = interfaces; }

const std::vector<nyx_if_info_s> &interface_records() {
    static const auto records = make_interfaces();
    return records;
}

const std::vector<nyx_if_info_s> &port_records() {
    static const auto records = values_of(sim::card_records().ports);
    return records;
}

}  // namespace bench

namespace {

sdk::sdk_ret_t walk(const std::vector<nyx_if_info_s> &records, nyx_read_cb_t callback, void *ctxt) {
    for (const nyx_if_info_s &record : records) {
        callback(const_cast<nyx_if_info_s *>(&record), ctxt);
    }
    return sdk::SDK_RET_OK;
}

}  // namespace

// Replace the stand-in's walks, which copy the records first.
sdk::sdk_ret_t nyx_if_read_all(nyx_read_cb_t callback, void *ctxt) {
    return walk(bench::interface_records(), callback, ctxt);
}

sdk::sdk_ret_t api::port_get_all(nyx_read_cb_t callback, void *ctxt) {
    return walk(bench::port_records(), callback, ctxt);
}
