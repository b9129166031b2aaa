#include "sim/api/pipeline.h"

#include <span>
#include <vector>

#include "sim/api/guarded.h"
#include "sim/faults/faults.h"

struct nyx_meter_stats_entry_s {
    uint32_t index;
    uint64_t bytes;
    uint64_t packets;
};

namespace sim {

namespace {

guarded<pipeline_state_s> g_pipeline;

constexpr uint32_t k_meters = 4;  // at the indexes from 0

sdk::sdk_ret_t set_switch(std::string_view operation, bool pipeline_state_s::*member, bool on) {
    if (const auto ret = fault(operation)) {
        return ret;
    }
    g_pipeline.with([&](auto &state) { state.*member = on; });
    return sdk::SDK_RET_OK;
}

struct session_s {
    uint32_t index;
    session_stats_entry_s entry;
};

// From `low` to `high`, both included.
std::vector<session_s> sessions_between(uint32_t low, uint32_t high) {
    return g_pipeline.with([&](auto &state) {
        std::vector<session_s> found;
        for (auto it = state.sessions.lower_bound(low); it != state.sessions.end() && it->first <= high;
             ++it) {
            found.push_back({it->first, it->second});
        }
        return found;
    });
}

std::vector<nyx_meter_stats_entry_s> meters_between(uint32_t low, uint32_t high) {
    std::vector<nyx_meter_stats_entry_s> found;
    for (uint32_t index = low; index < k_meters && index <= high; index++) {
        found.push_back({.index = index, .bytes = 64000ULL * (index + 1), .packets = 1000ULL * (index + 1)});
    }
    return found;
}

std::span<const uint8_t> key_of(const auto &record) {
    return {reinterpret_cast<const uint8_t *>(&record.index), sizeof(record.index)};
}

}  // namespace

std::map<uint32_t, session_stats_entry_s> default_sessions() {
    std::map<uint32_t, session_stats_entry_s> sessions;
    for (const uint32_t index : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 100U, 4000000000U}) {
        const uint64_t base = 10ULL * index;
        sessions[index] = {{base + 1, base + 2, base + 3, base + 4}};
    }
    return sessions;
}

pipeline_state_s pipeline_state() { return g_pipeline.copy(); }

void put_pipeline_state(pipeline_state_s state) { g_pipeline.put(std::move(state)); }

void change_pipeline_state(const std::function<void(pipeline_state_s &)> &change) { g_pipeline.with(change); }

}  // namespace sim

using sim::fault;
using sim::pipeline_state_s;

sdk::sdk_ret_t nyx_flow_summary_get(nyx_flow_stats_summary_s *summary) {
    if (const auto ret = fault("nyx_flow_summary_get")) {
        return ret;
    }
    *summary = sim::pipeline_state().flow_summary;
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t nyx_datapath_assist_stats_get(nyx_datapath_assist_stats_s *stats) {
    if (const auto ret = fault("nyx_datapath_assist_stats_get")) {
        return ret;
    }
    *stats = sim::pipeline_state().datapath_assist;
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t nyx_session_stats_get(nyx_session_stats_cb_t callback, uint32_t low, uint32_t high,
                                     void *ctxt) {
    sim::begin_operation();
    return sim::walk(
        "nyx_session_stats_get", sim::sessions_between(low, high),
        [](auto &session) { return sim::key_of(session); },
        [&](auto &session) { callback(session.index, &session.entry, ctxt); });
}

sdk::sdk_ret_t nyx_meter_stats_get(nyx_meter_stats_cb_t callback, uint32_t low, uint32_t high, void *ctxt) {
    return sim::walk(
        "nyx_meter_stats_get", sim::meters_between(low, high), [](auto &meter) { return sim::key_of(meter); },
        [&](auto &meter) { callback(&meter, ctxt); });
}

sdk::sdk_ret_t nyx_session_stats_enable() {
    return sim::set_switch("nyx_session_stats_enable", &pipeline_state_s::session_stats_enabled, true);
}

sdk::sdk_ret_t nyx_session_stats_disable() {
    return sim::set_switch("nyx_session_stats_disable", &pipeline_state_s::session_stats_enabled, false);
}

sdk::sdk_ret_t nyx_lif_stats_enable() {
    return sim::set_switch("nyx_lif_stats_enable", &pipeline_state_s::lif_stats_enabled, true);
}

sdk::sdk_ret_t nyx_lif_stats_disable() {
    return sim::set_switch("nyx_lif_stats_disable", &pipeline_state_s::lif_stats_enabled, false);
}

sdk::sdk_ret_t nyx_quiesce_start() {
    return sim::set_switch("nyx_quiesce_start", &pipeline_state_s::quiesced, true);
}

sdk::sdk_ret_t nyx_quiesce_stop() {
    return sim::set_switch("nyx_quiesce_stop", &pipeline_state_s::quiesced, false);
}
