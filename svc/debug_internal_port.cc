#include "svc/debug_internal_port.h"

#include <algorithm>

#include "agent_api/internal_switch.h"
#include "svc/common/text.h"

namespace {

using sdk::iswitch::iswitch_port_stats_s_;
using sdk::iswitch::iswitch_port_status_s_;

constexpr uint32_t k_link_up = 1, k_link_down = 2;
constexpr uint32_t k_other_mode = 3;

void status_to_proto(nyx::InternalPortStatus *proto, const iswitch_port_status_s_ &status) {
    proto->set_link_state(status.flag ? k_link_up : k_link_down);
    proto->set_mode(status.mode < 2 ? status.mode + 1 : k_other_mode);
    proto->set_value_a(status.value_a);
    proto->set_value_b(status.value_b);
}

void stats_to_proto(nyx::InternalPortStats *proto, const iswitch_port_stats_s_ &stats) {
    proto->set_counter_1(stats.counter[0]);
    proto->set_counter_2(stats.counter[1]);
    proto->set_counter_3(stats.counter[2]);
    proto->set_counter_4(stats.counter[3]);
    proto->set_counter_5(stats.counter[4]);
    proto->set_counter_6(stats.counter[5]);
    proto->set_counter_7(stats.counter[6]);
    proto->set_counter_8(stats.counter[7]);
    proto->set_counter_9(stats.counter[8]);
    proto->set_counter_10(stats.counter[9]);
    proto->set_counter_11(stats.counter[10]);
    proto->set_counter_12(stats.counter[11]);
    proto->set_counter_13(stats.counter[12]);
}

}  // namespace

void marvell_get_port_info(uint8_t port, nyx::InternalPortResponseMsg *rsp) {
    iswitch_port_status_s_ status{};
    iswitch_port_stats_s_ stats{};
    (void)sdk::iswitch::iswitch_get_port_status(port, &status);
    (void)sdk::iswitch::iswitch_get_port_stats(port, &stats);
    auto *proto = rsp->add_response();
    proto->set_port_number(port + 1u);
    if (const char *description = sdk::iswitch::iswitch_get_port_descr(port)) {
        proto->set_description(base::to_utf8(description));
    }
    status_to_proto(proto->mutable_status(), status);
    stats_to_proto(proto->mutable_stats(), stats);
}

bool svc::append_internal_ports(uint8_t port_number, nyx::InternalPortResponseMsg *rsp) {
    const uint32_t count = sdk::iswitch::iswitch_get_max_ports();
    if (port_number > count) {
        return false;
    }
    const uint32_t first = port_number ? port_number - 1 : 0;
    const uint32_t last = port_number ? port_number : std::min<uint32_t>(count, UINT8_MAX + 1);
    for (uint32_t port = first; port < last; port++) {
        marvell_get_port_info(static_cast<uint8_t>(port), rsp);
    }
    return true;
}
