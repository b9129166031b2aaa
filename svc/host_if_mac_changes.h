// The changes that one request makes to the MAC file.

#pragma once

#include <string>
#include <vector>

#include "agent_api/nyx_types.h"
#include "agent_api/sdk_ret.h"
#include "svc/host_if_mac_list.h"

namespace svc {

// The name as it is stored: in UTF-8, without a character that was cut at its end. Empty when there is none.
std::string host_if_mac_name(const char *name);

// Collects changes and writes the file once, however many there are: to read, write and sync it for each of 3,000 host
// interfaces took 49 seconds. For one thread.
class host_if_mac_changes {
 public:
    // Adds what host_if_mac_update() would do at once. Returns its code when it can be known before the file is
    // written: for a name that is empty, and for a file that can't be written, which the first change finds out.
    sdk::sdk_ret_t add(const char *name, mac_addr_s mac);

    // Makes all changes, or none when it returns a code other than SDK_RET_OK.
    sdk::sdk_ret_t write() const;

 private:
    std::vector<host_if_mac_change_s> changes_;
};

}  // namespace svc
