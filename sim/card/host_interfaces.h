// The host interfaces that the service recorded for the agent's next start.

#pragma once

#include <string>

namespace sim {

// Loads the host interfaces from the JSON file
//     {"host-interface": [{"name": "h1", "mac": "00:ae:cd:01:02:03"}, ...]}
// where an empty string also is an empty list. The name, of 1 to 15 bytes, identifies an interface: a known one gets the
// MAC address, an unknown one is added; invalid elements are skipped. A missing file is the same as an empty list. If the
// file is anything else, changes nothing and returns false with a text for people in `error`. Any thread; never throws.
bool load_host_interfaces(const std::string &path, std::string *error);

}  // namespace sim
