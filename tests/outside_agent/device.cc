// The adapter's figures, which are constants here, and the debug library.

#include <cstdio>

#include "agent_api/debug_command.h"
#include "agent_api/debug_stats.h"
#include "agent_api/internal_switch.h"
#include "agent_api/pipeline.h"
#include "agent_api/queue_credits.h"
#include "agent_api/sysmgr.h"
#include "agent_api/system.h"
#include "agent_api/trace_level.h"
#include "agent_api/trace_logger.h"
#include "platform.h"

using platform::guarded;
using sdk::sdk_ret_t;
using enum sdk::sdk_ret_t;

namespace {

template <typename record_t>
sdk_ret_t fill(record_t *record, const record_t &values) {
    *record = values;
    return SDK_RET_OK;
}

}  // namespace

sdk_ret_t nyx_get_system_voltage(nyx_system_voltage_s *voltage) { return fill(voltage, {{850, 12000, 0}}); }
sdk_ret_t nyx_get_system_power(nyx_system_power_s *power) { return fill(power, {{25, 10, 5}}); }
sdk_ret_t nyx_get_system_clock_frequency(nyx_system_clock_freq_s *freq) {
    return fill(freq, {{833, 2000, 1137}});
}
sdk_ret_t nyx_get_system_temperature(nyx_system_temperature_s *temp) { return fill(temp, {{41, 42, 43}}); }
sdk_ret_t nyx_get_system_die_id(char *buf, uint8_t len) {
    snprintf(buf, len, "outside-die");
    return SDK_RET_OK;
}
uint32_t nyx_get_system_led() { return 1; }
uint32_t nyx_get_system_reset_reason() { return 1; }
sdk_ret_t nyx_clock_frequency_update(nyx_clock_freq_e) { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_arm_clock_frequency_update(nyx_clock_freq_e) { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_p4_stage_frequency_update(nyx_clock_freq_e) { return SDK_RET_INVALID_OPERATION; }

sdk_ret_t sdk::asic::pd::queue_credits_get(queue_credits_cb_t, void *) { return SDK_RET_OK; }
bool sysmgr::Client::recovery_toggle(bool) { return false; }
bool sysmgr::Client::get_recovery_status(bool *, bool *) { return false; }

sdk_ret_t nyx_flow_summary_get(nyx_flow_stats_summary_s *summary) { return fill(summary, {{1001, 1002}}); }
sdk_ret_t nyx_datapath_assist_stats_get(nyx_datapath_assist_stats_s *stats) { return fill(stats, {{2001}}); }
sdk_ret_t nyx_session_stats_get(nyx_session_stats_cb_t, uint32_t, uint32_t, void *) { return SDK_RET_OK; }
sdk_ret_t nyx_meter_stats_get(nyx_meter_stats_cb_t, uint32_t, uint32_t, void *) { return SDK_RET_OK; }
sdk_ret_t nyx_session_stats_enable() { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_session_stats_disable() { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_lif_stats_enable() { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_lif_stats_disable() { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_quiesce_start() { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_quiesce_stop() { return SDK_RET_INVALID_OPERATION; }

uint32_t sdk::iswitch::iswitch_get_max_ports() { return 0; }
const char *sdk::iswitch::iswitch_get_port_descr(uint8_t) { return nullptr; }
sdk_ret_t sdk::iswitch::iswitch_get_port_status(uint8_t, iswitch_port_status_s_ *) {
    return SDK_RET_INVALID_ARG;
}
sdk_ret_t sdk::iswitch::iswitch_get_port_stats(uint8_t, iswitch_port_stats_s_ *) {
    return SDK_RET_INVALID_ARG;
}

utils::log *core::g_trace_logger = nullptr;

std::shared_ptr<spdlog::logger> utils::log::logger() { return logger_; }

void core::trace_update(sdk::types::trace_level_e level) {
    g_trace_logger->trace_level = static_cast<int32_t>(level);
}
void core::flush_logs() { g_trace_logger->logger()->flush(); }

namespace debug {

void nyx_set_trace_level(sdk::types::trace_level_e) {}

sdk_ret_t nyx_handle_cmd(cmd_ctxt_s *ctxt) {
    if (ctxt->io_fd < 0) return SDK_RET_INVALID_ARG;
    const int written = dprintf(ctxt->io_fd, "outside agent: command %u, %u heartbeats\n", ctxt->cmd,
                                platform::num_heartbeats());
    return written > 0 ? SDK_RET_OK : SDK_RET_GENERIC_ERROR;
}

sdk_ret_t nyx_slab_get(bool (*callback)(void *info, void *ctxt), void *ctxt) {
    return guarded([&] {
        nyx_slab_info_s slab = {};
        slab.id = 9;
        snprintf(slab.name, sizeof(slab.name), "outside-slab");
        callback(&slab, ctxt);
        return SDK_RET_OK;
    });
}

sdk_ret_t nyx_pb_stats_get(void (*)(nyx_pb_debug_stats_s *, void *), void *) { return SDK_RET_OK; }
sdk_ret_t nyx_table_stats_get(void (*)(nyx_table_stats_s *, void *), void *) { return SDK_RET_OK; }
sdk_ret_t nyx_pb_stats_reset(bool, bool) { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_llc_setup(sdk::asic::pd::llc_counters_s *) { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t nyx_llc_get(sdk::asic::pd::llc_counters_s *) { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t start_aacs_server(unsigned int) { return SDK_RET_INVALID_OPERATION; }
sdk_ret_t stop_aacs_server() { return SDK_RET_INVALID_OPERATION; }

}  // namespace debug
