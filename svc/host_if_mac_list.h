// The content of the MAC file: a list of host interface names and MAC addresses.

#pragma once

#include <span>
#include <string>
#include <vector>

#include "agent_api/nyx_types.h"
#include "base/json_scanner.h"

namespace svc {

// As text: what the file says for an address, and even for a name, may be anything.
struct host_if_mac_record_s {
    std::string name;
    std::string mac;
};

using host_if_mac_list = std::vector<host_if_mac_record_s>;

// Reads the file's content, of any size and depth. A missing name is "default", a missing MAC address all zero; other
// members are skipped. Throws std::runtime_error when it is not JSON or has no list, and what `source` throws.
host_if_mac_list host_if_mac_list_from_json(base::text_source source);

// The same list as JSON with four spaces of indentation, byte for byte as Boost.PropertyTree writes it.
std::string host_if_mac_list_to_json(const host_if_mac_list &list);

struct host_if_mac_change_s {
    std::string name;
    mac_addr_s mac;
};

// Makes the changes one after the other. A change applies to every record with its name: it replaces their MAC address,
// or removes them when its own is all zero. A name that is not there is appended, unless the address is all zero.
void change_host_if_mac_list(host_if_mac_list *list, std::span<const host_if_mac_change_s> changes);

}  // namespace svc
