#include "sim/api/lldp.h"

#include <cstdio>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <utility>

#include "sim/faults/faults.h"

namespace sim {

namespace {

// Numbers of IEEE 802.1AB.
enum : uint32_t {
    CHASSIS_ID_MAC = 4,
    PORT_ID_INTERFACE_NAME = 5,
    CAPABILITY_BRIDGE = 3,
    CAPABILITY_ROUTER = 5
};

struct lldp_s {
    nyx_if_lldp_status_s status = {};
    nyx_if_lldp_stats_s stats = {};
};

template <size_t N>
void put_text(char (&to)[N], const char *text) {
    snprintf(to, N, "%s", text);
}

void fill_local(lldp_if_status_s *local) {
    put_text(local->if_name, "uplink1");
    local->number = 1;
    local->kind = 1;
    local->text = "0 day, 00:05:12";
    put_text(local->system_name, "nyx-card");
    local->chassis_id_type = CHASSIS_ID_MAC;
    put_text(local->chassis_id, "02:ac:3e:00:00:01");
    put_text(local->system_description, "card with two data ports");
    local->mgmt_ipv4 = 0x0a000002;
    local->capability[0] = {CAPABILITY_BRIDGE, 1};
    local->num_capability = 1;
    local->port_id_type = PORT_ID_INTERFACE_NAME;
    put_text(local->port_id, "uplink1");
    put_text(local->port_description, "data port 1");
    local->port_number = 120;
}

void fill_neighbor(lldp_if_status_s *neighbor) {
    put_text(neighbor->if_name, "uplink1");
    neighbor->number = 2;
    neighbor->kind = 1;
    neighbor->text = "0 day, 00:05:10";
    put_text(neighbor->system_name, "tor-r07-a");
    neighbor->chassis_id_type = CHASSIS_ID_MAC;
    put_text(neighbor->chassis_id, "02:ac:3e:07:00:0a");
    put_text(neighbor->system_description, "top-of-rack switch, rack 7");
    neighbor->mgmt_ipv4 = 0x0a00070a;
    neighbor->capability[0] = {CAPABILITY_BRIDGE, 1};
    neighbor->capability[1] = {CAPABILITY_ROUTER, 0};
    neighbor->num_capability = 2;
    neighbor->port_id_type = PORT_ID_INTERFACE_NAME;
    put_text(neighbor->port_id, "Ethernet12");
    put_text(neighbor->port_description, "to server 12");
    neighbor->port_number = 120;
    put_text(neighbor->unknown_tlv[0].text_1, "02,AC,3E");
    neighbor->unknown_tlv[0].number_1 = 7;
    neighbor->unknown_tlv[0].number_2 = 4;
    put_text(neighbor->unknown_tlv[0].text_2, "00,00,01,2C");
    neighbor->num_unknown_tlv = 1;
}

std::map<uint16_t, lldp_s> uplinks_at_start() {
    std::map<uint16_t, lldp_s> uplinks;
    fill_local(&uplinks[1].status.local);
    fill_neighbor(&uplinks[1].status.neighbor);
    uplinks[1].stats = {.counter_1 = 1200, .counter_2 = 1180, .counter_3 = 3, .counter_4 = 1};
    uplinks[2] = {};
    return uplinks;
}

std::shared_mutex g_lock;

std::map<uint16_t, lldp_s> &uplinks() {
    static auto uplinks = uplinks_at_start();
    return uplinks;
}

template <class Record>
sdk::sdk_ret_t get(const char *operation, uint16_t index, Record lldp_s::*part, Record *record) {
    if (const auto ret = fault(operation, {reinterpret_cast<const uint8_t *>(&index), sizeof(index)})) {
        return ret;
    }
    std::shared_lock guard(g_lock);
    const auto uplink = uplinks().find(index);
    if (uplink == uplinks().end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    *record = uplink->second.*part;
    return sdk::SDK_RET_OK;
}

}  // namespace

void put_lldp_status(uint16_t lldp_if_index, nyx_if_lldp_status_s status) {
    std::unique_lock guard(g_lock);
    uplinks()[lldp_if_index].status = std::move(status);
}

void set_lldp_neighbor(uint16_t lldp_if_index, bool is_there) {
    const auto start = uplinks_at_start();
    std::unique_lock guard(g_lock);
    uplinks().at(lldp_if_index).status.neighbor =
        is_there ? start.at(lldp_if_index).status.neighbor : lldp_if_status_s();
}

void count_lldp_frames(uint16_t lldp_if_index, uint64_t sent, uint64_t received) {
    std::unique_lock guard(g_lock);
    auto &stats = uplinks().at(lldp_if_index).stats;
    stats.counter_1 += sent;
    stats.counter_2 += received;
}

void reset_lldp() {
    std::unique_lock guard(g_lock);
    uplinks() = uplinks_at_start();
}

}  // namespace sim

sdk::sdk_ret_t core::interface_lldp_status_get(uint16_t lldp_if_index, nyx_if_lldp_status_s *status) {
    return sim::get("core::interface_lldp_status_get", lldp_if_index, &sim::lldp_s::status, status);
}

sdk::sdk_ret_t core::interface_lldp_stats_get(uint16_t lldp_if_index, nyx_if_lldp_stats_s *stats) {
    return sim::get("core::interface_lldp_stats_get", lldp_if_index, &sim::lldp_s::stats, stats);
}
