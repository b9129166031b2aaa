// The stand-in's card, the same after every start: two data ports (1 with a QSFP-class transceiver and
// its link up, 2 with an SFP-class one and its link down), one management port (3), an uplink for each data port,
// the second down by its settings, two host interfaces and five LIFs.

#pragma once

#include <cstdint>

#include "agent_api/nyx_types.h"
#include "sim/card/if_records.h"

namespace sim {

// Keys of the objects that the card starts with, "0a000000-0000-4000-8000-00000001000N" and so on.
nyx_obj_key_s port_key(uint8_t number);            // 1 to 3
nyx_obj_key_s uplink_key(uint8_t number);          // 1 and 2, like their ports
nyx_obj_key_s host_interface_key(uint8_t number);  // 0 and 1, named "host0" and "host1"
nyx_obj_key_s lif_key(uint8_t number);             // 1 to 5

// The MAC address 02:ac:3e:00:KIND:NUMBER.
mac_addr_s card_mac(uint8_t kind, uint8_t number);

// The records of ports and interfaces at the start.
if_records_s card_records();

}  // namespace sim
