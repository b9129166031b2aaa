// Values of messages as the agent's plain values.

#pragma once

#include <cstdint>
#include <string>

#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"
#include "nyx/types/net.pb.h"

// Copies `proto_key` to the start of a zeroed key. A text above 16 bytes leaves the key as it was, and is no
// error either: returns SDK_RET_OK.
sdk::sdk_ret_t nyx_obj_key_proto_to_api_spec(nyx_obj_key_s *key, const std::string &proto_key);

namespace svc {

// The address that the family names; all zero, family 0 included, for any other family. An IPv6 text shorter
// than 16 bytes is followed by zeros, of a longer one the first 16 count.
ip_addr_s ip_addr_to_api(const types::IPAddress &proto);

// The low 48 bits of a number, most significant byte first.
mac_addr_s mac_addr_to_api(uint64_t mac);

}  // namespace svc
