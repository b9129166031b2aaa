// LLDP state of uplinks. Rules for all operations: sdk_ret.h.
//
// Texts are the neighbour's own words: up to the first zero byte or the end of the array, in any encoding. Clients
// see U+FFFD for each byte that is not UTF-8. The meaning of the number, the kinds and the types is defined by the
// agent; a kind or type out of its range is reported as 0, and a count above 8 is read as 8.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "agent_api/sdk_ret.h"

struct lldp_capability_s {
    uint32_t type;  // 1 to 7
    uint8_t enabled;
} __attribute__((packed));
static_assert(sizeof(lldp_capability_s) == 5);

struct lldp_unknown_tlv_s {
    char text_1[64];
    uint32_t number_1;
    uint32_t number_2;
    char text_2[64];
};
static_assert(std::has_unique_object_representations_v<lldp_unknown_tlv_s>);  // no gaps

// One side of the link. Without the attribute, because a compiler can't pack text objects, yet without padding. Agent
// and services must be built with the same C++ ABI for std::string.
struct lldp_if_status_s {
    char if_name[64];
    uint32_t number;
    uint32_t kind;  // 1 to 6
    std::string text;
    char system_name[64];
    uint32_t chassis_id_type;  // 1 to 7
    char chassis_id[64];
    char system_description[512];
    uint32_t mgmt_ipv4;  // in the processor's byte order
    lldp_capability_s capability[8];
    uint32_t num_capability;
    uint32_t port_id_type;  // 1 to 7
    char port_id[64];
    char port_description[512];
    uint32_t port_number;
    lldp_unknown_tlv_s unknown_tlv[8];
    uint32_t num_unknown_tlv;
};

struct nyx_if_lldp_status_s {
    lldp_if_status_s local;
    lldp_if_status_s neighbor;
};
static_assert(offsetof(lldp_if_status_s, text) == 72);
static_assert(offsetof(lldp_if_status_s, system_name) == 72 + sizeof(std::string));
static_assert(offsetof(lldp_if_status_s, num_capability) ==
              720 + sizeof(std::string) + 8 * sizeof(lldp_capability_s));
static_assert(sizeof(lldp_if_status_s) == 2440 + sizeof(std::string));
static_assert(sizeof(nyx_if_lldp_status_s) == 2 * sizeof(lldp_if_status_s));

// Frame counters; which one counts what is defined by the agent.
struct nyx_if_lldp_stats_s {
    uint64_t counter_1;
    uint64_t counter_2;
    uint64_t counter_3;
    uint32_t counter_4;
} __attribute__((packed));
static_assert(offsetof(nyx_if_lldp_stats_s, counter_4) == 24);
static_assert(sizeof(nyx_if_lldp_stats_s) == 28);

namespace core {

// Each fills an empty record for the LLDP interface index of an uplink's status (uplink_status_s). The code is
// ignored and the record reported in any case, so a failing operation leaves it empty. Called once for each uplink
// that a client reads, also within the callback of nyx_if_read_all.
sdk::sdk_ret_t interface_lldp_status_get(uint16_t lldp_if_index, nyx_if_lldp_status_s *status);
sdk::sdk_ret_t interface_lldp_stats_get(uint16_t lldp_if_index, nyx_if_lldp_stats_s *stats);

}  // namespace core
