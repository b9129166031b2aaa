#include "svc/interface.h"

#include <optional>

#include "agent_api/control_plane.h"
#include "agent_api/interface.h"
#include "agent_api/lif.h"
#include "svc/common/batch.h"
#include "svc/common/call.h"
#include "svc/common/object_read.h"
#include "svc/common/text.h"
#include "svc/common/trace.h"
#include "svc/host_if_mac_changes.h"
#include "svc/interface_info.h"
#include "svc/interface_spec.h"
#include "svc/lif.h"

namespace {

bool if_api_bypassed() { return core::agent_state::state()->if_api_bypass; }

sdk::sdk_ret_t read(nyx_obj_key_s key) {
    nyx_if_info_s info{};
    return nyx_if_read(&key, &info);
}

// A request while its entries are handled.
struct request_s {
    const uint64_t batch;
    svc::host_if_mac_changes macs;
    std::optional<host_if_spec_s> first_host;  // among the changes
};

sdk::sdk_ret_t add_mac(const host_if_spec_s &host, request_s *request) {
    const auto ret = request->macs.add(host.name, host.mac);
    if (ret == sdk::SDK_RET_OK && !request->first_host) {
        request->first_host = host;
    }
    return ret;
}

bool has_name(const host_if_spec_s &host) { return !svc::host_if_mac_name(host.name).empty(); }

void log_failed_create(const host_if_spec_s &host) {
    SVC_TRACE_ERR("Failed to update host interface {} config with MAC {}", svc::log_text_of(host.name),
                  macaddr2str(host.mac.bytes, false));
}

// A host interface is not created in the agent, which reads its name and MAC address from the file at its next start.
sdk::sdk_ret_t create_host(const host_if_spec_s &host, request_s *request) {
    auto ret = sdk::SDK_RET_INVALID_ARG;
    if (!has_name(host) || !svc::is_set(host.mac)) {
        SVC_TRACE_ERR("Failed to create host interface, name and MAC address must be set");
    } else {
        ret = add_mac(host, request);
    }
    if (ret != sdk::SDK_RET_OK) {
        log_failed_create(host);
    }
    return ret;
}

sdk::sdk_ret_t create(nyx_if_spec_s &spec, request_s *request) {
    auto ret = nyx_ms::interface_create(&spec);
    if (ret == sdk::SDK_RET_OK && !if_api_bypassed()) {
        if (read(spec.key) != sdk::SDK_RET_LOOKUP_FAILURE) {
            SVC_TRACE_ERR("Failed to create interface {}, interface exists already", spec.key.str());
            return sdk::SDK_RET_ALREADY_PRESENT;
        }
        if (spec.type == NYX_IF_TYPE_HOST) {
            return create_host(spec.host, request);
        }
        ret = nyx_if_create(&spec, request->batch);
    }
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to create interface {}, err {}", spec.key.str(), ret);
    }
    return ret;
}

// A host interface that is given by its name and no id.
bool is_host_by_name(const nyx_if_spec_s &spec) {
    return !spec.key.valid() && spec.type == NYX_IF_TYPE_HOST && has_name(spec.host);
}

void log_failed_update(const host_if_spec_s &host) {
    SVC_TRACE_ERR("Failed to update interface {} to mac {} association", svc::log_text_of(host.name),
                  macaddr2str(host.mac.bytes, false));
}

sdk::sdk_ret_t update_host(const host_if_spec_s &host, request_s *request) {
    const auto ret = add_mac(host, request);
    if (ret != sdk::SDK_RET_OK) {
        log_failed_update(host);
    }
    return ret;
}

sdk::sdk_ret_t update(nyx_if_spec_s &spec, request_s *request) {
    auto ret = nyx_ms::interface_update(&spec);
    if (ret == sdk::SDK_RET_OK && !if_api_bypassed()) {
        const auto read_ret = read(spec.key);
        if (read_ret != sdk::SDK_RET_OK && is_host_by_name(spec)) {
            return update_host(spec.host, request);
        }
        if (read_ret != sdk::SDK_RET_OK) {
            SVC_TRACE_ERR("Failed to read interface {}, err {}", spec.key.str(), read_ret);
            return read_ret;
        }
        ret = nyx_if_update(&spec, request->batch);
    }
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to update interface {}, err {}", spec.key.str(), ret);
    }
    return ret;
}

sdk::sdk_ret_t remove(nyx_obj_key_s key, uint64_t batch) {
    if (const auto ret = nyx_ms::interface_delete(&key, batch)) {
        SVC_TRACE_ERR("Failed to delete interface {}, interface not found", key.str());
        return ret;
    }
    if (if_api_bypassed()) {
        return sdk::SDK_RET_OK;
    }
    SVC_TRACE_DEBUG("Deleting interface {}", key.str());
    if (read(key) != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to delete interface {}, interface not found", key.str());
        return sdk::SDK_RET_LOOKUP_FAILURE;
    }
    const auto ret = nyx_if_delete(&key, batch);
    if (ret != sdk::SDK_RET_OK) {
        SVC_TRACE_ERR("Failed to delete interface {}, err {}", key.str(), ret);
    }
    return ret;
}

struct operation_s {
    sdk::sdk_ret_t (*write)(nyx_if_spec_s &spec, request_s *request);
    void (*log_failed_host)(const host_if_spec_s &host);
};
constexpr operation_s k_create = {create, log_failed_create}, k_update = {update, log_failed_update};

// The entries in order up to the first failure.
sdk::sdk_ret_t write_entries(const nyx::InterfaceRequest &req, const operation_s &operation,
                             request_s *request) {
    for (const auto &proto : req.request()) {
        if (svc::client_has_left()) {
            return sdk::SDK_RET_OPERATION_TIMED_OUT;
        }
        nyx_if_spec_s spec{};
        auto ret = nyx_if_proto_to_api_spec(&spec, proto);
        if (ret == sdk::SDK_RET_OK) {
            ret = operation.write(spec, request);
        }
        if (ret != sdk::SDK_RET_OK) {
            return ret;
        }
    }
    return sdk::SDK_RET_OK;
}

sdk::sdk_ret_t write_all(const nyx::InterfaceRequest &req, uint64_t batch, const operation_s &operation) {
    request_s request = {.batch = batch, .macs = {}, .first_host = {}};
    const auto ret = write_entries(req, operation, &request);
    // After a failure, too: what comes before it is stored. If the file can't be written, the first host interface has
    // failed, and that came before any other failure.
    const auto macs_ret = request.macs.write();
    if (macs_ret != sdk::SDK_RET_OK) {
        operation.log_failed_host(*request.first_host);
        return macs_ret;
    }
    return ret;
}

sdk::sdk_ret_t remove_all(const nyx::InterfaceDeleteRequest &req, uint64_t batch) {
    for (const auto &id : req.id()) {
        if (svc::client_has_left()) {
            return sdk::SDK_RET_OPERATION_TIMED_OUT;
        }
        if (const auto ret = remove(svc::key_to_api(id), batch)) {
            return ret;
        }
    }
    return sdk::SDK_RET_OK;
}

}  // namespace

static constexpr svc::method_s k_methods[] = {
    svc::method_of<&IfSvcImpl::InterfaceCreate>("InterfaceCreate"),
    svc::method_of<&IfSvcImpl::InterfaceUpdate>("InterfaceUpdate"),
    svc::method_of<&IfSvcImpl::InterfaceDelete>("InterfaceDelete"),
    svc::method_of<&IfSvcImpl::InterfaceGet>("InterfaceGet"),
    svc::method_of<&IfSvcImpl::LifGet>("LifGet"),
    svc::method_of<&IfSvcImpl::LifStatsReset>("LifStatsReset"),
};

IfSvcImpl::IfSvcImpl() : served(k_methods) {}

IfSvcImpl::~IfSvcImpl() = default;

sdk::sdk_ret_t nyx_svc_interface_create(const nyx::InterfaceRequest *req, nyx::InterfaceResponse *rsp) {
    if (!req || req->request().empty()) {
        return svc::report(sdk::SDK_RET_INVALID_ARG, rsp);
    }
    const auto outcome =
        svc::in_batch(req->batch_ctxt(), [&](uint64_t batch) { return write_all(*req, batch, k_create); });
    if (!outcome) {
        SVC_TRACE_ERR("Failed to create a new batch, interface creation failed");
    }
    return svc::report(outcome, rsp);
}

sdk::sdk_ret_t nyx_svc_interface_update(const nyx::InterfaceRequest *req, nyx::InterfaceResponse *rsp) {
    if (!req || req->request().empty()) {
        return svc::report(sdk::SDK_RET_INVALID_ARG, rsp);
    }
    const auto outcome =
        svc::in_batch(req->batch_ctxt(), [&](uint64_t batch) { return write_all(*req, batch, k_update); });
    if (!outcome) {
        SVC_TRACE_ERR("Failed to create a new batch, interface update failed");
    }
    return svc::report(outcome, rsp);
}

sdk::sdk_ret_t nyx_svc_interface_delete(const nyx::InterfaceDeleteRequest *req,
                                        nyx::InterfaceDeleteResponse *rsp) {
    if (!req || req->id().empty()) {
        rsp->add_api_status(types::API_STATUS_INVALID_ARG);
        return sdk::SDK_RET_INVALID_ARG;
    }
    const auto outcome =
        svc::in_batch(req->batch_ctxt(), [&](uint64_t batch) { return remove_all(*req, batch); });
    if (!outcome) {
        SVC_TRACE_ERR("Failed to create a new batch, interface delete failed");
        rsp->add_api_status(types::API_STATUS_ERROR);
        return sdk::SDK_RET_GENERIC_ERROR;
    }
    const bool is_own_batch = req->batch_ctxt().batch_cookie() == 0;
    for (int i = 0; is_own_batch && i < req->id_size(); i++) {
        rsp->add_api_status(sdk_ret_to_api_status(*outcome));
    }
    return *outcome;
}

void nyx_svc_interface_get(const nyx::InterfaceGetRequest *req, nyx::InterfaceGetResponse *rsp) {
    const auto read_one = [](nyx_obj_key_s *key, nyx_if_info_s *info) {
        return if_api_bypassed() ? sdk::SDK_RET_OK : nyx_if_read(key, info);
    };
    (void)svc::read_objects<nyx_if_info_s>(req, rsp, read_one, nyx_if_read_all, nyx_if_api_info_to_proto);
}

grpc::Status IfSvcImpl::InterfaceCreate(grpc::ServerContext *context, const nyx::InterfaceRequest *req,
                                        nyx::InterfaceResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_interface_create);
}

grpc::Status IfSvcImpl::InterfaceUpdate(grpc::ServerContext *context, const nyx::InterfaceRequest *req,
                                        nyx::InterfaceResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_interface_update);
}

grpc::Status IfSvcImpl::InterfaceDelete(grpc::ServerContext *context, const nyx::InterfaceDeleteRequest *req,
                                        nyx::InterfaceDeleteResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_interface_delete);
}

grpc::Status IfSvcImpl::InterfaceGet(grpc::ServerContext *context, const nyx::InterfaceGetRequest *req,
                                     nyx::InterfaceGetResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_interface_get);
}

grpc::Status IfSvcImpl::LifGet(grpc::ServerContext *context, const nyx::LifGetRequest *req,
                               nyx::LifGetResponse *rsp) {
    return svc::call(context, req, rsp, nyx_svc_lif_get);
}

grpc::Status IfSvcImpl::LifStatsReset(grpc::ServerContext *context, const types::Id *req, types::Empty *rsp) {
    return svc::call(context, req, rsp, [&] {
        nyx_obj_key_s key = svc::key_to_api(req->id());
        (void)nyx_lif_stats_reset(req->id().empty() ? nullptr : &key);
    });
}
