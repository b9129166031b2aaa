// The stand-in's system API, queue credits and system manager: what tests set and read.

#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "agent_api/queue_credits.h"
#include "agent_api/system.h"

namespace sim {

struct port_credits_s {
    uint32_t port;
    std::vector<sdk::asic::pd::queue_credit_s> queues;
};

// Three ports: with eight queues, with four, without queues.
std::vector<port_credits_s> default_port_credits();

// The values that an adapter starts with.
struct system_state_s {
    nyx_system_voltage_s voltage = {{12040, 851, 852}};        // mV: card, core, Arm cores
    nyx_system_power_s power = {{24300, 14200, 6100}};         // mW: total, core, Arm cores
    nyx_system_clock_freq_s frequency = {{1100, 2000, 1500}};  // MHz: core, Arm cores, pipeline stages
    nyx_system_temperature_s temperature = {{58, 43, 39}};     // Celsius: core, board, inlet
    std::string die_id = "0b7c-51e2-9a30-44d8";
    uint32_t led = 1;
    uint32_t reset_reason = 1;
    bool recovery_enabled = true;
    bool recovery_suspended = false;
    std::vector<port_credits_s> credits = default_port_credits();
};

// Any thread. put_system_state({}) goes back to the start.
system_state_s system_state();
void put_system_state(system_state_s state);

// Changes it under its lock: `change` must neither wait nor use it in another way.
void change_system_state(const std::function<void(system_state_s &)> &change);

}  // namespace sim
