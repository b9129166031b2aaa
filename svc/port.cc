#include "svc/port.h"

#include "agent_api/port.h"
#include "svc/common/arena_call.h"
#include "svc/common/batch.h"
#include "svc/common/object_read.h"
#include "svc/common/trace.h"
#include "svc/port_record.h"

PortSvcImpl::~PortSvcImpl() = default;

sdk::sdk_ret_t nyx_svc_port_get(const nyx::PortGetRequest *req, nyx::PortGetResponse *rsp) {
    return svc::read_objects<nyx_if_info_s>(req, rsp, api::port_get, api::port_get_all,
                                            nyx_port_api_info_to_proto);
}

sdk::sdk_ret_t nyx_svc_port_update(const nyx::PortUpdateRequest *req, nyx::PortUpdateResponse *rsp) {
    if (!req) {
        rsp->set_api_status(types::API_STATUS_INVALID_ARG);
        return sdk::SDK_RET_INVALID_ARG;
    }
    svc::batch batch(req->batch_ctxt().batch_cookie());
    if (!batch.is_open()) {
        SVC_TRACE_ERR("Failed to create a new batch, port update failed");
        rsp->set_api_status(types::API_STATUS_ERROR);
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    nyx_if_spec_s spec{};
    nyx_port_proto_to_api_spec(&spec, req->spec());
    const auto ret = batch.finish(api::port_update(&spec, batch.handle()));
    rsp->set_api_status(sdk_ret_to_api_status(ret));
    return ret;
}

grpc::Status PortSvcImpl::PortGet(grpc::ServerContext *, const nyx::PortGetRequest *req,
                                  nyx::PortGetResponse *rsp) {
    (void)nyx_svc_port_get(req, rsp);
    return svc::status_of(*rsp);
}

grpc::Status PortSvcImpl::PortUpdate(grpc::ServerContext *, const nyx::PortUpdateRequest *req,
                                     nyx::PortUpdateResponse *rsp) {
    (void)nyx_svc_port_update(req, rsp);
    return grpc::Status::OK;
}

grpc::Status PortSvcImpl::PortStatsReset(grpc::ServerContext *, const types::Id *req, types::Empty *) {
    if (req->id().size() > sizeof(nyx_obj_key_s::id)) {
        // As the all-zero key it could reset more than was meant.
        SVC_TRACE_ERR("Port statistics not reset, id of {} bytes names no port", req->id().size());
        return grpc::Status::OK;
    }
    const nyx_obj_key_s key = svc::key_to_api(req->id());
    (void)api::port_stats_reset(&key);
    return grpc::Status::OK;
}
