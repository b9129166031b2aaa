// Values of messages as the agent's plain values, and back.

#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"
#include "nyx/types/net.pb.h"

// Copies `proto_key` to the start of a zeroed key. A longer text than 16 bytes leaves the key as it was. Returns
// SDK_RET_OK in both cases.
sdk::sdk_ret_t nyx_obj_key_proto_to_api_spec(nyx_obj_key_s *key, const std::string &proto_key);

// Stores the prefix. Returns SDK_RET_INVALID_ARG for a family other than IPv4 and IPv6, which stores family 0, and for a
// length that the family does not have, which leaves the address as it was. The length is stored in any case.
sdk::sdk_ret_t ippfx_proto_spec_to_api_spec(ip_prefix_s *pfx, const types::IPPrefix &proto);

// "00:1a:2b:3c:4d:5e" for 6 bytes, or with upper-case digits. The text belongs to the thread, which overwrites it in the
// fourth call after this one.
char *macaddr2str(const uint8_t *mac, bool upper_case);

namespace svc {

// The key of an id; all zero for an id above 16 bytes.
nyx_obj_key_s key_to_api(const std::string &id);

// All 16 bytes of the identifier.
std::string key_to_proto(nyx_obj_key_s key);

// The IPv4 or IPv6 address; all zero for any other family. An IPv6 address shorter than 16 bytes is followed by zeros, a
// longer one is cut.
ip_addr_s ip_addr_to_api(const types::IPAddress &proto);

// The low 48 bits of a number, most significant byte first.
mac_addr_s mac_addr_to_api(uint64_t mac);
uint64_t mac_addr_to_proto(mac_addr_s mac);

// False for the all-zero address.
inline bool is_set(mac_addr_s mac) {
    return std::ranges::any_of(mac.bytes, [](uint8_t byte) { return byte != 0; });
}

// True for an IPv4 or IPv6 prefix; ip_prefix_to_proto() fills an empty message with it.
bool has_family(const ip_prefix_s &pfx);
void ip_prefix_to_proto(types::IPPrefix *proto, const ip_prefix_s &pfx);

// Administrative and operational states: the agent's 1 and 2 are the messages' 2 and 1. Other values become 0.
constexpr uint32_t swapped_state(uint32_t state) { return state == 1 ? 2 : state == 2 ? 1 : 0; }

// For numbers that mean the same on both sides, from 1 to `last`: larger ones become 0.
constexpr uint32_t known_or_none(uint32_t value, uint32_t last) { return value <= last ? value : 0; }

// The same as an enumerator; `last` is the greatest one.
template <class Enum>
constexpr Enum enumerator_or_none(uint32_t value, Enum last) {
    return static_cast<Enum>(known_or_none(value, static_cast<uint32_t>(last)));
}

}  // namespace svc
