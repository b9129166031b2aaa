// The system API: the adapter's sensors, identity and clocks.

#pragma once

#include <cstdint>
#include <type_traits>

#include "agent_api/sdk_ret.h"

struct nyx_system_voltage_s {
    uint32_t value[3];
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

// Getters: each fills a zeroed record. Any thread.
sdk::sdk_ret_t nyx_get_system_voltage(nyx_system_voltage_s *voltage);
sdk::sdk_ret_t nyx_get_system_power(nyx_system_power_s *power);
sdk::sdk_ret_t nyx_get_system_clock_frequency(nyx_system_clock_freq_s *frequency);
sdk::sdk_ret_t nyx_get_system_temperature(nyx_system_temperature_s *temperature);

// Writes the die identifier, zero-terminated, into `len` bytes.
sdk::sdk_ret_t nyx_get_system_die_id(char *buf, uint8_t len);

uint32_t nyx_get_system_led();
uint32_t nyx_get_system_reset_reason();  // 1 to 8

// In MHz; the numbers do not follow the frequencies.
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

// Change the clock of the core, of the Arm cores, of the pipeline stages. Any thread.
sdk::sdk_ret_t nyx_clock_frequency_update(nyx_clock_freq_e frequency);
sdk::sdk_ret_t nyx_arm_clock_frequency_update(nyx_clock_freq_e frequency);
sdk::sdk_ret_t nyx_p4_stage_frequency_update(nyx_clock_freq_e frequency);
