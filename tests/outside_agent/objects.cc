// Interfaces, the port and the LIF, held in memory; batches whose changes are made when they are committed.

#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "agent_api/agent_state.h"
#include "agent_api/batch.h"
#include "agent_api/control_plane.h"
#include "agent_api/interface.h"
#include "agent_api/interface_lldp.h"
#include "agent_api/lif.h"
#include "agent_api/lif_impl.h"
#include "agent_api/port.h"
#include "agent_api/xcvr.h"
#include "platform.h"

namespace {

using platform::guarded;
using sdk::sdk_ret_t;
using enum sdk::sdk_ret_t;
using objects_t = std::map<std::string, nyx_if_info_s>;  // by id; the port, and interfaces
using change_t = std::function<sdk_ret_t(objects_t &)>;

constexpr uint16_t k_lif_id = 7;

std::string id_of(const nyx_obj_key_s &key) {
    return {reinterpret_cast<const char *>(key.id), sizeof(key.id)};
}

bool is_port(const nyx_if_info_s &info) { return info.spec.type == NYX_IF_TYPE_ETH; }

objects_t the_port() {
    nyx_if_info_s port = {};
    port.spec.key = {{'p', 'o', 'r', 't'}, 0};
    port.spec.type = NYX_IF_TYPE_ETH;
    port.spec.port.port_type = sdk::types::PORT_TYPE_DATA;
    port.status.if_index = 0x11010001;
    port.status.port.xcvr_number = 1;
    memcpy(port.status.port.xcvr_id + 20, "OUTSIDE OPTICS  ", 16);  // vendor name, SFF-8472 A0h
    return {{id_of(port.spec.key), port}};
}

std::mutex g_mutex;  // of what follows
objects_t g_objects = the_port();
std::map<uint64_t, std::vector<change_t>> g_batches;
uint64_t g_last_batch = 0;

template <typename function_t>
sdk_ret_t add_change(uint64_t batch, const function_t &change) {
    return guarded(g_mutex, [&] {
        const auto found = g_batches.find(batch);
        if (found == g_batches.end()) return SDK_RET_TRANSACTION_NOT_FOUND;
        found->second.push_back(change);
        return SDK_RET_OK;
    });
}

nyx_if_info_s *find(objects_t &objects, const nyx_obj_key_s &key, bool port) {
    const auto found = objects.find(id_of(key));
    return found != objects.end() && is_port(found->second) == port ? &found->second : nullptr;
}

template <typename function_t>
sdk_ret_t add_change_of(const nyx_obj_key_s &key, bool port, uint64_t batch, const function_t &change) {
    return add_change(batch, [=](objects_t &objects) {
        nyx_if_info_s *const info = find(objects, key, port);
        if (info == nullptr) return SDK_RET_LOOKUP_FAILURE;
        change(objects, info);
        return SDK_RET_OK;
    });
}

sdk_ret_t read(const nyx_obj_key_s &key, bool port, nyx_if_info_s *info) {
    return guarded(g_mutex, [&] {
        const nyx_if_info_s *found = find(g_objects, key, port);
        if (found == nullptr) return SDK_RET_LOOKUP_FAILURE;
        *info = *found;
        return SDK_RET_OK;
    });
}

objects_t copy_objects() {
    const std::lock_guard lock(g_mutex);
    return g_objects;
}

sdk_ret_t read_all(bool ports, nyx_read_cb_t callback, void *ctxt) {
    return guarded([&] {
        for (auto &[id, info] : copy_objects()) {
            if (is_port(info) == ports) callback(&info, ctxt);
        }
        return SDK_RET_OK;
    });
}

nyx_lif_info_s the_lif() {
    nyx_lif_info_s lif = {};
    lif.key = {{'l', 'i', 'f'}, 0};
    lif.lif_id = k_lif_id;
    lif.type = 1;
    snprintf(lif.name, sizeof(lif.name), "outside-lif");
    return lif;
}

sdk::platform::xcvr_s g_sfp = {.type = 1};

}  // namespace

sdk::platform::xcvr_s *sdk::platform::g_xcvr[] = {&g_sfp};

core::agent_state *core::agent_state::state() {
    static agent_state the_state = {};
    return &the_state;
}

uint64_t nyx_batch_start(nyx_batch_params_s *) {
    uint64_t handle = 0;
    const sdk_ret_t ret = guarded(g_mutex, [&] {
        g_batches[g_last_batch + 1];
        handle = ++g_last_batch;
        return SDK_RET_OK;
    });
    return ret == SDK_RET_OK ? handle : 0;
}
sdk_ret_t nyx_batch_commit(uint64_t handle) {
    return guarded(g_mutex, [&] {
        const auto batch = g_batches.extract(handle);
        if (batch.empty()) return SDK_RET_TRANSACTION_NOT_FOUND;
        objects_t objects = g_objects;
        for (const change_t &change : batch.mapped()) {
            if (const sdk_ret_t ret = change(objects); ret != SDK_RET_OK) return ret;
        }
        g_objects.swap(objects);
        return SDK_RET_OK;
    });
}
sdk_ret_t nyx_batch_destroy(uint64_t handle) {
    const std::lock_guard lock(g_mutex);
    return g_batches.erase(handle) == 1 ? SDK_RET_OK : SDK_RET_TRANSACTION_NOT_FOUND;
}

sdk_ret_t nyx_if_create(nyx_if_spec_s *spec, uint64_t batch) {
    return add_change(batch, [spec = *spec](objects_t &objects) {
        const nyx_if_info_s info = {.spec = spec, .status = {}, .stats = {}};
        return objects.emplace(id_of(spec.key), info).second ? SDK_RET_OK : SDK_RET_ALREADY_PRESENT;
    });
}
sdk_ret_t nyx_if_update(nyx_if_spec_s *spec, uint64_t batch) {
    return add_change_of(spec->key, false, batch,
                         [spec = *spec](objects_t &, nyx_if_info_s *info) { info->spec = spec; });
}
sdk_ret_t nyx_if_delete(nyx_obj_key_s *key, uint64_t batch) {
    return add_change_of(*key, false, batch,
                         [id = id_of(*key)](objects_t &objects, nyx_if_info_s *) { objects.erase(id); });
}
sdk_ret_t nyx_if_read(nyx_obj_key_s *key, nyx_if_info_s *info) { return read(*key, false, info); }
sdk_ret_t nyx_if_read_all(nyx_read_cb_t callback, void *ctxt) { return read_all(false, callback, ctxt); }

sdk_ret_t nyx_ms::interface_create(nyx_if_spec_s *) { return SDK_RET_OK; }
sdk_ret_t nyx_ms::interface_update(nyx_if_spec_s *) { return SDK_RET_OK; }
sdk_ret_t nyx_ms::interface_delete(nyx_obj_key_s *, uint64_t) { return SDK_RET_OK; }

sdk_ret_t core::interface_lldp_status_get(uint16_t, nyx_if_lldp_status_s *) { return SDK_RET_LOOKUP_FAILURE; }
sdk_ret_t core::interface_lldp_stats_get(uint16_t, nyx_if_lldp_stats_s *) { return SDK_RET_LOOKUP_FAILURE; }

sdk_ret_t api::port_get(nyx_obj_key_s *key, nyx_if_info_s *info) { return read(*key, true, info); }
sdk_ret_t api::port_get_all(nyx_read_cb_t callback, void *ctxt) { return read_all(true, callback, ctxt); }
sdk_ret_t api::port_update(nyx_if_spec_s *spec, uint64_t batch) {
    return add_change_of(spec->key, true, batch,
                         [port = spec->port](objects_t &, nyx_if_info_s *info) { info->spec.port = port; });
}
sdk_ret_t api::port_stats_reset(const nyx_obj_key_s *) { return SDK_RET_INVALID_OPERATION; }

sdk_ret_t nyx_lif_read(nyx_obj_key_s *key, nyx_lif_info_s *info) {
    const nyx_lif_info_s lif = the_lif();
    if (memcmp(key, &lif.key, sizeof(*key)) != 0) return SDK_RET_LOOKUP_FAILURE;
    *info = lif;
    return SDK_RET_OK;
}
sdk_ret_t nyx_lif_read_all(nyx_read_cb_t callback, void *ctxt) {
    return guarded([&] {
        nyx_lif_info_s lif = the_lif();
        callback(&lif, ctxt);
        return SDK_RET_OK;
    });
}
sdk_ret_t nyx_lif_stats_reset(nyx_obj_key_s *) { return SDK_RET_INVALID_OPERATION; }

sdk::lib::ht *api::impl::lif_impl_db() {
    static sdk::lib::ht db;
    return &db;
}
void *sdk::lib::ht::lookup(const void *key) {
    static api::impl::quill_lif_impl impl;
    const bool found = memcmp(key, &k_lif_id, sizeof(k_lif_id)) == 0;
    return found ? static_cast<api::impl::lif_impl *>(&impl) : nullptr;  // entries are of the base class
}

namespace api::impl {

lif_impl::~lif_impl() = default;
quill_lif_impl::~quill_lif_impl() = default;
bool quill_lif_impl::vlan_insert() const { return false; }
bool quill_lif_impl::vlan_strip() const { return false; }
bool quill_lif_impl::rdma() const { return false; }
bool quill_lif_impl::rdma_sniff() const { return false; }
bool quill_lif_impl::trunk() const { return false; }
bool quill_lif_impl::broadcast() const { return true; }
bool quill_lif_impl::all_multicast() const { return false; }
bool quill_lif_impl::promiscuous() const { return false; }
uint32_t quill_lif_impl::pinned_if_idx() const { return 0; }
uint32_t quill_lif_impl::impl_value() const { return 4711; }
void quill_lif_impl::mac_filters(uint32_t *count, uint32_t, uint64_t *) const { *count = 0; }
void quill_lif_impl::mac_vlan_filters(uint32_t *count, uint32_t, mac_vlan_filter_s *) const { *count = 0; }
void quill_lif_impl::vlan_filters(uint32_t *count, uint32_t, uint32_t *) const { *count = 0; }

}  // namespace api::impl
