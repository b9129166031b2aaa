#include "sim/faults/faults.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <mutex>
#include <random>
#include <thread>

#include "sim/card/table_info.h"

namespace sim {

namespace {

struct active_s {
    uint32_t id;
    fault_s fault;
    std::mt19937 random;  // its numbers are the same everywhere, unlike those of the distributions
    uint64_t calls = 0, strikes = 0;
};

// Besides the operations of the tables.
constexpr std::string_view k_operations[] = {
    "api::port_get",
    "api::port_get_all",
    "api::port_stats_reset",
    "api::port_update",
    "core::interface_lldp_stats_get",
    "core::interface_lldp_status_get",
    "debug::nyx_handle_cmd",
    "debug::nyx_llc_get",
    "debug::nyx_llc_setup",
    "debug::nyx_pb_stats_get",
    "debug::nyx_pb_stats_reset",
    "debug::nyx_slab_get",
    "debug::nyx_table_stats_get",
    "debug::start_aacs_server",
    "debug::stop_aacs_server",
    "nyx_arm_clock_frequency_update",
    "nyx_batch_commit",
    "nyx_batch_destroy",
    "nyx_batch_start",
    "nyx_clock_frequency_update",
    "nyx_datapath_assist_stats_get",
    "nyx_flow_summary_get",
    "nyx_get_system_clock_frequency",
    "nyx_get_system_die_id",
    "nyx_get_system_power",
    "nyx_get_system_temperature",
    "nyx_get_system_voltage",
    "nyx_if_create",
    "nyx_if_delete",
    "nyx_if_read",
    "nyx_if_read_all",
    "nyx_if_update",
    "nyx_lif_read",
    "nyx_lif_read_all",
    "nyx_lif_stats_disable",
    "nyx_lif_stats_enable",
    "nyx_lif_stats_reset",
    "nyx_meter_stats_get",
    "nyx_ms::interface_create",
    "nyx_ms::interface_delete",
    "nyx_ms::interface_update",
    "nyx_p4_stage_frequency_update",
    "nyx_quiesce_start",
    "nyx_quiesce_stop",
    "nyx_session_stats_disable",
    "nyx_session_stats_enable",
    "nyx_session_stats_get",
    "sdk::asic::pd::queue_credits_get",
    "sdk::iswitch::iswitch_get_port_stats",
    "sdk::iswitch::iswitch_get_port_status",
    "sysmgr::Client::get_recovery_status",
    "sysmgr::Client::recovery_toggle",
};

std::mutex g_lock;
std::vector<active_s> g_faults;
uint32_t g_last_id = 0;
std::atomic<void (*)()> g_before_operations = nullptr;
std::atomic<bool> g_armed = false;  // whether there are faults, or something runs before operations

void update_armed() { g_armed = !g_faults.empty() || g_before_operations.load(); }

bool starts_with(std::span<const uint8_t> key, const std::vector<uint8_t> &start) {
    return key.size() >= start.size() && std::equal(start.begin(), start.end(), key.begin());
}

// Whether the call that was counted last is within the limits.
bool is_due(active_s &active, std::optional<uint64_t> record) {
    const fault_s &fault = active.fault;
    const uint64_t spared = fault.after.value_or(0);
    if (active.calls <= spared) return false;
    if (fault.nth) return active.calls == *fault.nth;
    if (fault.walk) return record == fault.walk;
    if (fault.every) return (active.calls - spared) % *fault.every == 0;
    return !fault.chance || active.random() % 100 < *fault.chance;
}

bool count_strike(active_s &active, bool struck) {
    active.strikes += struck;
    return struck;
}

bool strikes(active_s &active, std::string_view operation, std::span<const uint8_t> key,
             std::optional<uint64_t> record) {
    if (active.fault.full || active.fault.operation != operation || !starts_with(key, active.fault.key)) {
        return false;
    }
    active.calls++;
    return count_strike(active, is_due(active, record));
}

armed_fault_s to_armed(const active_s &active) {
    return {.id = active.id, .text = active.fault.text, .calls = active.calls, .strikes = active.strikes};
}

// Without ids: all.
bool is_chosen(const active_s &active, std::span<const uint32_t> ids) {
    return ids.empty() || std::ranges::count(ids, active.id);
}

}  // namespace

uint32_t add_fault(fault_s fault) {
    std::lock_guard guard(g_lock);
    std::mt19937 random(static_cast<uint32_t>(fault.seed.value_or(1)));
    g_faults.push_back({.id = ++g_last_id, .fault = std::move(fault), .random = random});
    update_armed();
    return g_last_id;
}

std::vector<armed_fault_s> armed_faults() {
    std::lock_guard guard(g_lock);
    std::vector<armed_fault_s> armed;
    std::ranges::transform(g_faults, std::back_inserter(armed), to_armed);
    return armed;
}

std::optional<uint32_t> remove_faults(std::span<const uint32_t> ids, std::vector<armed_fault_s> *removed) {
    std::lock_guard guard(g_lock);
    for (const uint32_t id : ids) {
        if (!std::ranges::count(g_faults, id, &active_s::id)) {
            return id;
        }
    }
    removed->clear();
    std::erase_if(g_faults, [&](const active_s &active) {
        const bool chosen = is_chosen(active, ids);
        if (chosen) {
            removed->push_back(to_armed(active));
        }
        return chosen;
    });
    update_armed();
    return std::nullopt;
}

void clear_faults() {
    std::vector<armed_fault_s> removed;
    remove_faults({}, &removed);
}

std::string table_operation(std::string_view table, std::string_view operation) {
    return std::string("nyx_tbl_").append(table).append("_").append(operation);
}

std::vector<std::string> fault_operations() {
    std::vector<std::string> operations(std::begin(k_operations), std::end(k_operations));
    for (const auto &table : table_infos()) {
        for (const char *operation : {"create", "update", "delete", "read"}) {
            operations.push_back(table_operation(table.name, operation));
        }
    }
    std::ranges::sort(operations);
    return operations;
}

bool faults_armed() { return g_armed; }

void run_before_operations(void (*work)()) {
    std::lock_guard guard(g_lock);
    g_before_operations = work;
    update_armed();
}

void begin_operation() {
    if (auto *work = g_before_operations.load()) {
        work();
    }
}

sdk::sdk_ret_t injected_fault(std::string_view operation, std::span<const uint8_t> key,
                              std::optional<uint64_t> record) {
    begin_operation();
    uint64_t delay_ms = 0;
    sdk::sdk_ret_t code = sdk::SDK_RET_OK;
    {
        std::lock_guard guard(g_lock);
        for (auto &active : g_faults) {
            if (strikes(active, operation, key, record)) {
                delay_ms += active.fault.delay_ms.value_or(0);
                code = code ? code : active.fault.code;
            }
        }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
    return code;
}

sdk::sdk_ret_t full_table_fault(std::string_view operation, size_t entries) {
    std::lock_guard guard(g_lock);
    sdk::sdk_ret_t code = sdk::SDK_RET_OK;
    for (auto &active : g_faults) {
        if (active.fault.full && active.fault.operation == operation) {
            active.calls++;
            const bool struck = count_strike(active, entries >= *active.fault.full);
            code = struck && !code ? active.fault.code : code;
        }
    }
    return code;
}

}  // namespace sim
