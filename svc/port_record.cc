#include "svc/port_record.h"

#include <type_traits>

#include "svc/common/converters.h"
#include "svc/common/text.h"
#include "svc/link_event_trace.h"
#include "svc/port_xcvr.h"

namespace {

constexpr uint32_t k_last_setting_b = 7;
constexpr uint32_t k_setting_b_offset = 2;  // from the port API's numbers to the messages'
constexpr uint32_t k_mgmt_counters = 32;

nyx::PortSetting setting_to_proto(uint32_t setting) {
    return svc::enumerator_or_none(setting, nyx::PortSetting_MAX);
}

uint32_t setting_to_api(nyx::PortSetting setting) {
    return svc::known_or_none(static_cast<uint32_t>(setting), nyx::PortSetting_MAX);
}

nyx::PortSettingB setting_b_to_proto(uint32_t setting) {
    const uint32_t known = svc::known_or_none(setting, k_last_setting_b);
    return static_cast<nyx::PortSettingB>(known ? known + k_setting_b_offset : 0);
}

// Values below the offset wrap around to large numbers and are rejected like them.
uint32_t setting_b_to_api(nyx::PortSettingB setting) {
    return svc::known_or_none(static_cast<uint32_t>(setting) - k_setting_b_offset, k_last_setting_b);
}

void spec_to_proto(nyx::PortSpec *proto, const nyx_if_info_s &info) {
    const port_spec_s &port = info.spec.port;
    proto->set_id(svc::key_to_proto(info.spec.key));
    proto->set_port_number(info.status.if_index >> 16 & 0xff);
    proto->set_setting_a(setting_to_proto(port.setting_a));
    proto->set_port_type(svc::enumerator_or_none(port.port_type, nyx::PortType_MAX));
    proto->set_setting_b(setting_b_to_proto(port.setting_b));
    proto->set_setting_c(setting_to_proto(port.setting_c));
    proto->set_number_a(port.number_a);
    proto->set_number_b(port.number_b);
    proto->set_setting_d(setting_to_proto(port.setting_d));
    proto->set_flag_a(port.flag_a);
    proto->set_flag_b(port.flag_b);
    proto->set_flag_c(port.flag_c);
    proto->set_setting_e(setting_to_proto(port.setting_e));
    proto->set_number_c(port.number_c);
}

void link_to_proto(nyx::PortLinkStatus *proto, const port_status_s &port) {
    proto->set_link_state(svc::enumerator_or_none(port.link_state, nyx::PortLinkState_MAX));
    proto->set_link_setting_b(setting_b_to_proto(port.link_setting_b));
    proto->set_link_flag(port.link_flag);
    proto->set_link_number(port.link_number);
    proto->set_link_setting_c(setting_to_proto(port.link_setting_c));
}

// One entry for each counter, in order.
template <class Entries>
void counters_to_proto(Entries *entries, const nyx_if_stats_s &stats, uint32_t count) {
    entries->Reserve(static_cast<int>(count));
    for (uint32_t i = 0; i < count; i++) {
        auto *entry = entries->Add();
        entry->set_type(i);
        entry->set_count(stats.mac_counter[i]);
    }
}

void stats_to_proto(nyx::PortStats *proto, const nyx_if_stats_s &stats, sdk::types::port_type_t type) {
    if (type == sdk::types::PORT_TYPE_DATA) {
        counters_to_proto(proto->mutable_mac_stats(), stats, std::extent_v<decltype(stats.mac_counter)>);
    } else if (type == sdk::types::PORT_TYPE_MGMT) {
        counters_to_proto(proto->mutable_mgmt_mac_stats(), stats, k_mgmt_counters);
    }
    proto->set_stats_word(stats.stats_word);
    auto *timing = proto->mutable_link_timing();
    timing->set_text(svc::text_of(stats.timing_text));
    timing->mutable_duration()->set_narrow_part(static_cast<uint32_t>(stats.timing_word_1));
    timing->mutable_duration()->set_wide_part(stats.timing_word_2);
}

}  // namespace

void nyx_port_api_status_to_proto(nyx::PortStatus *proto, const nyx_if_status_s *status,
                                  sdk::types::port_type_t type) {
    const port_status_s &port = status->port;
    proto->set_if_index(status->if_index);
    proto->set_link_sm_state(svc::link_sm_state_to_proto(port.link_sm_state));
    proto->set_status_word_1(port.status_word_1);
    proto->set_status_word_2(port.status_word_2);
    if (const link_event_tracer_s *tracer = port.link_event_tracer) {
        svc::link_event_trace_to_proto(proto->mutable_link_sm_records(), *tracer);
    }
    link_to_proto(proto->mutable_link_status(), port);
    if (type != sdk::types::PORT_TYPE_MGMT) {
        svc::xcvr_to_proto(proto->mutable_xcvr_status(), port);
    }
}

void nyx_port_api_info_to_proto(void *info, void *ctxt) {
    const auto &record = *static_cast<const nyx_if_info_s *>(info);
    if (record.spec.type != NYX_IF_TYPE_ETH) {
        return;
    }
    auto *proto = static_cast<nyx::PortGetResponse *>(ctxt)->add_response();
    const sdk::types::port_type_t type = record.spec.port.port_type;
    spec_to_proto(proto->mutable_spec(), record);
    nyx_port_api_status_to_proto(proto->mutable_status(), &record.status, type);
    stats_to_proto(proto->mutable_stats(), record.stats, type);
}

void nyx_port_proto_to_api_spec(nyx_if_spec_s *spec, const nyx::PortSpec &proto) {
    spec->key = svc::key_to_api(proto.id());
    spec->type = NYX_IF_TYPE_ETH;
    port_spec_s &port = spec->port;
    port.setting_a = setting_to_api(proto.setting_a());
    port.port_type = static_cast<sdk::types::port_type_t>(
        svc::known_or_none(static_cast<uint32_t>(proto.port_type()), nyx::PortType_MAX));
    port.setting_b = setting_b_to_api(proto.setting_b());
    port.setting_c = setting_to_api(proto.setting_c());
    port.flag_a = proto.flag_a();
    port.number_a = proto.number_a();
    port.number_b = proto.number_b();
    port.setting_d = setting_to_api(proto.setting_d());
    port.flag_b = proto.flag_b();
    port.flag_c = proto.flag_c();
    port.setting_e = setting_to_api(proto.setting_e());
    port.number_c = proto.number_c();
}
