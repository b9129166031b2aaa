#include "svc/interface_info.h"

#include <algorithm>
#include <iterator>

#include "agent_api/interface_lldp.h"
#include "svc/common/converters.h"
#include "svc/common/text.h"

namespace {

void encap_to_proto(types::Encap *proto, const encap_s &encap) {
    switch (encap.type) {
        case types::ENCAP_TYPE_NONE:
            break;
        case types::ENCAP_TYPE_DOT1Q:
            proto->mutable_value()->set_val_vlan(encap.value.vlan);
            break;
        case types::ENCAP_TYPE_QINQ:
            proto->mutable_value()->mutable_val_qinq()->set_tag_1(encap.value.qinq.tag_1);
            proto->mutable_value()->mutable_val_qinq()->set_tag_2(encap.value.qinq.tag_2);
            break;
        case types::ENCAP_TYPE_WORD_2:
            proto->mutable_value()->set_val_word_2(encap.value.word);
            break;
        case types::ENCAP_TYPE_WORD_3:
            proto->mutable_value()->set_val_word_3(encap.value.word);
            break;
        case types::ENCAP_TYPE_WORD_5:
            proto->mutable_value()->set_val_word_5(encap.value.word);
            break;
        default:
            return;
    }
    proto->set_type(static_cast<types::EncapType>(encap.type));
}

void l3_to_proto(nyx::L3IfSpec *proto, const l3_if_spec_s &l3) {
    proto->set_vpc_id(svc::key_to_proto(l3.vpc));
    proto->set_port_id(svc::key_to_proto(l3.port));
    proto->set_mac_address(svc::mac_addr_to_proto(l3.mac));
    encap_to_proto(proto->mutable_encap(), l3.encap);
    for (const ip_prefix_s &pfx : l3.prefix) {
        if (svc::has_family(pfx)) {
            svc::ip_prefix_to_proto(proto->add_prefix(), pfx);
        }
    }
}

void loopback_to_proto(nyx::LoopbackIfSpec *proto, const loopback_if_spec_s &loopback) {
    if (svc::has_family(loopback.prefix)) {
        svc::ip_prefix_to_proto(proto->mutable_prefix(), loopback.prefix);
    }
    const size_t count = std::min<size_t>(loopback.num_bgp_community, std::size(loopback.bgp_community));
    for (size_t i = 0; i < count; i++) {
        auto *community = proto->add_bgp_community();
        community->set_part_1(loopback.bgp_community[i].part_1);
        community->set_part_2(loopback.bgp_community[i].part_2);
    }
}

void control_to_proto(nyx::ControlIfSpec *proto, const control_if_spec_s &control) {
    if (svc::has_family(control.prefix)) {
        svc::ip_prefix_to_proto(proto->mutable_prefix(), control.prefix);
    }
    proto->set_mac_address(svc::mac_addr_to_proto(control.mac));
}

template <size_t N>
void keys_to_proto(google::protobuf::RepeatedPtrField<std::string> *ids, const nyx_obj_key_s (&keys)[N],
                   size_t count) {
    for (size_t i = 0; i < std::min(count, N); i++) {
        *ids->Add() =
            svc::key_to_proto(keys[i]);  // the other Add() leaves a wild pointer when memory runs out
    }
}

void learning_to_proto(types::LearnSpec *proto, const host_if_spec_s &host) {
    proto->set_learn_mode(svc::enumerator_or_none(host.learn_mode, types::LearnMode_MAX));
    proto->set_aging_timeout(host.aging_timeout);
    auto *source = proto->mutable_learn_source();
    source->set_source_1(host.learn_source[0]);
    source->set_source_2(host.learn_source[1]);
    source->set_source_3(host.learn_source[2]);
}

void host_to_proto(nyx::HostIfSpec *proto, const host_if_spec_s &host) {
    proto->set_host_flag_1(host.flag_1);
    proto->set_host_flag_2(host.flag_2);
    proto->set_host_flag_3(host.flag_3);
    if (host.ref.valid()) {
        proto->set_ref_id(svc::key_to_proto(host.ref));
    }
    proto->set_mac_address(svc::mac_addr_to_proto(host.mac));
    proto->set_flow_log_action(svc::enumerator_or_none(host.flow_log_action, types::FlowLogAction_MAX));
    if (host.has_flow_log_spec) {
        auto *flow_log = proto->mutable_flow_log_spec();
        flow_log->set_log_flag_1(host.log_flag[0]);
        flow_log->set_log_flag_2(host.log_flag[1]);
        flow_log->set_log_flag_3(host.log_flag[2]);
    }
    if (host.learn_mode) {
        learning_to_proto(proto->mutable_learn_spec(), host);
    }
}

void spec_to_proto(nyx::InterfaceSpec *proto, const nyx_if_spec_s &spec) {
    proto->set_id(svc::key_to_proto(spec.key));
    proto->set_admin_status(static_cast<types::State>(svc::swapped_state(spec.admin_state)));
    switch (spec.type) {
        case NYX_IF_TYPE_UPLINK:
            proto->mutable_uplink_spec()->set_port_id(svc::key_to_proto(spec.uplink.port));
            break;
        case NYX_IF_TYPE_L3:
            l3_to_proto(proto->mutable_l3_if_spec(), spec.l3);
            break;
        case NYX_IF_TYPE_LOOPBACK:
            loopback_to_proto(proto->mutable_loopback_if_spec(), spec.loopback);
            break;
        case NYX_IF_TYPE_CONTROL:
            control_to_proto(proto->mutable_control_if_spec(), spec.control);
            break;
        case NYX_IF_TYPE_HOST:
            host_to_proto(proto->mutable_host_if_spec(), spec.host);
            keys_to_proto(proto->mutable_tx_mirror_session(), spec.tx_mirror_session,
                          spec.num_tx_mirror_session);
            keys_to_proto(proto->mutable_rx_mirror_session(), spec.rx_mirror_session,
                          spec.num_rx_mirror_session);
            break;
        default:
            break;
    }
}

void status_to_proto(nyx::InterfaceStatus *proto, const nyx_if_status_s &status, nyx_if_type_e type) {
    proto->set_if_index(status.if_index);
    proto->set_oper_status(static_cast<types::State>(svc::swapped_state(status.oper_state)));
    if (type == NYX_IF_TYPE_UPLINK) {
        auto *uplink = proto->mutable_uplink_if_status();
        uplink->set_lldp_if_index(status.uplink.lldp_if_index);
        nyx_if_lldp_status_to_proto(uplink, status.uplink.lldp_if_index);
    } else if (type == NYX_IF_TYPE_HOST) {
        auto *host = proto->mutable_host_if_status();
        host->set_name(svc::text_of(status.host.name));
        host->set_mac_address(svc::mac_addr_to_proto(status.host.mac));
        keys_to_proto(host->mutable_member_id(), status.host.member, status.host.num_member);
    }
}

void lldp_stats_to_proto(nyx::LldpIfStats *proto, uint16_t lldp_if_index) {
    nyx_if_lldp_stats_s stats{};
    (void)core::interface_lldp_stats_get(lldp_if_index, &stats);
    proto->set_lldp_counter_1(stats.counter_1);
    proto->set_lldp_counter_2(stats.counter_2);
    proto->set_lldp_counter_3(stats.counter_3);
    proto->set_lldp_counter_4(stats.counter_4);
}

}  // namespace

void nyx_if_api_info_to_proto(void *info, void *ctxt) {
    const auto &record = *static_cast<const nyx_if_info_s *>(info);
    auto *proto = static_cast<nyx::InterfaceGetResponse *>(ctxt)->add_response();
    const nyx_if_type_e type = record.spec.type;
    spec_to_proto(proto->mutable_spec(), record.spec);
    status_to_proto(proto->mutable_status(), record.status, type);
    auto *stats = proto->mutable_stats();
    if (type == NYX_IF_TYPE_UPLINK) {
        lldp_stats_to_proto(stats->mutable_uplink_if_stats()->mutable_lldp_stats(),
                            record.status.uplink.lldp_if_index);
    }
}
