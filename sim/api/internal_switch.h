// The stand-in's internal switch: what tests set and read.

#pragma once

#include <functional>
#include <vector>

#include "agent_api/internal_switch.h"

namespace sim {

struct switch_port_s {
    sdk::iswitch::iswitch_port_status_s_ status;
    sdk::iswitch::iswitch_port_stats_s_ stats;
    const char *descr;  // a string literal, or null
};

// The ports that a card starts with: seven.
std::vector<switch_port_s> default_switch_ports();

// Any thread.
void put_switch_ports(std::vector<switch_port_s> ports);

// Changes them under their lock: `change` must neither wait nor use them in another way.
void change_switch_ports(const std::function<void(std::vector<switch_port_s> &)> &change);

}  // namespace sim
