#include "sim/api/system.h"

#include <algorithm>
#include <span>

#include "agent_api/sysmgr.h"
#include "sim/api/guarded.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

guarded<system_state_s> g_system;

enum clock_e { CLOCK_CORE, CLOCK_ARM, CLOCK_P4_STAGE };

struct clock_setting_s {
    nyx_clock_freq_e frequency;
    clock_e clock;  // the one that can run at it
    uint32_t mhz;
};

constexpr clock_setting_s k_clock_settings[] = {
    {NYX_CLOCK_FREQ_833, CLOCK_CORE, 833},       {NYX_CLOCK_FREQ_900, CLOCK_CORE, 900},
    {NYX_CLOCK_FREQ_957, CLOCK_CORE, 957},       {NYX_CLOCK_FREQ_1033, CLOCK_CORE, 1033},
    {NYX_CLOCK_FREQ_1100, CLOCK_CORE, 1100},     {NYX_CLOCK_FREQ_1137, CLOCK_P4_STAGE, 1137},
    {NYX_CLOCK_FREQ_1500, CLOCK_P4_STAGE, 1500}, {NYX_CLOCK_FREQ_1667, CLOCK_ARM, 1667},
    {NYX_CLOCK_FREQ_2200, CLOCK_ARM, 2200},      {NYX_CLOCK_FREQ_2000, CLOCK_ARM, 2000},
    {NYX_CLOCK_FREQ_3000, CLOCK_ARM, 3000},
};

sdk::sdk_ret_t set_clock(clock_e clock, nyx_clock_freq_e frequency) {
    for (const auto &setting : k_clock_settings) {
        if (setting.clock == clock && setting.frequency == frequency) {
            g_system.with([&](auto &state) { state.frequency.value[clock] = setting.mhz; });
            return sdk::SDK_RET_OK;
        }
    }
    return sdk::SDK_RET_INVALID_ARG;
}

template <class Record>
sdk::sdk_ret_t get(std::string_view operation, Record system_state_s::*member, Record *record) {
    if (const auto ret = fault(operation)) {
        return ret;
    }
    *record = g_system.copy().*member;
    return sdk::SDK_RET_OK;
}

port_credits_s make_credits(uint32_t port, uint32_t queues) {
    port_credits_s made{.port = port, .queues = {}};
    for (uint32_t queue = 0; queue < queues; queue++) {
        made.queues.push_back({.queue = queue, .credit = 128 * (queue + 1) + port});
    }
    return made;
}

}  // namespace

std::vector<port_credits_s> default_port_credits() {
    return {make_credits(0, 8), make_credits(1, 4), make_credits(2, 0)};
}

system_state_s system_state() { return g_system.copy(); }

void put_system_state(system_state_s state) { g_system.put(std::move(state)); }

void change_system_state(const std::function<void(system_state_s &)> &change) { g_system.with(change); }

}  // namespace sim

using sim::fault;
using sim::g_system;
using sim::system_state_s;

sdk::sdk_ret_t nyx_get_system_voltage(nyx_system_voltage_s *voltage) {
    return sim::get("nyx_get_system_voltage", &system_state_s::voltage, voltage);
}

sdk::sdk_ret_t nyx_get_system_power(nyx_system_power_s *power) {
    return sim::get("nyx_get_system_power", &system_state_s::power, power);
}

sdk::sdk_ret_t nyx_get_system_clock_frequency(nyx_system_clock_freq_s *frequency) {
    return sim::get("nyx_get_system_clock_frequency", &system_state_s::frequency, frequency);
}

sdk::sdk_ret_t nyx_get_system_temperature(nyx_system_temperature_s *temperature) {
    return sim::get("nyx_get_system_temperature", &system_state_s::temperature, temperature);
}

sdk::sdk_ret_t nyx_get_system_die_id(char *buf, uint8_t len) {
    if (const auto ret = fault("nyx_get_system_die_id")) {
        return ret;
    }
    if (len == 0) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    buf[sim::system_state().die_id.copy(buf, len - 1U)] = '\0';
    return sdk::SDK_RET_OK;
}

uint32_t nyx_get_system_led() { return sim::system_state().led; }

uint32_t nyx_get_system_reset_reason() { return sim::system_state().reset_reason; }

sdk::sdk_ret_t nyx_clock_frequency_update(nyx_clock_freq_e frequency) {
    if (const auto ret = fault("nyx_clock_frequency_update")) {
        return ret;
    }
    return sim::set_clock(sim::CLOCK_CORE, frequency);
}

sdk::sdk_ret_t nyx_arm_clock_frequency_update(nyx_clock_freq_e frequency) {
    if (const auto ret = fault("nyx_arm_clock_frequency_update")) {
        return ret;
    }
    return sim::set_clock(sim::CLOCK_ARM, frequency);
}

sdk::sdk_ret_t nyx_p4_stage_frequency_update(nyx_clock_freq_e frequency) {
    if (const auto ret = fault("nyx_p4_stage_frequency_update")) {
        return ret;
    }
    return sim::set_clock(sim::CLOCK_P4_STAGE, frequency);
}

sdk::sdk_ret_t sdk::asic::pd::queue_credits_get(queue_credits_cb_t callback, void *ctxt) {
    sim::begin_operation();
    return sim::walk(
        "sdk::asic::pd::queue_credits_get", sim::system_state().credits,
        [](auto &) { return std::span<const uint8_t>(); },
        [&](auto &port) {
            // The count and the queues, one after the other.
            std::vector<uint8_t> record(sizeof(port_queue_credit_s) +
                                        port.queues.size() * sizeof(queue_credit_s));
            auto *const credits = reinterpret_cast<port_queue_credit_s *>(record.data());
            credits->num_queues = static_cast<uint32_t>(port.queues.size());
            std::ranges::copy(port.queues, reinterpret_cast<queue_credit_s *>(credits + 1));
            callback(port.port, credits, ctxt);
        });
}

bool sysmgr::Client::recovery_toggle(bool enable) {
    if (fault("sysmgr::Client::recovery_toggle")) {
        return false;
    }
    g_system.with([&](auto &state) { state.recovery_enabled = enable; });
    return true;
}

bool sysmgr::Client::get_recovery_status(bool *enabled, bool *suspended) {
    if (fault("sysmgr::Client::get_recovery_status")) {
        return false;
    }
    const auto state = sim::system_state();
    *enabled = state.recovery_enabled;
    *suspended = state.recovery_suspended;
    return true;
}
