#include "svc/lif_classic.h"

#include <algorithm>
#include <cstddef>
#include <span>

#include "agent_api/lif.h"
#include "agent_api/lif_impl.h"
#include "svc/common/call.h"
#include "svc/common/converters.h"
#include "svc/common/object_read.h"
#include "svc/common/text.h"

namespace {

using api::impl::quill_lif_impl;

constexpr uint32_t k_max_filters = 64;

// Null when the pipeline has no implementation object for the LIF, or one of another pipeline's. The table takes the
// address of the key, which is the one in the record.
const quill_lif_impl *implementation(const nyx_lif_info_s &lif) {
    const auto *key = reinterpret_cast<const uint8_t *>(&lif) + offsetof(nyx_lif_info_s, lif_id);
    auto *impl = static_cast<api::impl::lif_impl *>(api::impl::lif_impl_db()->lookup(key));
    return dynamic_cast<const quill_lif_impl *>(impl);
}

// Calls `append` with each filter of a list, in order.
template <class Filter, class Append>
void for_each_filter(const quill_lif_impl &impl,
                     void (quill_lif_impl::*list)(uint32_t *count, uint32_t capacity, Filter *filters) const,
                     Append append) {
    Filter filters[k_max_filters] = {};
    uint32_t count = 0;
    (impl.*list)(&count, k_max_filters, filters);
    for (const Filter &filter : std::span(filters, std::min(count, k_max_filters))) {
        append(filter);
    }
}

void filters_to_proto(nyx::LifClassicStatus *proto, const quill_lif_impl &impl) {
    for_each_filter<uint64_t>(impl, &quill_lif_impl::mac_filters,
                              [&](uint64_t mac) { proto->mutable_mac_filter()->add_mac_address(mac); });
    for_each_filter<uint32_t>(impl, &quill_lif_impl::vlan_filters,
                              [&](uint32_t vlan) { proto->mutable_vlan_filter()->add_vlan_id(vlan); });
    for_each_filter<api::impl::mac_vlan_filter_s>(
        impl, &quill_lif_impl::mac_vlan_filters, [&](api::impl::mac_vlan_filter_s filter) {
            auto *mac_vlan = proto->mutable_mac_vlan_filter()->add_mac_vlan();
            mac_vlan->set_mac_address(filter.mac);
            mac_vlan->set_vlan_id(filter.vlan);
        });
}

void status_to_proto(nyx::LifClassicStatus *proto, const quill_lif_impl &impl, const nyx_lif_info_s &lif) {
    proto->set_impl_value(impl.impl_value());
    proto->set_pinned_if_idx(impl.pinned_if_idx());
    proto->set_admin_status(static_cast<types::State>(svc::swapped_state(lif.admin_state)));
    proto->set_oper_status(static_cast<types::State>(svc::swapped_state(lif.oper_state)));
    auto *flags = proto->mutable_flags();
    flags->set_vlan_insert(impl.vlan_insert());
    flags->set_vlan_strip(impl.vlan_strip());
    flags->set_rdma(impl.rdma());
    flags->set_rdma_sniff(impl.rdma_sniff());
    flags->set_trunk(impl.trunk());
    auto *filters = proto->mutable_pkt_filters();
    filters->set_broadcast(impl.broadcast());
    filters->set_all_multicast(impl.all_multicast());
    filters->set_promiscuous(impl.promiscuous());
    filters_to_proto(proto, impl);
}

}  // namespace

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&LifClassicSvcImpl::LifClassicGet>("LifClassicGet"),
};

LifClassicSvcImpl::LifClassicSvcImpl() : served(k_methods) {}

LifClassicSvcImpl::~LifClassicSvcImpl() = default;

void nyx_lif_api_info_to_config_proto(void *info, void *ctxt) {
    const auto &lif = *static_cast<const nyx_lif_info_s *>(info);
    auto *proto = static_cast<nyx::LifClassicGetResponse *>(ctxt)->add_response();
    proto->mutable_spec()->set_id(svc::key_to_proto(lif.key));
    proto->mutable_spec()->set_name(svc::text_of(lif.name));
    if (const auto *impl = implementation(lif)) {
        status_to_proto(proto->mutable_status(), *impl, lif);
    }
}

sdk::sdk_ret_t nyx_svc_lif_classic_get(const nyx::LifClassicGetRequest *req,
                                       nyx::LifClassicGetResponse *rsp) {
    return svc::read_objects<nyx_lif_info_s>(req, rsp, nyx_lif_read, nyx_lif_read_all,
                                             nyx_lif_api_info_to_config_proto);
}

grpc::Status LifClassicSvcImpl::LifClassicGet(grpc::ServerContext *context,
                                              const nyx::LifClassicGetRequest *req,
                                              nyx::LifClassicGetResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_lif_classic_get);
}
