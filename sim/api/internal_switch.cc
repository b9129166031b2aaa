#include "sim/api/internal_switch.h"

#include "sim/api/guarded.h"
#include "sim/faults/faults.h"

namespace sim {

namespace {

struct switch_state_s {
    std::vector<switch_port_s> ports = default_switch_ports();
};
guarded<switch_state_s> g_switch;

switch_port_s make_port(uint32_t number, const char *descr) {
    switch_port_s port{.status = {.flag = number != 7,
                                  .value_a = static_cast<uint8_t>(number % 2),
                                  .value_b = static_cast<uint16_t>(number == 7 ? 0 : 1000),
                                  .mode = number % 3},
                       .stats = {},
                       .descr = descr};
    for (uint32_t i = 0; i < 16; i++) {
        port.stats.counter[i] = 1000ULL * number + i;
    }
    return port;
}

// Copies what `member` holds of a port.
template <class Record>
sdk::sdk_ret_t get(std::string_view operation, uint8_t port, Record switch_port_s::*member, Record *record) {
    if (const auto ret = fault(operation)) {
        return ret;
    }
    return g_switch.with([&](auto &state) {
        if (port >= state.ports.size()) {
            return sdk::SDK_RET_INVALID_ARG;
        }
        *record = state.ports[port].*member;
        return sdk::SDK_RET_OK;
    });
}

}  // namespace

std::vector<switch_port_s> default_switch_ports() {
    return {make_port(1, "management RJ45"), make_port(2, "host BMC sideband"), make_port(3, "card BMC"),
            make_port(4, "Arm cores"),       make_port(5, "data port 1"),       make_port(6, "data port 2"),
            make_port(7, "not connected")};
}

void put_switch_ports(std::vector<switch_port_s> ports) { g_switch.put({std::move(ports)}); }

void change_switch_ports(const std::function<void(std::vector<switch_port_s> &)> &change) {
    g_switch.with([&](auto &state) { change(state.ports); });
}

}  // namespace sim

using sim::g_switch;
using sim::switch_port_s;

uint32_t sdk::iswitch::iswitch_get_max_ports() {
    return g_switch.with([](auto &state) { return static_cast<uint32_t>(state.ports.size()); });
}

sdk::sdk_ret_t sdk::iswitch::iswitch_get_port_status(uint8_t port, iswitch_port_status_s_ *status) {
    return sim::get("sdk::iswitch::iswitch_get_port_status", port, &switch_port_s::status, status);
}

sdk::sdk_ret_t sdk::iswitch::iswitch_get_port_stats(uint8_t port, iswitch_port_stats_s_ *stats) {
    return sim::get("sdk::iswitch::iswitch_get_port_stats", port, &switch_port_s::stats, stats);
}

const char *sdk::iswitch::iswitch_get_port_descr(uint8_t port) {
    return g_switch.with(
        [&](auto &state) { return port < state.ports.size() ? state.ports[port].descr : nullptr; });
}
