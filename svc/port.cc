#include "svc/port.h"

#include "agent_api/port.h"
#include "svc/common/batch.h"
#include "svc/common/call.h"
#include "svc/common/object_read.h"
#include "svc/common/trace.h"
#include "svc/port_record.h"

namespace {

// Named after the method: log lines start with the function's name.
void PortStatsReset(const types::Id *req, types::Empty *) {
    if (req->id().size() > sizeof(nyx_obj_key_s::id)) {
        // It would become the all-zero key, which may stand for all ports.
        SVC_TRACE_ERR("Port statistics not reset, id of {} bytes names no port", req->id().size());
        return;
    }
    const nyx_obj_key_s key = svc::key_to_api(req->id());
    (void)api::port_stats_reset(&key);
}

}  // namespace

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&PortSvcImpl::PortGet>("PortGet"),
    svc::method_of<&PortSvcImpl::PortUpdate>("PortUpdate"),
    svc::method_of<&PortSvcImpl::PortStatsReset>("PortStatsReset"),
};

PortSvcImpl::PortSvcImpl() : served(k_methods) {}

PortSvcImpl::~PortSvcImpl() = default;

sdk::sdk_ret_t nyx_svc_port_get(const nyx::PortGetRequest *req, nyx::PortGetResponse *rsp) {
    return svc::read_objects<nyx_if_info_s>(req, rsp, api::port_get, api::port_get_all,
                                            nyx_port_api_info_to_proto);
}

sdk::sdk_ret_t nyx_svc_port_update(const nyx::PortUpdateRequest *req, nyx::PortUpdateResponse *rsp) {
    if (!req) {
        return svc::report(sdk::SDK_RET_INVALID_ARG, rsp);
    }
    const auto outcome = svc::in_batch(req->batch_ctxt(), [&](uint64_t batch) {
        nyx_if_spec_s spec{};
        nyx_port_proto_to_api_spec(&spec, req->spec());
        return api::port_update(&spec, batch);
    });
    if (!outcome) {
        SVC_TRACE_ERR("Failed to create a new batch, port update failed");
    }
    return svc::report(outcome, rsp);
}

grpc::Status PortSvcImpl::PortGet(grpc::ServerContext *context, const nyx::PortGetRequest *req,
                                  nyx::PortGetResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_port_get);
}

grpc::Status PortSvcImpl::PortUpdate(grpc::ServerContext *context, const nyx::PortUpdateRequest *req,
                                     nyx::PortUpdateResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_port_update);
}

grpc::Status PortSvcImpl::PortStatsReset(grpc::ServerContext *context, const types::Id *req,
                                         types::Empty *rsp) {
    return svc::call(context, req, rsp, ::PortStatsReset);
}
