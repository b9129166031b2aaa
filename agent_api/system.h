// The system API: the adapter's sensors, identity and clocks. Rules for all operations: sdk_ret.h.
//
// Which sensor a value belongs to, and its unit, is defined by the agent; the services pass the values on by
// position.

#pragma once

#include <cstdint>
#include <type_traits>

#include "agent_api/sdk_ret.h"

struct nyx_system_voltage_s {
    uint32_t value[3];  // the second and third are reported
};
static_assert(std::has_unique_object_representations_v<nyx_system_voltage_s>);  // no gaps

struct nyx_system_power_s {
    uint32_t value[3];
};
static_assert(std::has_unique_object_representations_v<nyx_system_power_s>);  // no gaps

struct nyx_system_clock_freq_s {
    uint32_t value[3];
};
static_assert(std::has_unique_object_representations_v<nyx_system_clock_freq_s>);  // no gaps

struct nyx_system_temperature_s {
    uint32_t value[3];
};
static_assert(std::has_unique_object_representations_v<nyx_system_temperature_s>);  // no gaps

// Each fills its record. SystemGet calls them in the order voltage, power, die identifier, clock frequency,
// temperature, and ends at the first failure: its code is all that the client receives.
sdk::sdk_ret_t nyx_get_system_voltage(nyx_system_voltage_s *voltage);
sdk::sdk_ret_t nyx_get_system_power(nyx_system_power_s *power);
sdk::sdk_ret_t nyx_get_system_clock_frequency(nyx_system_clock_freq_s *frequency);
sdk::sdk_ret_t nyx_get_system_temperature(nyx_system_temperature_s *temperature);

// Writes the die identifier, as text with a terminating zero, into `buf`, which has `len` bytes (64) and is zeroed.
sdk::sdk_ret_t nyx_get_system_die_id(char *buf, uint8_t len);

// Can't fail; called when all of the above have succeeded. The LED's state is 1, 2 or another number, the reason of
// the last reset 1 to 8 or another number, each reported as one value. What the numbers mean is defined by the agent.
uint32_t nyx_get_system_led();
uint32_t nyx_get_system_reset_reason();

// Clock frequencies in MHz. The numbers do not follow the order of the frequencies.
enum nyx_clock_freq_e : uint32_t {
    NYX_CLOCK_FREQ_833 = 0,
    NYX_CLOCK_FREQ_900 = 1,
    NYX_CLOCK_FREQ_957 = 2,
    NYX_CLOCK_FREQ_1033 = 3,
    NYX_CLOCK_FREQ_1100 = 4,
    NYX_CLOCK_FREQ_1137 = 5,
    NYX_CLOCK_FREQ_1500 = 6,
    NYX_CLOCK_FREQ_1667 = 7,
    NYX_CLOCK_FREQ_2200 = 8,
    NYX_CLOCK_FREQ_2000 = 9,
    NYX_CLOCK_FREQ_3000 = 10,
};

// Change a clock at once, without a batch. The services pass only the frequencies that are listed here. One request
// can change several clocks, in this order; a failure does not stop the next one, and the client receives the code of
// the last one.
sdk::sdk_ret_t nyx_clock_frequency_update(nyx_clock_freq_e frequency);  // core: 833, 900, 957, 1033 or 1100
sdk::sdk_ret_t nyx_arm_clock_frequency_update(
    nyx_clock_freq_e frequency);  // Arm cores: 1667, 2000, 2200 or 3000
sdk::sdk_ret_t nyx_p4_stage_frequency_update(nyx_clock_freq_e frequency);  // pipeline stages: 1137 or 1500
