#include "agent_api/interface_lldp.h"

#include <algorithm>
#include <iterator>

#include "svc/common/converters.h"
#include "svc/common/text.h"
#include "svc/interface_info.h"

namespace {

void id_to_proto(nyx::LldpId *proto, uint32_t type, const char (&value)[64]) {
    proto->set_type(svc::enumerator_or_none(type, nyx::LldpIdType_MAX));
    proto->set_value(svc::text_of(value));
}

void chassis_to_proto(nyx::LldpIfChassisInfo *proto, const lldp_if_status_s &status) {
    proto->set_system_name(svc::text_of(status.system_name));
    id_to_proto(proto->mutable_chassis_id(), status.chassis_id_type, status.chassis_id);
    proto->set_system_description(svc::text_of(status.system_description));
    proto->mutable_mgmt_address()->set_af(types::IP_AF_INET);
    proto->mutable_mgmt_address()->set_v4_addr(status.mgmt_ipv4);
    const size_t count = std::min<size_t>(status.num_capability, std::size(status.capability));
    for (size_t i = 0; i < count; i++) {
        auto *capability = proto->add_capability();
        capability->set_cap_type(svc::enumerator_or_none(status.capability[i].type, nyx::LldpCapType_MAX));
        capability->set_enabled(status.capability[i].enabled);
    }
}

void port_to_proto(nyx::LldpIfPortStatus *proto, const lldp_if_status_s &status) {
    id_to_proto(proto->mutable_port_id_info(), status.port_id_type, status.port_id);
    proto->set_port_description(svc::text_of(status.port_description));
    proto->set_port_value(status.port_number);
}

void tlv_to_proto(nyx::LldpUnknownTlvStatus *proto, const lldp_unknown_tlv_s &tlv) {
    proto->set_tlv_text_1(svc::text_of(tlv.text_1));
    proto->set_tlv_number_1(tlv.number_1);
    proto->set_tlv_number_2(tlv.number_2);
    proto->set_tlv_text_2(svc::text_of(tlv.text_2));
}

void side_to_proto(nyx::LldpIfStatus *proto, const lldp_if_status_s &status) {
    proto->set_if_name(svc::text_of(status.if_name));
    proto->set_value_1(status.number);
    proto->set_kind(svc::enumerator_or_none(status.kind, nyx::LldpKind_MAX));
    proto->set_text(base::to_utf8(status.text));
    chassis_to_proto(proto->mutable_chassis_info(), status);
    port_to_proto(proto->mutable_port_status(), status);
    const size_t count = std::min<size_t>(status.num_unknown_tlv, std::size(status.unknown_tlv));
    for (size_t i = 0; i < count; i++) {
        tlv_to_proto(proto->add_unknown_tlv(), status.unknown_tlv[i]);
    }
}

}  // namespace

void nyx_if_lldp_status_to_proto(nyx::UplinkIfStatus *proto, uint16_t lldp_if_index) {
    nyx_if_lldp_status_s status{};
    (void)core::interface_lldp_status_get(lldp_if_index, &status);
    side_to_proto(proto->mutable_lldp_status()->mutable_local_if_status(), status.local);
    side_to_proto(proto->mutable_lldp_status()->mutable_neighbor_if_status(), status.neighbor);
}
