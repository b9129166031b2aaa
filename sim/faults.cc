#include "sim/faults.h"

#include <algorithm>
#include <charconv>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "sim/tables.h"

namespace sim {

namespace {

struct armed_fault_s {
    fault_s fault;
    uint64_t calls = 0;
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
std::vector<armed_fault_s> g_faults;
std::atomic<bool> g_armed = false;

[[noreturn]] void refuse(std::string_view text, const std::string &why) {
    throw std::invalid_argument("fault '" + std::string(text) + "': " + why);
}

template <class T>
T value_or_refuse(const std::optional<T> &value, std::string_view text, const std::string &why) {
    if (!value) {
        refuse(text, why);
    }
    return *value;
}

std::optional<uint64_t> to_number(std::string_view text, int base = 10) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::optional<sdk::sdk_ret_t> to_code(std::string_view text) {
#define SDK_RET_BY_NAME(name, value, description) \
    if (text == #name) {                          \
        return sdk::name;                         \
    }
    SDK_RET_CODES(SDK_RET_BY_NAME)
#undef SDK_RET_BY_NAME
    const auto number = to_number(text);
    return number && *number > 0 && *number <= UINT32_MAX
               ? std::optional(static_cast<sdk::sdk_ret_t>(*number))
               : std::nullopt;
}

std::optional<std::vector<uint8_t>> to_bytes(std::string_view hex) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) {
        const auto byte = to_number(hex.substr(i, 2), 16);
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<uint8_t>(*byte));
    }
    return hex.empty() || hex.size() % 2 ? std::nullopt : std::optional(bytes);
}

uint64_t positive_number(std::string_view text, std::string_view name, std::string_view value) {
    const auto number = to_number(value);
    return value_or_refuse(number && *number > 0 && *number <= UINT32_MAX ? number : std::nullopt, text,
                           std::string(name) + " must be a number from 1 to 4294967295");
}

void parse_setting(std::string_view text, std::string_view setting, fault_s *fault) {
    const size_t equals = std::min(setting.find('='), setting.size());
    const auto name = setting.substr(0, equals);
    const auto value = setting.substr(std::min(equals + 1, setting.size()));
    if (name == "code") {
        fault->code =
            value_or_refuse(to_code(value), text, "code must be a return code above 0, a number or a name");
    } else if (name == "delay") {
        fault->delay = std::chrono::milliseconds(positive_number(text, name, value));
    } else if (name == "nth") {
        fault->nth = positive_number(text, name, value);
    } else if (name == "key") {
        fault->key = value_or_refuse(to_bytes(value), text, "key must be pairs of hexadecimal digits");
    } else {
        refuse(text, "'" + std::string(setting) + "' is unknown, allowed are code=, delay=, nth= and key=");
    }
}

bool starts_with(std::span<const uint8_t> key, const std::vector<uint8_t> &start) {
    return key.size() >= start.size() && std::equal(start.begin(), start.end(), key.begin());
}

bool strikes(armed_fault_s &armed, std::string_view operation, std::span<const uint8_t> key) {
    if (armed.fault.operation != operation || !starts_with(key, armed.fault.key)) {
        return false;
    }
    armed.calls++;
    return !armed.fault.nth || armed.calls == *armed.fault.nth;
}

}  // namespace

fault_s parse_fault(std::string_view text) {
    fault_s fault;
    const size_t colon = text.rfind(':');
    if (colon == text.npos) {
        refuse(text, "must be OPERATION:code=CODE or OPERATION:delay=MS");
    }
    fault.operation = text.substr(0, colon);
    if (!std::ranges::count(fault_operations(), fault.operation)) {
        refuse(text, "there is no operation '" + fault.operation + "'");
    }
    for (std::string_view rest = text.substr(colon + 1); !rest.empty();) {
        const size_t comma = std::min(rest.find(','), rest.size());
        parse_setting(text, rest.substr(0, comma), &fault);
        rest.remove_prefix(std::min(comma + 1, rest.size()));
    }
    if (fault.code == sdk::SDK_RET_OK && fault.delay.count() == 0) {
        refuse(text, "needs code= or delay=");
    }
    return fault;
}

void add_fault(fault_s fault) {
    std::lock_guard guard(g_lock);
    g_faults.push_back({std::move(fault)});
    g_armed = true;
}

void clear_faults() {
    std::lock_guard guard(g_lock);
    g_faults.clear();
    g_armed = false;
}

std::vector<std::string> fault_operations() {
    std::vector<std::string> operations(std::begin(k_operations), std::end(k_operations));
    for (const auto &table : table_infos()) {
        for (const char *operation : {"create", "update", "delete", "read"}) {
            operations.push_back(table_operation(table.name, operation));
        }
    }
    return operations;
}

bool faults_armed() { return g_armed; }

sdk::sdk_ret_t injected_fault(std::string_view operation, std::span<const uint8_t> key) {
    std::chrono::milliseconds delay{0};
    sdk::sdk_ret_t code = sdk::SDK_RET_OK;
    {
        std::lock_guard guard(g_lock);
        for (auto &armed : g_faults) {
            if (strikes(armed, operation, key)) {
                delay += armed.fault.delay;
                code = code ? code : armed.fault.code;
            }
        }
    }
    std::this_thread::sleep_for(delay);
    return code;
}

}  // namespace sim
