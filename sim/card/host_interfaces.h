// Host interfaces that the service has recorded for the agent's next start.

#pragma once

#include <string>

namespace sim {

// Takes the host interfaces from the JSON file
//     {"host-interface": [{"name": "h1", "mac": "00:ae:cd:01:02:03"}, ...]}
// where an empty string stands for an empty list: a host interface that is there gets the MAC, others are added. The
// name counts, 1 to 15 bytes; an element that is no host interface is passed over. A missing file is a file without host
// interfaces. When it is no such file nothing changes, and the result is false with a text for people in `error`. Any thread; never throws.
bool load_host_interfaces(const std::string &path, std::string *error);

}  // namespace sim
