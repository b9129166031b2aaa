#include "sim/scenario/card_changes.h"

#include <cstring>

#include "sim/api/debug_stats.h"
#include "sim/api/internal_switch.h"
#include "sim/api/pipeline.h"
#include "sim/api/reset_card.h"
#include "sim/api/system.h"
#include "sim/api/tables.h"
#include "sim/card/card.h"
#include "sim/card/card_ports.h"
#include "sim/scenario/seeded.h"

namespace sim {

namespace {

constexpr uint64_t k_uptime_ms = 120'000;  // of the card when the scenario starts

void clear_counters() {
    (void)change_if_records([](if_records_s &records) {
        for (auto &[key, info] : records.ports) {
            memset(&info.stats, 0, sizeof(info.stats.mac_counter));
        }
        return sdk::SDK_RET_OK;
    });
    for (auto info : card_lifs()) {
        info.lif_word_1 = info.lif_word_2 = info.lif_word_3 = 0;
        put_lif(info);
    }
    change_pipeline_state([](pipeline_state_s &state) {
        state.flow_summary = {};
        state.datapath_assist = {};
        state.sessions.clear();
    });
    change_debug_stats_state([](debug_stats_state_s &state) {
        for (auto &port : state.pb_ports) {
            memset(port.drop, 0, sizeof(port.drop));
            port.input_queue[0].count = port.output_queue[0].count = 0;
        }
    });
    change_switch_ports([](std::vector<switch_port_s> &ports) {
        for (auto &port : ports) {
            port.stats = {};
        }
    });
}

// Flows by version and protocol, and what the assist had to do with their first packets. Never less for more flows.
nyx_flow_stats_summary_s summary_of(uint64_t flows) {
    const uint64_t v6 = flows / 5, udp = flows / 4, icmp = flows / 50, other = flows / 200;
    nyx_flow_stats_summary_s summary = {};
    summary.word[FLOWS] = flows;
    summary.word[FLOWS_V4] = flows - v6;
    summary.word[FLOWS_V6] = v6;
    summary.word[FLOWS_TCP] = flows - udp - icmp - other;
    summary.word[FLOWS_UDP] = udp;
    summary.word[FLOWS_ICMP] = icmp;
    summary.word[FLOWS_OTHER] = other;
    return summary;
}

nyx_datapath_assist_stats_s assist_of(uint64_t flows) {
    const uint64_t drops = flows / 100, invalid = drops / 4;
    nyx_datapath_assist_stats_s assist = {};
    assist.word[ASSIST_PACKETS] = flows;
    assist.word[ASSIST_HANDLED] = flows - drops;
    assist.word[ASSIST_DROPS] = drops;
    assist.word[ASSIST_DROPS_FULL] = drops - invalid;
    assist.word[ASSIST_DROPS_INVALID] = invalid;
    return assist;
}

// Adds what comes in addition to `before`.
template <class Words>
void add(Words *words, const Words &before, const Words &after) {
    for (size_t i = 0; i < std::size(words->word); i++) {
        words->word[i] += after.word[i] - before.word[i];
    }
}

void add_to_pipeline(const growth_s &growth, uint64_t flows) {
    change_pipeline_state([&](pipeline_state_s &state) {
        add(&state.flow_summary, summary_of(flows), summary_of(flows + growth.flows));
        add(&state.datapath_assist, assist_of(flows), assist_of(flows + growth.flows));
        for (const auto &[index, counts] : growth.sessions) {
            for (size_t i = 0; i < counts.size() && state.session_stats_enabled; i++) {
                state.sessions[index].word[i] += counts[i];
            }
        }
    });
}

void add_to_packet_buffer(const growth_s &growth) {
    change_debug_stats_state([&](debug_stats_state_s &state) {
        for (auto &port : state.pb_ports) {
            const auto &counts = growth.buffer[port.port % k_buffer_ports];
            port.input_queue[0].count += counts.in;
            port.output_queue[0].count += counts.out;
            for (size_t i = 0; i < counts.drops.size(); i++) {
                port.drop[i] += static_cast<uint32_t>(counts.drops[i]);
            }
        }
    });
}

// The management port is behind the switch, between its RJ45 port and the Arm cores.
void add_to_switch(const port_counts &mgmt) {
    enum { RJ45 = 0, ARM_CORES = 3, RX_FRAMES = 0, RX_BYTES = 1, TX_FRAMES = 2, TX_BYTES = 3 };
    change_switch_ports([&](std::vector<switch_port_s> &ports) {
        const auto count = [&](size_t in, size_t out, uint64_t frames, uint64_t bytes) {
            ports[in].stats.counter[RX_FRAMES] += frames;
            ports[in].stats.counter[RX_BYTES] += bytes;
            ports[out].stats.counter[TX_FRAMES] += frames;
            ports[out].stats.counter[TX_BYTES] += bytes;
        };
        count(RJ45, ARM_CORES, mgmt[PORT_RX_FRAMES], mgmt[PORT_RX_BYTES]);
        count(ARM_CORES, RJ45, mgmt[PORT_TX_FRAMES], mgmt[PORT_TX_BYTES]);
    });
}

// A value that goes up during the first half of its period and down during the second.
uint64_t value_of(const sensor_s &sensor, uint64_t at_ms) {
    const uint64_t into = at_ms % sensor.period_ms;
    const uint64_t way = std::min(into, sensor.period_ms - into) * 2;
    return sensor.from <= sensor.to ? sensor.from + (sensor.to - sensor.from) * way / sensor.period_ms
                                    : sensor.from - (sensor.from - sensor.to) * way / sensor.period_ms;
}

}  // namespace

void restart_card() {
    reset_card();
    clear_tables();
    put_system_state({});
    put_pipeline_state({});
    put_debug_stats_state({});
    put_switch_ports(default_switch_ports());
    clear_counters();
}

void set_link(uint8_t number, bool is_up, uint64_t at_ms) {
    struct step_s {
        uint32_t state;
        uint64_t before_ms;  // the end, because nothing happens in the future
    };
    static constexpr step_s k_up[] = {{8, 600}, {9, 450}, {12, 250}, {24, 0}}, k_down[] = {{3, 0}, {5, 0}};
    (void)change_if_records([&](if_records_s &records) {
        auto &port = records.ports.at(port_key(number));
        put_link(is_up, &port);
        for (const auto &step : is_up ? std::span<const step_s>(k_up) : k_down) {
            enter_link_state(number, step.state, k_uptime_ms + at_ms - step.before_ms, &port);
        }
        if (const auto uplink = records.interfaces.find(uplink_key(number));
            uplink != records.interfaces.end()) {
            uplink->second.status.oper_state = port.status.oper_state;
        }
        return sdk::SDK_RET_OK;
    });
}

void set_transceiver(uint8_t number, bool is_there) {
    (void)change_if_records([&](if_records_s &records) {
        port_status_s &status = records.ports.at(port_key(number)).status.port;
        is_there ? put_transceiver(number, &status) : take_transceiver(&status);
        return sdk::SDK_RET_OK;
    });
}

void fill_table(size_t table, uint64_t number) {
    const auto &info = table_infos()[table];
    std::vector<uint8_t> record(info.record_size);
    const auto key = static_cast<uint32_t>(number + 1);
    memcpy(&record[1], &key, std::min(sizeof(key), info.key_size));
    (void)table_fill(table, record.data());  // fails if a client has created it
}

void add_growth(const growth_s &growth, uint64_t flows) {
    for (uint8_t i = 0; i < k_ports; i++) {
        count_at_port(static_cast<uint8_t>(i + 1), growth.ports[i]);
    }
    for (uint8_t i = 0; i < k_lifs; i++) {
        count_at_lif(static_cast<uint8_t>(i + 1), growth.lifs[i]);
    }
    add_to_pipeline(growth, flows);
    add_to_packet_buffer(growth);
    add_to_switch(growth.ports[2]);
}

void set_sensors(std::span<const sensor_s> sensors, uint64_t seed, uint64_t at_ms) {
    change_system_state([&](system_state_s &state) {
        uint32_t *const groups[] = {state.temperature.value, state.voltage.value, state.power.value};
        bool is_over = false;
        for (const auto &sensor : sensors) {
            const uint64_t value = value_of(sensor, at_ms);
            groups[sensor.group][sensor.index] = static_cast<uint32_t>(value);
            is_over = is_over || value > sensor.limit;
        }
        state.led = is_over ? 2 : 1;
        state.credits = default_port_credits();
        for (auto &port : state.credits) {
            for (auto &queue : port.queues) {
                queue.credit -= static_cast<uint32_t>(
                    seeded(seed, 2000 + port.port * 100 + queue.queue, at_ms / 1000) % 32);
            }
        }
    });
}

}  // namespace sim
