#include "svc/interface_spec.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>

#include "svc/common/converters.h"
#include "svc/common/trace.h"

namespace {

constexpr int k_max_l3_prefixes = 2;
constexpr int k_max_bgp_communities = 1;
constexpr int k_max_mirror_sessions = 8;
constexpr uint32_t k_default_aging_timeout = 300;  // seconds

sdk::sdk_ret_t refuse_mirroring(const nyx::InterfaceSpec &proto, const nyx_if_spec_s &spec,
                                const char *kind) {
    if (!proto.tx_mirror_session().empty()) {
        SVC_TRACE_ERR("Tx Mirroring not supported on {} interface {}", kind, spec.key.str());
        return sdk::SDK_RET_INVALID_ARG;
    }
    if (!proto.rx_mirror_session().empty()) {
        SVC_TRACE_ERR("Rx Mirroring not supported on {} interface {}", kind, spec.key.str());
        return sdk::SDK_RET_INVALID_ARG;
    }
    return sdk::SDK_RET_OK;
}

// An invalid prefix is stored with family 0, but still counts towards the limit.
ip_prefix_s prefix_to_api(const types::IPPrefix &proto) {
    ip_prefix_s pfx{};
    (void)ippfx_proto_spec_to_api_spec(&pfx, proto);
    return pfx;
}

encap_s encap_to_api(const types::Encap &proto) {
    encap_s encap{};
    const types::EncapVal &value = proto.value();
    switch (proto.type()) {
        case types::ENCAP_TYPE_NONE:
            break;
        case types::ENCAP_TYPE_DOT1Q:
            encap.value.vlan = static_cast<uint16_t>(value.val_vlan());
            break;
        case types::ENCAP_TYPE_QINQ:
            encap.value.qinq.tag_1 = static_cast<uint16_t>(value.val_qinq().tag_1());
            encap.value.qinq.tag_2 = static_cast<uint16_t>(value.val_qinq().tag_2());
            break;
        case types::ENCAP_TYPE_WORD_2:
            encap.value.word = value.val_word_2();
            break;
        case types::ENCAP_TYPE_WORD_3:
            encap.value.word = value.val_word_3();
            break;
        case types::ENCAP_TYPE_WORD_5:
            encap.value.word = value.val_word_5();
            break;
        default:
            return encap;
    }
    encap.type = proto.type();
    return encap;
}

sdk::sdk_ret_t prefixes_to_api(nyx_if_spec_s *spec, const nyx::L3IfSpec &proto) {
    if (proto.prefix_size() > k_max_l3_prefixes) {
        SVC_TRACE_ERR("L3 interface {} more than {} IP prefixes configured", spec->key.str(),
                      k_max_l3_prefixes);
        return sdk::SDK_RET_INVALID_ARG;
    }
    for (int i = 0; i < proto.prefix_size(); i++) {
        spec->l3.prefix[i] = prefix_to_api(proto.prefix(i));
    }
    const uint8_t family = spec->l3.prefix[0].addr.af;
    if (proto.prefix_size() == k_max_l3_prefixes && family == spec->l3.prefix[1].addr.af) {
        SVC_TRACE_ERR("L3 interface {} has multiple IP prefixes of same address family {}", spec->key.str(),
                      family);
        return sdk::SDK_RET_INVALID_ARG;
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t l3_to_api(nyx_if_spec_s *spec, const nyx::L3IfSpec &proto) {
    spec->type = NYX_IF_TYPE_L3;
    spec->l3.vpc = svc::key_to_api(proto.vpc_id());
    spec->l3.port = svc::key_to_api(proto.port_id());
    spec->l3.encap = encap_to_api(proto.encap());
    spec->l3.mac = svc::mac_addr_to_api(proto.mac_address());
    return prefixes_to_api(spec, proto);
}

sdk::sdk_ret_t loopback_to_api(nyx_if_spec_s *spec, const nyx::LoopbackIfSpec &proto) {
    spec->type = NYX_IF_TYPE_LOOPBACK;
    spec->loopback.prefix = prefix_to_api(proto.prefix());
    if (proto.bgp_community_size() > k_max_bgp_communities) {
        SVC_TRACE_ERR("Loopback interface {} BGP communities exceeds max allowed {}", spec->key.str(),
                      k_max_bgp_communities);
        return sdk::SDK_RET_INVALID_ARG;
    }
    for (const auto &community : proto.bgp_community()) {
        spec->loopback.bgp_community[spec->loopback.num_bgp_community++] = {
            .part_1 = static_cast<uint16_t>(community.part_1()),
            .part_2 = static_cast<uint16_t>(community.part_2())};
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t control_to_api(nyx_if_spec_s *spec, const nyx::ControlIfSpec &proto) {
    spec->type = NYX_IF_TYPE_CONTROL;
    spec->control.prefix = prefix_to_api(proto.prefix());
    spec->control.mac = svc::mac_addr_to_api(proto.mac_address());
    return sdk::SDK_RET_OK;
}

// Returns the number of sessions that were stored.
uint8_t mirror_sessions_to_api(nyx_obj_key_s (&keys)[k_max_mirror_sessions],
                               const google::protobuf::RepeatedPtrField<std::string> &ids) {
    std::ranges::transform(ids, keys, svc::key_to_api);
    return static_cast<uint8_t>(ids.size());
}

sdk::sdk_ret_t mirroring_to_api(nyx_if_spec_s *spec, const nyx::InterfaceSpec &proto) {
    if (proto.tx_mirror_session_size() > k_max_mirror_sessions) {
        SVC_TRACE_ERR("No. of Tx mirror sessions on interface can't exceed {}", k_max_mirror_sessions);
        return sdk::SDK_RET_INVALID_ARG;
    }
    spec->num_tx_mirror_session = mirror_sessions_to_api(spec->tx_mirror_session, proto.tx_mirror_session());
    if (proto.rx_mirror_session_size() > k_max_mirror_sessions) {
        SVC_TRACE_ERR("No. of Rx mirror sessions on interface can't exceed {}", k_max_mirror_sessions);
        return sdk::SDK_RET_INVALID_ARG;
    }
    spec->num_rx_mirror_session = mirror_sessions_to_api(spec->rx_mirror_session, proto.rx_mirror_session());
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t flow_log_to_api(nyx_if_spec_s *spec, const nyx::HostIfSpec &proto) {
    host_if_spec_s &host = spec->host;
    const auto action = static_cast<uint32_t>(proto.flow_log_action());
    host.flow_log_action = svc::known_or_none(action, types::FlowLogAction_MAX);
    if (!proto.has_flow_log_spec()) {
        return sdk::SDK_RET_OK;
    }
    if (host.flow_log_action != types::FLOW_LOG_ACTION_SPEC) {
        SVC_TRACE_ERR("Flow log spec on interface {} not expected with flow log action {}", spec->key.str(),
                      static_cast<int>(proto.flow_log_action()));
        return sdk::SDK_RET_INVALID_ARG;
    }
    host.has_flow_log_spec = 1;
    host.log_flag[0] = proto.flow_log_spec().log_flag_1();
    host.log_flag[1] = proto.flow_log_spec().log_flag_2();
    host.log_flag[2] = proto.flow_log_spec().log_flag_3();
    return sdk::SDK_RET_OK;
}

void learning_to_api(host_if_spec_s &host, const nyx::HostIfSpec &proto) {
    const types::LearnSpec &learn = proto.learn_spec();
    host.learn_mode = svc::known_or_none(static_cast<uint32_t>(learn.learn_mode()), types::LearnMode_MAX);
    if (!host.learn_mode) {
        return;
    }
    host.aging_timeout = learn.aging_timeout() ? learn.aging_timeout() : k_default_aging_timeout;
    const bool all = !learn.has_learn_source();
    host.learn_source[0] = all || learn.learn_source().source_1();
    host.learn_source[1] = all || learn.learn_source().source_2();
    host.learn_source[2] = all || learn.learn_source().source_3();
}

sdk::sdk_ret_t host_to_api(nyx_if_spec_s *spec, const nyx::InterfaceSpec &proto) {
    const nyx::HostIfSpec &host = proto.host_if_spec();
    spec->type = NYX_IF_TYPE_HOST;
    spec->host.flag_1 = host.host_flag_1();
    spec->host.flag_2 = host.host_flag_2();
    spec->host.ref = svc::key_to_api(host.ref_id());
    if (const auto ret = mirroring_to_api(spec, proto)) {
        return ret;
    }
    spec->host.mac = svc::mac_addr_to_api(host.mac_address());
    if (const auto ret = flow_log_to_api(spec, host)) {
        return ret;
    }
    learning_to_api(spec->host, host);
    spec->host.flag_3 = host.host_flag_3();
    strncpy(spec->host.name, host.name().c_str(), sizeof(spec->host.name) - 1);
    return sdk::SDK_RET_OK;
}

}  // namespace

sdk::sdk_ret_t nyx_if_proto_to_api_spec(nyx_if_spec_s *spec, const nyx::InterfaceSpec &proto) {
    (void)nyx_obj_key_proto_to_api_spec(&spec->key, proto.id());
    spec->admin_state =
        static_cast<nyx_state_e>(svc::swapped_state(static_cast<uint32_t>(proto.admin_status())));
    auto ret = sdk::SDK_RET_OK;
    switch (proto.ifinfo_case()) {
        case nyx::InterfaceSpec::kUplinkSpec:
            spec->type = NYX_IF_TYPE_UPLINK;
            spec->uplink.port = svc::key_to_api(proto.uplink_spec().port_id());
            return sdk::SDK_RET_OK;
        case nyx::InterfaceSpec::kL3IfSpec:
            ret = refuse_mirroring(proto, *spec, "L3");
            return ret ? ret : l3_to_api(spec, proto.l3_if_spec());
        case nyx::InterfaceSpec::kLoopbackIfSpec:
            ret = refuse_mirroring(proto, *spec, "loopback");
            return ret ? ret : loopback_to_api(spec, proto.loopback_if_spec());
        case nyx::InterfaceSpec::kControlIfSpec:
            ret = refuse_mirroring(proto, *spec, "control");
            return ret ? ret : control_to_api(spec, proto.control_if_spec());
        case nyx::InterfaceSpec::kHostIfSpec:
            return host_to_api(spec, proto);
        default:
            return sdk::SDK_RET_INVALID_ARG;
    }
}
