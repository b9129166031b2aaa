#include "sim/api/ports.h"

#include <map>
#include <vector>

#include "sim/api/batches.h"
#include "sim/api/guarded.h"
#include "sim/card/card.h"
#include "sim/card/if_records.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

using counts_by_port = std::map<nyx_obj_key_s, port_counts, key_less>;
guarded<counts_by_port> g_counts;

nyx_if_info_s with_counts(nyx_if_info_s info, const counts_by_port &counts) {
    if (const auto of_port = counts.find(info.spec.key); of_port != counts.end()) {
        for (size_t i = 0; i < of_port->second.size(); i++) {
            info.stats.mac_counter[i] += of_port->second[i];
        }
    }
    return info;
}

void clear_counters(nyx_if_info_s *info) { memset(&info->stats, 0, sizeof(info->stats.mac_counter)); }

sdk::sdk_ret_t clear_counters(if_records_s &records, const nyx_obj_key_s &key) {
    if (key.valid() && !records.ports.contains(key)) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    for (auto &[port_key, info] : records.ports) {
        if (!key.valid() || memcmp(&port_key, &key, sizeof(key)) == 0) {
            clear_counters(&info);
            g_counts.with([&key = port_key](auto &counts) { counts.erase(key); });
        }
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t update(if_records_s &records, const nyx_if_spec_s &spec) {
    const auto record = records.ports.find(spec.key);
    if (record == records.ports.end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    record->second.spec.port = spec.port;
    return sdk::SDK_RET_OK;
}

}  // namespace

void count_at_port(uint8_t number, const port_counts &growth) {
    g_counts.with([&](auto &counts) {
        auto &of_port = counts[port_key(number)];
        for (size_t i = 0; i < growth.size(); i++) {
            of_port[i] += growth[i];
        }
    });
}

void forget_port_counts() { g_counts.put({}); }

void put_port(const nyx_if_info_s &info) {
    (void)change_if_records([&](if_records_s &records) {
        records.ports[info.spec.key] = info;
        return sdk::SDK_RET_OK;
    });
}

}  // namespace sim

sdk::sdk_ret_t api::port_get(nyx_obj_key_s *key, nyx_if_info_s *info) {
    if (const auto ret = sim::fault("api::port_get", sim::key_bytes(*key))) {
        return ret;
    }
    const auto records = sim::if_records();
    if (!sim::copy_if_record(records->ports, *key, info)) {
        *info = sim::with_counts(*info, sim::g_counts.copy());
        return sdk::SDK_RET_OK;
    }
    const auto uplink = records->interfaces.find(*key);
    if (uplink == records->interfaces.end() || uplink->second.spec.type != NYX_IF_TYPE_UPLINK) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    *info = uplink->second;
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t api::port_get_all(nyx_read_cb_t callback, void *ctxt) {
    sim::begin_operation();
    const auto records = sim::if_records();
    const auto counts = sim::g_counts.copy();
    std::vector<nyx_if_info_s> known;
    for (const auto &[key, info] : records->ports) {
        known.push_back(sim::with_counts(info, counts));
    }
    for (const auto &[key, info] : records->interfaces) {
        if (info.spec.type == NYX_IF_TYPE_UPLINK) {
            known.push_back(info);
        }
    }
    return sim::walk(
        "api::port_get_all", known, [](const nyx_if_info_s &info) { return sim::key_bytes(info.spec.key); },
        [&](nyx_if_info_s &info) { callback(&info, ctxt); });
}

sdk::sdk_ret_t api::port_update(nyx_if_spec_s *spec, uint64_t batch) {
    if (const auto ret = sim::fault("api::port_update", sim::key_bytes(spec->key))) {
        return ret;
    }
    if (!sim::if_records()->ports.contains(spec->key)) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    return sim::add_change(batch, [spec = *spec](auto &records) { return sim::update(records, spec); });
}

sdk::sdk_ret_t api::port_stats_reset(const nyx_obj_key_s *key) {
    if (const auto ret = sim::fault("api::port_stats_reset", sim::key_bytes(*key))) {
        return ret;
    }
    return sim::change_if_records([key](auto &records) { return sim::clear_counters(records, *key); });
}
