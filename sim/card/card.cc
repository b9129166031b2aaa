#include "sim/card/card.h"

#include "sim/card/card_ports.h"

namespace sim {

namespace {

enum kind_e : uint8_t { KIND_PORT = 1, KIND_UPLINK = 2, KIND_HOST = 3, KIND_LIF = 4 };

constexpr uint32_t k_uplink_if_index = 0x40000000, k_host_if_index = 0xa0000000;
constexpr uint32_t k_first_created_if_index = 0x60000001;

nyx_obj_key_s card_key(kind_e kind, uint8_t number) {
    return {.id = {0x0a, 0, 0, 0, 0, 0, 0x40, 0, 0x80, 0, 0, 0, 0, kind, 0, number}, .terminator = 0};
}

nyx_if_info_s uplink(uint8_t number, nyx_state_e oper_state) {
    auto info = nyx_if_info_s();
    info.spec.key = uplink_key(number);
    info.spec.type = NYX_IF_TYPE_UPLINK;
    info.spec.admin_state =
        oper_state;  // an uplink that should be up and is not would be a fault of the card
    info.spec.uplink.port = port_key(number);
    info.status.if_index = k_uplink_if_index | number << 16;
    info.status.oper_state = oper_state;
    info.status.uplink.lldp_if_index = number;
    return info;
}

nyx_if_info_s host_interface(uint8_t number, std::span<const nyx_obj_key_s> members) {
    auto info = nyx_if_info_s();
    info.spec.key = host_interface_key(number);
    info.spec.type = NYX_IF_TYPE_HOST;
    info.spec.admin_state = NYX_STATE_UP;
    info.spec.host.mac = card_mac(KIND_HOST, number);
    snprintf(info.spec.host.name, sizeof(info.spec.host.name), "host%u", number);
    info.status.if_index = k_host_if_index + number;
    info.status.oper_state = NYX_STATE_UP;
    info.status.host.num_member = static_cast<uint8_t>(members.size());
    for (size_t i = 0; i < members.size(); i++) {
        info.status.host.member[i] = members[i];
    }
    memcpy(info.status.host.name, info.spec.host.name, sizeof(info.status.host.name));
    info.status.host.mac = info.spec.host.mac;
    return info;
}

}  // namespace

nyx_obj_key_s port_key(uint8_t number) { return card_key(KIND_PORT, number); }
nyx_obj_key_s uplink_key(uint8_t number) { return card_key(KIND_UPLINK, number); }
nyx_obj_key_s host_interface_key(uint8_t number) { return card_key(KIND_HOST, number); }
nyx_obj_key_s lif_key(uint8_t number) { return card_key(KIND_LIF, number); }

mac_addr_s card_mac(uint8_t kind, uint8_t number) { return {{0x02, 0xac, 0x3e, 0, kind, number}}; }

if_records_s card_records() {
    if_records_s records = {.interfaces = {}, .ports = {}, .next_if_index = k_first_created_if_index};
    for (uint8_t number = 1; number <= 3; number++) {
        records.ports[port_key(number)] = card_port(number);
    }
    const nyx_obj_key_s members_0[] = {lif_key(1), lif_key(3)}, members_1[] = {lif_key(2)};
    records.interfaces[uplink_key(1)] = uplink(1, NYX_STATE_UP);
    records.interfaces[uplink_key(2)] = uplink(2, NYX_STATE_DOWN);
    records.interfaces[host_interface_key(0)] = host_interface(0, members_0);
    records.interfaces[host_interface_key(1)] = host_interface(1, members_1);
    return records;
}

}  // namespace sim
