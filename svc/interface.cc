#include "svc/interface.h"

#include <algorithm>

#include "agent_api/control_plane.h"
#include "agent_api/interface.h"
#include "svc/common/arena_call.h"
#include "svc/common/batch.h"
#include "svc/common/object_read.h"
#include "svc/common/text.h"
#include "svc/common/trace.h"
#include "svc/host_if_mac.h"
#include "svc/interface_info.h"
#include "svc/interface_spec.h"

namespace {

bool if_api_bypassed() { return core::agent_state::state()->if_api_bypass; }

sdk::sdk_ret_t read(nyx_obj_key_s key) {
    nyx_if_info_s info{};
    return nyx_if_read(&key, &info);
}

bool is_set(mac_addr_s mac) {
    return std::ranges::any_of(mac.bytes, [](uint8_t byte) { return byte != 0; });
}

// A host interface is not created in the agent: it will find name and MAC address when it starts.
sdk::sdk_ret_t create_host(nyx_if_spec_s &spec) {
    auto ret = sdk::SDK_RET_INVALID_ARG;
    if (!spec.host.name[0] || !is_set(spec.host.mac)) {
        SVC_TRACE_ERR("Failed to create host interface, name and MAC address must be set");
    } else {
        ret = host_if_mac_update(spec.host.name, spec.host.mac.bytes);
    }
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to update host interface {} config with MAC {}",
                      svc::log_text_of(spec.host.name), macaddr2str(spec.host.mac.bytes, false));
    }
    return ret;
}

sdk::sdk_ret_t create(nyx_if_spec_s &spec, uint64_t batch) {
    auto ret = nyx_ms::interface_create(&spec);
    if (ret == sdk::SDK_RET_OK && !if_api_bypassed()) {
        if (read(spec.key) != sdk::SDK_RET_LOOKUP_FAILURE) {
            SVC_TRACE_ERR("Failed to create interface {}, interface exists already", spec.key.str());
            return sdk::SDK_RET_ALREADY_PRESENT;
        }
        if (spec.type == NYX_IF_TYPE_HOST) {
            return create_host(spec);
        }
        ret = nyx_if_create(&spec, batch);
    }
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to create interface {}, err {}", spec.key.str(), ret);
    }
    return ret;
}

// A host interface that is given by its name alone.
bool is_host_by_name(const nyx_if_spec_s &spec) {
    return !spec.key.valid() && spec.type == NYX_IF_TYPE_HOST && spec.host.name[0];
}

sdk::sdk_ret_t update_host_mac(nyx_if_spec_s &spec) {
    const auto ret = host_if_mac_update(spec.host.name, spec.host.mac.bytes);
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to update interface {} to mac {} association", svc::log_text_of(spec.host.name),
                      macaddr2str(spec.host.mac.bytes, false));
    }
    return ret;
}

sdk::sdk_ret_t update(nyx_if_spec_s &spec, uint64_t batch) {
    auto ret = nyx_ms::interface_update(&spec);
    if (ret == sdk::SDK_RET_OK && !if_api_bypassed()) {
        const auto read_ret = read(spec.key);
        if (read_ret != sdk::SDK_RET_OK && is_host_by_name(spec)) {
            return update_host_mac(spec);
        }
        if (read_ret != sdk::SDK_RET_OK) {
            SVC_TRACE_ERR("Failed to read interface {}, err {}", spec.key.str(), read_ret);
            return read_ret;
        }
        ret = nyx_if_update(&spec, batch);
    }
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to update interface {}, err {}", spec.key.str(), ret);
    }
    return ret;
}

sdk::sdk_ret_t remove(nyx_obj_key_s key, uint64_t batch) {
    auto ret = nyx_ms::interface_delete(&key, batch);
    if (ret == sdk::SDK_RET_OK && if_api_bypassed()) {
        return ret;
    }
    if (ret == sdk::SDK_RET_OK) {
        SVC_TRACE_DEBUG("Deleting interface {}", key.str());
        ret = read(key) == sdk::SDK_RET_OK ? sdk::SDK_RET_OK : sdk::SDK_RET_LOOKUP_FAILURE;
    }
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to delete interface {}, interface not found", key.str());
        return ret;
    }
    ret = nyx_if_delete(&key, batch);
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to delete interface {}, err {}", key.str(), ret);
    }
    return ret;
}

// Create and update: the entries in order up to the first failure, in the request's batch.
sdk::sdk_ret_t write_all(const nyx::InterfaceRequest &req, uint64_t batch,
                         sdk::sdk_ret_t (*write)(nyx_if_spec_s &spec, uint64_t batch)) {
    for (const auto &proto : req.request()) {
        nyx_if_spec_s spec{};
        auto ret = nyx_if_proto_to_api_spec(&spec, proto);
        if (ret == sdk::SDK_RET_OK) {
            ret = write(spec, batch);
        }
        if (ret != sdk::SDK_RET_OK) {
            return ret;
        }
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t remove_all(const nyx::InterfaceDeleteRequest &req, uint64_t batch) {
    for (const auto &id : req.id()) {
        if (const auto ret = remove(svc::key_to_api(id), batch)) {
            return ret;
        }
    }
    return sdk::SDK_RET_OK;
}

}  // namespace

IfSvcImpl::IfSvcImpl() {
    MarkMethodCallback(svc::method_index("nyx.IfSvc.InterfaceGet"), svc::in_arena<nyx_svc_interface_get>());
    MarkMethodCallback(svc::method_index("nyx.IfSvc.LifGet"), svc::in_arena<nyx_svc_lif_get>());
}

IfSvcImpl::~IfSvcImpl() = default;

sdk::sdk_ret_t nyx_svc_interface_create(const nyx::InterfaceRequest *req, nyx::InterfaceResponse *rsp) {
    if (!req || req->request().empty()) {
        rsp->set_api_status(types::API_STATUS_INVALID_ARG);
        return sdk::SDK_RET_INVALID_ARG;
    }
    svc::batch batch(req->batch_ctxt().batch_cookie());
    if (!batch.is_open()) {
        SVC_TRACE_ERR("Failed to create a new batch, interface creation failed");
        rsp->set_api_status(types::API_STATUS_ERROR);
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    const auto ret = batch.finish(write_all(*req, batch.handle(), create));
    rsp->set_api_status(sdk_ret_to_api_status(ret));
    return ret;
}

sdk::sdk_ret_t nyx_svc_interface_update(const nyx::InterfaceRequest *req, nyx::InterfaceResponse *rsp) {
    if (!req || req->request().empty()) {
        rsp->set_api_status(types::API_STATUS_INVALID_ARG);
        return sdk::SDK_RET_INVALID_ARG;
    }
    svc::batch batch(req->batch_ctxt().batch_cookie());
    if (!batch.is_open()) {
        SVC_TRACE_ERR("Failed to create a new batch, interface update failed");
        rsp->set_api_status(types::API_STATUS_ERROR);
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    const auto ret = batch.finish(write_all(*req, batch.handle(), update));
    rsp->set_api_status(sdk_ret_to_api_status(ret));
    return ret;
}

sdk::sdk_ret_t nyx_svc_interface_delete(const nyx::InterfaceDeleteRequest *req,
                                        nyx::InterfaceDeleteResponse *rsp) {
    if (!req || req->id().empty()) {
        rsp->add_api_status(types::API_STATUS_INVALID_ARG);
        return sdk::SDK_RET_INVALID_ARG;
    }
    svc::batch batch(req->batch_ctxt().batch_cookie());
    if (!batch.is_open()) {
        SVC_TRACE_ERR("Failed to create a new batch, interface delete failed");
        rsp->add_api_status(types::API_STATUS_ERROR);
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    const auto ret = batch.finish(remove_all(*req, batch.handle()));
    for (int i = 0; batch.is_own() && i < req->id_size(); i++) {
        rsp->add_api_status(sdk_ret_to_api_status(ret));
    }
    return ret;
}

void nyx_svc_interface_get(const nyx::InterfaceGetRequest *req, nyx::InterfaceGetResponse *rsp) {
    const auto read_one = [](nyx_obj_key_s *key, nyx_if_info_s *info) {
        return if_api_bypassed() ? sdk::SDK_RET_OK : nyx_if_read(key, info);
    };
    (void)svc::read_objects<nyx_if_info_s>(req, rsp, read_one, nyx_if_read_all, nyx_if_api_info_to_proto);
}

grpc::Status IfSvcImpl::InterfaceCreate(grpc::ServerContext *, const nyx::InterfaceRequest *req,
                                        nyx::InterfaceResponse *rsp) {
    (void)nyx_svc_interface_create(req, rsp);
    return grpc::Status::OK;
}

grpc::Status IfSvcImpl::InterfaceUpdate(grpc::ServerContext *, const nyx::InterfaceRequest *req,
                                        nyx::InterfaceResponse *rsp) {
    (void)nyx_svc_interface_update(req, rsp);
    return grpc::Status::OK;
}

grpc::Status IfSvcImpl::InterfaceDelete(grpc::ServerContext *, const nyx::InterfaceDeleteRequest *req,
                                        nyx::InterfaceDeleteResponse *rsp) {
    (void)nyx_svc_interface_delete(req, rsp);
    return grpc::Status::OK;
}

grpc::Status IfSvcImpl::InterfaceGet(grpc::ServerContext *, const nyx::InterfaceGetRequest *req,
                                     nyx::InterfaceGetResponse *rsp) {
    nyx_svc_interface_get(req, rsp);
    return grpc::Status::OK;
}
