#include "sim/api/interfaces.h"

#include "sim/api/batches.h"
#include "sim/card/if_records.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

bool exists(const nyx_obj_key_s &key) { return if_records()->interfaces.contains(key); }

nyx_if_info_s created(const nyx_if_spec_s &spec, uint32_t if_index) {
    auto info = nyx_if_info_s();
    info.spec = spec;
    info.status.if_index = if_index;
    info.status.oper_state = spec.admin_state;
    if (spec.type == NYX_IF_TYPE_HOST) {
        memcpy(info.status.host.name, spec.host.name, sizeof(spec.host.name));
        info.status.host.mac = spec.host.mac;
    }
    return info;
}

sdk::sdk_ret_t create(if_records_s &records, const nyx_if_spec_s &spec) {
    const auto info = created(spec, records.next_if_index++);
    return records.interfaces.try_emplace(spec.key, info).second ? sdk::SDK_RET_OK
                                                                 : sdk::SDK_RET_ALREADY_PRESENT;
}

sdk::sdk_ret_t update(if_records_s &records, const nyx_if_spec_s &spec) {
    const auto record = records.interfaces.find(spec.key);
    if (record == records.interfaces.end()) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    record->second.spec = spec;
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t remove(if_records_s &records, const nyx_obj_key_s &key) {
    return records.interfaces.erase(key) ? sdk::SDK_RET_OK : sdk::SDK_RET_LOOKUP_FAILURE;
}

}  // namespace

void put_interface(const nyx_if_info_s &info) {
    (void)change_if_records([&](if_records_s &records) {
        records.interfaces[info.spec.key] = info;
        return sdk::SDK_RET_OK;
    });
}

}  // namespace sim

sdk::sdk_ret_t nyx_if_read(nyx_obj_key_s *key, nyx_if_info_s *info) {
    if (const auto ret = sim::fault("nyx_if_read", sim::key_bytes(*key))) {
        return ret;
    }
    return sim::copy_if_record(sim::if_records()->interfaces, *key, info);
}

sdk::sdk_ret_t nyx_if_read_all(nyx_read_cb_t callback, void *ctxt) {
    sim::begin_operation();
    const auto snapshot = sim::if_records();
    std::vector<nyx_if_info_s> records;
    for (const auto &[key, info] : snapshot->interfaces) {
        records.push_back(info);
    }
    return sim::walk(
        "nyx_if_read_all", records, [](const nyx_if_info_s &info) { return sim::key_bytes(info.spec.key); },
        [&](nyx_if_info_s &info) { callback(&info, ctxt); });
}

sdk::sdk_ret_t nyx_if_create(nyx_if_spec_s *spec, uint64_t batch) {
    if (const auto ret = sim::fault("nyx_if_create", sim::key_bytes(spec->key))) {
        return ret;
    }
    if (sim::exists(spec->key)) {
        return sdk::SDK_RET_ALREADY_PRESENT;
    }
    return sim::add_change(batch, [spec = *spec](auto &records) { return sim::create(records, spec); });
}

sdk::sdk_ret_t nyx_if_update(nyx_if_spec_s *spec, uint64_t batch) {
    if (const auto ret = sim::fault("nyx_if_update", sim::key_bytes(spec->key))) {
        return ret;
    }
    if (!sim::exists(spec->key)) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    return sim::add_change(batch, [spec = *spec](auto &records) { return sim::update(records, spec); });
}

sdk::sdk_ret_t nyx_if_delete(nyx_obj_key_s *key, uint64_t batch) {
    if (const auto ret = sim::fault("nyx_if_delete", sim::key_bytes(*key))) {
        return ret;
    }
    if (!sim::exists(*key)) {
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    return sim::add_change(batch, [key = *key](auto &records) { return sim::remove(records, key); });
}
