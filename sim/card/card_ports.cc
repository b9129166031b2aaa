#include "sim/card/card_ports.h"

#include <mutex>
#include <numeric>
#include <span>
#include <string_view>

#include "agent_api/xcvr.h"
#include "sim/card/card.h"
#include "sim/card/link_event_writer.h"

namespace {

constexpr uint32_t k_xcvr_type_sfp = 1;

sdk::platform::xcvr_s g_port_xcvr[] = {{sdk::platform::XCVR_TYPE_QSFP28}, {k_xcvr_type_sfp}};

}  // namespace

#ifdef __clang__  // AddressSanitizer would pad the array, and the size of its symbol says how many places it has
__attribute__((no_sanitize("address")))
#endif
sdk::platform::xcvr_s *sdk::platform::g_xcvr[24] = {&g_port_xcvr[0], &g_port_xcvr[1]};

namespace sim {

namespace {

constexpr uint32_t k_port_if_index = 0x10000000;
constexpr int64_t k_new_year_2026 = 1767225600;  // 2026-01-01 00:00:00 UTC

struct xcvr_module_s {
    uint8_t identifier;  // SFF-8024
    std::string_view part_number;
    std::string_view serial;
    std::string_view revision;  // four bytes; QSFP class: two, then the wavelength in units of 0.05 nm
};

struct port_s {
    sdk::types::port_type_t type;
    uint32_t setting_b;
    nyx_state_e link;
    uint32_t num_counters;
    const xcvr_module_s *xcvr;
    std::span<const uint8_t> link_events;  // the states it entered
};

constexpr xcvr_module_s k_qsfp_module = {0x11, "AO-Q28-100G-LR4", "AO26010001", "1A\x66\x58"};
constexpr xcvr_module_s k_sfp_module = {0x03, "AO-S28-25G-SR", "AO26010002", "2B04"};

// More events than one buffer of the trace holds, so that it switches to the other.
constexpr uint8_t k_up_events[] = {1, 2, 3, 5, 8, 9, 12, 3, 5, 8, 9, 12, 24};
constexpr uint8_t k_down_events[] = {1, 2, 3, 5};
constexpr uint8_t k_mgmt_events[] = {1, 2, 24};

constexpr port_s k_ports[] = {
    {sdk::types::PORT_TYPE_DATA, 6, NYX_STATE_UP, 89, &k_qsfp_module, k_up_events},
    {sdk::types::PORT_TYPE_DATA, 4, NYX_STATE_DOWN, 89, &k_sfp_module, k_down_events},
    {sdk::types::PORT_TYPE_MGMT, 1, NYX_STATE_UP, 32, nullptr, k_mgmt_events},
};

void put_text(uint8_t *to, size_t size, std::string_view text) {
    memset(to, ' ', size);
    memcpy(to, text.data(), text.size());
}

uint8_t checksum(const uint8_t *first, const uint8_t *last) {
    return static_cast<uint8_t>(std::accumulate(first, last, 0u));
}

constexpr size_t k_vendor_at = 20, k_date_at = 84, k_date_size = 8;  // the first and the last text

// SFF-8472 address A0h and SFF-8636 page 00h have these fields at the same offsets.
void fill_xcvr_id(const xcvr_module_s &module, uint8_t *id) {
    id[0] = module.identifier;
    id[2] = 0x07;  // LC connector
    put_text(id + k_vendor_at, 16, "ACME OPTICS");
    const uint8_t oui[] = {0x02, 0xac, 0x3e};
    memcpy(id + 37, oui, sizeof(oui));
    put_text(id + 40, 16, module.part_number);
    put_text(id + 56, 4, module.revision);
    id[63] = checksum(id, id + 63);
    put_text(id + 68, 16, module.serial);
    put_text(id + k_date_at, k_date_size, "260101");
    id[95] = checksum(id + 64, id + 95);
}

// One writer at a time, as a trace demands.
struct port_trace_s {
    std::mutex lock;
    link_event_trace trace;

    void append(uint32_t state, int64_t uptime_ms) {
        const link_event_time_s elapsed = {uptime_ms / 1000, uptime_ms % 1000 * 1'000'000};
        trace.append(state, {k_new_year_2026 + elapsed.seconds, elapsed.nanoseconds}, elapsed);
    }
};

port_trace_s &trace_of(uint8_t number) {
    static port_trace_s traces[std::size(k_ports)];
    return traces[number - 1];
}

const link_event_tracer_s *traced(uint8_t number, std::span<const uint8_t> events) {
    auto &port = trace_of(number);
    std::lock_guard guard(port.lock);
    port.trace.clear();
    for (int64_t i = 0; i < std::ssize(events); i++) {
        port.append(events[i], 12'000 + 350 * i * i);
    }
    return port.trace.tracer();
}

port_spec_s spec_of(const port_s &port) {
    return {.setting_a = 2,
            .port_type = port.type,
            .setting_b = port.setting_b,
            .setting_c = 1,
            .flag_a = 1,
            .number_a = 9216,
            .number_b = 1000,
            .setting_d = 1,
            .flag_b = 1,
            .flag_c = 0,
            .setting_e = 2,
            .number_c = 4};
}

port_status_s status_of(uint8_t number, const port_s &port) {
    auto status = port_status_s();
    status.link_setting_c = 1;
    if (port.xcvr) {
        put_transceiver(number, &status);
    }
    status.link_sm_state = port.link_events.back();
    status.status_word_1 = number;
    status.status_word_2 = static_cast<uint32_t>(port.link_events.size());
    status.link_event_tracer = traced(number, port.link_events);
    return status;
}

void put_timing_text(uint32_t state, nyx_if_stats_s *stats) {
    snprintf(stats->timing_text, sizeof(stats->timing_text), "up to state %u", state);
}

void fill_stats(uint8_t number, const port_s &port, nyx_if_stats_s *stats) {
    for (uint32_t i = 0; i < port.num_counters; i++) {
        stats->mac_counter[i] = number * 1'000'000u + i + 1;
    }
    stats->stats_word = number;
    put_timing_text(port.link_events.back(), stats);
    stats->timing_word_1 = 250'000'000;
    stats->timing_word_2 = number;
}

}  // namespace

void put_transceiver(uint8_t number, port_status_s *status) {
    status->xcvr_number = number;
    for (uint32_t i = 0; i < 6; i++) {
        status->xcvr_value[i] = number * 10u + i;
    }
    fill_xcvr_id(*k_ports[number - 1].xcvr, status->xcvr_id);
}

// Without a module, its texts are blank.
void take_transceiver(port_status_s *status) {
    status->xcvr_number = 0;
    memset(status->xcvr_value, 0, sizeof(status->xcvr_value));
    memset(status->xcvr_id, 0, sizeof(status->xcvr_id));
    memset(status->xcvr_id + k_vendor_at, ' ', k_date_at + k_date_size - k_vendor_at);
}

void put_link(bool is_up, nyx_if_info_s *port) {
    port->status.oper_state = is_up ? NYX_STATE_UP : NYX_STATE_DOWN;
    port_status_s &status = port->status.port;
    status.link_state = is_up ? 2 : 1;
    status.link_setting_b = is_up ? port->spec.port.setting_b : 0;
    status.link_flag = is_up;
    status.link_number = is_up ? 4 : 0;
}

void enter_link_state(uint8_t number, uint32_t state, uint64_t uptime_ms, nyx_if_info_s *port) {
    auto &traced = trace_of(number);
    std::lock_guard guard(traced.lock);
    traced.append(state, static_cast<int64_t>(uptime_ms));
    port->status.port.link_sm_state = state;
    port->status.port.status_word_2++;
    put_timing_text(state, &port->stats);
}

nyx_if_info_s card_port(uint8_t number) {
    const port_s &port = k_ports[number - 1];
    auto info = nyx_if_info_s();
    info.spec.key = port_key(number);
    info.spec.type = NYX_IF_TYPE_ETH;
    info.spec.admin_state = NYX_STATE_UP;
    info.spec.port = spec_of(port);
    info.status.if_index = k_port_if_index | number << 16;
    info.status.port = status_of(number, port);
    put_link(port.link == NYX_STATE_UP, &info);
    fill_stats(number, port, &info.stats);
    return info;
}

}  // namespace sim
