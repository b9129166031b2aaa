#include "sim/api/debug_stats.h"

#include <span>

#include "sim/api/guarded.h"
#include "sim/api/tables.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

guarded<debug_stats_state_s> g_debug_stats;

constexpr auto k_no_key = [](auto &) { return std::span<const uint8_t>(); };

nyx_slab_info_s make_slab(uint32_t id, std::string_view name, uint32_t element_size) {
    nyx_slab_info_s slab{};
    slab.id = id;
    name.copy(slab.name, sizeof(slab.name) - 1);
    slab.value_1 = element_size;
    slab.value_2 = 64;
    slab.value_3 = 64 * element_size;
    slab.value_4 = id;
    slab.flag_1 = 1;
    slab.flag_3 = id % 2;
    for (uint32_t i = 0; i < 5; i++) {
        slab.stat[i] = 10 * id + i;
    }
    return slab;
}

pb_input_queue_s make_input_queue(uint32_t port, uint32_t queue) {
    const uint32_t base = 1000 * port + 100 * queue;
    return {.valid = 1,
            .queue = queue,
            .oflow_count = {base + 1, base + 2, base + 3},
            .oflow_value = {base + 4, base + 5},
            .value_a = base + 6,
            .value_b = base + 7,
            .count = base + 8};
}

nyx_pb_debug_stats_s make_pb_port(uint32_t port) {
    nyx_pb_debug_stats_s stats{};
    stats.port = port;
    for (uint32_t i = 0; i < 4; i++) {
        stats.buffer_value[i] = 256 * (port + 1) + i;
        stats.fifo_value[i] = 16 * (port + 1) + i;
    }
    stats.drop[0] = port;
    stats.drop[13] = 2 * port;
    stats.fifo_drop[0] = 3 * port;
    for (const uint32_t queue : {0U, 5U}) {
        stats.input_queue[queue] = make_input_queue(port, queue);
        stats.output_queue[queue] = {
            .valid = 1, .queue = queue, .value = 8 + port, .count = 100ULL * (port + 1)};
    }
    return stats;
}

nyx_table_stats_s stats_of_table(size_t table) {
    const auto counts = table_counts(table);
    return {.table_id = static_cast<uint32_t>(table),
            .table_name = std::string(table_infos()[table].name),
            .api_counter = {counts.creates.done, counts.creates.failed, counts.updates.done, 0,
                            counts.updates.failed, counts.deletes.done, counts.deletes.failed,
                            counts.reads.done, counts.reads.failed},
            .table_counter = {counts.entries, counts.most_entries}};
}

std::vector<nyx_table_stats_s> tables() {
    auto stats = debug_stats_state().tables;
    if (stats.empty()) {
        for (size_t table = 0; table < table_infos().size(); table++) {
            stats.push_back(stats_of_table(table));
        }
    }
    return stats;
}

void clear_drops(nyx_pb_debug_stats_s &stats) {
    for (int i = 0; i < 14; i++) {
        stats.drop[i] = 0;
    }
    for (int i = 0; i < 6; i++) {
        stats.fifo_drop[i] = 0;
    }
}

// Clears a queue's values; it stays in use.
template <class Queue>
Queue cleared(const Queue &old) {
    Queue queue{};
    queue.valid = old.valid;
    queue.queue = old.queue;
    return queue;
}

void clear_others(nyx_pb_debug_stats_s &stats) {
    for (int i = 0; i < 4; i++) {
        stats.buffer_value[i] = stats.fifo_value[i] = 0;
    }
    for (int i = 0; i < 32; i++) {
        stats.input_queue[i] = cleared(stats.input_queue[i]);
        stats.output_queue[i] = cleared(stats.output_queue[i]);
    }
}

}  // namespace

std::vector<nyx_slab_info_s> default_slabs() {
    return {make_slab(1, "interface", 192), make_slab(2, "lif", 448), make_slab(3, "port", 320),
            make_slab(4, "table-entry", 128)};
}

std::vector<nyx_pb_debug_stats_s> default_pb_ports() {
    std::vector<nyx_pb_debug_stats_s> ports;
    for (uint32_t port = 0; port < 8; port++) {
        ports.push_back(make_pb_port(port));
    }
    return ports;
}

debug_stats_state_s debug_stats_state() { return g_debug_stats.copy(); }

void put_debug_stats_state(debug_stats_state_s state) { g_debug_stats.put(std::move(state)); }

void change_debug_stats_state(const std::function<void(debug_stats_state_s &)> &change) {
    g_debug_stats.with(change);
}

}  // namespace sim

using sim::fault;
using sim::g_debug_stats;

sdk::sdk_ret_t debug::nyx_slab_get(bool (*callback)(void *info, void *ctxt), void *ctxt) {
    bool stopped = false;
    return sim::walk("debug::nyx_slab_get", sim::debug_stats_state().slabs, sim::k_no_key,
                     [&](auto &slab) { stopped = stopped || callback(&slab, ctxt); });
}

sdk::sdk_ret_t debug::nyx_pb_stats_get(void (*callback)(nyx_pb_debug_stats_s *stats, void *ctxt),
                                       void *ctxt) {
    sim::begin_operation();
    return sim::walk("debug::nyx_pb_stats_get", sim::debug_stats_state().pb_ports, sim::k_no_key,
                     [&](auto &port) { callback(&port, ctxt); });
}

sdk::sdk_ret_t debug::nyx_table_stats_get(void (*callback)(nyx_table_stats_s *stats, void *ctxt),
                                          void *ctxt) {
    sim::begin_operation();
    return sim::walk("debug::nyx_table_stats_get", sim::tables(), sim::k_no_key,
                     [&](auto &table) { callback(&table, ctxt); });
}

sdk::sdk_ret_t debug::nyx_pb_stats_reset(bool drops, bool others) {
    if (const auto ret = fault("debug::nyx_pb_stats_reset")) {
        return ret;
    }
    g_debug_stats.with([&](auto &state) {
        for (auto &port : state.pb_ports) {
            if (drops) {
                sim::clear_drops(port);
            }
            if (others) {
                sim::clear_others(port);
            }
        }
    });
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t debug::nyx_llc_setup(sdk::asic::pd::llc_counters_s *counters) {
    if (const auto ret = fault("debug::nyx_llc_setup")) {
        return ret;
    }
    g_debug_stats.with([&](auto &state) { state.llc_mask = counters->mask; });
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t debug::nyx_llc_get(sdk::asic::pd::llc_counters_s *counters) {
    if (const auto ret = fault("debug::nyx_llc_get")) {
        return ret;
    }
    counters->mask = sim::debug_stats_state().llc_mask;
    for (uint32_t i = 0; i < 16; i++) {
        counters->counter[i] = counters->mask >> i & 1 ? 1000 * (i + 1) : 0;
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t debug::start_aacs_server(unsigned int port) {
    if (const auto ret = fault("debug::start_aacs_server")) {
        return ret;
    }
    if (port == 0 || port > UINT16_MAX) {
        return sdk::SDK_RET_INVALID_ARG;
    }
    return g_debug_stats.with([&](auto &state) {
        if (state.aacs_port) {
            return sdk::SDK_RET_ALREADY_PRESENT;
        }
        state.aacs_port = port;
        return sdk::SDK_RET_OK;
    });
}

sdk::sdk_ret_t debug::stop_aacs_server() {
    if (const auto ret = fault("debug::stop_aacs_server")) {
        return ret;
    }
    return g_debug_stats.with([](auto &state) {
        const bool running = state.aacs_port.has_value();
        state.aacs_port.reset();
        return running ? sdk::SDK_RET_OK : sdk::SDK_RET_SERVICE_NOT_ACTIVE;
    });
}
